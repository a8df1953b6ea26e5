#include "Authoring/LayerFragments.h"

#include <algorithm>
#include <functional>
#include <unordered_set>

#include "UsdText/LayerReader.h"
#include "UsdText/LayerWriter.h"

namespace orvan::engine {
namespace {

// Copies prims into a scratch layer without copying any text: the copies' views still point into
// the source layer, which outlives the scratch layer (it only lives while a text is written).
std::uint32_t copyShallow(const Layer& from, std::uint32_t prim, Layer& to, std::uint32_t parent,
                          bool withChildren) {
  const auto index = static_cast<std::uint32_t>(to.prims.size());
  to.prims.push_back(from.prims[prim]);
  to.prims[index].parent = parent;
  to.prims[index].children.clear();
  if (!withChildren) {
    to.prims[index].variantSets.clear();
    return index;
  }
  for (const std::uint32_t child : from.prims[prim].children) {
    const std::uint32_t copied = copyShallow(from, child, to, index, true);
    to.prims[index].children.push_back(copied);
  }
  // Copying bodies grows the pool, so the sets are re-indexed aside and stored after.
  std::vector<LayerVariantSet> sets = to.prims[index].variantSets;
  for (LayerVariantSet& set : sets) {
    for (LayerVariant& variant : set.variants) {
      if (variant.body != kNoPrim)
        variant.body = copyShallow(from, variant.body, to, index, true);
    }
  }
  to.prims[index].variantSets = std::move(sets);
  return index;
}

constexpr std::string_view kPropertyHolder = "_";

// Re-makes views and values of a fragment inside another layer.
class Grafter {
 public:
  Grafter(Layer& to, const Layer& from) : to_(to), from_(from) {}

  std::string_view text(std::string_view view) {
    if (view.empty())
      return {};
    const std::string_view source = from_.source();
    if (!source.empty() && view.data() >= source.data() &&
        view.data() + view.size() <= source.data() + source.size()) {
      if (base_.empty())
        base_ = to_.storeText(std::string(source));
      return base_.substr(static_cast<std::size_t>(view.data() - source.data()), view.size());
    }
    return to_.storeText(std::string(view));
  }

  Value value(const Value& value) {
    std::vector<Value> items;
    items.reserve(value.itemCount);
    for (const Value& item : value.items())
      items.push_back(this->value(item));
    return to_.makeValue(value.kind, text(value.text), items);
  }

  Comments comments(const Comments& comments) {
    Comments out;
    out.reserve(comments.size());
    for (const std::string_view comment : comments)
      out.push_back(text(comment));
    return out;
  }

  MetadataEntry metadata(const MetadataEntry& entry) {
    MetadataEntry out;
    out.op = entry.op;
    out.key = text(entry.key);
    out.value = value(entry.value);
    out.comments = comments(entry.comments);
    return out;
  }

  std::vector<MetadataEntry> metadataList(const std::vector<MetadataEntry>& entries) {
    std::vector<MetadataEntry> out;
    out.reserve(entries.size());
    for (const MetadataEntry& entry : entries)
      out.push_back(metadata(entry));
    return out;
  }

  LayerProperty property(const LayerProperty& property) {
    LayerProperty out;
    out.kind = property.kind;
    out.custom = property.custom;
    out.variability = property.variability;
    out.typeName = text(property.typeName);
    out.name = text(property.name);
    for (const PropertyField& field : property.fields) {
      PropertyField copied;
      copied.suffix = text(field.suffix);
      copied.op = field.op;
      copied.hasValue = field.hasValue;
      if (field.hasValue)
        copied.value = value(field.value);
      out.fields.push_back(copied);
    }
    out.metadata = metadataList(property.metadata);
    out.comments = comments(property.comments);
    return out;
  }

  std::uint32_t prim(std::uint32_t index, std::uint32_t parent) {
    const LayerPrim& source = from_.prims[index];
    LayerPrim copy;
    copy.specifier = source.specifier;
    copy.typeName = text(source.typeName);
    copy.name = text(source.name);
    copy.parent = parent;
    copy.isVariantBody = source.isVariantBody;
    copy.metadata = metadataList(source.metadata);
    for (const LayerProperty& property : source.properties)
      copy.properties.push_back(this->property(property));
    copy.reorders = metadataList(source.reorders);
    copy.comments = comments(source.comments);
    copy.trailingComments = comments(source.trailingComments);
    const auto at = static_cast<std::uint32_t>(to_.prims.size());
    to_.prims.push_back(std::move(copy));
    for (const std::uint32_t child : source.children) {
      const std::uint32_t copied = prim(child, at);
      to_.prims[at].children.push_back(copied);
    }
    std::vector<LayerVariantSet> sets;
    for (const LayerVariantSet& set : source.variantSets) {
      LayerVariantSet copiedSet;
      copiedSet.name = text(set.name);
      copiedSet.comments = comments(set.comments);
      for (const LayerVariant& variant : set.variants) {
        LayerVariant copiedVariant;
        copiedVariant.name = text(variant.name);
        copiedVariant.comments = comments(variant.comments);
        if (variant.body != kNoPrim)
          copiedVariant.body = prim(variant.body, at);
        copiedSet.variants.push_back(std::move(copiedVariant));
      }
      sets.push_back(std::move(copiedSet));
    }
    to_.prims[at].variantSets = std::move(sets);
    return at;
  }

