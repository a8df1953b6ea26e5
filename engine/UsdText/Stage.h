#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "UsdText/Layer.h"
#include "UsdText/PathMapping.h"

namespace orvan::engine {

struct StageLayer {
  std::string identifier;              // the absolute, normalised file path
  std::string name;                    // the file name
  std::shared_ptr<const Layer> layer;  // null when muted or unreadable
  int depth = 0;                       // 0 for the root layer, 1 for its sublayers, ...
  bool root = false;
  bool muted = false;
  bool inRootLayerStack = true;  // false for layers reached through references and payloads
  std::string error;             // why the layer could not be used, empty when it could
};

// Something that went wrong while composing; composition goes on around it.
struct StageProblem {
  std::string primPath;  // empty for problems of the layer stack itself
  std::string message;
};

inline constexpr std::uint32_t kLocalSite = 0xFFFFFFFFu;

// Where an opinion was found when that is not simply the prim's own path in the root layer stack:
// the prim's path in the arc's namespace, and how paths there map to the stage.
struct OpinionSite {
  std::string path;
  std::shared_ptr<const PathMapping> mapping;
};

// One authored prim that contributes to a composed prim, strongest first.
struct PrimOpinion {
  std::uint32_t layer;              // index into Stage::layers
  std::uint32_t prim;               // index into that layer's prims
  std::uint32_t site = kLocalSite;  // index into Stage::sites, or kLocalSite
};

struct PropertyOpinion {
  std::uint32_t layer;
  const LayerProperty* property;
};

struct ComposedProperty {
  std::string_view name;
  PropertyKind kind = PropertyKind::Attribute;
  std::string_view typeName;
  bool custom = false;
  Variability variability = Variability::Varying;
  const Value* value = nullptr;  // the strongest default (None when blocked); null when unauthored
  const Value* timeSamples = nullptr;  // the strongest .timeSamples
  const Value* spline = nullptr;       // the strongest .spline, as authored text
  bool hasTargets = false;
  std::vector<std::string> targets;       // relationship targets or connections, in stage namespace
  std::vector<PropertyOpinion> opinions;  // every contributing layer property, strongest first
};

struct ComposedPrim {
  std::string path;
  std::string_view name;
  std::string_view typeName;
  Specifier specifier = Specifier::Over;
  bool defined = false;  // some opinion says def or class
  bool active = true;
  bool instanceable = false;
  bool isInstance = false;     // instanceable and brought in through an arc
  bool instanceProxy = false;  // below an instance: shown, but not editable on its own
  bool hasPayload = false;
  bool payloadLoaded = false;
  bool hasArcs = false;  // references, payloads, inherits, specializes or variants contribute
  std::string kind;
  std::vector<std::pair<std::string, std::string>> variantSelections;
  std::uint32_t parent = kNoPrim;
  std::vector<std::uint32_t> children;
  std::uint32_t firstOpinion = 0;  // into Stage::primOpinions, strongest first
  std::uint32_t opinionCount = 0;
  std::vector<std::uint32_t> problems;  // into Stage::problems
};

// A composed stage: what the scene says once every layer, arc and variant has had its say.
// Properties are resolved when asked for, prim by prim: a stage of a million prims keeps only its
// prims and their opinions, and a reader that walks it resolves one prim's properties at a time.
class Stage {
 public:
  Stage() = default;
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;
  Stage(Stage&&) = default;
  Stage& operator=(Stage&&) = default;

  const ComposedPrim* findPrim(std::string_view path) const;
  // All properties of a prim: weaker opinions name theirs first, stronger ones add theirs after.
  std::vector<ComposedProperty> composeProperties(const ComposedPrim& prim) const;
  std::optional<ComposedProperty> findProperty(const ComposedPrim& prim,
                                               std::string_view name) const;
  // The strongest opinion for a prim metadata key, or null.
  const MetadataEntry* findMetadata(const ComposedPrim& prim, std::string_view key) const;
  const LayerPrim& authoredPrim(const PrimOpinion& opinion) const {
    return layers[opinion.layer].layer->prims[opinion.prim];
  }
  // Called once the prims are final; findPrim uses it.
  void buildPathIndex();

  std::vector<StageLayer> layers;  // the root layer stack in strength order, then referenced layers
  std::vector<ComposedPrim> prims;  // depth-first, in stage order
  std::vector<std::uint32_t> rootPrims;
  std::vector<StageProblem> problems;
  std::vector<PrimOpinion> primOpinions;
  std::vector<OpinionSite> sites;

 private:
  std::unordered_map<std::string_view, std::uint32_t> byPath_;
};

}  // namespace orvan::engine
