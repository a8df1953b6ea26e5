#include "Platform/Base64.h"

#include <array>
#include <cstdint>

namespace orvan::editor {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<int, 256> makeDecodeTable() {
  std::array<int, 256> table{};
  for (int& entry : table)
    entry = -1;
  for (int i = 0; i < 64; ++i)
    table[static_cast<unsigned char>(kAlphabet[i])] = i;
  return table;
}
constexpr std::array<int, 256> kDecodeTable = makeDecodeTable();

}  // namespace

std::string encodeBase64(std::string_view bytes) {
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const std::uint32_t group = (static_cast<unsigned char>(bytes[i]) << 16) |
                                (static_cast<unsigned char>(bytes[i + 1]) << 8) |
                                static_cast<unsigned char>(bytes[i + 2]);
    for (int shift : {18, 12, 6, 0})
      out.push_back(kAlphabet[(group >> shift) & 0x3f]);
  }
  const std::size_t rest = bytes.size() - i;
  if (rest == 0)
    return out;
  std::uint32_t group = static_cast<unsigned char>(bytes[i]) << 16;
  if (rest == 2)
    group |= static_cast<unsigned char>(bytes[i + 1]) << 8;
  out.push_back(kAlphabet[(group >> 18) & 0x3f]);
  out.push_back(kAlphabet[(group >> 12) & 0x3f]);
  out.push_back(rest == 2 ? kAlphabet[(group >> 6) & 0x3f] : '=');
  out.push_back('=');
  return out;
}

std::optional<std::string> decodeBase64(std::string_view text) {
  if (text.size() % 4 != 0)
    return std::nullopt;
  std::string out;
  out.reserve(text.size() / 4 * 3);
  for (std::size_t i = 0; i < text.size(); i += 4) {
    const bool last = i + 4 == text.size();
    const int padding = last ? (text[i + 3] == '=') + (text[i + 2] == '=') : 0;
    if (padding == 1 && text[i + 2] == '=')
      return std::nullopt;
    std::uint32_t group = 0;
    for (int k = 0; k < 4 - padding; ++k) {
      const int value = kDecodeTable[static_cast<unsigned char>(text[i + k])];
      if (value < 0)
        return std::nullopt;
      group |= static_cast<std::uint32_t>(value) << (18 - 6 * k);
    }
    out.push_back(static_cast<char>((group >> 16) & 0xff));
    if (padding < 2)
      out.push_back(static_cast<char>((group >> 8) & 0xff));
    if (padding < 1)
      out.push_back(static_cast<char>(group & 0xff));
  }
  return out;
}

}  // namespace orvan::editor
