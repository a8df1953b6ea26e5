// The tokenizer: what each token is, where it starts, and which text it refuses.
#include <gtest/gtest.h>

#include "UsdText/LayerReader.h"
#include "UsdText/Tokenizer.h"

namespace orvan::engine {
namespace {

struct Seen {
  TokenKind kind;
  std::string text;
  std::uint32_t line;
  std::uint32_t column;
  bool operator==(const Seen&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Seen& seen) {
  return out << static_cast<int>(seen.kind) << " '" << seen.text << "' " << seen.line << ":"
             << seen.column;
}

std::vector<Seen> tokenize(std::string_view text) {
  Tokenizer tokenizer(text);
  std::vector<Seen> seen;
  for (Token token = tokenizer.next(); token.kind != TokenKind::End; token = tokenizer.next()) {
    seen.push_back({token.kind, std::string(token.text), token.line, token.column});
    if (token.kind == TokenKind::Invalid)
      break;
  }
  return seen;
}

TEST(Tokenizer, EveryKindOfTokenWithItsPosition) {
  const auto seen = tokenize(
      "# note\r\n"
      "  word:ns:deep 1.5e-3 -2 .5 -inf\r\n"
      "\"\"\"two\nlines\"\"\" @a.usda@ @@@b@c@@@ </P.x>\n"
      "(]=. name.connect 0:");
  const std::vector<Seen> expected{
      {TokenKind::Identifier, "word:ns:deep", 2, 3},
      {TokenKind::Number, "1.5e-3", 2, 16},
      {TokenKind::Number, "-2", 2, 23},
      {TokenKind::Number, ".5", 2, 26},
      {TokenKind::Identifier, "-inf", 2, 29},
      {TokenKind::String, "\"\"\"two\nlines\"\"\"", 3, 1},
      {TokenKind::Asset, "@a.usda@", 4, 10},
      {TokenKind::Asset, "@@@b@c@@@", 4, 19},
      {TokenKind::Path, "</P.x>", 4, 29},
      {TokenKind::Punct, "(", 5, 1},
      {TokenKind::Punct, "]", 5, 2},
      {TokenKind::Punct, "=", 5, 3},
      {TokenKind::Punct, ".", 5, 4},
      {TokenKind::Identifier, "name", 5, 6},
      {TokenKind::Punct, ".", 5, 10},
      {TokenKind::Identifier, "connect", 5, 11},
      {TokenKind::Number, "0", 5, 19},
      {TokenKind::Punct, ":", 5, 20},
  };
  EXPECT_EQ(seen, expected);
}

TEST(Tokenizer, CommentsAreCollectedWithoutLineEndingsAndCountedPerToken) {
  Tokenizer tokenizer("# one\r\n// two  \nword # three\nnext");
  const Token word = tokenizer.next();
  EXPECT_EQ(word.commentsBefore, 2u);
  const Token next = tokenizer.next();
  EXPECT_EQ(next.commentsBefore, 3u);
  EXPECT_EQ(tokenizer.comments(), (std::vector<std::string_view>{"# one", "// two", "# three"}));
}

TEST(Tokenizer, MalformedTokensAreRefusedWhereTheyStart) {
  const std::vector<std::pair<std::string, std::uint32_t>> cases{
      {"1e", 1},        {"12abc", 1},   {"-word", 1},  {"  \"open", 3}, {"'a\nb'", 1},
      {"x @no end", 3}, {"<no/end", 1}, {"@@@a@@", 1}, {"$", 1},        {"+", 1},
  };
  for (const auto& [text, column] : cases) {
    const auto seen = tokenize(text);
    ASSERT_FALSE(seen.empty()) << text;
    EXPECT_EQ(seen.back().kind, TokenKind::Invalid) << text;
    EXPECT_EQ(seen.back().column, column) << text;
  }
}

TEST(Tokenizer, BalancedBlocksSkipBracesInStringsAndComments) {
  const std::string text = "{ a { b } \"}\" # }\n c }tail";
  Tokenizer tokenizer(text);
  const Token open = tokenizer.next();
  std::string_view block;
  ASSERT_TRUE(tokenizer.takeBalancedBlock(open, block));
  EXPECT_EQ(block, "{ a { b } \"}\" # }\n c }");
  const Token after = tokenizer.next();
  EXPECT_EQ(after.text, "tail");
  EXPECT_EQ(after.line, 2u);

  Tokenizer unbalanced("{ a { b }");
  const Token start = unbalanced.next();
  EXPECT_FALSE(unbalanced.takeBalancedBlock(start, block));
}

TEST(Tokenizer, WordsInUtf8NamespacedTypesAndAssetsEndingInAt) {
  // Letters outside ASCII join words; a namespace of a type has two colons; the last three '@' of
  // a run close a @@@ path, so the path itself may end in '@'.
  const auto seen =
      tokenize("gr\u00f6\u00dfe \u65e5\u672c:\u540d Vehicles::Car a::1 @@@x@@@@ @@@y@@@@@");
  const std::vector<Seen> expected{
      {TokenKind::Identifier, "gr\u00f6\u00dfe", 1, 1},
      {TokenKind::Identifier, "\u65e5\u672c:\u540d", 1, 9},
      {TokenKind::Identifier, "Vehicles::Car", 1, 20},
      {TokenKind::Identifier, "a", 1, 34},
      {TokenKind::Punct, ":", 1, 35},
      {TokenKind::Punct, ":", 1, 36},
      {TokenKind::Number, "1", 1, 37},
      {TokenKind::Asset, "@@@x@@@@", 1, 39},
      {TokenKind::Asset, "@@@y@@@@@", 1, 48},
  };
  EXPECT_EQ(seen, expected);

  // Bytes that are not UTF-8, a stray continuation byte, a non-breaking space and a sign of
  // Latin-1 never start a word.
  for (const std::string_view text :
       {"\xFFz", "\x80z", "\xC2\xA0z", "\xC2\xA7z", "\xE2\x80\x9Cz"}) {
    const auto bad = tokenize(text);
    ASSERT_FALSE(bad.empty()) << text;
    EXPECT_EQ(bad.front().kind, TokenKind::Invalid) << text;
  }
  EXPECT_TRUE(isIdentifier("_\u00e9t\u00e92"));
  EXPECT_FALSE(isIdentifier("2fast"));
  EXPECT_FALSE(isIdentifier("a-b"));
  EXPECT_TRUE(isVariantName("4wd"));
  EXPECT_TRUE(isVariantName("1.5-turbo|b"));
  EXPECT_FALSE(isVariantName("two litre"));
  EXPECT_FALSE(isVariantName(""));
}

TEST(LayerReaderPositions, WindowsLineEndingsAndTabsKeepLinesAndByteColumns) {
  const std::string text = "#usda 1.0\r\n\r\ndef \"A\"\r\n{\r\n\tfloat3 v = (1, 2)\r\n}\r\n";
  const LayerReadResult result = readLayerText("crlf.usda", text);
  ASSERT_FALSE(result.ok());
  EXPECT_EQ(result.error->line, 5u);
  EXPECT_EQ(result.error->column, 13u);

  const LayerReadResult good =
      readLayerText("crlf.usda", "#usda 1.0\r\ndef \"A\"\r\n{\r\n\tdouble v = 1\r\n}\r\n");
  ASSERT_TRUE(good.ok()) << good.error->describe();
  EXPECT_EQ(good.layer->prims[0].properties[0].name, "v");
}

TEST(LayerReaderPositions, StatementSeparatorsAndRepeatedStatementsMergeIntoOneProperty) {
  const LayerReadResult result =
      readLayerText("merge.usda",
                    "#usda 1.0\ndef \"A\" { double a = 1; double a.timeSamples = { 0: 1 }\n"
                    "double a (doc = \"late metadata\")\nreorder properties = [\"a\"] }\n");
  ASSERT_TRUE(result.ok()) << result.error->describe();
  const LayerPrim& prim = result.layer->prims[0];
  ASSERT_EQ(prim.properties.size(), 1u);
  EXPECT_EQ(prim.properties[0].fields.size(), 3u);
  ASSERT_EQ(prim.properties[0].metadata.size(), 1u);
  EXPECT_EQ(prim.properties[0].metadata[0].value.decoded(), "late metadata");
  ASSERT_EQ(prim.reorders.size(), 1u);
  EXPECT_EQ(prim.reorders[0].key, "properties");
}

}  // namespace
}  // namespace orvan::engine
