#include "UsdText/Stage.h"

namespace orvan::engine {

void Stage::buildPathIndex() {
  byPath_.clear();
  byPath_.reserve(prims.size());
  for (std::uint32_t i = 0; i < prims.size(); ++i) byPath_.emplace(prims[i].path, i);
}

const ComposedPrim* Stage::findPrim(std::string_view path) const {
  const auto found = byPath_.find(path);
  return found == byPath_.end() ? nullptr : &prims[found->second];
}

const ComposedProperty* Stage::findProperty(const ComposedPrim& prim, std::string_view name) {
  for (const ComposedProperty& property : prim.properties) {
    if (property.name == name) return &property;
  }
  return nullptr;
}

const MetadataEntry* Stage::findMetadata(const ComposedPrim& prim, std::string_view key) const {
  for (std::uint32_t i = 0; i < prim.opinionCount; ++i) {
    if (const MetadataEntry* entry = spec(primOpinions[prim.firstOpinion + i]).findMetadata(key)) {
      return entry;
    }
  }
  return nullptr;
}

}  // namespace orvan::engine
