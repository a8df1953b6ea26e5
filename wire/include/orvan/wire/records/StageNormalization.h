#pragma once

#include <string_view>

#include "orvan/wire/records/StageInspection.h"

namespace orvan::editor {

// Prims that exist only for the runtime or for asset bookkeeping; an author never sees them.
bool isEditorInternalPrimPath(std::string_view path);

// The stage without editor-internal prims and without placeholders that stand for nothing.
// The flat list keeps a not-defined prim that still carries components; the tree drops it,
// since tree nodes carry no components. Idempotent.
StageInspection normalizedAuthoringStage(StageInspection stage);

}  // namespace orvan::editor
