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
  EXPECT_EQ(sanitizedUserId("a--b", "x"), "a--b");
  EXPECT_EQ(sanitizedUserId("a-/b", "x"), "a-b") << "an odd character after a dash adds nothing";
  EXPECT_EQ(sanitizedUserId("-_x_-", "f"), "_x_");
  EXPECT_EQ(sanitizedUserId("Jürgen.用户١٢", "f"), "Jürgen-用户١٢");
  EXPECT_EQ(sanitizedUserId(std::string("a\xFF\xFE") + "b", "f"), "a-b")
      << "invalid bytes are odd characters";
}

TEST(UserIdentityTest, SanitizedUserIdStopsAtFortyCharacters) {
  // Characters, not bytes: forty two-byte letters stay whole.
  std::string umlauts;
  for (int i = 0; i < 45; ++i) {
    umlauts += "ä";
  }
  EXPECT_EQ(sanitizedUserId(umlauts, "x"), umlauts.substr(0, 80));
  // A run of odd characters counts once, so it does not eat into the limit.
  EXPECT_EQ(sanitizedUserId("a" + std::string(100, '/') + std::string(50, 'b'), "x"),
            "a-" + std::string(38, 'b'));
}

TEST(UserIdentityTest, InternalUserIdsAreSixteenHexDigitsAfterThePrefix) {
  EXPECT_EQ(makeInternalUserId("user", fixedBytes(0xab)), "user-abababababababab");
  EXPECT_EQ(makeInternalUserId("", fixedBytes(0x01)), "0101010101010101");
  std::set<std::string> ids;
  for (int i = 0; i < 50; ++i) {
    ids.insert(makeInternalUserId("user"));
  }
  EXPECT_EQ(ids.size(), 50u);
}

TEST(UserIdentityTest, NormalizedUserColorKeepsValidHexAndPicksFromThePaletteOtherwise) {
  EXPECT_EQ(normalizedUserColor("  #2F80ED\n"), "#2f80ed");
  EXPECT_EQ(normalizedUserColor("#12345g", fixedBytes(3)), kUserColorPalette[3]);
  EXPECT_EQ(normalizedUserColor(std::nullopt, fixedBytes(12)), kUserColorPalette[2]);
  for (const char* bad : {"#12345", "#1234567", "123456#"}) {
    EXPECT_EQ(normalizedUserColor(bad, fixedBytes(0)), kUserColorPalette[0]) << bad;
  }
}

TEST(UserIdentityTest, UserInitialIsTheFirstCharacterUpperCased) {
  EXPECT_EQ(userInitial("  ada lovelace"), "A");
  EXPECT_EQ(userInitial("élodie"), "É");
  EXPECT_EQ(userInitial(" \n "), "");
}

}  // namespace
}  // namespace orvan::editor
