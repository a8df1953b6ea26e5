// The viewport renderer on this machine's OpenGL (Mesa's software renderer without a GPU): one
// frame of the demo scene and of generated scenes, drawn and read back, at 1280×720 and 1920×1080;
// and building the draw list of a stage.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "UsdText/LayerReader.h"
#include "UsdText/SceneGenerator.h"
#include "UsdText/StageComposer.h"
#include "Viewport/ViewportRenderer.h"

namespace orvan::engine {
namespace {

std::shared_ptr<Stage> demoStage() {
  StageOpenResult opened = openStage(ORVAN_DEMO_DIR "/hello_world.usda");
  if (!opened.ok()) {
    throw std::runtime_error("the demo scene does not open");
  }
  return opened.stage;
}

std::shared_ptr<Stage> generatedStage(std::size_t count) {
  LayerReadResult read = readLayerText("/generated/scene.usda", generateScene(count));
  StageOpenResult composed = composeStage(read.layer);
  if (!composed.ok()) {
    throw std::runtime_error("the generated scene does not compose");
  }
  return composed.stage;
}

ViewportRenderer& renderer() {
  static std::unique_ptr<ViewportRenderer> shared = [] {
    ViewportRenderer::CreateResult created = ViewportRenderer::create();
    if (!created.renderer) {
      throw std::runtime_error(created.error);
    }
    return std::move(created.renderer);
  }();
  return *shared;
}

// range(0): prims of a generated scene, 0 for the demo; range(1), range(2): the frame's size;
// range(3): 1 to draw the grid, an outline around the first prim and a gizmo on it.
void renderFrame(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const auto stage = count == 0 ? demoStage() : generatedStage(count);
  const Scene scene = buildScene(*stage, tessellationForPrimCount(stage->prims.size()));
  ViewportRenderer& gl = renderer();
  gl.setScene(scene);
  const OrbitCamera camera = frameBounds(orbit(OrbitCamera{}, 30, 20), scene.bounds);
  const auto width = static_cast<int>(state.range(1));
  const auto height = static_cast<int>(state.range(2));
  RenderOverlays overlays;
  overlays.grid = state.range(3) != 0;
  if (state.range(3) != 0 && !scene.objects.empty()) {
    const SceneObject& first = scene.objects.front();
    overlays.selectedPaths = {first.path};
    GizmoOverlay gizmo;
    gizmo.target.path = first.path;
    gizmo.target.translation = glm::dvec3(first.world[3]);
    overlays.gizmo = gizmo;
  }
  for (auto _ : state) {
    RenderResult result = gl.render(camera, width, height, overlays);
    if (!result.error.empty()) {
      state.SkipWithError(result.error.c_str());
      return;
    }
    benchmark::DoNotOptimize(result.frame.rgba.data());
  }
  state.counters["drawn"] = static_cast<double>(scene.objects.size());
  state.counters["fps"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(renderFrame)
    ->Args({0, 1280, 720, 0})
    ->Args({0, 1920, 1080, 0})
    ->Args({0, 1280, 720, 1})
    ->Args({0, 1920, 1080, 1})
    ->Args({10'000, 1280, 720, 0})
    ->Args({100'000, 1280, 720, 0})
    ->Args({100'000, 1920, 1080, 0})
    ->Args({100'000, 1920, 1080, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// One step of a gizmo drag on a prim of a generated scene: the preview, the moved objects and
// their triangles sent again (no frame drawn). range(1) 1 moves a whole zone instead of one prim.
void dragStep(benchmark::State& state) {
  const auto stage = generatedStage(static_cast<std::size_t>(state.range(0)));
  SceneModel model(stage, tessellationForPrimCount(stage->prims.size()));
  ViewportRenderer& gl = renderer();
  gl.setScene(model.scene());
  const std::string& leaf = model.scene().objects.front().path;
  const std::string moved =
      state.range(1) != 0 ? leaf.substr(0, leaf.find('/', std::string("/World/").size())) : leaf;
  double offset = 0;
  for (auto _ : state) {
    offset += 0.01;
    const std::string value = std::to_string(offset) + ",0,0";
    if (model.applyPreview(moved, "Transform", "translation", value)) {
      state.SkipWithError("the preview was refused");
      return;
    }
    const Scene& scene = model.scene();
    gl.moveObjects(scene, model.movedObjects());
    benchmark::DoNotOptimize(scene.objects.data());
  }
  state.counters["moved"] = static_cast<double>(model.movedObjects().size());
  state.counters["rebuilds"] = static_cast<double>(model.revision());
}
BENCHMARK(dragStep)->Args({100'000, 0})->Args({100'000, 1})->Unit(benchmark::kMillisecond);

void buildDrawList(benchmark::State& state) {
  const auto stage = generatedStage(static_cast<std::size_t>(state.range(0)));
  std::size_t drawn = 0;
  for (auto _ : state) {
    const Scene scene = buildScene(*stage);
    drawn = scene.objects.size();
    benchmark::DoNotOptimize(drawn);
  }
  state.counters["drawn"] = static_cast<double>(drawn);
}
BENCHMARK(buildDrawList)->Arg(10'000)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace orvan::engine
BENCHMARK_MAIN();
