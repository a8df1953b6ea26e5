#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Authoring/AtomicOperation.h"
#include "Presentation/PreparedStage.h"
#include "orvan/wire/records/StageInspection.h"

namespace orvan::editor {

// Where a new prim lands among its siblings so that it stands where composition would put it:
// before the first sibling whose layer (defining, else overriding) is stronger than the authoring
// layer; at the end when the authoring layer is unknown or none is.
std::size_t layerAwareInsertionIndex(const std::vector<UsdPrimNode>& siblings,
                                     const std::vector<UsdLayerInfo>& layers,
                                     std::string_view authoringLayerIdentifier);

// The local mutations of a stage that show a structural edit before the server confirms it. They
// change a stage the caller owns (a copy, off the main thread) and are idempotent, so the same
// edits can be laid again over every stage that arrives until the server has caught up.
//
// A stage copied from a prepared one finds its prims through the prepared stage's index (the copy
// keeps the order of the prims), so no pass over a large stage is needed; prims that moved or were
// added are kept in a small index of their own. Removals only mark prims and are compacted once by
// `finish`.
class LocalStage {
 public:
  using TimingLog = std::function<void(const std::string&)>;

  // `origin`, when given, is the prepared stage that `stage` is an unchanged copy of.
  LocalStage(StageInspection& stage, std::string authoringLayerIdentifier, TimingLog log = {},
             std::shared_ptr<const PreparedStage> origin = nullptr);
  ~LocalStage();
  LocalStage(const LocalStage&) = delete;
  LocalStage& operator=(const LocalStage&) = delete;

  // add, reference, payload, duplicate. Nothing when the parent or the name is empty or the path
  // is taken. A duplicate copies its source's subtree, or makes a plain new prim without one.
  bool insertPrimInLocalStage(const PrimAtomicOperation& operation);
  // The prim and everything below it; never "/World".
  bool removePrimFromLocalStage(std::string_view path);
  // The prim and its subtree under a new parent and name; nothing into its own subtree, onto a
  // taken path or for a source that is gone.
  bool movePrimInLocalStage(std::string_view sourcePath, std::string_view parentPath,
                            std::string_view primName);
  // The instance badge and, below the prim, the proxy marks that the editing rules read.
  bool applyInstanceableOverride(std::string_view path, bool instanceable);
  // The run-time identities the server gave to prims an edit created.
  bool applyCreatedPrimIdentities(const std::vector<EditClientCreatedPrim>& createdPrims);
  // The local effect of a component operation on its entity: the component list as the operation
  // leaves it, a new "Name" as the prim's display name, and the override mark of a set property
  // (`markPropertyOverridesIfReferenced`). False when the entity is absent.
  bool applyComponentChange(const ComponentAtomicOperation& operation);
  // Removes the prims marked by removals; call once after the last mutation.
  void finish();

  bool hasPrim(std::string_view path);
  std::size_t primCount() const { return stage_.prims.size() - removedCount_; }

 private:
  UsdPrimDetail* findPrim(std::string_view path);
  std::optional<std::size_t> positionOf(std::string_view path);
  // Without an origin, every prim is indexed on first use.
  void buildIndex();
  void indexPrim(std::size_t position);
  void markRemoved(std::size_t position);
  // The node and the list that holds it; null when absent.
  struct NodeLocation {
    std::vector<UsdPrimNode>* siblings = nullptr;
    std::size_t position = 0;
    UsdPrimNode* node() const { return siblings ? &(*siblings)[position] : nullptr; }
  };
  NodeLocation findNode(std::string_view path);
  // The list of children that a prim under `parentPath` joins; null when the parent is absent.
  std::vector<UsdPrimNode>* childrenOf(std::string_view parentPath);
  void insertNode(std::vector<UsdPrimNode>& siblings, UsdPrimNode node);
  UsdPrimDetail newLocalPrim(const PrimAtomicOperation& operation, const std::string& path) const;
  // A set property of an entity whose content comes from elsewhere — a referenced file, or
  // another layer than the one that receives edits — now has its strongest opinion in the active
  // layer: it shows as overridden there before the next stage says so.
  void markPropertyOverridesIfReferenced(UsdPrimDetail& entity,
                                         const ComponentAtomicOperation& operation);
  // The layer that receives edits: the chosen one, else the root.
  std::string activeLayerIdentifier() const;
  void log(const std::string& text) const;

  StageInspection& stage_;
  std::string authoringLayer_;
  TimingLog log_;
  std::shared_ptr<const PreparedStage> origin_;
  bool indexed_ = false;
  // Prims added or moved here, by their path now; with no origin, all prims.
  std::unordered_map<std::string, std::size_t> index_;
  std::vector<char> removed_;
  std::size_t removedCount_ = 0;
};

}  // namespace orvan::editor
