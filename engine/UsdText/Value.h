#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvan::engine {

// What a value in a layer looks like. Scalars keep their exact source text so that a layer written
// back says "1.50" where the author wrote "1.50"; structure (tuples, lists, dictionaries) is parsed
// so that the writer can lay it out canonically.
enum class ValueKind : std::uint8_t {
  None,        // the blocking value None
  Number,      // text: the number as written ("1", "-2.5e3")
  Identifier,  // text: a bare word (true, false, inf, nan, -inf, or a token the format allows)
  String,      // text: the literal including its quotes and escapes
  Asset,       // text: the literal including its @ or @@@ delimiters
  Path,        // text: the literal including < and >
  Tuple,       // items: the elements of ( ... )
  List,        // items: the elements of [ ... ]
  Dictionary,  // items: Entry values, in authored order
  Entry,       // text: key as written; typeName: declared type (may be empty); items[0]: value
  TimeSamples, // items: Entry values keyed by time
  Reference,   // text: the asset literal; items: optional Path, then optional Dictionary of arguments
  RawText,     // text: an exact span of source kept untouched (spline blocks)
};

struct Value {
  ValueKind kind = ValueKind::None;
  std::string_view text;
  std::string_view typeName;
  std::vector<Value> items;

  bool operator==(const Value& other) const = default;

  bool isNone() const { return kind == ValueKind::None; }

  // The decoded content of a String, Asset or Path (escapes resolved, delimiters removed);
  // the text itself for every other kind.
  std::string decoded() const;
  // A number or a bool word as a double; nullopt for anything else.
  std::optional<double> toNumber() const;
  std::optional<bool> toBool() const;
  // The asset path of an Asset or Reference, nullopt otherwise.
  std::optional<std::string> assetPath() const;
  // The target path of a Path or a Reference that names one.
  std::optional<std::string> targetPath() const;
  // The entry with the given decoded key in a Dictionary.
  const Value* findEntry(std::string_view key) const;

  static Value none() { return Value{}; }
  // Values whose text lives elsewhere (a layer's text storage): the caller keeps it alive.
  static Value ofKind(ValueKind kind, std::string_view text) { return Value{kind, text, {}, {}}; }
};

// String literal helpers. A literal is any of "..", '..', """..""" or '''..''' with C-like escapes.
std::string decodeStringLiteral(std::string_view literal);
std::string encodeStringLiteral(std::string_view text);
std::string decodeAssetLiteral(std::string_view literal);
std::string encodeAssetLiteral(std::string_view path);

}  // namespace orvan::engine
