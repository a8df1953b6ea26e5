#include "UsdText/Tokenizer.h"

#include <algorithm>

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

std::size_t utf8LetterLength(std::string_view text, std::size_t at) {
  const auto lead = static_cast<unsigned char>(text[at]);
  std::size_t length = 0;
  std::uint32_t code = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    code = lead & 0x1Fu;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    code = lead & 0x0Fu;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    code = lead & 0x07u;
  } else {
    return 0;
  }
  if (at + length > text.size())
    return 0;
  for (std::size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[at + i]);
    if ((next & 0xC0u) != 0x80u)
      return 0;
    code = (code << 6) | (next & 0x3Fu);
  }
  const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  // Spaces and punctuation outside ASCII are not letters: the no-break space, the Latin-1 signs
  // and the general punctuation block.
  const bool punctuation =
      (code >= 0x80 && code <= 0xBF && code != 0xAA && code != 0xB5 && code != 0xBA) ||
      code == 0xD7 || code == 0xF7 || (code >= 0x2000 && code <= 0x206F) ||
      (code >= 0x3000 && code <= 0x3003) || code == 0xFEFF;
  if (overlong || surrogate || code > 0x10FFFF || punctuation)
    return 0;
  return length;
}

std::string escapeForMessage(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c < 0x80) {
      out += text[i++];
      continue;
    }
    std::size_t length = 0;
    if (c >= 0xC2 && c <= 0xDF)
      length = 2;
    else if (c >= 0xE0 && c <= 0xEF)
      length = 3;
    else if (c >= 0xF0 && c <= 0xF4)
      length = 4;
    bool valid = length != 0 && i + length <= text.size();
    for (std::size_t k = 1; valid && k < length; ++k)
      valid = (static_cast<unsigned char>(text[i + k]) & 0xC0u) == 0x80u;
    if (valid && length == 3) {
      const auto second = static_cast<unsigned char>(text[i + 1]);
      valid = !(c == 0xE0 && second < 0xA0) && !(c == 0xED && second >= 0xA0);
    }
    if (valid && length == 4) {
      const auto second = static_cast<unsigned char>(text[i + 1]);
      valid = !(c == 0xF0 && second < 0x90) && !(c == 0xF4 && second >= 0x90);
    }
    if (valid) {
      out.append(text.substr(i, length));
      i += length;
      continue;
    }
    static constexpr char kHex[] = "0123456789ABCDEF";
    out += "\\x";
    out += kHex[c >> 4];
    out += kHex[c & 0xF];
    ++i;
  }
  return out;
}

namespace {

// A letter of a word at `at`: an ASCII letter or '_' (length 1), a letter outside ASCII (the
// length of its UTF-8 sequence), or nothing (0).
std::size_t wordStartLength(std::string_view text, std::size_t at) {
  if (isWordStart(text[at]))
    return 1;
  return static_cast<unsigned char>(text[at]) >= 0x80 ? utf8LetterLength(text, at) : 0;
}
std::size_t wordCharLength(std::string_view text, std::size_t at) {
  if (isWordChar(text[at]))
    return 1;
  return static_cast<unsigned char>(text[at]) >= 0x80 ? utf8LetterLength(text, at) : 0;
}

}  // namespace

bool isIdentifier(std::string_view text) {
  if (text.empty() || wordStartLength(text, 0) == 0)
    return false;
  if (std::all_of(text.begin(), text.end(), isWordChar))
    return true;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = wordCharLength(text, at);
    if (length == 0)
      return false;
    at += length;
  }
  return true;
}

bool isVariantName(std::string_view text) {
  if (text.empty())
    return false;
  for (std::size_t at = 0; at < text.size();) {
    const char c = text[at];
    if (c == '|' || c == '-' || c == '.') {
      ++at;
      continue;
    }
    const std::size_t length = wordCharLength(text, at);
    if (length == 0)
      return false;
    at += length;
  }
  return true;
}

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
  if (isWordStart(c) ||
      (static_cast<unsigned char>(c) >= 0x80 && utf8LetterLength(source_, position_) != 0)) {
    return lexWord(start, line, column);
  }
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
        // A path may end in one or two '@': the last three of a run close it.
        std::size_t run = 3;
        while (run < 5 && position_ + run < source_.size() && source_[position_ + run] == '@')
          ++run;
        position_ += run;
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
      continue;
    }
    // The usual namespace, "primvars:displayColor", first.
    if (source_[position_] == ':' && position_ + 1 < source_.size() &&
        isWordStart(source_[position_ + 1])) {
      position_ += 2;
      continue;
    }
    if (static_cast<unsigned char>(source_[position_]) >= 0x80) {
      const std::size_t length = utf8LetterLength(source_, position_);
      if (length == 0)
        break;
      position_ += length;
      continue;
    }
    if (source_[position_] != ':')
      break;
    // "a:b" names a namespace of a property, "A::B" one of a type.
    const std::size_t colons =
        position_ + 1 < source_.size() && source_[position_ + 1] == ':' ? 2 : 1;
    if (position_ + colons >= source_.size() || wordStartLength(source_, position_ + colons) == 0) {
      break;
    }
    position_ += colons;
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
