#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <simdjson.h>

#include "orvan/wire/Error.h"
#include "orvan/wire/JsonDecodeContext.h"
#include "orvan/wire/JsonFields.h"
#include "orvan/wire/JsonValue.h"

// The one decoder of wire records. It walks each JSON object once, in document order, and
// dispatches every key through the record's field table; keys the table does not know are
// skipped without being parsed.
//
// Failures fail the whole document with an Error in Error::kJsonDomain whose description names
// what went wrong and where, as "<problem> at <path>":
//   "expected string at stage.prims[3].name"
//   "missing required key at stage.revision"
//   "integer out of range at stage.prims[0].entityId"
//   "malformed JSON at stage.layers[2] (<parser's reason>)"
//   "trailing content after the document at stage"
//   "nesting too deep at stage.customData.a[0][0]..." (long paths are cut after 32 steps)
// The path starts with the caller's root name and adds ".key" for record fields and dictionary
// entries and "[i]" for list elements. A failure at an unnamed root reads "at (root)".
//
// Decisions:
//   - A key that appears twice is decoded twice; the last occurrence wins.
//   - A null value for an optional or defaulted key counts as missing, also for afterDecode.
//   - Dictionaries are std::map (sorted, so encoding is deterministic) or std::unordered_map,
//     keyed by string. Free-form objects whose order matters are JsonValue.
//   - Integers must be written as integers and fit the member's type. Doubles accept integers.
//     Free-form values fail on integers beyond 64 bits rather than silently rounding them.
//   - Nesting deeper than kMaxJsonDepth containers fails instead of exhausting the stack.
namespace orvan::editor {

// Room for the deepest stage record a scene may give (two levels per prim, its object and its
// children, under a few levels of the record around it; see kMaxPrimNesting), well within the
// parser's own limit of 1024.
inline constexpr std::size_t kMaxJsonDepth = 528;
static_assert(kMaxJsonDepth < simdjson::DEFAULT_MAX_DEPTH);

// Codes of Error::kJsonDomain.
enum JsonErrorCode : std::int64_t {
  kJsonMalformed = 1,  // not JSON at all: syntax, encoding, trailing content
  kJsonMismatch = 2,   // JSON, but not the record: wrong type, missing key, out of range
};

namespace json::detail {

// Where a failure happened, collected while the failure unwinds so that a successful decode
// never pays for building paths.
class DecodeState {
 public:
  bool failWith(std::string problem, JsonErrorCode code = kJsonMismatch);
  bool failMalformed(simdjson::error_code code);
  void prependKey(std::string_view key);
  void prependIndex(std::size_t index);
  Error toError(std::string_view rootPath) const;

  bool enterContainer() {
    return ++depth_ <= kMaxJsonDepth || failWith("nesting too deep", kJsonMalformed);
  }
  void leaveContainer() { --depth_; }

 private:
  struct Segment {
    std::string key;
    std::size_t index = 0;
    bool isIndex = false;
  };
  std::string problem_;
  std::string detail_;
  JsonErrorCode code_ = kJsonMismatch;
  std::vector<Segment> reversedPath_;
  std::size_t depth_ = 0;
};

// Whether the scalar under `source` is well-formed JSON of the given type. Only consulted after a
// getter has failed, to tell a value of another type from bytes that are no JSON at all; a getter
// that fails leaves the value unconsumed, so it can be read again.
template <class Source>
bool isWellFormedScalar(Source& source, simdjson::ondemand::json_type type) {
  using simdjson::ondemand::json_type;
  switch (type) {
    case json_type::string: {
      std::string_view text;
      return source.get_string().get(text) == simdjson::SUCCESS;
    }
    case json_type::boolean: {
      bool flag = false;
      return source.get_bool().get(flag) == simdjson::SUCCESS;
    }
    case json_type::number: {
      double number = 0;
      return source.get_double().get(number) == simdjson::SUCCESS;
    }
    case json_type::null: {
      bool isNull = false;
      return source.is_null().get(isNull) == simdjson::SUCCESS && isNull;
    }
    case json_type::array:
    case json_type::object:
      return true;  // Containers are checked as the walk goes through them.
  }
  return false;
}

// Decides between "expected <kind>" and "malformed JSON" once a getter has failed.
template <class Source>
bool failType(Source& source, simdjson::error_code code, simdjson::ondemand::json_type expected,
              std::string_view kindName, DecodeState& state) {
  simdjson::ondemand::json_type actual;
  if (source.type().get(actual) != simdjson::SUCCESS || actual == expected ||
      !isWellFormedScalar(source, actual)) {
    return state.failMalformed(code);
  }
  return state.failWith("expected " + std::string(kindName));
}

template <class Source, class T>
bool decodeInto(Source& source, T& out, DecodeState& state);

template <class T>
concept HasAfterDecode = requires(T& record, JsonDecodeContext& context) {
  record.afterDecode(context);
};

// The dispatch table of a record, built once per record type from its field table.
template <class T>
struct RecordTable {
  using Fields = decltype(T::jsonFields());
  static constexpr std::size_t kCount = std::tuple_size_v<Fields>;
  static_assert(kCount <= 64, "a record has at most 64 keys");

