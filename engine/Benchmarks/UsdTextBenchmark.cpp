// Reading and composing generated scenes of 10k, 100k and 1M prims. The input rate is reported as
// bytes per second; peakRssMB is the process's peak resident memory so far.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "BenchmarkScenes.h"
#include "UsdText/LayerReader.h"
#include "UsdText/LayerWriter.h"
#include "UsdText/StageComposer.h"

namespace orvan::engine {
namespace {

void finish(benchmark::State& state, std::size_t bytes, std::size_t prims) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
  state.counters["prims"] = static_cast<double>(prims);
  state.counters["peakRssMB"] = peakRssMegabytes();
}

void readAndCompose(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const std::string& text = sceneText(count);
  std::size_t composed = 0;
  for (auto _ : state) {
    LayerReadResult read = readLayerText("generated.usda", text);
    if (!read.ok()) {
      state.SkipWithError(read.error->describe().c_str());
      return;
    }
    const StageOpenResult stage = composeStage(std::move(read.layer));
    composed = stage.stage->prims.size();
    benchmark::DoNotOptimize(composed);
  }
  finish(state, text.size(), composed);
}

void readOnly(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const std::string& text = sceneText(count);
  for (auto _ : state) {
    LayerReadResult read = readLayerText("generated.usda", text);
    benchmark::DoNotOptimize(read.layer);
  }
  finish(state, text.size(), count);
}

void composeOnly(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const std::string& text = sceneText(count);
  const std::shared_ptr<const Layer> layer = readLayerText("generated.usda", text).layer;
  for (auto _ : state) {
    const StageOpenResult stage = composeStage(layer);
    benchmark::DoNotOptimize(stage.stage->prims.data());
  }
  finish(state, text.size(), count);
}

// What a stage reader such as the inspector does after composing: every property of every prim.
void composeAndResolveProperties(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const std::string& text = sceneText(count);
  const std::shared_ptr<const Layer> layer = readLayerText("generated.usda", text).layer;
  std::size_t properties = 0;
  for (auto _ : state) {
    const StageOpenResult stage = composeStage(layer);
    properties = 0;
    for (const ComposedPrim& prim : stage.stage->prims)
      properties += stage.stage->composeProperties(prim).size();
    benchmark::DoNotOptimize(properties);
  }
  finish(state, text.size(), count);
  state.counters["properties"] = static_cast<double>(properties);
}

// A street of lamp posts: groups of 200 prims that each reference one small asset layer, so
// that about a fifth of the stage's prims are reference roots. Read from disk, as a scene is.
void openStageWithReferences(benchmark::State& state) {
  const auto lamps = static_cast<std::size_t>(state.range(0));
  const std::filesystem::path directory =
      std::filesystem::temp_directory_path() / ("orvan_bench_refs_" + std::to_string(::getpid()));
  std::filesystem::create_directories(directory);
  std::ofstream(directory / "lamp.usda")
      << "#usda 1.0\n(\n    defaultPrim = \"Lamp\"\n)\n\n"
         "def Xform \"Lamp\"\n{\n"
         "    rel material:binding = </Lamp/Looks/Glow>\n"
         "    def Cylinder \"Pole\" { double height = 3 }\n"
         "    def Sphere \"Bulb\" { double radius = 0.2 }\n"
         "    def Scope \"Looks\" { def Material \"Glow\" {} }\n}\n";
  std::string root = "#usda 1.0\n\ndef Xform \"World\"\n{\n";
  for (std::size_t lamp = 0; lamp < lamps; ++lamp) {
    if (lamp % 200 == 0)
      root += (lamp == 0 ? "" : "    }\n") + std::string("    def Xform \"Street_") +
              std::to_string(lamp / 200) + "\"\n    {\n";
    root += "        def Xform \"Lamp_" + std::to_string(lamp) +
            "\" (\n            prepend references = @./lamp.usda@\n        )\n        {\n"
            "            double3 xformOp:translate = (" +
            std::to_string(lamp % 200) + ", 0, 0)\n        }\n";
  }
  root += "    }\n}\n";
  std::ofstream(directory / "street.usda") << root;
  std::size_t prims = 0;
  for (auto _ : state) {
    const StageOpenResult stage = openStage((directory / "street.usda").string());
    prims = stage.stage->prims.size();
    benchmark::DoNotOptimize(prims);
  }
  finish(state, root.size(), prims);
  state.counters["references"] = static_cast<double>(lamps);
  std::filesystem::remove_all(directory);
}

void writeOnly(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const std::string& text = sceneText(count);
  const std::shared_ptr<const Layer> layer = readLayerText("generated.usda", text).layer;
  for (auto _ : state) {
    const std::string written = writeLayer(*layer);
    benchmark::DoNotOptimize(written.data());
  }
  finish(state, text.size(), count);
}

BENCHMARK(readAndCompose)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Arg(1'000'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(readOnly)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Arg(1'000'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(composeOnly)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Arg(1'000'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(composeAndResolveProperties)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Arg(1'000'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(openStageWithReferences)
    ->Arg(2'000)
    ->Arg(20'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(writeOnly)->Arg(100'000)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orvan::engine

BENCHMARK_MAIN();
