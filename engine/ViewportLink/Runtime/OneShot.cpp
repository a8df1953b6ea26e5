// The runtime's one-shot form: renders a scene file offscreen and writes the last frame as a
// binary PPM picture. It prints what it rendered and how long a frame took.
#include "ViewportLink/Runtime/OneShot.h"

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "UsdText/StageComposer.h"
#include "Viewport/RunOptions.h"
#include "Viewport/SceneModel.h"
#include "Viewport/ViewportRenderer.h"

namespace {

using orvan::engine::Frame;

bool writePixmap(const Frame& frame, const std::string& path) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << "P6\n" << frame.width << ' ' << frame.height << "\n255\n";
  std::vector<char> rgb;
  rgb.reserve(static_cast<std::size_t>(frame.width) * static_cast<std::size_t>(frame.height) * 3);
  for (std::size_t i = 0; i < frame.rgba.size(); i += 4) {
    rgb.insert(rgb.end(), {static_cast<char>(frame.rgba[i]), static_cast<char>(frame.rgba[i + 1]),
                           static_cast<char>(frame.rgba[i + 2])});
  }
  out.write(rgb.data(), static_cast<std::streamsize>(rgb.size()));
  return static_cast<bool>(out);
}

}  // namespace

int runOneShot(const std::vector<std::string>& arguments) {
  using namespace orvan::engine;
  const RunOptionsResult parsed = parseRunOptions(arguments);
  if (parsed.help) {
    std::fputs(kRunUsage, stdout);
    return 0;
  }
  if (!parsed.error.empty()) {
    std::fprintf(stderr, "orvan_runtime_viewport: %s\n%s", parsed.error.c_str(), kRunUsage);
    return 2;
  }
  const RunOptions& options = parsed.options;
  const StageOpenResult opened = openStage(options.scene);
  if (!opened.ok()) {
    std::fprintf(stderr, "orvan_runtime_viewport: %s\n", opened.error->describe().c_str());
    return 1;
  }
  const Stage& stage = *opened.stage;
  const Scene scene = buildScene(stage, tessellationForPrimCount(stage.prims.size()));
  for (const SceneProblem& problem : scene.problems) {
    std::fprintf(stderr, "not drawn: %s: %s\n", problem.primPath.c_str(), problem.message.c_str());
  }
  ViewportRenderer::CreateResult created = ViewportRenderer::create();
  if (!created.renderer) {
    std::fprintf(stderr, "orvan_runtime_viewport: %s\n", created.error.c_str());
    return 1;
  }
  ViewportRenderer& renderer = *created.renderer;
  renderer.setScene(scene);
  const OrbitCamera camera =
      frameBounds(orbit(OrbitCamera{}, options.yawDegrees, options.pitchDegrees), scene.bounds);

  RenderResult result;
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < options.frames; ++i) {
    result = renderer.render(camera, options.width, options.height);
    if (!result.error.empty()) {
      std::fprintf(stderr, "orvan_runtime_viewport: %s\n", result.error.c_str());
      return 1;
    }
  }
  const double milliseconds =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  std::printf("%s\n%zu prims drawn, %d frames of %dx%d in %.1f ms: %.2f ms a frame\n",
              renderer.describe().c_str(), scene.objects.size(), options.frames, options.width,
              options.height, milliseconds, milliseconds / options.frames);
  if (!options.output.empty() && !writePixmap(result.frame, options.output)) {
    std::fprintf(stderr, "orvan_runtime_viewport: could not write %s\n", options.output.c_str());
    return 1;
  }
  return 0;
}
