// Any byte string as the root layer of a stage beside the engine's fixtures (which it may
// reference, and nothing outside them): composing ends within small budgets with a stage or a
// reason, the stage's tree is consistent, and its inspection is a document the editor decodes.

#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzCheck.h"
#include "Inspector/StageInspector.h"
#include "UsdText/LayerReader.h"
#include "UsdText/StageComposer.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/records/StageInspection.h"

namespace {

using namespace orvan::engine;

void checkTree(const Stage& stage) {
  for (std::uint32_t index = 0; index < stage.prims.size(); ++index) {
    const ComposedPrim& prim = stage.prims[index];
    const std::string parentPath =
        prim.parent == kNoPrim ? std::string() : stage.prims.at(prim.parent).path;
    FUZZ_CHECK(prim.path == parentPath + "/" + std::string(prim.name));
    FUZZ_CHECK(stage.findPrim(prim.path) == &prim);
    for (const std::uint32_t child : prim.children)
      FUZZ_CHECK(child > index && stage.prims.at(child).parent == index);
    for (const std::uint32_t problem : prim.problems)
      FUZZ_CHECK(stage.problems.at(problem).primPath == prim.path);
    FUZZ_CHECK(prim.firstOpinion + prim.opinionCount <= stage.primOpinions.size());
    FUZZ_CHECK(prim.opinionCount <= kMaxPrimSites);
    stage.composeProperties(prim);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string fixtures = ORVAN_ENGINE_FIXTURES_DIR;
  LayerReadResult read = readLayerText(fixtures + "/UsdText/compose/fuzz_input.usda",
                                       std::string(reinterpret_cast<const char*>(data), size));
  if (!read.ok())
    return 0;
  ComposeOptions options;
  options.limits = {.maxPrims = 20'000, .maxSites = 100'000, .maxLayerBytes = 1 << 20};
  options.confinementRoot = fixtures;
  const StageOpenResult opened = composeStage(read.layer, options);
  if (!opened.ok()) {
    FUZZ_CHECK(opened.error.has_value() && !opened.error->message.empty());
    return 0;
  }
  checkTree(*opened.stage);
  std::string json;
  const auto refused =
      writeInspectionJson(*opened.stage, InspectOptions{.maxOutputBytes = 64 << 20}, json);
  if (refused)
    return 0;  // an active layer is not given, so only the size can refuse
  const auto decoded = orvan::editor::decodeJson<orvan::editor::StageInspection>(json, "stage");
  FUZZ_CHECK(decoded.ok());
  FUZZ_CHECK(decoded->prims.size() == opened.stage->prims.size());
  return 0;
}
