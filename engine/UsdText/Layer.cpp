#include "UsdText/Layer.h"

namespace orvan::engine {
namespace {

template <typename Entries>
auto findByKey(const Entries& entries, std::string_view key) -> decltype(&entries.front()) {
  for (const auto& entry : entries) {
    if (entry.key == key)
      return &entry;
  }
  return nullptr;
}

bool equivalentPrims(const Layer& a, std::uint32_t ia, const Layer& b, std::uint32_t ib);

bool equivalentVariantSets(const Layer& a, const LayerPrim& pa, const Layer& b,
                           const LayerPrim& pb) {
  if (pa.variantSets.size() != pb.variantSets.size())
    return false;
  for (std::size_t s = 0; s < pa.variantSets.size(); ++s) {
    const LayerVariantSet& sa = pa.variantSets[s];
    const LayerVariantSet& sb = pb.variantSets[s];
    if (sa.name != sb.name || sa.comments != sb.comments ||
        sa.variants.size() != sb.variants.size()) {
      return false;
    }
    for (std::size_t v = 0; v < sa.variants.size(); ++v) {
      const LayerVariant& va = sa.variants[v];
      const LayerVariant& vb = sb.variants[v];
      if (va.name != vb.name || va.comments != vb.comments)
        return false;
      if (!equivalentPrims(a, va.body, b, vb.body))
        return false;
    }
  }
  return true;
}

bool equivalentPrims(const Layer& a, std::uint32_t ia, const Layer& b, std::uint32_t ib) {
  const LayerPrim& pa = a.prims[ia];
  const LayerPrim& pb = b.prims[ib];
  if (pa.specifier != pb.specifier || pa.typeName != pb.typeName || pa.name != pb.name ||
      pa.isVariantBody != pb.isVariantBody || pa.metadata != pb.metadata ||
      pa.properties != pb.properties || pa.reorders != pb.reorders || pa.comments != pb.comments ||
      pa.trailingComments != pb.trailingComments || pa.children.size() != pb.children.size()) {
    return false;
  }
  for (std::size_t c = 0; c < pa.children.size(); ++c) {
    if (!equivalentPrims(a, pa.children[c], b, pb.children[c]))
      return false;
  }
  return equivalentVariantSets(a, pa, b, pb);
}

}  // namespace

std::string_view specifierKeyword(Specifier specifier) {
  switch (specifier) {
    case Specifier::Def:
      return "def";
    case Specifier::Over:
      return "over";
    case Specifier::Class:
      return "class";
  }
  return "def";
}

std::string_view listOpKeyword(ListOp op) {
  switch (op) {
    case ListOp::Explicit:
      return "";
    case ListOp::Prepend:
      return "prepend";
    case ListOp::Append:
      return "append";
    case ListOp::Add:
      return "add";
    case ListOp::Delete:
      return "delete";
    case ListOp::Reorder:
      return "reorder";
  }
  return "";
}

const PropertyField* LayerProperty::findField(std::string_view suffix) const {
  for (const PropertyField& field : fields) {
    if (field.suffix == suffix)
      return &field;
  }
  return nullptr;
}

const MetadataEntry* LayerPrim::findMetadata(std::string_view key) const {
  return findByKey(metadata, key);
}

const LayerVariantSet* LayerPrim::findVariantSet(std::string_view setName) const {
  for (const LayerVariantSet& set : variantSets) {
    if (set.name == setName)
      return &set;
  }
  return nullptr;
}

Layer::Layer(std::string identifier, std::string source)
    : identifier_(std::move(identifier)),
      source_(std::make_unique<std::string>(std::move(source))) {}

std::string_view Layer::storeText(std::string text) {
  storedTexts_.push_back(std::move(text));
  return storedTexts_.back();
}

Value Layer::makeValue(ValueKind kind, std::string_view text, std::span<const Value> items) {
  Value value = Value::ofKind(kind, text);
  value.itemData = values_.store(items);
  value.itemCount = static_cast<std::uint32_t>(items.size());
  return value;
}

const MetadataEntry* Layer::findMetadata(std::string_view key) const {
  return findByKey(metadata, key);
}

std::string Layer::defaultPrim() const {
  const MetadataEntry* entry = findMetadata("defaultPrim");
  if (!entry)
    return {};
  return entry->value.decoded();
}

std::vector<std::string> Layer::subLayerPaths() const {
  std::vector<std::string> paths;
  const MetadataEntry* entry = findMetadata("subLayers");
  if (!entry)
    return paths;
  for (const Value& item : entry->value.items()) {
    if (auto path = item.assetPath())
      paths.push_back(std::move(*path));
  }
  return paths;
}

std::uint32_t Layer::findPrim(std::string_view path) const {
  if (path.empty() || path.front() != '/')
    return kNoPrim;
  const std::vector<std::uint32_t>* candidates = &rootPrims;
  std::uint32_t found = kNoPrim;
  std::size_t position = 1;
  while (position < path.size()) {
    const std::size_t slash = path.find('/', position);
    const std::string_view name = path.substr(
        position, slash == std::string_view::npos ? std::string_view::npos : slash - position);
    found = kNoPrim;
    for (const std::uint32_t candidate : *candidates) {
      if (prims[candidate].name == name) {
        found = candidate;
        break;
      }
    }
    if (found == kNoPrim)
      return kNoPrim;
    candidates = &prims[found].children;
    if (slash == std::string_view::npos)
      break;
    position = slash + 1;
  }
  return found;
}

std::string Layer::primPath(std::uint32_t index) const {
  std::vector<std::string_view> names;
  for (std::uint32_t at = index; at != kNoPrim; at = prims[at].parent) {
    if (!prims[at].isVariantBody)
      names.push_back(prims[at].name);
  }
  std::string path;
  for (auto it = names.rbegin(); it != names.rend(); ++it) {
    path += '/';
    path += *it;
  }
  return path.empty() ? "/" : path;
}

bool Layer::equivalentTo(const Layer& other) const {
  if (version != other.version || metadata != other.metadata ||
      headerComments != other.headerComments || trailingComments != other.trailingComments ||
      reorders != other.reorders || rootPrims.size() != other.rootPrims.size()) {
    return false;
  }
  for (std::size_t i = 0; i < rootPrims.size(); ++i) {
    if (!equivalentPrims(*this, rootPrims[i], other, other.rootPrims[i]))
      return false;
  }
  return true;
}

}  // namespace orvan::engine
