#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "Application/UserIdentity.h"

namespace orvan::editor {
namespace {

RandomBytes fixedBytes(unsigned char value) {
  return [value](unsigned char* out, std::size_t count) { std::fill(out, out + count, value); };
}

TEST(UserIdentityTest, SanitizedUserIdCollapsesOddRunsButKeepsRealDashes) {
  EXPECT_EQ(sanitizedUserId("  a b  ", "x"), "a-b");
  EXPECT_EQ(sanitizedUserId("///", "x"), "x");
  EXPECT_EQ(sanitizedUserId("a//b", "x"), "a-b");
  EXPECT_EQ(sanitizedUserId("a--b", "x"), "a--b");
  EXPECT_EQ(sanitizedUserId("a-/b", "x"), "a-b") << "an odd character after a dash adds nothing";
  EXPECT_EQ(sanitizedUserId("-_x_-", "f"), "_x_");
  EXPECT_EQ(sanitizedUserId("Jürgen.Ørsted", "f"), "Jürgen-Ørsted");
  EXPECT_EQ(sanitizedUserId("用户١٢", "f"), "用户١٢");
  EXPECT_EQ(sanitizedUserId("", ""), "");
  EXPECT_EQ(sanitizedUserId("a\xFF\xFE" "b", "f"), "a-b") << "invalid bytes are odd characters";
}

TEST(UserIdentityTest, SanitizedUserIdStopsAtFortyCharacters) {
  EXPECT_EQ(sanitizedUserId(std::string(60, 'a'), "x"), std::string(40, 'a'));
  // Characters, not bytes: forty two-byte letters stay whole.
  std::string umlauts;
  for (int i = 0; i < 45; ++i) umlauts += "ä";
  std::string forty;
  for (int i = 0; i < 40; ++i) forty += "ä";
  EXPECT_EQ(sanitizedUserId(umlauts, "x"), forty);
  // A run of odd characters counts once, so it does not eat into the limit.
  EXPECT_EQ(sanitizedUserId("a" + std::string(100, '/') + std::string(50, 'b'), "x"),
            "a-" + std::string(38, 'b'));
}

TEST(UserIdentityTest, InternalUserIdsAreSixteenHexDigitsAfterThePrefix) {
  EXPECT_EQ(makeInternalUserId("user", fixedBytes(0xab)), "user-abababababababab");
  EXPECT_EQ(makeInternalUserId("", fixedBytes(0x01)), "0101010101010101");
  std::set<std::string> ids;
  for (int i = 0; i < 50; ++i) ids.insert(makeInternalUserId("user"));
  EXPECT_EQ(ids.size(), 50u);
}

TEST(UserIdentityTest, NormalizedUserColorKeepsValidHexAndPicksFromThePaletteOtherwise) {
  EXPECT_EQ(normalizedUserColor("#2F80ED"), "#2f80ed");
  EXPECT_EQ(normalizedUserColor("  #a1b2c3\n"), "#a1b2c3");
  EXPECT_EQ(normalizedUserColor("blue", fixedBytes(3)), kUserColorPalette[3]);
  EXPECT_EQ(normalizedUserColor(std::nullopt, fixedBytes(12)), kUserColorPalette[2]);
  for (const char* bad : {"#12345", "#1234567", "#12345g", "123456#", ""}) {
    const std::string color = normalizedUserColor(bad);
    EXPECT_NE(std::find(kUserColorPalette.begin(), kUserColorPalette.end(), color),
              kUserColorPalette.end())
        << bad;
  }
}

TEST(UserIdentityTest, UserInitialIsTheFirstCharacterUpperCased) {
  EXPECT_EQ(userInitial("  ada lovelace"), "A");
  EXPECT_EQ(userInitial("élodie"), "É");
  EXPECT_EQ(userInitial(" \n "), "");
}

}  // namespace
}  // namespace orvan::editor
