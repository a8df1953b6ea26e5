// The stage inspector on generated scenes of 10k, 100k and 1M prims: what orvan_usd_inspector does
// for the editor. The input rate is bytes of scene text per second; jsonMB is the size of the
// output; peakRssMB is the process's peak resident memory so far.
#include <benchmark/benchmark.h>

#include <map>

#include "BenchmarkScenes.h"
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

}  // namespace
}  // namespace orvan::engine

BENCHMARK_MAIN();
