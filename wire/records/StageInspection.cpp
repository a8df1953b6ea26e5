#include "orvan/wire/records/StageInspection.h"

#include "orvan/wire/JsonDecoder.h"

namespace orvan::editor {

static_assert(kMaxJsonDepth >= 2 * kMaxPrimNesting + kStageRecordEnvelopeDepth,
              "the decoder must take the stage record of every scene the engine reads");

void UsdAsset::afterDecode(JsonDecodeContext& context) {
  hasBoundsMetadata = context.has("boundsCenter") && context.has("boundsDimensions");
}

}  // namespace orvan::editor
