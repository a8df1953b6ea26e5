#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Authoring/EditPlanner.h"

namespace orvan::engine {

// A refusal: one sentence, or nothing when the step went through.
using Refusal = std::optional<std::string>;

// The state of one request being planned. Every change is applied to the scene as soon as it is
// made, so the next step (and the next operation of a batch) sees the scene as it will be; the
// caller undoes them all when the request is refused or only planned.
class PlanContext {
 public:
  PlanContext(EditableScene& scene, EntityIdSource& ids) : scene(scene), ids(ids) {}

  EditableScene& scene;
  EntityIdSource& ids;
  std::string
      layerId;  // the active layer, absolute; empty when the request names none of the stack
  std::string requestedLayer;  // the active layer as the request named it
  ChangeSet applied;
  std::vector<editor::EditClientCreatedPrim> createdPrims;
  std::vector<PrimOperationRecord> primOperations;

  // Applies one change and keeps it; a change that does not fit refuses the request.
  Refusal emit(LayerChange change);

  std::string relative(std::string_view identifier) const {
    return scene.relativeIdentifier(identifier);
  }
  const Layer& layerOf(std::string_view identifier) const { return *scene.findLayer(identifier); }
  std::string layerName(std::string_view identifier) const;

  // ---- building blocks, each on one layer ----

  // Makes sure the layer authors a prim at `path`: missing ancestors and the prim itself
  // become `over`s.
  Refusal ensureAuthoredPrim(const std::string& layer, std::string_view path);
  // Inserts a prim subtree (the text of a layer holding it as its one root prim) as the last
  // child of the prim its parent authors there.
  Refusal insertPrim(const std::string& layer, std::string_view path, const std::string& text);
  Refusal removePrim(const std::string& layer, std::string_view path);
  // Puts a property's text (a layer holding `over "_"` with just that property), or removes it.
  Refusal putProperty(const std::string& layer, std::string_view primPath, std::string_view name,
                      std::optional<std::string> text);
  // Sets the default value of a property, declaring it first when the layer does not hold it yet.
  // `declaration` is the statement's start ("custom double3 xformOp:translate"), `value` the
  // value's layer text.
  Refusal setPropertyValue(const std::string& layer, std::string_view primPath,
                           std::string_view name, std::string_view declaration,
                           std::string_view value);
  Refusal removeProperty(const std::string& layer, std::string_view primPath,
                         std::string_view name);
  // Puts a metadata entry of a prim ("instanceable = true") or removes the one named.
  Refusal setPrimMetadata(const std::string& layer, std::string_view primPath,
                          std::string_view name, std::optional<std::string> statement);

  // ---- questions about the composed scene ----

  bool primExists(std::string_view path) const;
  // The refusals of the instance rules; nothing when the edit may go ahead.
  Refusal instanceProxyRefusal(std::string_view path) const;
  Refusal instanceInsertRefusal(std::string_view parentPath) const;
  // "x.usda is not writable" unless the active layer may be edited.
  Refusal activeLayerWritable() const;
};

// Text of a small layer, in the writer's form; empty when it does not read.
std::string canonicalLayerText(const std::string& text);
// The declaration that starts a property statement: "custom uniform token[] name".
std::string declarationOf(const LayerProperty& property);

Refusal planPrimOperation(PlanContext& context, const EditOperation& operation,
                          std::string& message);
Refusal planPropertyOperation(PlanContext& context, const EditOperation& operation,
                              std::string& message);
Refusal planComponentOperation(PlanContext& context, const EditOperation& operation,
                               std::string& message);
Refusal planLayerOperation(PlanContext& context, const EditOperation& operation,
                           std::string& message);
Refusal planAssetOperation(PlanContext& context, const EditOperation& operation,
                           std::string& message);

}  // namespace orvan::engine
