#include <gtest/gtest.h>

#include "orvan/wire/Text.h"

namespace orvan::editor {
namespace {

TEST(TextTest, TrimsUnicodeWhitespaceAndNewlinesFromBothEndsOnly) {
  EXPECT_EQ(trimWhitespaceAndNewlines(" \t\r\n main \n"), "main");
  EXPECT_EQ(trimWhitespaceAndNewlines("\u00A0\u2028a b\u3000"), "a b");
  EXPECT_EQ(trimWhitespaceAndNewlines("   "), "");
  // A lone continuation byte at the end is not white space and must not be cut into.
  EXPECT_EQ(trimWhitespaceAndNewlines("a\x80"), "a\x80");
  EXPECT_EQ(trimWhitespaceAndNewlines(" \xC3"), "\xC3");
  EXPECT_TRUE(isBlank(" \n\u00A0"));
  EXPECT_FALSE(isBlank(" x "));
}

TEST(TextTest, ClassifiesUnicodeLettersAndDigits) {
  EXPECT_TRUE(isUnicodeLetter(U'Ж'));
  EXPECT_TRUE(isUnicodeLetter(0x0301)) << "combining accents count with the letter they modify";
  EXPECT_FALSE(isUnicodeLetter(U'_'));
  EXPECT_FALSE(isUnicodeLetter(U'3'));
  EXPECT_FALSE(isUnicodeLetter(0x110000));
  EXPECT_TRUE(isUnicodeDecimalDigit(U'٣'));
  EXPECT_FALSE(isUnicodeDecimalDigit(U'Ⅷ'));
  EXPECT_TRUE(isValidUtf8("\xc3\xa9"));
  EXPECT_FALSE(isValidUtf8("\xc3"));
}

TEST(TextTest, ComparesIgnoringCaseAcrossScriptsAndNormalForms) {
  EXPECT_TRUE(equalsIgnoringCase("Straße", "STRASSE"));
  EXPECT_TRUE(equalsIgnoringCase("ΣΊΣΥΦΟΣ", "σίσυφος"));
  EXPECT_TRUE(equalsIgnoringCase("Caf\u00E9", "CAFE\u0301"));
  EXPECT_FALSE(equalsIgnoringCase("abc", "abd"));
  EXPECT_FALSE(equalsIgnoringCase("abc", "ab"));
  EXPECT_EQ(lowercased("GRPCS://LocalHost:443"), "grpcs://localhost:443");
  EXPECT_EQ(lowercased("ÄÖ\xFF"), "äö\xFF") << "invalid bytes pass through unchanged";
}

TEST(TextTest, StandardizesAndJoinsPaths) {
  EXPECT_EQ(standardizePath("/x/y/./apps/../apps/bin/app"), "/x/y/apps/bin/app");
  EXPECT_EQ(standardizePath("/../../a//b/"), "/a/b");
  EXPECT_EQ(standardizePath("/"), "/");
  EXPECT_EQ(standardizePath("a/../../b"), "../b");
  EXPECT_EQ(standardizePath("a/.."), ".");
  EXPECT_EQ(standardizePath(""), "");
  EXPECT_EQ(joinPath("/p/", "s.usda"), "/p/s.usda");
  EXPECT_EQ(joinPath("", "s.usda"), "s.usda");
}

}  // namespace
}  // namespace orvan::editor
