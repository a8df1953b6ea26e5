#include "orvan/wire/Numbers.h"

#include <charconv>
#include <cmath>
#include <string_view>

namespace orvan::editor {

namespace {

// Long enough for any double in shortest or "%.6g" form ("-2.2250738585072014e-308" is 24).
constexpr std::size_t kDoubleTextCapacity = 32;

bool looksLikeInteger(std::string_view text) {
  return text.find_first_of(".eE") == std::string_view::npos;
}

}  // namespace

void appendShortestDouble(std::string& out, double value) {
  char buffer[kDoubleTextCapacity];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  const std::string_view text(buffer, static_cast<std::size_t>(result.ptr - buffer));
  out.append(text);
  if (std::isfinite(value) && looksLikeInteger(text)) {
    out.append(".0");
  }
}

std::string formatShortestDouble(double value) {
  std::string out;
  appendShortestDouble(out, value);
  return out;
}

std::string formatSixSignificantDigits(double value) {
  char buffer[kDoubleTextCapacity];
  const auto result =
      std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 6);
  return std::string(buffer, result.ptr);
}

}  // namespace orvan::editor
