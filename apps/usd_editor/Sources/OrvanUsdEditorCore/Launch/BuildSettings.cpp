#include "Launch/BuildSettings.h"

namespace orvan::editor {

const std::string_view kDefaultProjectServerURL = ORVAN_DEFAULT_SERVER_URL;
const std::string_view kDefaultWebEditorURL = ORVAN_DEFAULT_WEB_EDITOR_URL;
const std::string_view kDefaultAuthoringAddress = ORVAN_DEFAULT_AUTHORING_ADDRESS;

}  // namespace orvan::editor
