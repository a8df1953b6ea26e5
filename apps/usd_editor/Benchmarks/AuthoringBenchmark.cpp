// The authoring pipeline's costs: encoding a large prim batch, the main thread's share of a
// structural command on a large stage (the copy, replay and indexing run on a background thread
// and are left out), and laying 100 unconfirmed edits over an incoming large stage.

#include <benchmark/benchmark.h>

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include <spdlog/spdlog.h>

#include "Application/EditorModel.h"
#include "Authoring/LocalStage.h"
#include "Authoring/OptimisticOverlay.h"
#include "Platform/CurlHttpClient.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "Presentation/PreparedStage.h"

namespace orvan::editor::benchmarks {
namespace {

// Work that runs only when the benchmark says so, on its own thread.
class QueuedExecutor final : public MainExecutor, public BackgroundExecutor {
 public:
  void post(Closure closure) override { queue_.push_back(std::move(closure)); }
  TaskHandle postAfter(Duration, Closure) override { return TaskHandle::make(); }
  TimePoint now() const override { return Clock::now(); }
  bool isMainThread() const override { return true; }
  int runAll() {
    int ran = 0;
    while (!queue_.empty()) {
      Closure next = std::move(queue_.front());
      queue_.pop_front();
      next();
      ++ran;
    }
    return ran;
  }
  void drop() { queue_.clear(); }

