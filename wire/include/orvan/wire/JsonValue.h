#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace orvan::editor {

// A free-form JSON value, for the parts of a record whose shape the editor does not fix
// (attribute values, custom data). Objects keep their keys in document order, so a value
// re-encodes to the same text it was read from.
//
// Integers keep their exact value: a signed 64-bit integer whenever it fits, an unsigned one above
// that. Numbers written with a fraction or exponent stay doubles, so 1 and 1.0 are different
// values and re-encode as "1" and "1.0".
class JsonValue {
 public:
  using Array = std::vector<JsonValue>;
  using Member = std::pair<std::string, JsonValue>;
  using Object = std::vector<Member>;

  JsonValue() = default;
  JsonValue(std::nullptr_t) {}
  JsonValue(bool value) : storage_(value) {}
  JsonValue(int value) : storage_(std::int64_t{value}) {}
  JsonValue(std::int64_t value) : storage_(value) {}
  JsonValue(std::uint64_t value);
  JsonValue(double value) : storage_(value) {}
  JsonValue(std::string value) : storage_(std::move(value)) {}
  JsonValue(std::string_view value) : storage_(std::string(value)) {}
  JsonValue(const char* value) : storage_(std::string(value)) {}
  JsonValue(Array value) : storage_(std::move(value)) {}
  JsonValue(Object value) : storage_(std::move(value)) {}

  bool isNull() const { return std::holds_alternative<std::nullptr_t>(storage_); }
  bool isBool() const { return std::holds_alternative<bool>(storage_); }
  bool isInt64() const { return std::holds_alternative<std::int64_t>(storage_); }
  bool isUint64() const { return std::holds_alternative<std::uint64_t>(storage_); }
  bool isDouble() const { return std::holds_alternative<double>(storage_); }
  bool isNumber() const { return isInt64() || isUint64() || isDouble(); }
  bool isString() const { return std::holds_alternative<std::string>(storage_); }
  bool isArray() const { return std::holds_alternative<Array>(storage_); }
  bool isObject() const { return std::holds_alternative<Object>(storage_); }

  // Each accessor gives null when the value holds another kind.
  const bool* asBool() const { return std::get_if<bool>(&storage_); }
  const std::int64_t* asInt64() const { return std::get_if<std::int64_t>(&storage_); }
  const std::uint64_t* asUint64() const { return std::get_if<std::uint64_t>(&storage_); }
  const double* asDouble() const { return std::get_if<double>(&storage_); }
  const std::string* asString() const { return std::get_if<std::string>(&storage_); }
  const Array* asArray() const { return std::get_if<Array>(&storage_); }
  const Object* asObject() const { return std::get_if<Object>(&storage_); }
  Array* asArray() { return std::get_if<Array>(&storage_); }
  Object* asObject() { return std::get_if<Object>(&storage_); }

  // The first member named `key` of an object, or null.
  const JsonValue* find(std::string_view key) const;

  bool operator==(const JsonValue&) const = default;

 private:
  std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double, std::string, Array,
               Object>
      storage_;
};

}  // namespace orvan::editor
