#include "Presentation/EditorClientDocumentBuilder.h"

namespace orvan::editor {

std::shared_ptr<const EditorClientDocumentSnapshot> EditorClientDocumentBuilder::build(
    const EditorClientDocumentBuildInput& input, const std::stop_token& token) {
  const std::lock_guard lock(building_);
  if (token.stop_requested())
    return nullptr;
  return makeClientDocumentSnapshot(input);
}

}  // namespace orvan::editor
