#include "orvan/wire/JsonEncoder.h"

#include <algorithm>
#include <cmath>

#include <simdjson.h>

#include "orvan/wire/Numbers.h"

namespace orvan::editor {

namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

bool needsEscape(unsigned char byte) {
  return byte < 0x20 || byte == '"' || byte == '\\';
}

void appendEscapedByte(std::string& out, unsigned char byte) {
  switch (byte) {
    case '"':
      out += "\\\"";
      return;
    case '\\':
      out += "\\\\";
      return;
    case '\b':
      out += "\\b";
      return;
    case '\f':
      out += "\\f";
      return;
    case '\n':
      out += "\\n";
      return;
    case '\r':
      out += "\\r";
      return;
    case '\t':
      out += "\\t";
      return;
    default: {
      static constexpr char kHex[] = "0123456789abcdef";
      out += "\\u00";
      out += kHex[byte >> 4];
      out += kHex[byte & 0xF];
    }
  }
}

// Escapes text known to be valid UTF-8, copying runs of plain bytes in one go.
void appendEscaped(std::string& out, std::string_view text) {
  std::size_t runStart = 0;
  for (std::size_t index = 0; index < text.size(); ++index) {
    const auto byte = static_cast<unsigned char>(text[index]);
    if (!needsEscape(byte)) {
      continue;
    }
    out.append(text.substr(runStart, index - runStart));
    appendEscapedByte(out, byte);
    runStart = index + 1;
  }
  out.append(text.substr(runStart));
}

bool isContinuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

// The length of the well-formed UTF-8 sequence at the start of `text`, or 0 when there is none
// (stray continuation bytes, overlong forms, surrogates, code points above U+10FFFF, truncation).
std::size_t wellFormedLength(std::string_view text) {
  const auto at = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
  const unsigned char lead = at(0);
  std::size_t length = 0;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  if (lead < 0x80) {
    return 1;
  } else if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    low = lead == 0xE0 ? 0xA0 : 0x80;
    high = lead == 0xED ? 0x9F : 0xBF;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    low = lead == 0xF0 ? 0x90 : 0x80;
    high = lead == 0xF4 ? 0x8F : 0xBF;
  } else {
    return 0;
  }
  if (text.size() < length || at(1) < low || at(1) > high) {
    return 0;
  }
  for (std::size_t index = 2; index < length; ++index) {
    if (!isContinuation(at(index))) {
      return 0;
    }
  }
  return length;
}

void appendEscapedReplacingInvalid(std::string& out, std::string_view text) {
  std::size_t index = 0;
  while (index < text.size()) {
    const std::size_t length = wellFormedLength(text.substr(index));
    if (length == 0) {
      out += kReplacementCharacter;
      ++index;
      continue;
    }
    appendEscaped(out, text.substr(index, length));
    index += length;
  }
}

}  // namespace

void appendJsonString(std::string& out, std::string_view text) {
  out += '"';
  // Most text is short plain ASCII with nothing to escape: one pass tells, one append copies it.
  const auto plain = [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x80 && !needsEscape(byte);
  };
  if (std::all_of(text.begin(), text.end(), plain)) {
    out.append(text);
    out += '"';
    return;
  }
  if (simdjson::validate_utf8(text.data(), text.size())) {
    appendEscaped(out, text);
  } else {
    appendEscapedReplacingInvalid(out, text);
  }
  out += '"';
}

void appendJsonDouble(std::string& out, double value) {
  if (!std::isfinite(value)) {
    out += "null";
    return;
  }
  appendShortestDouble(out, value);
}

void appendJsonValue(std::string& out, const JsonValue& value) {
  if (const bool* flag = value.asBool()) {
    out += *flag ? "true" : "false";
  } else if (const std::int64_t* integer = value.asInt64()) {
    json::detail::encodeInto(out, *integer);
  } else if (const std::uint64_t* unsignedInteger = value.asUint64()) {
    json::detail::encodeInto(out, *unsignedInteger);
  } else if (const double* number = value.asDouble()) {
    appendJsonDouble(out, *number);
  } else if (const std::string* text = value.asString()) {
    appendJsonString(out, *text);
  } else if (const JsonValue::Array* array = value.asArray()) {
    json::detail::encodeInto(out, *array);
  } else if (const JsonValue::Object* object = value.asObject()) {
    out += '{';
    bool first = true;
    for (const auto& [key, member] : *object) {
      if (!first) {
        out += ',';
      }
      first = false;
      appendJsonString(out, key);
      out += ':';
      appendJsonValue(out, member);
    }
    out += '}';
  } else {
    out += "null";
  }
}

}  // namespace orvan::editor
