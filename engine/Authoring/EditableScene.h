#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Authoring/ChangeSet.h"
#include "UsdText/Layer.h"
#include "UsdText/Stage.h"
#include "UsdText/StageComposer.h"

namespace orvan::engine {

// The layer stack of one scene, held in memory and edited in place. Layers are read once; every
// edit changes the parsed layers directly (nothing is recomposed or rewritten per edit), and the
// texts are written only when asked for (`layerText`), for the layers that changed.
//
// Questions about the composed scene (does a prim exist, is it an instance proxy, what type does a
// property have) are answered from a composed stage that is kept and refreshed lazily: structural
// changes record the subtrees they touched, and only a question about such a subtree (or any
// question after a change of the layer stack) composes again. Property changes never do.
class EditableScene {
 public:
  EditableScene(const EditableScene&) = delete;
  EditableScene& operator=(const EditableScene&) = delete;
  ~EditableScene();

  // Reads the root layer and its sublayers. `projectRoot` is the folder layers must lie in; the
  // change sets name layers relative to it. Fails with the reader's "file:line:column: reason"
  // when the root layer cannot be read.
  static std::variant<std::unique_ptr<EditableScene>, std::string> load(
      const std::string& rootLayerPath, const std::string& projectRoot,
      const ComposeLimits& limits = {});

  const std::string& rootIdentifier() const { return rootIdentifier_; }
  const std::string& projectRoot() const { return projectRoot_; }

  // The root layer stack as the layers now say, strongest first: absolute identifiers of the
  // layers held in memory (muted ones included).
  std::vector<std::string> layerStack() const;
  // The layer of an absolute identifier, or null.
  const Layer* findLayer(std::string_view identifier) const;
  bool isWritable(std::string_view identifier) const;
  // Whether edits may go to a layer: read from the file's permissions when the layer is read;
  // the server may say otherwise (a read-only project, a layer another tool owns).
  void setWritable(std::string_view identifier, bool writable);
  bool isMuted(std::string_view identifier) const;
  // Layers the workspace leaves out of composition (workspace state, not file content).
  std::vector<std::string> mutedLayers() const;

  // The current text of a layer in the writer's canonical form; empty for a layer that a change
  // set deleted.
  std::string layerText(std::string_view identifier) const;
  // Layers changed since they were read or last marked written, created and deleted ones
  // included (`findLayer` is null for a deleted one).
  std::vector<std::string> dirtyLayers() const;
  void markWritten(std::string_view identifier);

  // A fresh composition of the in-memory layers (muted layers left out).
  StageOpenResult compose() const;
  // The composed prim at `path`, from the kept stage, composed again first when a change since
  // touched that path. Null when there is none. Valid until the next change.
  const ComposedPrim* composedPrim(std::string_view path) const;
  // The kept stage itself, brought up to date as a whole.
  const Stage& currentStage() const;
  // Why the last composition failed (the scene is beyond a limit), empty when it did not: the
  // kept stage is then the last one that composed.
  const std::string& composeFailure() const { return composeFailure_; }
  // The kept stage as it is: up to date for the paths just asked about with composedPrim (what
  // that prim's opinions and properties say), not necessarily elsewhere.
  const Stage& keptStage() const { return *stage_; }

  // The largest orvan:entityId held by any layer of the stack (never lowered by undo).
  std::uint64_t maxEntityId() const { return maxEntityId_; }

  // Layer identifiers as change sets write them (relative to the project folder) and back.
  std::string relativeIdentifier(std::string_view identifier) const;
  std::string absoluteIdentifier(std::string_view relative) const;
  // The layer of the stack named by an identifier, a path relative to the root layer's folder or
  // to the project folder, or a file name; "" names the root layer. nullopt when none matches.
  std::optional<std::string> resolveLayerName(std::string_view name) const;
  // Makes a layer file of the project known to the scene (reading it from disk) without changing
  // what the scene says; false when it cannot be read.
  bool loadKnownLayer(const std::string& identifier);

  // One primitive change; nothing changes when it does not fit (the reason is returned).
  std::optional<std::string> applyChange(const LayerChange& change);

  const ComposeLimits& limits() const { return limits_; }
  // How many times the kept stage was composed: property edits never add to it.
  std::size_t compositionCount() const { return compositions_; }

 private:
  struct LayerEntry {
    std::shared_ptr<Layer> layer;  // null once deleted
    bool writable = true;
    bool dirty = false;
  };

  EditableScene() = default;
  Layer* mutableLayer(std::string_view identifier);
  void markStructural(std::string_view path);
  void markAllStale();
  void noteEntityIds(const Layer& layer);
  void recompose() const;

  std::optional<std::string> applyPrimSubtree(Layer& layer, const LayerChange& change);
  std::optional<std::string> applyPrimFields(Layer& layer, const LayerChange& change);
  std::optional<std::string> applyPrimMove(Layer& layer, const LayerChange& change);
  std::optional<std::string> applyProperty(Layer& layer, const LayerChange& change);
  std::optional<std::string> applyPrimMetadata(Layer& layer, const LayerChange& change);
  std::optional<std::string> applyLayerMetadata(Layer& layer, const LayerChange& change);
  std::optional<std::string> applyLayerFile(const LayerChange& change);
  std::optional<std::string> applyLayerMute(const LayerChange& change);

  std::string rootIdentifier_;
  std::string projectRoot_;
  ComposeLimits limits_;
  std::map<std::string, LayerEntry, std::less<>> layers_;
  std::set<std::string, std::less<>> muted_;
  std::uint64_t maxEntityId_ = 0;

  mutable std::shared_ptr<Stage> stage_;
  mutable bool stageStale_ = true;
  mutable std::string composeFailure_;
  mutable std::vector<std::string> touched_;  // subtrees changed since stage_ was composed
  mutable std::size_t compositions_ = 0;
};

}  // namespace orvan::engine
