#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvan::engine {

// What a value in a layer looks like. Scalars keep their exact source text so that a layer written
// back says "1.50" where the author wrote "1.50"; structure (tuples, lists, dictionaries) is parsed
// so that the writer can lay it out canonically.
enum class ValueKind : std::uint8_t {
  None,         // the blocking value None
  Number,       // text: the number as written ("1", "-2.5e3")
  Identifier,   // text: a bare word (true, false, inf, nan, -inf, or a token the format allows)
  String,       // text: the literal including its quotes and escapes
  Asset,        // text: the literal including its @ or @@@ delimiters
  Path,         // text: the literal including < and >
  Tuple,        // items: the elements of ( ... )
  List,         // items: the elements of [ ... ]
  Dictionary,   // items: Entry values, in authored order
  Entry,        // text: key as written; items[0]: value; items[1]: declared type, when there is one
  TimeSamples,  // items: Entry values keyed by time
  PathMap,      // items: Entry values mapping one path to another ({ </A>: </B> })
  Reference,    // text: the asset literal; items: optional Path, then optional Dictionary of
                // arguments
  RawText,      // text: an exact span of source kept untouched (spline blocks)
};

// A value is a small handle (32 bytes): its text is a view of the layer's text and its items live
// in the layer's ValueArena, so reading a tuple or a list costs no allocation of its own.
struct Value {
  ValueKind kind = ValueKind::None;
  std::uint32_t itemCount = 0;
  std::string_view text;
  const Value* itemData = nullptr;

  std::span<const Value> items() const { return {itemData, itemCount}; }
  // The declared type of a dictionary Entry, empty for untyped entries.
  std::string_view entryType() const {
    return itemCount > 1 ? itemData[1].text : std::string_view();
  }

  bool operator==(const Value& other) const;

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
  static Value ofKind(ValueKind kind, std::string_view text) {
    return Value{kind, 0, text, nullptr};
  }
};

// Where the items of values live: fixed chunks that never move, so the items of a value stay put
// however many values follow. Owned by a layer.
class ValueArena {
 public:
  // Copies the values into the arena and returns where they now live.
  const Value* store(std::span<const Value> values);

 private:
  static constexpr std::size_t kChunk = 4096;
  std::vector<std::unique_ptr<Value[]>> chunks_;
  std::size_t used_ = 0;
  std::size_t capacity_ = 0;
};

// String literal helpers. A literal is any of "..", '..', """..""" or '''..''' with C-like escapes.
std::string decodeStringLiteral(std::string_view literal);
std::string encodeStringLiteral(std::string_view text);
std::string decodeAssetLiteral(std::string_view literal);
std::string encodeAssetLiteral(std::string_view path);

}  // namespace orvan::engine
