#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Presentation/EditorClientDocument.h"
#include "Presentation/EditorSelectionSnapshot.h"

namespace orvan::editor {

using StoreScenePreviews = std::unordered_map<std::string, StoreScenePreview>;

// What the inspector shows for a selection: the primary prim (or store preview), the entities the
// selection belongs to, the components they share, the attributes every selected prim has, and
// the components that could still be added.
EditorSelectionSnapshot selectionSnapshot(const EditorClientDocumentSnapshot& document,
                                          const StoreScenePreviews& storePreviews,
                                          const std::string& primaryPath,
                                          const std::vector<std::string>& paths);

// The primary prim's attributes that every selected prim has too, by name and type. Values stay
// the primary prim's.
std::vector<UsdAttribute> commonSelectedAttributes(const EditorClientDocumentSnapshot& document,
                                                   const std::string& primaryPath,
                                                   const std::vector<std::string>& paths);

// The components a multi-selection of entities can edit together: those of the first entity whose
// type every other entity has too, in the first entity's order. A name belongs to one entity and
// is never shared.
std::vector<UsdComponent> commonInspectorComponents(const std::vector<UsdPrimDetail>& entities);

}  // namespace orvan::editor
