#pragma once

#include <concepts>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

// How a wire record declares its JSON keys. Each record lists its fields once, in a static
// `jsonFields()` returning a tuple of descriptors; the decoder and the encoder both read that
// table, so the two directions can never disagree about a key.
//
//   struct UsdAttribute {
//     std::string name;
//     std::optional<std::string> control;
//     bool overridden = false;
//
//     bool operator==(const UsdAttribute&) const = default;
//     static auto jsonFields() {
//       return std::tuple{json::required("name", &UsdAttribute::name),
//                         json::optional("control", &UsdAttribute::control),
//                         json::defaulted("overridden", &UsdAttribute::overridden, false)};
//     }
//   };
//
// Field kinds:
//   required   the key must be present with a value of the member's type, or the whole record
//              fails (null counts as a wrong type, except for a JsonValue member).
//   optional   the member is a std::optional; a missing key or null leaves it empty, and the
//              encoder omits the key while it is empty.
//   defaulted  a missing key or null gives the stated default; the encoder always writes the key.
//
// A record may also declare `void afterDecode(JsonDecodeContext&)` for fields that derive from
// the others or from which keys were present (see JsonDecodeContext.h). Members of a record may
// be std::string, bool, any integer type (range-checked), double, JsonValue, std::optional,
// std::vector, string-keyed std::map / std::unordered_map, or another record. A record has at
// most 64 keys.
namespace orvan::editor::json {

enum class FieldKind { kRequired, kOptional, kDefaulted };

template <class Owner, class Member>
struct RequiredField {
  static constexpr FieldKind kKind = FieldKind::kRequired;
  using OwnerType = Owner;
  using MemberType = Member;
  std::string_view key;
  Member Owner::*member;
};

template <class Owner, class Member>
struct OptionalField {
  static constexpr FieldKind kKind = FieldKind::kOptional;
  using OwnerType = Owner;
  using MemberType = Member;
  std::string_view key;
  Member Owner::*member;
};

template <class Owner, class Member>
struct DefaultedField {
  static constexpr FieldKind kKind = FieldKind::kDefaulted;
  using OwnerType = Owner;
  using MemberType = Member;
  std::string_view key;
  Member Owner::*member;
  Member defaultValue;
};

template <class T>
struct IsStdOptional : std::false_type {};
template <class T>
struct IsStdOptional<std::optional<T>> : std::true_type {};

template <class Owner, class Member>
constexpr RequiredField<Owner, Member> required(std::string_view key, Member Owner::*member) {
  return {key, member};
}

template <class Owner, class Member>
constexpr OptionalField<Owner, Member> optional(std::string_view key, Member Owner::*member) {
  static_assert(IsStdOptional<Member>::value, "an optional field needs a std::optional member");
  return {key, member};
}

template <class Owner, class Member, class Default>
DefaultedField<Owner, Member> defaulted(std::string_view key, Member Owner::*member,
                                        Default&& defaultValue) {
  return {key, member, Member(std::forward<Default>(defaultValue))};
}

// A record is any type with a static field table.
template <class T>
concept Record = requires {
  T::jsonFields();
};

// The field table of a record, built once per record type and shared by decoder and encoder.
template <Record T>
const auto& fieldsOf() {
  static const auto table = T::jsonFields();
  return table;
}

template <class T>
struct IsStringMap : std::false_type {};
template <class V, class C, class A>
struct IsStringMap<std::map<std::string, V, C, A>> : std::true_type {};
template <class V, class H, class E, class A>
struct IsStringMap<std::unordered_map<std::string, V, H, E, A>> : std::true_type {};

template <class T>
struct IsVector : std::false_type {};
template <class V, class A>
struct IsVector<std::vector<V, A>> : std::true_type {};

template <class T>
concept Integer = std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char>;

}  // namespace orvan::editor::json