 private:
  Layer& to_;
  const Layer& from_;
  std::string_view base_;
};

}  // namespace

std::uint32_t copySubtreeShallow(const Layer& from, std::uint32_t prim, Layer& to,
                                 std::uint32_t parent) {
  return copyShallow(from, prim, to, parent, true);
}

std::string subtreeText(const Layer& layer, std::uint32_t prim) {
  Layer scratch;
  scratch.rootPrims.push_back(copyShallow(layer, prim, scratch, kNoPrim, true));
  return writeLayer(scratch);
}

std::string primFieldsText(const Layer& layer, std::uint32_t prim) {
  Layer scratch;
  const std::uint32_t copied = copyShallow(layer, prim, scratch, kNoPrim, false);
  // Variant sets are the prim's own opinions: keep them, with their bodies.
  for (const LayerVariantSet& set : layer.prims[prim].variantSets) {
    LayerVariantSet copiedSet = set;
    for (LayerVariant& variant : copiedSet.variants) {
      if (variant.body != kNoPrim)
        variant.body = copyShallow(layer, variant.body, scratch, copied, true);
    }
    scratch.prims[copied].variantSets.push_back(std::move(copiedSet));
  }
  scratch.rootPrims.push_back(copied);
  return writeLayer(scratch);
}

std::string propertyText(const LayerProperty& property) {
  Layer scratch;
  LayerPrim holder;
  holder.specifier = Specifier::Over;
  holder.name = kPropertyHolder;
  holder.properties.push_back(property);
  scratch.prims.push_back(std::move(holder));
  scratch.rootPrims.push_back(0);
  return writeLayer(scratch);
}

std::string primMetadataText(const MetadataEntry& entry) {
  Layer scratch;
  LayerPrim holder;
  holder.specifier = Specifier::Over;
  holder.name = kPropertyHolder;
  holder.metadata.push_back(entry);
  scratch.prims.push_back(std::move(holder));
  scratch.rootPrims.push_back(0);
  return writeLayer(scratch);
}

std::string layerMetadataText(const MetadataEntry& entry) {
  Layer scratch;
  scratch.metadata.push_back(entry);
  return writeLayer(scratch);
}

std::string metadataName(const MetadataEntry& entry) {
  if (entry.op == ListOp::Explicit)
    return std::string(entry.key);
  std::string name(listOpKeyword(entry.op));
  name += ' ';
  name += entry.key;
  return name;
}

std::shared_ptr<Layer> readFragment(std::string_view text, std::string& error) {
  LayerReadResult read = readLayerText("change.usda", std::string(text));
  if (!read.ok()) {
    error = read.error->describe();
    return nullptr;
  }
  return std::move(read.layer);
}

std::uint32_t graftSubtree(Layer& to, const Layer& from, std::uint32_t prim, std::uint32_t parent) {
  return Grafter(to, from).prim(prim, parent);
}

LayerProperty graftProperty(Layer& to, const Layer& from, const LayerProperty& property) {
  return Grafter(to, from).property(property);
}

MetadataEntry graftMetadata(Layer& to, const Layer& from, const MetadataEntry& entry) {
  return Grafter(to, from).metadata(entry);
}

std::vector<std::uint32_t>& siblingsOf(Layer& layer, std::uint32_t prim) {
  const std::uint32_t parent = layer.prims[prim].parent;
  return parent == kNoPrim ? layer.rootPrims : layer.prims[parent].children;
}

std::uint32_t parentIndexForPath(const Layer& layer, std::string_view path, bool& found) {
  const std::string_view parent = parentPathOf(path);
  if (parent == "/") {
    found = true;
    return kNoPrim;
  }
  const std::uint32_t index = layer.findPrim(parent);
  found = index != kNoPrim;
  return index;
}

std::uint32_t detachPrim(Layer& layer, std::uint32_t prim) {
  std::vector<std::uint32_t>& siblings = siblingsOf(layer, prim);
  const auto at = std::find(siblings.begin(), siblings.end(), prim);
  const auto position = static_cast<std::uint32_t>(at - siblings.begin());
  if (at != siblings.end())
    siblings.erase(at);
  layer.prims[prim].parent = kDetachedPrim;
  return position;
}

void attachPrim(Layer& layer, std::uint32_t prim, std::uint32_t parent, std::uint32_t index) {
  layer.prims[prim].parent = parent;
  std::vector<std::uint32_t>& siblings =
      parent == kNoPrim ? layer.rootPrims : layer.prims[parent].children;
  const std::size_t position = std::min<std::size_t>(index, siblings.size());
  siblings.insert(siblings.begin() + static_cast<std::ptrdiff_t>(position), prim);
}

std::string_view parentPathOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos || slash == 0)
    return "/";
  return path.substr(0, slash);
}

