#include <gtest/gtest.h>

#include <cstdlib>

#include "Foundation/Logging.h"

namespace orvan::editor {
namespace {

TEST(LoggingTest, DiagnosticFlagIsOffOnlyForUnsetEmptyZeroOrFalse) {
  EXPECT_FALSE(isDiagnosticFlagValueEnabled(nullptr));
  EXPECT_FALSE(isDiagnosticFlagValueEnabled(""));
  EXPECT_FALSE(isDiagnosticFlagValueEnabled("0"));
  EXPECT_FALSE(isDiagnosticFlagValueEnabled("FaLsE"));
  EXPECT_TRUE(isDiagnosticFlagValueEnabled("no"));
  EXPECT_TRUE(isDiagnosticFlagValueEnabled("00"));

  ::setenv("ORVAN_TEST_ONLY_TIMING", "true", 1);
  EXPECT_TRUE(isDiagnosticFlagEnabled("ORVAN_TEST_ONLY_TIMING"));
  ::unsetenv("ORVAN_TEST_ONLY_TIMING");
  EXPECT_FALSE(isDiagnosticFlagEnabled("ORVAN_TEST_ONLY_TIMING"));
}

TEST(LoggingTest, TextTailKeepsTheEndAndNeverSplitsACharacter) {
  EXPECT_EQ(textTail("short", 10), "short");
  EXPECT_EQ(textTail("0123456789", 4), "…6789");
  // "é" is two bytes; a cut that would land between them moves forward.
  EXPECT_EQ(textTail("aaaéb", 2), "…b");
  EXPECT_EQ(textTail("aaaéb", 3), "…éb");
}

}  // namespace
}  // namespace orvan::editor
