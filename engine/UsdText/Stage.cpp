#include "UsdText/Stage.h"

#include <algorithm>
#include <unordered_map>

#include "UsdText/ListEdits.h"

namespace orvan::engine {
namespace {

struct PropertyEntry {
  std::uint32_t property;  // index in the composed list
  std::uint32_t strength;  // 0 is the strongest opinion
  const PrimOpinion* opinion;
  const LayerProperty* authored;
};

}  // namespace

void Stage::buildPathIndex() {
  byPath_.clear();
  byPath_.reserve(prims.size());
  for (std::uint32_t i = 0; i < prims.size(); ++i)
    byPath_.emplace(prims[i].path, i);
}

const ComposedPrim* Stage::findPrim(std::string_view path) const {
  const auto found = byPath_.find(path);
  return found == byPath_.end() ? nullptr : &prims[found->second];
}

const MetadataEntry* Stage::findMetadata(const ComposedPrim& prim, std::string_view key) const {
  for (std::uint32_t i = 0; i < prim.opinionCount; ++i) {
    if (const MetadataEntry* entry =
            authoredPrim(primOpinions[prim.firstOpinion + i]).findMetadata(key)) {
      return entry;
    }
  }
  return nullptr;
}

namespace {

// Resolves one property from its opinions, strongest first.
void resolveProperty(const Stage& stage, const ComposedPrim& prim, ComposedProperty& out,
                     const PropertyEntry* entries, std::size_t count) {
  const LayerProperty& strongest = *entries[0].authored;
  out.name = strongest.name;
  out.kind = strongest.kind;
  out.custom = strongest.custom;
  out.variability = strongest.variability;
  out.opinions.reserve(count);
  const std::string_view targetField = out.kind == PropertyKind::Relationship ? "" : "connect";
  for (std::size_t i = 0; i < count; ++i) {
    const LayerProperty& authored = *entries[i].authored;
    out.opinions.push_back({entries[i].opinion->layer, &authored});
    if (out.typeName.empty())
      out.typeName = authored.typeName;
    for (const PropertyField& field : authored.fields) {
      if (!field.hasValue)
        continue;
      if (field.suffix.empty() && out.kind == PropertyKind::Attribute && !out.value)
        out.value = &field.value;
      if (field.suffix == "timeSamples" && !out.timeSamples)
        out.timeSamples = &field.value;
      if (field.suffix == "spline" && !out.spline)
        out.spline = &field.value;
    }
  }
  // Targets and connections are list edits: apply them from the weakest opinion up.
  for (std::size_t i = count; i-- > 0;) {
    const std::uint32_t site = entries[i].opinion->site;
    const std::string_view anchor =
        site == kLocalSite ? std::string_view(prim.path) : stage.sites[site].path;
    const PathMapping* mapping = site == kLocalSite ? nullptr : stage.sites[site].mapping.get();
    for (const PropertyField& field : entries[i].authored->fields) {
      if (!field.hasValue || field.suffix != targetField)
        continue;
      out.hasTargets = true;
      std::vector<std::string> items;
      for (const Value* item : listItems(field.value)) {
        items.push_back(mapTargetToStage(item->decoded(), anchor, mapping));
      }
      applyListOp(out.targets, field.op, items,
                  [](const std::string& a, const std::string& b) { return a == b; });
    }
  }
}

}  // namespace

std::vector<ComposedProperty> Stage::composeProperties(const ComposedPrim& prim) const {
  std::vector<ComposedProperty> properties;
  std::size_t total = 0;
  for (std::uint32_t i = 0; i < prim.opinionCount; ++i)
    total += authoredPrim(primOpinions[prim.firstOpinion + i]).properties.size();
  if (total == 0)
    return properties;
  std::vector<PropertyEntry> entries;
  entries.reserve(total);
  std::vector<std::string_view> order;
  std::unordered_map<std::string_view, std::uint32_t> byName;
  const bool useMap = total > 16;
  auto indexOf = [&](std::string_view name) -> std::uint32_t {
    if (useMap) {
      const auto [at, inserted] = byName.emplace(name, static_cast<std::uint32_t>(order.size()));
      if (inserted)
        order.push_back(name);
      return at->second;
    }
    for (std::uint32_t i = 0; i < order.size(); ++i) {
      if (order[i] == name)
        return i;
    }
    order.push_back(name);
    return static_cast<std::uint32_t>(order.size() - 1);
  };
  for (std::uint32_t o = prim.opinionCount; o-- > 0;) {
    const PrimOpinion& opinion = primOpinions[prim.firstOpinion + o];
    for (const LayerProperty& property : authoredPrim(opinion).properties) {
      entries.push_back({indexOf(property.name), o, &opinion, &property});
    }
  }
  std::sort(entries.begin(), entries.end(), [](const PropertyEntry& a, const PropertyEntry& b) {
    return a.property != b.property ? a.property < b.property : a.strength < b.strength;
  });
  properties.resize(order.size());
  std::size_t begin = 0;
  while (begin < entries.size()) {
    std::size_t end = begin;
    while (end < entries.size() && entries[end].property == entries[begin].property)
      ++end;
    resolveProperty(*this, prim, properties[entries[begin].property], entries.data() + begin,
                    end - begin);
    begin = end;
  }
  return properties;
}

std::optional<ComposedProperty> Stage::findProperty(const ComposedPrim& prim,
                                                    std::string_view name) const {
  std::vector<PropertyEntry> entries;
  for (std::uint32_t o = 0; o < prim.opinionCount; ++o) {
    const PrimOpinion& opinion = primOpinions[prim.firstOpinion + o];
    for (const LayerProperty& property : authoredPrim(opinion).properties) {
      if (property.name == name)
        entries.push_back({0, o, &opinion, &property});
    }
  }
  if (entries.empty())
    return std::nullopt;
  ComposedProperty property;
  resolveProperty(*this, prim, property, entries.data(), entries.size());
  return property;
}

}  // namespace orvan::engine
