#include "orvan/wire/Text.h"

#include <cstdlib>
#include <vector>

#include <simdjson.h>
#include <utf8proc.h>

namespace orvan::editor {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool isAscii(std::string_view text) {
  for (unsigned char c : text) {
    if (c >= 0x80)
      return false;
  }
  return true;
}

// Code points that fold to something other than themselves under simple case folding.
char32_t foldCase(char32_t codepoint) {
  return static_cast<char32_t>(utf8proc_tolower(static_cast<utf8proc_int32_t>(codepoint)));
}

// Full case folding in composed normal form, so that "Straße" matches "STRASSE" and a letter with a
// combining accent matches its precomposed form. Invalid UTF-8 falls back to simple lower-casing.
std::string caseFolded(std::string_view text) {
  utf8proc_uint8_t* folded = nullptr;
  const utf8proc_ssize_t length = utf8proc_map(
      reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
      static_cast<utf8proc_ssize_t>(text.size()), &folded,
      static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD));
  if (length < 0)
    return lowercased(text);
  std::string out(reinterpret_cast<const char*>(folded), static_cast<std::size_t>(length));
  std::free(folded);
  return out;
}

}  // namespace

char32_t decodeCodepoint(std::string_view text, std::size_t& offset) {
  utf8proc_int32_t codepoint = 0;
  const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data() + offset);
  const utf8proc_ssize_t length =
      utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(text.size() - offset), &codepoint);
  if (length <= 0) {
    offset += 1;
    return kReplacement;
  }
  offset += static_cast<std::size_t>(length);
  return static_cast<char32_t>(codepoint);
}

void appendUtf8(std::string& out, char32_t codepoint) {
  utf8proc_uint8_t buffer[4];
  const utf8proc_ssize_t length =
      utf8proc_encode_char(static_cast<utf8proc_int32_t>(codepoint), buffer);
  out.append(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(length));
}

bool isWhitespaceOrNewline(char32_t codepoint) {
  if (codepoint == ' ' || (codepoint >= 0x09 && codepoint <= 0x0D) || codepoint == 0x85)
    return true;
  if (codepoint < 0x80 || codepoint > 0x10FFFF)
    return false;
  const utf8proc_category_t category = utf8proc_category(static_cast<utf8proc_int32_t>(codepoint));
  return category == UTF8PROC_CATEGORY_ZS || category == UTF8PROC_CATEGORY_ZL ||
         category == UTF8PROC_CATEGORY_ZP;
}

bool isUnicodeLetter(char32_t codepoint) {
  if (codepoint > 0x10FFFF || codepoint == kReplacement)
    return false;
  switch (utf8proc_category(static_cast<utf8proc_int32_t>(codepoint))) {
    case UTF8PROC_CATEGORY_LU:
    case UTF8PROC_CATEGORY_LL:
    case UTF8PROC_CATEGORY_LT:
    case UTF8PROC_CATEGORY_LM:
    case UTF8PROC_CATEGORY_LO:
    case UTF8PROC_CATEGORY_MN:
    case UTF8PROC_CATEGORY_MC:
    case UTF8PROC_CATEGORY_ME:
      return true;
    default:
      return false;
  }
}

bool isUnicodeDecimalDigit(char32_t codepoint) {
  if (codepoint > 0x10FFFF)
    return false;
  return utf8proc_category(static_cast<utf8proc_int32_t>(codepoint)) == UTF8PROC_CATEGORY_ND;
}

std::string_view trimWhitespaceAndNewlines(std::string_view text) {
  std::size_t begin = 0;
  while (begin < text.size()) {
    std::size_t next = begin;
    if (!isWhitespaceOrNewline(decodeCodepoint(text, next)))
      break;
    begin = next;
  }
  std::size_t end = text.size();
  while (end > begin) {
    // Step back to the start of the last code point: skip UTF-8 continuation bytes.
    std::size_t start = end - 1;
    while (start > begin && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80)
      --start;
    std::size_t probe = start;
    const char32_t codepoint = decodeCodepoint(text, probe);
    if (probe != end || !isWhitespaceOrNewline(codepoint))
      break;
    end = start;
  }
  return text.substr(begin, end - begin);
}

std::string trimmed(std::string_view text) {
  return std::string(trimWhitespaceAndNewlines(text));
}

bool isBlank(std::string_view text) {
  return trimWhitespaceAndNewlines(text).empty();
}

bool isValidUtf8(std::string_view text) {
  return simdjson::validate_utf8(text.data(), text.size());
}

std::string joinPath(std::string_view base, std::string_view relative) {
  if (base.empty())
    return std::string(relative);
  std::string joined(base);
  if (joined.back() != '/')
    joined.push_back('/');
  joined.append(relative);
  return joined;
}

std::string lowercased(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  if (isAscii(text)) {
    for (char c : text)
      out.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
    return out;
  }
  std::size_t offset = 0;
  while (offset < text.size()) {
    const std::size_t start = offset;
    const char32_t codepoint = decodeCodepoint(text, offset);
    if (codepoint == kReplacement && offset - start == 1 &&
        static_cast<unsigned char>(text[start]) >= 0x80) {
      out.push_back(text[start]);  // keep invalid bytes as they were
      continue;
    }
    appendUtf8(out, foldCase(codepoint));
  }
  return out;
}

bool equalsIgnoringCase(std::string_view left, std::string_view right) {
  if (isAscii(left) && isAscii(right)) {
    if (left.size() != right.size())
      return false;
    for (std::size_t i = 0; i < left.size(); ++i) {
      char a = left[i], b = right[i];
      if (a >= 'A' && a <= 'Z')
        a = static_cast<char>(a - 'A' + 'a');
      if (b >= 'A' && b <= 'Z')
        b = static_cast<char>(b - 'A' + 'a');
      if (a != b)
        return false;
    }
    return true;
  }
  return caseFolded(left) == caseFolded(right);
}

bool hasPrefix(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

bool hasSuffix(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

std::string standardizePath(std::string_view path) {
  if (path.empty())
    return {};
  const bool absolute = path.front() == '/';
  std::vector<std::string_view> parts;
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t slash = path.find('/', start);
    if (slash == std::string_view::npos)
      slash = path.size();
    const std::string_view part = path.substr(start, slash - start);
    start = slash + 1;
    if (part.empty() || part == ".")
      continue;
    if (part == "..") {
      if (!parts.empty() && parts.back() != "..") {
        parts.pop_back();
      } else if (!absolute) {
        parts.push_back(part);
      }
      continue;
    }
    parts.push_back(part);
  }
  std::string out = absolute ? "/" : "";
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0)
      out.push_back('/');
    out.append(parts[i]);
  }
  if (out.empty())
    return ".";
  return out;
}

}  // namespace orvan::editor