  static const Fields& fields() { return fieldsOf<T>(); }

  static const std::array<std::string_view, kCount>& keys() {
    static const std::array<std::string_view, kCount> table =
        makeKeys(std::make_index_sequence<kCount>{});
    return table;
  }

  template <std::size_t... I>
  static std::array<std::string_view, kCount> makeKeys(std::index_sequence<I...>) {
    return {std::get<I>(fields()).key...};
  }

  // Documents usually list keys in the order of the table, so the search starts right after the
  // previous hit and wraps around.
  static std::size_t findRaw(const std::array<std::string_view, kCount>& table,
                             simdjson::ondemand::raw_json_string key, std::size_t hint) {
    const char* raw = key.raw();
    for (std::size_t step = 0; step < kCount; ++step) {
      std::size_t index = hint + step;
      if (index >= kCount) {
        index -= kCount;
      }
      const std::string_view candidate = table[index];
      // A key starts before the end of the input, so the padding makes its first
      // SIMDJSON_PADDING bytes readable; longer candidates are left to the unescaped comparison.
      // The closing quote at the candidate's length settles most mismatches in one load.
      if (candidate.size() < simdjson::SIMDJSON_PADDING && raw[candidate.size()] == '"' &&
          std::memcmp(raw, candidate.data(), candidate.size()) == 0) {
        return index;
      }
    }
    return kCount;
  }

