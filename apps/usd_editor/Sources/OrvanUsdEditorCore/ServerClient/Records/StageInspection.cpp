#include "ServerClient/Records/StageInspection.h"

#include "Foundation/JsonDecoder.h"

namespace orvan::editor {

void UsdAsset::afterDecode(JsonDecodeContext& context) {
  hasBoundsMetadata = context.has("boundsCenter") && context.has("boundsDimensions");
}

}  // namespace orvan::editor
