#include "UsdText/Tokenizer.h"

namespace orvan::engine {
namespace {

bool isWordStart(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
bool isWordChar(char c) {
  return isWordStart(c) || (c >= '0' && c <= '9');
}
bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

}  // namespace

void Tokenizer::advance() {
  if (source_[position_] == '\n') {
    ++line_;
    lineStart_ = position_ + 1;
  }
  ++position_;
}

void Tokenizer::skipTrivia() {
  while (position_ < source_.size()) {
    const char c = source_[position_];
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
      advance();
      continue;
    }
    const bool hash = c == '#';
    const bool slashes =
        c == '/' && position_ + 1 < source_.size() && source_[position_ + 1] == '/';
    if (!hash && !slashes)
      return;
    const std::size_t start = position_;
    while (position_ < source_.size() && source_[position_] != '\n')
      ++position_;
    std::size_t end = position_;
    while (end > start &&
           (source_[end - 1] == '\r' || source_[end - 1] == ' ' || source_[end - 1] == '\t')) {
      --end;
    }
    comments_.push_back(source_.substr(start, end - start));
  }
}

std::string_view Tokenizer::takeLine() {
  const std::size_t start = position_;
  while (position_ < source_.size() && source_[position_] != '\n')
    ++position_;
  return source_.substr(start, position_ - start);
}

Token Tokenizer::make(TokenKind kind, std::size_t start, std::uint32_t line,
                      std::uint32_t column) const {
  Token token;
  token.kind = kind;
  token.text = source_.substr(start, position_ - start);
  token.line = line;
  token.column = column;
  token.commentsBefore = static_cast<std::uint32_t>(comments_.size());
  return token;
}

Token Tokenizer::invalid(const char* problem, std::uint32_t line, std::uint32_t column,
                         std::size_t start) const {
  Token token;
  token.kind = TokenKind::Invalid;
  token.text = source_.substr(start, 1);
  token.line = line;
  token.column = column;
  token.commentsBefore = static_cast<std::uint32_t>(comments_.size());
  token.problem = problem;
  return token;
}

Token Tokenizer::next() {
  skipTrivia();
  const std::uint32_t line = line_;
  const std::uint32_t column = this->column();
  const std::size_t start = position_;
  if (position_ >= source_.size())
    return make(TokenKind::End, start, line, column);
  const char c = source_[position_];
  switch (c) {
    case '(':
    case ')':
    case '[':
    case ']':
    case '{':
    case '}':
    case '=':
    case ',':
    case ';':
    case ':':
      ++position_;
      return make(TokenKind::Punct, start, line, column);
    case '"':
    case '\'':
      return lexString(start, line, column);
    case '@':
      return lexAsset(start, line, column);
    case '<': {
      ++position_;
      while (position_ < source_.size() && source_[position_] != '>' &&
             source_[position_] != '\n') {
        ++position_;
      }
      if (position_ >= source_.size() || source_[position_] != '>') {
        return invalid("a path that is not closed by '>'", line, column, start);
      }
      ++position_;
      return make(TokenKind::Path, start, line, column);
    }
    case '.':
      if (position_ + 1 < source_.size() && isDigit(source_[position_ + 1])) {
        return lexNumber(start, line, column);
      }
      ++position_;
      return make(TokenKind::Punct, start, line, column);
    default:
      break;
  }
  if (isDigit(c) || c == '-' || c == '+')
    return lexNumber(start, line, column);
  if (isWordStart(c))
    return lexWord(start, line, column);
  return invalid("a word, a number, a string, an asset, a path or punctuation", line, column,
                 start);
}

Token Tokenizer::lexString(std::size_t start, std::uint32_t line, std::uint32_t column) {
  const char quote = source_[position_];
  const bool triple = position_ + 2 < source_.size() && source_[position_ + 1] == quote &&
                      source_[position_ + 2] == quote;
  position_ += triple ? 3 : 1;
  while (position_ < source_.size()) {
    const char c = source_[position_];
    if (c == '\\') {
      advance();
      if (position_ < source_.size())
        advance();
      continue;
    }
    if (c == '\n' && !triple)
      return invalid("a string closed on the line where it starts", line, column, start);
    if (c == quote) {
      if (!triple) {
        ++position_;
        return make(TokenKind::String, start, line, column);
      }
      if (position_ + 2 < source_.size() && source_[position_ + 1] == quote &&
          source_[position_ + 2] == quote) {
        position_ += 3;
        return make(TokenKind::String, start, line, column);
      }
    }
    advance();
  }
  return invalid("a closing quote before the end of the file", line, column, start);
}

Token Tokenizer::lexAsset(std::size_t start, std::uint32_t line, std::uint32_t column) {
  if (source_.substr(position_, 3) == "@@@") {
    position_ += 3;
    while (position_ < source_.size()) {
      if (source_.substr(position_, 4) == "\\@@@") {
        position_ += 4;
        continue;
      }
      if (source_.substr(position_, 3) == "@@@") {
        position_ += 3;
        return make(TokenKind::Asset, start, line, column);
      }
      if (source_[position_] == '\n')
        break;
      ++position_;
    }
    return invalid("an asset path closed by '@@@' on the same line", line, column, start);
  }
  ++position_;
  while (position_ < source_.size() && source_[position_] != '@' && source_[position_] != '\n')
    ++position_;
  if (position_ >= source_.size() || source_[position_] != '@') {
    return invalid("an asset path closed by '@' on the same line", line, column, start);
  }
  ++position_;
  return make(TokenKind::Asset, start, line, column);
}

Token Tokenizer::lexNumber(std::size_t start, std::uint32_t line, std::uint32_t column) {
  if (source_[position_] == '-' || source_[position_] == '+') {
    ++position_;
    if (position_ < source_.size() && isWordStart(source_[position_])) {
      const std::size_t wordStart = position_;
      while (position_ < source_.size() && isWordChar(source_[position_]))
        ++position_;
      const std::string_view word = source_.substr(wordStart, position_ - wordStart);
      if (word == "inf" || word == "nan")
        return make(TokenKind::Identifier, start, line, column);
      return invalid("a number after the sign", line, column, start);
    }
  }
  bool digits = false;
  while (position_ < source_.size() && isDigit(source_[position_])) {
    ++position_;
    digits = true;
  }
  if (position_ < source_.size() && source_[position_] == '.') {
    ++position_;
    while (position_ < source_.size() && isDigit(source_[position_])) {
      ++position_;
      digits = true;
    }
  }
  if (!digits)
    return invalid("a number", line, column, start);
  if (position_ < source_.size() && (source_[position_] == 'e' || source_[position_] == 'E')) {
    std::size_t at = position_ + 1;
    if (at < source_.size() && (source_[at] == '-' || source_[at] == '+'))
      ++at;
    if (at >= source_.size() || !isDigit(source_[at]))
      return invalid("digits after the exponent", line, column, start);
    position_ = at;
    while (position_ < source_.size() && isDigit(source_[position_]))
      ++position_;
  }
  if (position_ < source_.size() && isWordStart(source_[position_])) {
    return invalid("a separator after the number", line, column, start);
  }
  return make(TokenKind::Number, start, line, column);
}

Token Tokenizer::lexWord(std::size_t start, std::uint32_t line, std::uint32_t column) {
  while (position_ < source_.size()) {
    if (isWordChar(source_[position_])) {
      ++position_;
    } else if (source_[position_] == ':' && position_ + 1 < source_.size() &&
               isWordStart(source_[position_ + 1])) {
      position_ += 2;
    } else {
      break;
    }
  }
  return make(TokenKind::Identifier, start, line, column);
}

bool Tokenizer::takeBalancedBlock(const Token& open, std::string_view& block) {
  int depth = 1;
  while (position_ < source_.size() && depth > 0) {
    const char c = source_[position_];
    if (c == '"' || c == '\'') {
      const Token inner = lexString(position_, line_, column());
      if (inner.kind == TokenKind::Invalid)
        return false;
      continue;
    }
    if (c == '#') {
      while (position_ < source_.size() && source_[position_] != '\n')
        ++position_;
      continue;
    }
    if (c == '{')
      ++depth;
    if (c == '}')
      --depth;
    advance();
  }
  if (depth != 0)
    return false;
  const char* begin = open.text.data();
  block = std::string_view(begin, static_cast<std::size_t>(source_.data() + position_ - begin));
  return true;
}

}  // namespace orvan::engine
