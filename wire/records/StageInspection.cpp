#include "orvan/wire/records/StageInspection.h"

#include "orvan/wire/JsonDecoder.h"

namespace orvan::editor {

void UsdAsset::afterDecode(JsonDecodeContext& context) {
  hasBoundsMetadata = context.has("boundsCenter") && context.has("boundsDimensions");
}

}  // namespace orvan::editor
