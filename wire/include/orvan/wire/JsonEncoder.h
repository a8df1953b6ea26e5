#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "orvan/wire/JsonFields.h"
#include "orvan/wire/JsonValue.h"

// The one encoder of wire records: compact JSON with the keys of each record's field table, in
// table order. An empty optional field is left out; required and defaulted fields are always
// written.
//
// Decisions:
//   - Doubles use the shortest round-trip form with a fraction or exponent ("1.0", "1e-05").
//     NaN and infinities have no JSON form and are written as null.
//   - Strings are escaped minimally: quote, backslash and control characters; other UTF-8 passes
//     through. Bytes that are not valid UTF-8 are replaced by U+FFFD so the output stays JSON.
//   - std::map entries come out sorted; std::unordered_map entries in its own order.
namespace orvan::editor {

void appendJsonString(std::string& out, std::string_view text);
void appendJsonDouble(std::string& out, double value);
void appendJsonValue(std::string& out, const JsonValue& value);

namespace json {

// What a field hook decides about one field of a record (see appendJsonWith).
enum class FieldChoice { kEncode, kOmit, kCustom };

}  // namespace json

namespace json::detail {

template <class T>
void encodeInto(std::string& out, const T& value);

// A key of a field table and its colon. Keys are plain ASCII names that need no escaping, so they
// are copied as they are: the same text appendJsonString would give, without looking at it.
inline void appendJsonKey(std::string& out, std::string_view key) {
  out += '"';
  out.append(key);
  out += "\":";
}

// The hook of plain encoding: every field is encoded as it is.
struct NoFieldHook {};

template <class T, class Hook, std::size_t... I>
void encodeRecord(std::string& out, [[maybe_unused]] const T& record, [[maybe_unused]] Hook& hook,
                  std::index_sequence<I...>) {
  [[maybe_unused]] const auto& fields = fieldsOf<T>();
  out += '{';
  [[maybe_unused]] bool first = true;
  [[maybe_unused]] auto encodeField = [&](const auto& field) {
    using Field = std::remove_cvref_t<decltype(field)>;
    const auto& member = record.*(field.member);
    [[maybe_unused]] FieldChoice choice = FieldChoice::kEncode;
    if constexpr (!std::same_as<Hook, NoFieldHook>) {
      choice = hook.choose(field.key, member);
      if (choice == FieldChoice::kOmit) {
        return;
      }
    }
    if constexpr (Field::kKind == FieldKind::kOptional) {
      if (!member.has_value() && choice == FieldChoice::kEncode) {
        return;
      }
    }
    if (!first) {
      out += ',';
    }
    first = false;
    appendJsonKey(out, field.key);
    if constexpr (!std::same_as<Hook, NoFieldHook>) {
      if (choice == FieldChoice::kCustom) {
        hook.write(out, member);
        return;
      }
    }
    encodeInto(out, member);
  };
  (encodeField(std::get<I>(fields)), ...);
  out += '}';
}

template <class T>
void encodeInto(std::string& out, const T& value) {
  if constexpr (std::same_as<T, std::string>) {
    appendJsonString(out, value);
  } else if constexpr (std::same_as<T, bool>) {
    out += value ? "true" : "false";
  } else if constexpr (Integer<T>) {
    char buffer[24];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, result.ptr);
  } else if constexpr (std::same_as<T, double>) {
    appendJsonDouble(out, value);
  } else if constexpr (std::same_as<T, JsonValue>) {
    appendJsonValue(out, value);
  } else if constexpr (IsStdOptional<T>::value) {
    if (value.has_value()) {
      encodeInto(out, *value);
    } else {
      out += "null";
    }
  } else if constexpr (IsVector<T>::value) {
    out += '[';
    for (std::size_t index = 0; index < value.size(); ++index) {
      if (index != 0) {
        out += ',';
      }
      encodeInto(out, value[index]);
    }
    out += ']';
  } else if constexpr (IsStringMap<T>::value) {
    out += '{';
    bool first = true;
    for (const auto& [key, element] : value) {
      if (!first) {
        out += ',';
      }
      first = false;
      appendJsonString(out, key);
      out += ':';
      encodeInto(out, element);
    }
    out += '}';
  } else if constexpr (Record<T>) {
    NoFieldHook hook;
    encodeRecord(out, value, hook,
                 std::make_index_sequence<std::tuple_size_v<decltype(T::jsonFields())>>{});
  } else {
    static_assert(!sizeof(T), "this type has no JSON form");
  }
}

}  // namespace json::detail

template <class T>
void appendJson(std::string& out, const T& value) {
  json::detail::encodeInto(out, value);
}

// Encodes a record as appendJson does, but first asks `hook.choose(key, member)` about each of the
// record's own fields (those of nested records are encoded as usual):
//   kEncode  the field is written as appendJson would write it;
//   kOmit    the key is left out;
//   kCustom  the key is written, then `hook.write(out, member)` writes the value.
// Both are called with the member's own type. Writers use it to hand out long lists element by
// element, or to leave out keys whose values only stand for "unknown"; everything else about
// the text stays the encoder's.
template <json::Record T, class Hook>
void appendJsonWith(std::string& out, const T& record, Hook& hook) {
  json::detail::encodeRecord(
      out, record, hook, std::make_index_sequence<std::tuple_size_v<decltype(T::jsonFields())>>{});
}

template <class T>
std::string encodeJson(const T& value) {
  std::string out;
  json::detail::encodeInto(out, value);
  return out;
}

}  // namespace orvan::editor
