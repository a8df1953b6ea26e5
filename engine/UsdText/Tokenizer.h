#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "UsdText/ReadError.h"

namespace orvan::engine {

enum class TokenKind : std::uint8_t {
  End,
  Identifier,  // words, including namespaced ones ("primvars:displayColor") and "-inf"
  Number,
  String,
  Asset,
  Path,
  Punct,    // one of ( ) [ ] { } = , ; : .
  Invalid,  // text the tokenizer could not make sense of; `problem` says why
};

struct Token {
  TokenKind kind = TokenKind::End;
  std::string_view text;
  std::uint32_t line = 1;
  std::uint32_t column = 1;
  // How many comments the tokenizer had met before this token; the parser uses it to hand the
  // comments to the statement that follows them.
  std::uint32_t commentsBefore = 0;
  const char* problem = nullptr;

  bool is(char punct) const {
    return kind == TokenKind::Punct && text.size() == 1 && text[0] == punct;
  }
  bool isWord(std::string_view word) const { return kind == TokenKind::Identifier && text == word; }
};

// The length of the UTF-8 sequence at `at` when it is a well-formed letter outside ASCII (a code
// point that is neither a space nor punctuation), else 0. Identifiers may hold such letters.
std::size_t utf8LetterLength(std::string_view text, std::size_t at);
// A name made of letters (ASCII or UTF-8), digits and '_' that does not start with a digit.
bool isIdentifier(std::string_view text);
// A variant or variant set name: letters, digits, '_', '|', '-' and '.', in any order ("4wd",
// "lod-1.5").
bool isVariantName(std::string_view text);

// Splits layer text into tokens without copying: every token is a view of the source.
class Tokenizer {
 public:
  explicit Tokenizer(std::string_view source) : source_(source) {}

  Token next();
  // Skips the rest of the current line (the header line is read this way).
  std::string_view takeLine();
  // The exact text of a balanced { ... } block starting at the given token, which must be "{".
  // On success the tokenizer continues after the closing brace.
  bool takeBalancedBlock(const Token& open, std::string_view& block);

  const std::vector<std::string_view>& comments() const { return comments_; }
  std::uint32_t line() const { return line_; }
  std::uint32_t column() const { return static_cast<std::uint32_t>(position_ - lineStart_ + 1); }

 private:
  void skipTrivia();
  void advance();
  Token make(TokenKind kind, std::size_t start, std::uint32_t line, std::uint32_t column) const;
  Token invalid(const char* problem, std::uint32_t line, std::uint32_t column,
                std::size_t start) const;
  Token lexString(std::size_t start, std::uint32_t line, std::uint32_t column);
  Token lexAsset(std::size_t start, std::uint32_t line, std::uint32_t column);
  Token lexNumber(std::size_t start, std::uint32_t line, std::uint32_t column);
  Token lexWord(std::size_t start, std::uint32_t line, std::uint32_t column);

  std::string_view source_;
  std::size_t position_ = 0;
  std::size_t lineStart_ = 0;
  std::uint32_t line_ = 1;
  std::vector<std::string_view> comments_;
};

}  // namespace orvan::engine
