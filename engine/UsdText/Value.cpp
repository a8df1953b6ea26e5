#include "UsdText/Value.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace orvan::engine {
namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9')
    return c - '0';
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  if (c >= 'A' && c <= 'F')
    return c - 'A' + 10;
  return -1;
}

void appendUtf8(std::string& out, std::uint32_t code) {
  if (code < 0x80) {
    out += static_cast<char>(code);
  } else if (code < 0x800) {
    out += static_cast<char>(0xC0 | (code >> 6));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    out += static_cast<char>(0xE0 | (code >> 12));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (code >> 18));
    out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  }
}

}  // namespace

std::string decodeStringLiteral(std::string_view literal) {
  if (literal.size() < 2)
    return std::string(literal);
  const bool triple = literal.size() >= 6 && literal[1] == literal[0] && literal[2] == literal[0];
  const std::size_t quote = triple ? 3 : 1;
  const std::string_view body = literal.substr(quote, literal.size() - 2 * quote);
  std::string out;
  out.reserve(body.size());
  for (std::size_t i = 0; i < body.size(); ++i) {
    const char c = body[i];
    if (c != '\\' || i + 1 >= body.size()) {
      out += c;
      continue;
    }
    const char e = body[++i];
    switch (e) {
      case 'n':
        out += '\n';
        break;
      case 't':
        out += '\t';
        break;
      case 'r':
        out += '\r';
        break;
      case 'a':
        out += '\a';
        break;
      case 'b':
        out += '\b';
        break;
      case 'f':
        out += '\f';
        break;
      case 'v':
        out += '\v';
        break;
      case 'x': {
        int value = 0;
        int digits = 0;
        while (digits < 2 && i + 1 < body.size() && hexDigit(body[i + 1]) >= 0) {
          value = value * 16 + hexDigit(body[++i]);
          ++digits;
        }
        if (digits == 0) {
          out += 'x';
        } else {
          out += static_cast<char>(value);
        }
        break;
      }
      case 'u':
      case 'U': {
        const int want = e == 'u' ? 4 : 8;
        std::uint32_t value = 0;
        int digits = 0;
        while (digits < want && i + 1 < body.size() && hexDigit(body[i + 1]) >= 0) {
          value = value * 16 + static_cast<std::uint32_t>(hexDigit(body[++i]));
          ++digits;
        }
        if (digits == 0 || value > 0x10FFFF) {
          out += e;
        } else {
          appendUtf8(out, value);
        }
        break;
      }
      default:
        if (e >= '0' && e <= '7') {
          int value = e - '0';
          int digits = 1;
          while (digits < 3 && i + 1 < body.size() && body[i + 1] >= '0' && body[i + 1] <= '7') {
            value = value * 8 + (body[++i] - '0');
            ++digits;
          }
          out += static_cast<char>(value & 0xFF);
        } else {
          out += e;  // \\, \", \' and any unknown escape stand for the character itself
        }
    }
  }
  return out;
}

std::string encodeStringLiteral(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 2);
  out += '"';
  for (const char c : text) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          static constexpr char kHex[] = "0123456789abcdef";
          out += "\\x";
          out += kHex[(c >> 4) & 0xF];
          out += kHex[c & 0xF];
        } else {
          out += c;
        }
    }
  }
  out += '"';
  return out;
}

std::string decodeAssetLiteral(std::string_view literal) {
  if (literal.size() >= 6 && literal.substr(0, 3) == "@@@") {
    const std::string_view body = literal.substr(3, literal.size() - 6);
    std::string out;
    out.reserve(body.size());
    for (std::size_t i = 0; i < body.size(); ++i) {
      if (body.substr(i, 4) == "\\@@@") {
        out += "@@@";
        i += 3;
      } else {
        out += body[i];
      }
    }
    return out;
  }
  if (literal.size() >= 2)
    return std::string(literal.substr(1, literal.size() - 2));
  return std::string(literal);
}

std::string encodeAssetLiteral(std::string_view path) {
  std::string out;
  out.reserve(path.size() + 6);
  if (path.find('@') == std::string_view::npos) {
    out += '@';
    out += path;
    out += '@';
    return out;
  }
  out += "@@@";
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (path.substr(i, 3) == "@@@") {
      out += "\\@@@";
      i += 2;
    } else {
      out += path[i];
    }
  }
  out += "@@@";
  return out;
}

bool Value::operator==(const Value& other) const {
  if (kind != other.kind || text != other.text || itemCount != other.itemCount)
    return false;
  for (std::uint32_t i = 0; i < itemCount; ++i) {
    if (!(itemData[i] == other.itemData[i]))
      return false;
  }
  return true;
}

const Value* ValueArena::store(std::span<const Value> values) {
  if (values.empty())
    return nullptr;
  if (capacity_ - used_ < values.size()) {
    const std::size_t size = std::max(kChunk, values.size());
    chunks_.push_back(std::make_unique<Value[]>(size));
    used_ = 0;
    capacity_ = size;
  }
  Value* at = chunks_.back().get() + used_;
  std::copy(values.begin(), values.end(), at);
  used_ += values.size();
  return at;
}

std::string Value::decoded() const {
  switch (kind) {
    case ValueKind::String:
      return decodeStringLiteral(text);
    case ValueKind::Asset:
    case ValueKind::Reference:
      return decodeAssetLiteral(text);
    case ValueKind::Path:
      return text.size() >= 2 ? std::string(text.substr(1, text.size() - 2)) : std::string();
    default:
      return std::string(text);
  }
}

std::optional<double> Value::toNumber() const {
  if (kind == ValueKind::Identifier) {
    if (text == "true")
      return 1.0;
    if (text == "false")
      return 0.0;
    if (text == "inf" || text == "+inf")
      return std::numeric_limits<double>::infinity();
    if (text == "-inf")
      return -std::numeric_limits<double>::infinity();
    if (text == "nan" || text == "-nan")
      return std::numeric_limits<double>::quiet_NaN();
    return std::nullopt;
  }
  if (kind != ValueKind::Number)
    return std::nullopt;
  double value = 0;
  std::string_view digits = text;
  if (!digits.empty() && digits.front() == '+')
    digits.remove_prefix(1);
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error != std::errc() || end != digits.data() + digits.size())
    return std::nullopt;
  return value;
}

std::optional<bool> Value::toBool() const {
  if (kind == ValueKind::Identifier) {
    if (text == "true")
      return true;
    if (text == "false")
      return false;
    return std::nullopt;
  }
  const auto number = toNumber();
  if (!number)
    return std::nullopt;
  return *number != 0.0;
}

std::optional<std::string> Value::assetPath() const {
  if (kind != ValueKind::Asset && kind != ValueKind::Reference)
    return std::nullopt;
  return decodeAssetLiteral(text);
}

std::optional<std::string> Value::targetPath() const {
  if (kind == ValueKind::Path)
    return decoded();
  if (kind == ValueKind::Reference) {
    for (const Value& item : items()) {
      if (item.kind == ValueKind::Path)
        return item.decoded();
    }
  }
  return std::nullopt;
}

const Value* Value::findEntry(std::string_view key) const {
  if (kind != ValueKind::Dictionary)
    return nullptr;
  for (const Value& entry : items()) {
    const bool quoted =
        !entry.text.empty() && (entry.text.front() == '"' || entry.text.front() == '\'');
    if (quoted ? decodeStringLiteral(entry.text) == key : entry.text == key)
      return &entry;
  }
  return nullptr;
}

}  // namespace orvan::engine
