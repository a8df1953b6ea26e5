#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "UsdText/Value.h"

namespace orvan::engine {

enum class Specifier : std::uint8_t { Def, Over, Class };
enum class ListOp : std::uint8_t { Explicit, Prepend, Append, Add, Delete, Reorder };
enum class PropertyKind : std::uint8_t { Attribute, Relationship };
enum class Variability : std::uint8_t { Varying, Uniform, Config };

std::string_view specifierKeyword(Specifier specifier);
std::string_view listOpKeyword(ListOp op);  // empty for Explicit

// Comments are kept as their exact text ("# ...") and written back before the statement they
// preceded.
using Comments = std::vector<std::string_view>;

struct MetadataEntry {
  ListOp op = ListOp::Explicit;
  std::string_view key;
  Value value;
  Comments comments;
  // Where the entry was read (0 when made in memory), so that composition problems can point at
  // the statement that caused them. Not part of what the layer says: equality ignores it.
  std::uint32_t line = 0;
  std::uint32_t column = 0;

  bool operator==(const MetadataEntry& other) const {
    return op == other.op && key == other.key && value == other.value && comments == other.comments;
  }
};

// One statement about a property: its declaration/default ("" suffix), or ".connect",
// ".timeSamples", ".spline" or any other suffix the reader met, each with its own list op.
struct PropertyField {
  std::string_view suffix;
  ListOp op = ListOp::Explicit;
  bool hasValue = false;
  Value value;
  bool operator==(const PropertyField&) const = default;
};

struct LayerProperty {
  PropertyKind kind = PropertyKind::Attribute;
  bool custom = false;
  Variability variability = Variability::Varying;
  std::string_view typeName;  // with "[]" for arrays; empty for relationships
  std::string_view name;
  std::vector<PropertyField> fields;
  std::vector<MetadataEntry> metadata;
  Comments comments;
  bool operator==(const LayerProperty&) const = default;

  const PropertyField* findField(std::string_view suffix) const;
};

inline constexpr std::uint32_t kNoPrim = 0xFFFFFFFFu;

struct LayerVariant {
  std::string_view name;         // decoded variant name
  std::uint32_t body = kNoPrim;  // a LayerPrim holding the variant's metadata and contents
  Comments comments;
};

struct LayerVariantSet {
  std::string_view name;
  std::vector<LayerVariant> variants;
  Comments comments;
};

struct LayerPrim {
  Specifier specifier = Specifier::Def;
  std::string_view typeName;
  std::string_view name;
  std::uint32_t parent = kNoPrim;
  bool isVariantBody = false;
  std::vector<MetadataEntry> metadata;
  std::vector<LayerProperty> properties;
  std::vector<std::uint32_t> children;
  std::vector<LayerVariantSet> variantSets;
  std::vector<MetadataEntry> reorders;  // "reorder nameChildren/properties = [...]" statements
  Comments comments;
  Comments trailingComments;

  const MetadataEntry* findMetadata(std::string_view key) const;
  const LayerVariantSet* findVariantSet(std::string_view name) const;
};

// One text layer in memory. The layer owns its source text; every string_view in its prims and
// properties points into that text or into the layer's own text storage (for values made by edits),
// so a layer is moved, never copied.
class Layer {
 public:
  Layer() = default;
  explicit Layer(std::string identifier, std::string source);
  Layer(const Layer&) = delete;
  Layer& operator=(const Layer&) = delete;
  Layer(Layer&&) = default;
  Layer& operator=(Layer&&) = default;

  const std::string& identifier() const { return identifier_; }
  std::string_view source() const {
    return source_ ? std::string_view(*source_) : std::string_view();
  }

  // Keeps a copy of the text alive as long as the layer and returns a view of it.
  std::string_view storeText(std::string text);
  // A value whose items live in this layer (for edits and for the reader).
  Value makeValue(ValueKind kind, std::string_view text, std::span<const Value> items);
  ValueArena& values() { return values_; }

  const MetadataEntry* findMetadata(std::string_view key) const;
  // The decoded defaultPrim, empty when unset.
  std::string defaultPrim() const;
  // The sublayer asset paths in authored order (strongest first).
  std::vector<std::string> subLayerPaths() const;
  // The prim at an absolute path such as "/World/Ground" (no variant selections), or kNoPrim.
  std::uint32_t findPrim(std::string_view path) const;
  std::string primPath(std::uint32_t index) const;

  // Structural equality of everything the layer says, independent of where prims sit in the pool.
  bool equivalentTo(const Layer& other) const;

  std::string_view version = "1.0";
  std::vector<MetadataEntry> metadata;
  Comments headerComments;
  Comments trailingComments;
  std::vector<MetadataEntry> reorders;  // "reorder rootPrims = [...]" statements
  std::vector<std::uint32_t> rootPrims;
  std::vector<LayerPrim> prims;

 private:
  std::string identifier_;
  std::unique_ptr<std::string> source_;
  std::deque<std::string> storedTexts_;
  ValueArena values_;
};

}  // namespace orvan::engine
