// The stage inspector on generated scenes of 10k, 100k and 1M prims: what orvan_usd_inspector does
// for the editor. The input rate is bytes of scene text per second; jsonMB is the size of the
// output; peakRssMB is the process's peak resident memory so far.
#include <benchmark/benchmark.h>

#include <array>
#include <map>

#include "BenchmarkScenes.h"
#include "Inspector/IncrementalInspector.h"
#include "Inspector/StageInspector.h"
#include "UsdText/LayerReader.h"
#include "UsdText/StageComposer.h"

namespace orvan::engine {
namespace {

void finish(benchmark::State& state, std::size_t bytes, std::size_t prims, std::size_t json) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
  state.counters["prims"] = static_cast<double>(prims);
  state.counters["jsonMB"] = static_cast<double>(json) / (1024.0 * 1024.0);
  state.counters["peakRssMB"] = peakRssMegabytes();
}

// Compose a read layer, build the inspection and encode it, handing the text over in pieces as the
// helper does to its standard output: the inspector's work after reading. Writing to the pipe is
// left out.
void inspect(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const std::string& text = sceneText(count);
  const std::shared_ptr<const Layer> layer = readLayerText("generated.usda", text).layer;
  std::size_t json = 0;
  std::size_t prims = 0;
  for (auto _ : state) {
    const StageOpenResult stage = composeStage(layer);
    json = 0;
    const auto error = writeInspectionJson(*stage.stage, {}, [&json](std::string_view piece) {
      json += piece.size();
      benchmark::DoNotOptimize(piece.data());
      return true;
    });
    if (error) {
      state.SkipWithError(error->c_str());
      return;
    }
    prims = stage.stage->prims.size();
  }
  finish(state, text.size(), prims, json);
}

// The whole helper run from scene text to JSON: read, compose, inspect, encode.
void readAndInspect(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const std::string& text = sceneText(count);
  std::size_t json = 0;
  for (auto _ : state) {
    LayerReadResult read = readLayerText("generated.usda", text);
    const StageOpenResult stage = composeStage(std::move(read.layer));
    json = 0;
    writeInspectionJson(*stage.stage, {}, [&json](std::string_view piece) {
      json += piece.size();
      benchmark::DoNotOptimize(piece.data());
      return true;
    });
  }
  finish(state, text.size(), count, json);
}

// One entity's translation changed in place in the layer, as an edit does, and the stage's
// document made again by an inspector that kept the parts of the call before. `encoded` is how
// many prims were encoded anew per call.
struct EditedScene {
  std::shared_ptr<Layer> layer;
  PropertyField* translate = nullptr;
  std::array<Value, 2> values;  // the edit alternates between them

  explicit EditedScene(std::size_t count)
      : layer(readLayerText("generated.usda", sceneText(count)).layer) {
    // An entity halfway through the scene.
    const std::string path = layer->primPath(static_cast<std::uint32_t>(layer->prims.size() / 2));
    for (LayerProperty& property : layer->prims[layer->findPrim(path)].properties) {
      if (property.name == "xformOp:translate")
        translate = &property.fields.front();
    }
    for (std::size_t i = 0; i < values.size(); ++i) {
      std::vector<Value> numbers(
          3, Value::ofKind(ValueKind::Number, layer->storeText(std::to_string(i + 1))));
      values[i] = layer->makeValue(ValueKind::Tuple, {}, numbers);
    }
  }
  void edit(std::size_t iteration) { translate->value = values[iteration % values.size()]; }
};

void finishReinspect(benchmark::State& state, std::size_t prims, std::size_t encoded,
                     std::size_t json) {
  state.counters["prims"] = static_cast<double>(prims);
  state.counters["encoded"] = static_cast<double>(encoded);
  state.counters["jsonMB"] = static_cast<double>(json) / (1024.0 * 1024.0);
  state.counters["peakRssMB"] = peakRssMegabytes();
}

// The first call of an incremental inspector, which encodes every prim and keeps the parts: what
// the server pays once per scene, against `inspect`.
void firstIncrementalInspection(benchmark::State& state) {
  const std::shared_ptr<const Layer> layer =
      readLayerText("generated.usda", sceneText(static_cast<std::size_t>(state.range(0)))).layer;
  const StageOpenResult stage = composeStage(layer);
  std::size_t json = 0;
  std::size_t encoded = 0;
  for (auto _ : state) {
    IncrementalInspector inspector;
    const IncrementalInspector::Result result = inspector.inspect(*stage.stage);
    json = result.document.size();
    encoded = inspector.lastStats().encoded;
    benchmark::DoNotOptimize(result.document.pieces().data());
  }
  finishReinspect(state, stage.stage->prims.size(), encoded, json);
}

// The stage of the last call with its layer changed in place: a property edit.
void reinspectAfterOneEdit(benchmark::State& state) {
  EditedScene scene(static_cast<std::size_t>(state.range(0)));
  if (!scene.translate) {
    state.SkipWithError("no entity to edit");
    return;
  }
  const StageOpenResult stage = composeStage(scene.layer);
  IncrementalInspector inspector;
  inspector.inspect(*stage.stage);
  std::size_t iteration = 0;
  std::size_t json = 0;
  for (auto _ : state) {
    scene.edit(iteration++);
    const IncrementalInspector::Result result = inspector.inspect(*stage.stage);
    json = result.document.size();
    benchmark::DoNotOptimize(result.document.pieces().data());
  }
  finishReinspect(state, stage.stage->prims.size(), inspector.lastStats().encoded, json);
}

// The same edit with the stage composed anew, as after an edit that changes the prims.
void recomposeAndReinspect(benchmark::State& state) {
  EditedScene scene(static_cast<std::size_t>(state.range(0)));
  if (!scene.translate) {
    state.SkipWithError("no entity to edit");
    return;
  }
  IncrementalInspector inspector;
  inspector.inspect(*composeStage(scene.layer).stage);
  std::size_t iteration = 0;
  std::size_t json = 0;
  std::size_t prims = 0;
  for (auto _ : state) {
    scene.edit(iteration++);
    const StageOpenResult stage = composeStage(scene.layer);
    const IncrementalInspector::Result result = inspector.inspect(*stage.stage);
    json = result.document.size();
    prims = stage.stage->prims.size();
    benchmark::DoNotOptimize(result.document.pieces().data());
  }
  finishReinspect(state, prims, inspector.lastStats().encoded, json);
}

BENCHMARK(inspect)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Arg(1'000'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(readAndInspect)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Arg(1'000'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(firstIncrementalInspection)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(reinspectAfterOneEdit)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(recomposeAndReinspect)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
}  // namespace orvan::engine

BENCHMARK_MAIN();
