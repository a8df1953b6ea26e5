#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Authoring/AtomicOperation.h"
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
// Prims are found through an index built on first use; removals only mark prims and are
// compacted once by `finish`, so that a run of edits over a large stage costs a pass, not a pass
// per edit.
class LocalStage {
 public:
  using TimingLog = std::function<void(const std::string&)>;

  LocalStage(StageInspection& stage, std::string authoringLayerIdentifier, TimingLog log = {});
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
  // Removes the prims marked by removals; call once after the last mutation.
  void finish();

  bool hasPrim(std::string_view path);
  std::size_t primCount() const { return stage_.prims.size() - removedCount_; }

 private:
  UsdPrimDetail* findPrim(std::string_view path);
  void buildIndex();
  void indexPrim(std::size_t position);
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
  void log(const std::string& text) const;

  StageInspection& stage_;
  std::string authoringLayer_;
  TimingLog log_;
  bool indexed_ = false;
  std::unordered_map<std::string, std::size_t> index_;
  std::vector<char> removed_;
  std::size_t removedCount_ = 0;
};

}  // namespace orvan::editor
