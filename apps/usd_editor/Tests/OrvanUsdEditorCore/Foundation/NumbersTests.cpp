#include "Foundation/Numbers.h"

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

TEST(NumbersShortest, AlwaysShowsAFractionOrAnExponent) {
  EXPECT_EQ(formatShortestDouble(1.0), "1.0");
  EXPECT_EQ(formatShortestDouble(1e-05), "1e-05");
  EXPECT_EQ(formatShortestDouble(-0.0), "-0.0");
  EXPECT_EQ(formatShortestDouble(0.0), "0.0");
  EXPECT_EQ(formatShortestDouble(100.0), "100.0");
  EXPECT_EQ(formatShortestDouble(-3.0), "-3.0");
  EXPECT_EQ(formatShortestDouble(1e21), "1e+21");
  EXPECT_EQ(formatShortestDouble(123456789012345680.0), "123456789012345680.0");
  EXPECT_EQ(formatShortestDouble(1.5e300), "1.5e+300");
  EXPECT_EQ(formatShortestDouble(0.1), "0.1");
  EXPECT_EQ(formatShortestDouble(5e-324), "5e-324");
}

TEST(NumbersShortest, NonFiniteValuesHaveFixedTexts) {
  EXPECT_EQ(formatShortestDouble(std::numeric_limits<double>::infinity()), "inf");
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
  EXPECT_EQ(formatSixSignificantDigits(1.0), "1");
  EXPECT_EQ(formatSixSignificantDigits(0.1), "0.1");
  EXPECT_EQ(formatSixSignificantDigits(1234567.0), "1.23457e+06");
  EXPECT_EQ(formatSixSignificantDigits(123456.0), "123456");
  EXPECT_EQ(formatSixSignificantDigits(0.0001), "0.0001");
  EXPECT_EQ(formatSixSignificantDigits(0.00001), "1e-05");
  EXPECT_EQ(formatSixSignificantDigits(-2.5), "-2.5");
  EXPECT_EQ(formatSixSignificantDigits(0.1 + 0.2), "0.3");
  EXPECT_EQ(formatSixSignificantDigits(-0.0), "-0");
  for (double value : {3.14159265, 2.0 / 3.0, 1e100, 9.9999949, 9.9999951, 1e-300}) {
    char expected[64];
    std::snprintf(expected, sizeof expected, "%.6g", value);
    EXPECT_EQ(formatSixSignificantDigits(value), expected);
  }
}

}  // namespace
}  // namespace orvan::editor
