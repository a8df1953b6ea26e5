#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "UsdText/Layer.h"

namespace orvan::engine {

// Pieces of a layer as text and back. A piece's text is a small layer of its own in the writer's
// form (a prim subtree as its one root prim, a property inside `over "_"`, a metadata entry in a
// header), so the reader and writer that handle whole layers handle pieces the same way, and two
// texts of one piece are equal exactly when the pieces are.

// The pool index that a prim cut out of its layer's tree gets as parent: it stays in the pool
// (a composed stage may still point at it) but no path leads to it.
inline constexpr std::uint32_t kDetachedPrim = kNoPrim - 16;

std::string subtreeText(const Layer& layer, std::uint32_t prim);
// The prim's own opinions, without its children.
std::string primFieldsText(const Layer& layer, std::uint32_t prim);
std::string propertyText(const LayerProperty& property);
std::string primMetadataText(const MetadataEntry& entry);
std::string layerMetadataText(const MetadataEntry& entry);
// How a change names a metadata entry: its key, after the list op word when there is one.
std::string metadataName(const MetadataEntry& entry);

// Copies a prim subtree into a scratch layer without copying text: the copies' views still point
// into `from`, which must outlive `to`. Used to write pieces out.
std::uint32_t copySubtreeShallow(const Layer& from, std::uint32_t prim, Layer& to,
                                 std::uint32_t parent);

// One prim of one layer.
struct AuthoredPrim {
  const Layer* layer;
  std::uint32_t prim;
};

// One authored made of the authored of several layers, strongest first, in a scratch layer (views
// into the given layers): per metadata entry, property field and child, the strongest one says; the
// children of the weakest come first. What flattening a prim across a layer stack gives.
std::uint32_t mergeAuthoredPrims(Layer& scratch, const std::vector<AuthoredPrim>& authored,
                                 std::uint32_t parent);

// Reads a piece's text; null with the reason in `error` when it does not read.
std::shared_ptr<Layer> readFragment(std::string_view text, std::string& error);

// Deep copies into `to` of what a fragment holds: names and values are re-made in `to`'s own
// storage, so the fragment may go away. A grafted prim is appended to the pool with `parent`
// as its parent but not yet linked into the parent's children.
std::uint32_t graftSubtree(Layer& to, const Layer& from, std::uint32_t prim, std::uint32_t parent);
LayerProperty graftProperty(Layer& to, const Layer& from, const LayerProperty& property);
MetadataEntry graftMetadata(Layer& to, const Layer& from, const MetadataEntry& entry);

// The children list that holds a prim (the layer's root prims for a root prim).
std::vector<std::uint32_t>& siblingsOf(Layer& layer, std::uint32_t prim);
std::uint32_t parentIndexForPath(const Layer& layer, std::string_view path, bool& found);
// Unlinks a prim from its parent; returns its position among its siblings.
std::uint32_t detachPrim(Layer& layer, std::uint32_t prim);
void attachPrim(Layer& layer, std::uint32_t prim, std::uint32_t parent, std::uint32_t index);

std::string_view parentPathOf(std::string_view path);
std::string_view nameOf(std::string_view path);
std::string childPath(std::string_view parent, std::string_view name);

}  // namespace orvan::engine