std::string_view nameOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string childPath(std::string_view parent, std::string_view name) {
  std::string path(parent == "/" || parent.empty() ? "" : parent);
  path += '/';
  path += name;
  return path;
}

namespace {

std::uint32_t findChild(const Layer& layer, std::uint32_t prim, std::string_view name) {
  for (const std::uint32_t child : layer.prims[prim].children) {
    if (layer.prims[child].name == name)
      return child;
  }
  return kNoPrim;
}

}  // namespace

// One authored made of the authored of several layers, strongest first: per metadata entry,
// property field and child, the strongest says.
std::uint32_t mergeAuthoredPrims(Layer& scratch, const std::vector<AuthoredPrim>& authored,
                                 std::uint32_t parent) {
  LayerPrim out;
  const LayerPrim& strongest = authored.front().layer->prims[authored.front().prim];
  out.name = strongest.name;
  out.parent = parent;
  out.specifier = Specifier::Over;
  out.comments = strongest.comments;
  out.trailingComments = strongest.trailingComments;
  std::unordered_set<std::string> metadataSeen;
  for (const AuthoredPrim& authored : authored) {
    const LayerPrim& prim = authored.layer->prims[authored.prim];
    if (out.specifier == Specifier::Over && prim.specifier != Specifier::Over)
      out.specifier = prim.specifier;
    if (out.typeName.empty())
      out.typeName = prim.typeName;
    for (const MetadataEntry& entry : prim.metadata) {
      if (metadataSeen.insert(metadataName(entry)).second)
        out.metadata.push_back(entry);
    }
    if (out.reorders.empty())
      out.reorders = prim.reorders;
    for (const LayerProperty& property : prim.properties) {
      auto known = std::find_if(out.properties.begin(), out.properties.end(),
                                [&](const LayerProperty& p) { return p.name == property.name; });
      if (known == out.properties.end()) {
        out.properties.push_back(property);
        continue;
      }
      for (const PropertyField& field : property.fields) {
        if (!known->findField(field.suffix))
          known->fields.push_back(field);
      }
    }
  }
  const auto index = static_cast<std::uint32_t>(scratch.prims.size());
  scratch.prims.push_back(std::move(out));
  for (const AuthoredPrim& authored : authored) {
    const LayerPrim& prim = authored.layer->prims[authored.prim];
    if (prim.variantSets.empty())
      continue;
    std::vector<LayerVariantSet> sets = prim.variantSets;
    for (LayerVariantSet& set : sets) {
      for (LayerVariant& variant : set.variants) {
        if (variant.body != kNoPrim)
          variant.body = copySubtreeShallow(*authored.layer, variant.body, scratch, index);
      }
    }
    scratch.prims[index].variantSets = std::move(sets);
    break;
  }
  // Children: the weakest names its children first, stronger ones add theirs after.
  std::vector<std::string_view> names;
  for (auto it = authored.rbegin(); it != authored.rend(); ++it) {
    for (const std::uint32_t child : it->layer->prims[it->prim].children) {
      const std::string_view name = it->layer->prims[child].name;
      if (std::find(names.begin(), names.end(), name) == names.end())
        names.push_back(name);
    }
  }
  for (const std::string_view name : names) {
    std::vector<AuthoredPrim> children;
    for (const AuthoredPrim& authored : authored) {
      const std::uint32_t child = findChild(*authored.layer, authored.prim, name);
      if (child != kNoPrim)
        children.push_back({authored.layer, child});
    }
    const std::uint32_t merged = mergeAuthoredPrims(scratch, children, index);
    scratch.prims[index].children.push_back(merged);
  }
  return index;
}

}  // namespace orvan::engine
