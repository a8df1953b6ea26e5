#pragma once

// Byte-level text rules shared by the client core's sources. Everything here works on raw bytes in
// the C locale: no byte above 0x7F is ever a letter, digit or space.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvan::client {

inline bool is_ascii_alpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

inline bool is_ascii_digit(char c) {
  return c >= '0' && c <= '9';
}

// The C locale's space class.
inline bool is_c_space(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

inline char to_lower_ascii(char c) {
  return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
}

inline std::string lower_ascii(std::string_view text) {
  std::string out(text);
  for (char& c : out)
    c = to_lower_ascii(c);
  return out;
}

// Appends `value` unless it is empty or already held, so that a selection never lists an object
// twice.
inline void append_unique(std::vector<std::string>& values, std::string_view value) {
  if (value.empty())
    return;
  for (const std::string& held : values) {
    if (held == value)
      return;
  }
  values.emplace_back(value);
}

// Reads `text` as decimal digits only into a signed 32-bit value. Empty text, any other byte
// (signs included) or overflow give no value.
inline std::optional<std::int32_t> parse_decimal_int32(std::string_view text) {
  if (text.empty())
    return std::nullopt;
  std::int32_t value = 0;
  for (const char c : text) {
    if (!is_ascii_digit(c))
      return std::nullopt;
    const std::int32_t digit = c - '0';
    if (value > (INT32_MAX - digit) / 10)
      return std::nullopt;
    value = value * 10 + digit;
  }
  return value;
}

// A TCP port: decimal digits whose value lies in 1 to 65535.
inline std::optional<std::int32_t> parse_port(std::string_view text) {
  const std::optional<std::int32_t> value = parse_decimal_int32(text);
  if (!value || *value < 1 || *value > 65535)
    return std::nullopt;
  return value;
}

}  // namespace orvan::client
