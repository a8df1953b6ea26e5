#include "Application/UserIdentity.h"

#include <sys/random.h>

#include <cstdio>
#include <random>

#include <utf8proc.h>

#include "orvan/wire/Text.h"

namespace orvan::editor {

namespace {

constexpr std::size_t kMaximumUserIdLength = 40;

bool isHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

}  // namespace

RandomBytes systemRandomBytes() {
  return [](unsigned char* out, std::size_t count) {
    std::size_t filled = 0;
    while (filled < count) {
      const ssize_t got = ::getrandom(out + filled, count - filled, 0);
      if (got > 0) {
        filled += static_cast<std::size_t>(got);
        continue;
      }
      // The kernel generator is always there on the systems we run on; should it fail, a seeded
      // engine still gives distinct identities.
      static thread_local std::random_device device;
      for (; filled < count; ++filled)
        out[filled] = static_cast<unsigned char>(device());
    }
  };
}

std::string sanitizedUserId(std::string_view id, std::string_view fallback) {
  const std::string_view text = trimWhitespaceAndNewlines(id);
  std::string result;
  std::size_t characters = 0;
  bool lastWasDash = false;
  std::size_t offset = 0;
  while (offset < text.size() && characters < kMaximumUserIdLength) {
    const std::size_t start = offset;
    const char32_t codepoint = decodeCodepoint(text, offset);
    const bool validSequence = !(codepoint == 0xFFFD && offset - start == 1 &&
                                 static_cast<unsigned char>(text[start]) >= 0x80);
    if (validSequence &&
        (isUnicodeLetter(codepoint) || isUnicodeDecimalDigit(codepoint) || codepoint == U'_')) {
      result.append(text.substr(start, offset - start));
      lastWasDash = false;
    } else if (codepoint == U'-') {
      result.push_back('-');
      lastWasDash = true;
    } else if (!lastWasDash) {
      result.push_back('-');
      lastWasDash = true;
    } else {
      continue;  // a run of other characters adds nothing more
    }
    ++characters;
  }
  const std::size_t first = result.find_first_not_of('-');
  if (first == std::string::npos)
    return std::string(fallback);
  const std::size_t last = result.find_last_not_of('-');
  return result.substr(first, last - first + 1);
}

std::string makeInternalUserId(std::string_view prefix, const RandomBytes& random) {
  unsigned char bytes[8];
  random(bytes, sizeof bytes);
  std::string id(prefix);
  id.push_back('-');
  for (unsigned char byte : bytes) {
    char hex[3];
    std::snprintf(hex, sizeof hex, "%02x", byte);
    id.append(hex, 2);
  }
  return sanitizedUserId(id, "user");
}

std::optional<std::string> colorFromHex(std::string_view text) {
  const std::string_view color = trimWhitespaceAndNewlines(text);
  bool valid = color.size() == 7 && color.front() == '#';
  for (std::size_t i = 1; valid && i < color.size(); ++i)
    valid = isHexDigit(color[i]);
  if (!valid)
    return std::nullopt;
  return lowercased(color);
}

std::string normalizedUserColor(std::optional<std::string_view> text, const RandomBytes& random) {
  if (text) {
    if (std::optional<std::string> color = colorFromHex(*text))
      return *std::move(color);
  }
  unsigned char byte = 0;
  random(&byte, 1);
  return std::string(kUserColorPalette[byte % kUserColorPalette.size()]);
}

std::string userInitial(std::string_view userName) {
  const std::string_view name = trimWhitespaceAndNewlines(userName);
  if (name.empty())
    return {};
  std::size_t offset = 0;
  const char32_t first = decodeCodepoint(name, offset);
  std::string initial;
  appendUtf8(initial,
             static_cast<char32_t>(utf8proc_toupper(static_cast<utf8proc_int32_t>(first))));
  return initial;
}

}  // namespace orvan::editor
