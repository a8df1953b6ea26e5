#include "orvan/wire/Numbers.h"

#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>

namespace orvan::editor {
namespace {

TEST(NumbersShortest, AlwaysShowsAFractionOrAnExponentAndNonFiniteValuesHaveFixedTexts) {
  EXPECT_EQ(formatShortestDouble(1.0), "1.0");
  EXPECT_EQ(formatShortestDouble(-0.0), "-0.0");
  EXPECT_EQ(formatShortestDouble(1e-05), "1e-05");
  EXPECT_EQ(formatShortestDouble(1e21), "1e+21");
  EXPECT_EQ(formatShortestDouble(123456789012345680.0), "123456789012345680.0");
  EXPECT_EQ(formatShortestDouble(5e-324), "5e-324");
  EXPECT_EQ(formatShortestDouble(-std::numeric_limits<double>::infinity()), "-inf");
  EXPECT_EQ(formatShortestDouble(std::numeric_limits<double>::quiet_NaN()), "nan");
}

TEST(NumbersShortest, ReadsBackToTheSameDouble) {
  std::mt19937_64 random(20261122);
  for (int round = 0; round < 20000; ++round) {
    double value;
    const std::uint64_t bits = random();
    std::memcpy(&value, &bits, sizeof value);
    if (!std::isfinite(value)) {
      continue;
    }
    const std::string text = formatShortestDouble(value);
    double parsed = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), parsed);
    ASSERT_EQ(result.ec, std::errc()) << text;
    ASSERT_EQ(result.ptr, text.data() + text.size()) << text;
    ASSERT_EQ(std::memcmp(&parsed, &value, sizeof value), 0) << text;
    ASSERT_NE(text.find_first_of(".e"), std::string::npos) << text;
  }
}

TEST(NumbersSixSignificantDigits, MatchesTheCFormat) {
  for (double value : {1.0, 0.1 + 0.2, -2.5, -0.0, 123456.0, 1234567.0, 0.0001, 0.00001, 3.14159265,
                       9.9999949, 9.9999951, 1e-300}) {
    char expected[64];
    std::snprintf(expected, sizeof expected, "%.6g", value);
    EXPECT_EQ(formatSixSignificantDigits(value), expected);
  }
  EXPECT_EQ(formatSixSignificantDigits(1234567.0), "1.23457e+06");
}

}  // namespace
}  // namespace orvan::editor