  static std::size_t find(const std::array<std::string_view, kCount>& table, std::string_view key,
                          std::size_t hint) {
    for (std::size_t step = 0; step < kCount; ++step) {
      std::size_t index = hint + step;
      if (index >= kCount) {
        index -= kCount;
      }
      if (table[index] == key) {
        return index;
      }
    }
    return kCount;
  }
};

template <std::size_t I, class T>
bool decodeField(simdjson::ondemand::value& value, T& out, std::uint64_t& present,
                 DecodeState& state) {
  const auto& field = std::get<I>(RecordTable<T>::fields());
  using Field = std::remove_cvref_t<decltype(field)>;
  auto& member = out.*(field.member);
  if constexpr (Field::kKind == FieldKind::kRequired) {
    if (!decodeInto(value, member, state)) {
      return false;
    }
    present |= std::uint64_t{1} << I;
    return true;
  } else {
    bool isNull = false;
    if (auto code = value.is_null().get(isNull)) {
      return state.failMalformed(code);
    }
    if (isNull) {
      present &= ~(std::uint64_t{1} << I);
      if constexpr (Field::kKind == FieldKind::kOptional) {
        member.reset();
      } else {
        member = field.defaultValue;
      }
      return true;
    }
    present |= std::uint64_t{1} << I;
    if constexpr (Field::kKind == FieldKind::kOptional) {
      return decodeInto(value, member.emplace(), state);
    } else {
      return decodeInto(value, member, state);
    }
  }
}

template <class T, std::size_t... I>
bool decodeFieldAt(std::size_t index, simdjson::ondemand::value& value, T& out,
                   std::uint64_t& present, DecodeState& state, std::index_sequence<I...>) {
  using Decoder = bool (*)(simdjson::ondemand::value&, T&, std::uint64_t&, DecodeState&);
  static constexpr std::array<Decoder, sizeof...(I)> kDecoders = {&decodeField<I, T>...};
  return kDecoders[index](value, out, present, state);
}

// Applies defaults and checks required keys once the object has been walked.
template <class T, std::size_t... I>
bool completeRecord([[maybe_unused]] T& out, [[maybe_unused]] std::uint64_t present,
                    [[maybe_unused]] DecodeState& state, std::index_sequence<I...>) {
  [[maybe_unused]] const auto& fields = RecordTable<T>::fields();
  bool ok = true;
  [[maybe_unused]] auto complete = [&](const auto& field, std::size_t index) {
    using Field = std::remove_cvref_t<decltype(field)>;
    if (!ok || (present & (std::uint64_t{1} << index)) != 0) {
      return;
    }
    if constexpr (Field::kKind == FieldKind::kRequired) {
      state.failWith("missing required key");
      state.prependKey(field.key);
      ok = false;
    } else if constexpr (Field::kKind == FieldKind::kDefaulted) {
      out.*(field.member) = field.defaultValue;
    }
  };
  (complete(std::get<I>(fields), I), ...);
  return ok;
}

template <class Source, class T>
bool decodeRecord(Source& source, T& out, DecodeState& state) {
  using Table = RecordTable<T>;
  simdjson::ondemand::object object;
  if (auto code = source.get_object().get(object)) {
    return failType(source, code, simdjson::ondemand::json_type::object, "object", state);
  }
  if (!state.enterContainer()) {
    return false;
  }
  const auto& keys = Table::keys();
  std::uint64_t present = 0;
  std::size_t hint = 0;
  for (auto entry : object) {
    if (auto code = entry.error()) {
      return state.failMalformed(code);
    }
    simdjson::ondemand::field& field = entry.value_unsafe();
    // Keys are compared in their raw form first, which needs no copy; only a key that matches
    // nothing is unescaped, in case it spells a known key with escapes.
    std::size_t index = Table::findRaw(keys, field.key(), hint);
    if (index == Table::kCount) {
      std::string_view key;
      if (auto code = field.unescaped_key().get(key)) {
        return state.failMalformed(code);
      }
      index = Table::find(keys, key, hint);
      if (index == Table::kCount) {
        continue;  // Unknown key: the iterator skips its value.
      }
    }
    hint = index + 1;
    if (!decodeFieldAt(index, field.value(), out, present, state,
                       std::make_index_sequence<Table::kCount>{})) {
      state.prependKey(keys[index]);
      return false;
    }
  }
  state.leaveContainer();
  if (!completeRecord(out, present, state, std::make_index_sequence<Table::kCount>{})) {
    return false;
  }
  if constexpr (HasAfterDecode<T>) {
    JsonDecodeContext context(keys.data(), keys.size(), present);
    out.afterDecode(context);
    if (context.failure()) {
      return state.failWith(*context.failure());
    }
  }
  return true;
}

template <class Source, class T>
bool decodeList(Source& source, std::vector<T>& out, DecodeState& state) {
  simdjson::ondemand::array array;
  if (auto code = source.get_array().get(array)) {
    return failType(source, code, simdjson::ondemand::json_type::array, "array", state);
  }
  if (!state.enterContainer()) {
    return false;
  }
  out.clear();
  std::size_t index = 0;
  for (auto entry : array) {
    if (auto code = entry.error()) {
      state.failMalformed(code);
      state.prependIndex(index);
      return false;
    }
    simdjson::ondemand::value& element = entry.value_unsafe();
    if (index == 0) {
      // Room for two spares the first reallocation of the many short lists without leaving
      // unused slots in the lists of one or two, which are most of them.
      out.reserve(2);
    }
    if (!decodeInto(element, out.emplace_back(), state)) {
      state.prependIndex(index);
      return false;
    }
    ++index;
  }
  state.leaveContainer();
  return true;
}

template <class Source, class Map>
bool decodeMap(Source& source, Map& out, DecodeState& state) {
  simdjson::ondemand::object object;
  if (auto code = source.get_object().get(object)) {
    return failType(source, code, simdjson::ondemand::json_type::object, "object", state);
  }
  if (!state.enterContainer()) {
    return false;
  }
  out.clear();
  for (auto entry : object) {
    if (auto code = entry.error()) {
      return state.failMalformed(code);
    }
    simdjson::ondemand::field& field = entry.value_unsafe();
    std::string_view key;
    if (auto code = field.unescaped_key().get(key)) {
      return state.failMalformed(code);
    }
    typename Map::mapped_type value{};
    if (!decodeInto(field.value(), value, state)) {
      state.prependKey(key);
      return false;
    }
    out.insert_or_assign(std::string(key), std::move(value));
  }
  state.leaveContainer();
  return true;
}

// The text of the number under `source` (with any white space that follows it).
template <class Source>
std::string_view numberToken(Source& source) {
  if constexpr (std::same_as<Source, simdjson::ondemand::document>) {
    std::string_view token;
    return source.raw_json_token().get(token) == simdjson::SUCCESS ? token : std::string_view();
  } else {
    return source.raw_json_token();
  }
}

// Tells apart the ways an integer getter can fail: another type, a number with a fraction or
// exponent, a negative number for an unsigned member, a number too large, or no number at all.
// The parser's own number classification is not trusted here: it calls some integers beyond 64
// bits signed or unsigned integers, so the decision rests on the number's text.
template <class Source>
bool failInteger(Source& source, simdjson::error_code code, bool isSigned, DecodeState& state) {
  using simdjson::ondemand::json_type;
  const std::string expected = isSigned ? "expected integer" : "expected unsigned integer";
  json_type type;
  if (source.type().get(type) != simdjson::SUCCESS || !isWellFormedScalar(source, type)) {
    return state.failMalformed(code);
  }
  if (type != json_type::number) {
    return state.failWith(expected);
  }
  const std::string_view token = numberToken(source);
  if (token.find_first_of(".eE") != std::string_view::npos) {
    return state.failWith(expected);
  }
  if (!isSigned && token.starts_with('-')) {
    return state.failWith(expected);
  }
  return state.failWith("integer out of range");
}

template <class Source, Integer T>
bool decodeInteger(Source& source, T& out, DecodeState& state) {
  using Wide = std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>;
  Wide wide{};
  simdjson::error_code code;
  if constexpr (std::is_signed_v<T>) {
    code = source.get_int64().get(wide);
  } else {
    code = source.get_uint64().get(wide);
  }
  if (code == simdjson::SUCCESS) {
    if constexpr (sizeof(T) < sizeof(Wide)) {
      if (wide < Wide{std::numeric_limits<T>::min()} ||
          wide > Wide{std::numeric_limits<T>::max()}) {
        return state.failWith("integer out of range");
      }
    }
    out = static_cast<T>(wide);
    return true;
  }
  return failInteger(source, code, std::is_signed_v<T>, state);
}

template <class Source>
bool decodeGeneric(Source& source, JsonValue& out, DecodeState& state);

template <class Source, class T>
bool decodeInto(Source& source, T& out, DecodeState& state) {
  using simdjson::ondemand::json_type;
  if constexpr (std::same_as<T, std::string>) {
    std::string_view text;
    if (auto code = source.get_string().get(text)) {
      return failType(source, code, json_type::string, "string", state);
    }
    out.assign(text);
    return true;
  } else if constexpr (std::same_as<T, bool>) {
    if (auto code = source.get_bool().get(out)) {
      return failType(source, code, json_type::boolean, "boolean", state);
    }
    return true;
  } else if constexpr (Integer<T>) {
    return decodeInteger(source, out, state);
  } else if constexpr (std::same_as<T, double>) {
    if (auto code = source.get_double().get(out)) {
      return failType(source, code, json_type::number, "number", state);
    }
    return true;
  } else if constexpr (std::same_as<T, JsonValue>) {
    return decodeGeneric(source, out, state);
  } else if constexpr (IsStdOptional<T>::value) {
    bool isNull = false;
    if (auto code = source.is_null().get(isNull)) {
      return state.failMalformed(code);
    }
    if (isNull) {
      out.reset();
      return true;
    }
    return decodeInto(source, out.emplace(), state);
  } else if constexpr (IsVector<T>::value) {
    return decodeList(source, out, state);
  } else if constexpr (IsStringMap<T>::value) {
    return decodeMap(source, out, state);
  } else if constexpr (Record<T>) {
    return decodeRecord(source, out, state);
  } else {
    static_assert(!sizeof(T), "this type has no JSON form");
  }
}

template <class Source>
bool decodeGeneric(Source& source, JsonValue& out, DecodeState& state) {
  using simdjson::ondemand::json_type;
  json_type type;
  if (auto code = source.type().get(type)) {
    return state.failMalformed(code);
  }
  switch (type) {
    case json_type::object: {
      if (!state.enterContainer()) {
        return false;
      }
      simdjson::ondemand::object object;
      if (auto code = source.get_object().get(object)) {
        return state.failMalformed(code);
      }
      JsonValue::Object members;
      for (auto entry : object) {
        if (auto code = entry.error()) {
          return state.failMalformed(code);
        }
        simdjson::ondemand::field& field = entry.value_unsafe();
        std::string_view key;
        if (auto code = field.unescaped_key().get(key)) {
          return state.failMalformed(code);
        }
        JsonValue member;
        if (!decodeGeneric(field.value(), member, state)) {
          state.prependKey(key);
          return false;
        }
        members.emplace_back(std::string(key), std::move(member));
      }
      state.leaveContainer();
      out = JsonValue(std::move(members));
      return true;
    }
    case json_type::array: {
      if (!state.enterContainer()) {
        return false;
      }
      simdjson::ondemand::array array;
      if (auto code = source.get_array().get(array)) {
        return state.failMalformed(code);
      }
      JsonValue::Array elements;
      for (auto entry : array) {
        simdjson::ondemand::value element;
        if (auto code = std::move(entry).get(element)) {
          state.failMalformed(code);
          state.prependIndex(elements.size());
          return false;
        }
        if (!decodeGeneric(element, elements.emplace_back(), state)) {
          state.prependIndex(elements.size() - 1);
          return false;
        }
      }
      state.leaveContainer();
      out = JsonValue(std::move(elements));
      return true;
    }
    case json_type::number: {
      simdjson::ondemand::number_type numberType;
      if (auto code = source.get_number_type().get(numberType)) {
        return state.failMalformed(code);
      }
      if (numberType == simdjson::ondemand::number_type::floating_point_number) {
        double value = 0;
        if (auto code = source.get_double().get(value)) {
          return state.failMalformed(code);
        }
        out = JsonValue(value);
        return true;
      }
      std::int64_t signedValue = 0;
      if (source.get_int64().get(signedValue) == simdjson::SUCCESS) {
        out = JsonValue(signedValue);
        return true;
      }
      std::uint64_t unsignedValue = 0;
      if (source.get_uint64().get(unsignedValue) == simdjson::SUCCESS) {
        out = JsonValue(unsignedValue);
        return true;
      }
      double number = 0;
      if (auto code = source.get_double().get(number)) {
        return state.failMalformed(code);
      }
      return state.failWith("integer out of range");
    }
    case json_type::string: {
      std::string_view text;
      if (auto code = source.get_string().get(text)) {
        return state.failMalformed(code);
      }
      out = JsonValue(text);
      return true;
    }
    case json_type::boolean: {
      bool value = false;
      if (auto code = source.get_bool().get(value)) {
        return state.failMalformed(code);
      }
      out = JsonValue(value);
      return true;
    }
    case json_type::null: {
      bool isNull = false;
      if (auto code = source.is_null().get(isNull)) {
        return state.failMalformed(code);
      }
      if (!isNull) {
        return state.failMalformed(simdjson::INCORRECT_TYPE);
      }
      out = JsonValue();
      return true;
    }
  }
  return state.failMalformed(simdjson::INCORRECT_TYPE);
}

// True when nothing but white space follows the decoded root.
bool isAtEnd(simdjson::ondemand::document& document);

}  // namespace json::detail

// Decodes documents with one reusable parser; keep one per thread to avoid reallocating the
// parser's buffers for every document.
class JsonDecoder {
 public:
  // `json` must keep simdjson::SIMDJSON_PADDING readable bytes after its end.
  template <class T>
  Result<T> decode(simdjson::padded_string_view json, std::string_view rootPath = "") {
    json::detail::DecodeState state;
    simdjson::ondemand::document document;
    if (auto code = parser_.iterate(json).get(document)) {
      state.failMalformed(code);
      return state.toError(rootPath);
    }
    T value{};
    if (!json::detail::decodeInto(document, value, state)) {
      return state.toError(rootPath);
    }
    if (!json::detail::isAtEnd(document)) {
      state.failWith("trailing content after the document", kJsonMalformed);
      return state.toError(rootPath);
    }
    return value;
  }

 private:
  simdjson::ondemand::parser parser_;
};

// Decodes one document, copying it once into a padded buffer.
template <class T>
Result<T> decodeJson(std::string_view json, std::string_view rootPath = "") {
  const simdjson::padded_string padded(json);
  JsonDecoder decoder;
  return decoder.decode<T>(padded, rootPath);
}

// Decodes a document that already carries the parser's padding, without copying it.
template <class T, class Padded>
requires std::same_as<Padded, simdjson::padded_string> Result<T> decodeJson(
    const Padded& json, std::string_view rootPath = "") {
  JsonDecoder decoder;
  return decoder.decode<T>(json, rootPath);
}

}  // namespace orvan::editor