 private:
  std::deque<Closure> queue_;
};

// Never runs what it is given: the edit helper's exchange stays out of the measurement.
class Discarding final : public BackgroundExecutor {
 public:
  void post(Closure) override {}
};

UsdComponent transform() {
  UsdComponent component;
  component.type = "Transform";
  for (const char* name : {"translation", "rotation", "scale"}) {
    ComponentProperty property;
    property.name = name;
    property.kind = "vector3";
    property.value = "0,0,0";
    component.properties.push_back(property);
  }
  return component;
}

void addPrim(StageInspection& stage, UsdPrimNode& node, const std::string& parent,
             const std::string& name, const UsdComponent& component) {
  node.parent = parent;
  node.path = (parent == "/" ? "" : parent) + "/" + name;
  node.name = name;
  node.typeName = "Xform";
  UsdPrimDetail prim;
  prim.path = node.path;
  prim.name = name;
  prim.parent = parent;
  prim.typeName = "Xform";
  prim.entityPath = node.path;
  prim.components.push_back(component);
  stage.prims.push_back(std::move(prim));
}

// /World with 100 groups of 100 children of 10 leaves: 110,101 prims.
StageInspection largeStage() {
  const UsdComponent component = transform();
  StageInspection stage;
  stage.sceneUri = "/bench/large.usda";
  UsdPrimNode world;
  addPrim(stage, world, "/", "World", component);
  for (int g = 0; g < 100; ++g) {
    UsdPrimNode group;
    addPrim(stage, group, world.path, "Group" + std::to_string(g), component);
    for (int c = 0; c < 100; ++c) {
      UsdPrimNode child;
      addPrim(stage, child, group.path, "Child" + std::to_string(c), component);
      for (int l = 0; l < 10; ++l) {
        UsdPrimNode leaf;
        addPrim(stage, leaf, child.path, "Leaf" + std::to_string(l), component);
        child.children.push_back(std::move(leaf));
      }
      group.children.push_back(std::move(child));
    }
    world.children.push_back(std::move(group));
  }
  stage.rootPrims.push_back(std::move(world));
  return stage;
}

PrimAtomicOperation primOperation(PrimOperationKind kind, std::string parent, std::string name,
                                  std::string source) {
  PrimAtomicOperation operation;
  operation.kind = kind;
  operation.parentPath = std::move(parent);
  operation.primName = std::move(name);
  operation.sourcePath = std::move(source);
  operation.primitiveKind = "cube";
  return operation;
}

// 100 edits spread over the stage: 60 adds, 20 deletes, 10 moves, 10 duplicates.
std::vector<PrimAtomicOperation> hundredEdits() {
  using K = PrimOperationKind;
  std::vector<PrimAtomicOperation> edits;
  for (int i = 0; i < 60; ++i) {
    edits.push_back(primOperation(K::add, "/World/Group" + std::to_string(i) + "/Child5",
                                  "New" + std::to_string(i), ""));
  }
  for (int i = 0; i < 20; ++i) {
    edits.push_back(primOperation(K::deletePrim, "/World", "",
                                  "/World/Group" + std::to_string(60 + i) + "/Child1"));
  }
  for (int i = 0; i < 10; ++i) {
    edits.push_back(primOperation(K::reparent, "/World/Group" + std::to_string(90 + i),
                                  "Moved" + std::to_string(i),
                                  "/World/Group" + std::to_string(i) + "/Child2"));
  }
  for (int i = 0; i < 10; ++i) {
    edits.push_back(primOperation(K::duplicate, "/World/Group" + std::to_string(i),
                                  "Copy" + std::to_string(i),
                                  "/World/Group" + std::to_string(i) + "/Child3"));
  }
  return edits;
}

void BM_EncodePrimBatchOf1000(benchmark::State& state) {
  std::vector<PrimAtomicOperation> batch;
  for (int i = 0; i < 250; ++i) {
    const std::string name = "Prim" + std::to_string(i);
    PrimAtomicOperation add = primOperation(PrimOperationKind::add, "/World/Group1", name, "");
    add.initialTranslation = std::vector<double>{0.25 * i, 1.0, -3.5};
    add.assetName = "Crate";
    batch.push_back(add);
    batch.push_back(primOperation(PrimOperationKind::deletePrim, "/World", "", "/World/" + name));
    batch.push_back(
        primOperation(PrimOperationKind::duplicate, "/World", name + "_1", "/World/" + name));
    batch.push_back(
        primOperation(PrimOperationKind::rename, "/World", name + "b", "/World/" + name));
  }
  std::size_t bytes = 0;
  for (auto _ : state) {
    const std::string line = PrimAtomicOperation::stdioBatchCommand(42, batch);
    bytes = line.size();
    benchmark::DoNotOptimize(line.data());
  }
  state.counters["operations"] = static_cast<double>(batch.size());
  state.counters["lineBytes"] = static_cast<double>(bytes);
}

// From a delete in the hierarchy to the hierarchy's document holding the stage without the prim:
// the command on the main thread, then (untimed) the local stage build on the background, then the
// main thread's showing of it. The exchange with the helper never runs.
void BM_StructuralCommandMainThread(benchmark::State& state) {
  spdlog::set_level(spdlog::level::warn);
  QueuedExecutor main;
  QueuedExecutor background;
  Discarding exchanges;
  InMemoryPreferencesStore preferences;
  InMemorySecretStore secrets;
  PosixProcessLauncher launcher;
  CurlHttpClient http(main);
  EditorConfiguration configuration;
  configuration.projectServerURL = "";
  EditorModelPorts ports{main, background, preferences, secrets, launcher, http};
  ports.helperExchanges = &exchanges;
  EditorModel model(configuration, std::move(ports));
  const auto stage = PreparedStage::prepare(largeStage());
  model.stageRefresher.storeStage(stage);
  main.runAll();
  background.runAll();
  main.runAll();
  int next = 0;
  for (auto _ : state) {
    const std::string path =
        "/World/Group" + std::to_string(next % 100) + "/Child" + std::to_string(next / 100);
    ++next;
    model.structure.deletePrim(path);  // timed: the command
    state.PauseTiming();
    background.runAll();  // the copy, replay and indexes of the local stage
    state.ResumeTiming();
    main.runAll();  // timed: the local stage shown and the hierarchy's document patched
    state.PauseTiming();
    if (model.stage.get()->prim(path))
      state.SkipWithError("the delete did not show");
    // The document's full rebuild and the next command's idle pipeline are not part of this.
    background.drop();
    main.runAll();
    model.operations.state.submitInFlight = false;
    state.ResumeTiming();
  }
  state.counters["prims"] = static_cast<double>(stage->stage().prims.size());
}

// 100 unconfirmed edits laid over an incoming stage that the server has not caught up with.
void BM_ReapplyHundredEditsOverIncomingStage(benchmark::State& state) {
  OptimisticOverlayState overlay;
  for (const PrimAtomicOperation& edit : hundredEdits())
    overlay.recordOptimisticStructuralOperation(edit);
  // The incoming stage as the refresh prepared it, indexes included, off the main thread.
  const auto incoming = PreparedStage::prepare(largeStage());
  std::size_t prims = 0;
  for (auto _ : state) {
    state.PauseTiming();
    StageInspection stage = copyWithRoomToGrow(incoming->stage());
    state.ResumeTiming();
    {
      LocalStage local(stage, "", {}, incoming);
      replayOptimisticOverlay(overlay, local);
    }
    prims = stage.prims.size();
    state.PauseTiming();
    stage = {};
    state.ResumeTiming();
  }
  state.counters["edits"] = 100;
  state.counters["primsAfter"] = static_cast<double>(prims);
}

// The whole background share of showing a stage with the overlay: the copy of the server's stage
// (shared with its cache), the replay and the indexes that the panes read.
void BM_LocalStageBuildWithHundredEdits(benchmark::State& state) {
  OptimisticOverlayState overlay;
  for (const PrimAtomicOperation& edit : hundredEdits())
    overlay.recordOptimisticStructuralOperation(edit);
  const auto base = PreparedStage::prepare(largeStage());
  for (auto _ : state) {
    StageInspection copy = copyWithRoomToGrow(base->stage());
    {
      LocalStage local(copy, "", {}, base);
      replayOptimisticOverlay(overlay, local);
    }
    auto prepared = PreparedStage::prepare(std::move(copy));
    state.PauseTiming();
    prepared.reset();
    state.ResumeTiming();
  }
}

BENCHMARK(BM_EncodePrimBatchOf1000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StructuralCommandMainThread)->Unit(benchmark::kMillisecond)->Iterations(30);
BENCHMARK(BM_ReapplyHundredEditsOverIncomingStage)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LocalStageBuildWithHundredEdits)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace orvan::editor::benchmarks

BENCHMARK_MAIN();
