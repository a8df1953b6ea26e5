#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace orvan::engine {

class EditableScene;

// The primitive changes every edit is made of. Each one says what the thing it touches looked
// like before and after, as text (a small layer holding just that thing, in the writer's form),
// so a change is its own inverse with before and after swapped, and applying it checks that the
// scene still holds `before`.
enum class ChangeKind : std::uint8_t {
  PrimSubtree,  // a prim as one layer authors it, with its whole subtree, at `path`; `index`: among
                // its siblings
  PrimFields,   // a prim's own opinions (specifier, type, metadata, properties, variant sets),
                // its children left alone
  PrimMove,     // a prim moves within one layer from `path` (position `sourceIndex`) to `target`
                // (position `index`); no text
  Property,     // property `name` of the prim at `path`; `index`: among its properties
  PrimMetadata,   // metadata entry `name` ("key" or "prepend key") of the prim at `path`
  LayerMetadata,  // metadata entry `name` of the layer itself (subLayers, defaultPrim, ...)
  LayerFile,      // the whole layer: created (no before), deleted (no after) or replaced
  LayerMute,      // whether the workspace leaves the layer out: before/after "true" or "false"
};

std::string_view changeKindWord(ChangeKind kind);

struct LayerChange {
  ChangeKind kind = ChangeKind::Property;
  std::string layer;  // the layer's path relative to the project folder
  std::string path;
  std::string target;
  std::string name;
  std::uint32_t index = 0;
  std::uint32_t sourceIndex = 0;
  std::optional<std::string> before;
  std::optional<std::string> after;

  bool operator==(const LayerChange&) const = default;
};

// An edit as the primitive changes that make it, in the order they apply.
struct ChangeSet {
  std::vector<LayerChange> changes;

  bool empty() const { return changes.empty(); }
  bool operator==(const ChangeSet&) const = default;
};

// The text form that the revision log keeps (JSON); decoding gives the same change set back, or
// why the text is not one.
std::string encodeChangeSet(const ChangeSet& changes);
std::variant<ChangeSet, std::string> decodeChangeSet(std::string_view text);

// The change set that undoes `changes`: every change inverted, in reverse order.
ChangeSet invertChangeSet(const ChangeSet& changes);

// Applies every change in order, all or nothing: when one does not fit the scene (what it expects
// to find is not there), the ones applied before it are undone and the reason is returned.
std::optional<std::string> applyChangeSet(EditableScene& scene, const ChangeSet& changes);

}  // namespace orvan::engine
