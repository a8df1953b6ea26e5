#pragma once

#include <string>
#include <vector>

#include "Presentation/EditorSelectionSnapshot.h"
#include "ServerClient/PreparedStage.h"

namespace orvan::editor {

// What the inspector shows for a selection: the primary prim, its owning entity, their
// components and raw attributes, and the components that could still be added.
EditorSelectionSnapshot selectionSnapshot(const PreparedStage& stage, const std::string& primaryPath,
                                          const std::vector<std::string>& paths);

}  // namespace orvan::editor
