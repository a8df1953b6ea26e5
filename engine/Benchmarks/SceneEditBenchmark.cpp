// Edits of a scene held in memory, on generated scenes of 10k and 100k prims: what the server does
// for one accepted edit (plan it against the scene, apply its change set, keep it for undo). The
// scene is read once per size; every iteration is one more edit of the same scene.
#include <benchmark/benchmark.h>

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include "Authoring/EditPlanner.h"
#include "Authoring/EditableScene.h"
#include "BenchmarkScenes.h"

namespace orvan::engine {
namespace {

namespace fs = std::filesystem;

struct LoadedScene {
  std::unique_ptr<EditableScene> scene;
  EntityIdSource ids;
  ClientHistory history;
};

// The generated scene written to a folder of its own and read into memory, once per size.
LoadedScene& loadedScene(std::size_t prims) {
  static std::map<std::size_t, LoadedScene> scenes;
  auto found = scenes.find(prims);
  if (found != scenes.end())
    return found->second;
  std::string pattern = (fs::temp_directory_path() / "orvan-authoring-bench-XXXXXX").string();
  const fs::path folder = ::mkdtemp(pattern.data());
  std::ofstream(folder / "scene.usda", std::ios::binary) << sceneText(prims);
  auto loaded = EditableScene::load((folder / "scene.usda").string(), folder.string());
  LoadedScene& entry = scenes[prims];
  entry.scene = std::move(std::get<std::unique_ptr<EditableScene>>(loaded));
  fs::remove_all(folder);
  entry.scene->currentStage();  // the first composition happens once, as when the server loads
  return entry;
}

EditRequest requestOf(EditOperation operation) {
  EditRequest request;
  request.clientId = "bench";
  request.operations.push_back(std::move(operation));
  return request;
}

void finish(benchmark::State& state, std::size_t prims) {
  state.counters["prims"] = static_cast<double>(prims);
  state.counters["peakRssMB"] = peakRssMegabytes();
}

// usdProperty set of one entity's translation, alternating between two values.
void propertySet(benchmark::State& state) {
  const auto prims = static_cast<std::size_t>(state.range(0));
  LoadedScene& loaded = loadedScene(prims);
  EditOperation operation;
  operation.type = OperationType::UsdProperty;
  operation.kind = UsdPropertyOperationKind::Set;
  operation.primPath = "/World/Zone_0/Cluster_0/Cube_0";
  operation.propertyName = "xformOp:translate";
  std::size_t count = 0;
  for (auto _ : state) {
    operation.value = (++count % 2) ? "1,2,3" : "4,5,6";
    const EditResult result =
        applyEdit(*loaded.scene, requestOf(operation), loaded.ids, loaded.history);
    if (!result.accepted) {
      state.SkipWithError(result.message.c_str());
      return;
    }
  }
  finish(state, prims);
}

// prim add of a new cube entity under one cluster, a new name each time.
void primAdd(benchmark::State& state) {
  const auto prims = static_cast<std::size_t>(state.range(0));
  LoadedScene& loaded = loadedScene(prims);
  EditOperation operation;
  operation.type = OperationType::Prim;
  operation.kind = PrimOperationKind::Add;
  operation.parentPath = "/World/Zone_1/Cluster_3";
  operation.primitiveKind = "cube";
  operation.initialTranslation = std::vector<double>{1, 2, 3};
  static std::size_t count = 0;
  for (auto _ : state) {
    operation.primName = "Added_" + std::to_string(++count);
    const EditResult result =
        applyEdit(*loaded.scene, requestOf(operation), loaded.ids, loaded.history);
    if (!result.accepted) {
      state.SkipWithError(result.message.c_str());
      return;
    }
  }
  finish(state, prims);
}

// Planning alone: the change set of a property set, the scene left as it was.
void propertyPlan(benchmark::State& state) {
  const auto prims = static_cast<std::size_t>(state.range(0));
  LoadedScene& loaded = loadedScene(prims);
  EditOperation operation;
  operation.type = OperationType::UsdProperty;
  operation.kind = UsdPropertyOperationKind::Set;
  operation.primPath = "/World/Zone_2/Cluster_5/Sphere_1";
  operation.propertyName = "primvars:displayColor";
  operation.value = "0.1,0.2,0.3";
  for (auto _ : state) {
    const EditResult result = planEdit(*loaded.scene, requestOf(operation), loaded.ids);
    if (!result.accepted) {
      state.SkipWithError(result.message.c_str());
      return;
    }
    benchmark::DoNotOptimize(result.changes.changes.data());
  }
  finish(state, prims);
}

BENCHMARK(propertySet)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMicrosecond);
BENCHMARK(primAdd)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMicrosecond);
BENCHMARK(propertyPlan)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace orvan::engine

BENCHMARK_MAIN();
