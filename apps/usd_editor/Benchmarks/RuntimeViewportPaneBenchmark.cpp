// The viewport widget's cost for one 1920x1080 frame on the main thread: from the frame's pixels
// in memory to the frame drawn (the `presented` callback), through the texture upload and the
// quad where there is OpenGL, through the copy into an image and its paint where there is not.
// The label says which path ran; the offscreen platform has no OpenGL, a display (or Xvfb) does.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include <QApplication>

#include "Viewport/RuntimeViewportContainerView.h"

namespace orvan::ui::benchmarks {
namespace {

QApplication& application() {
  static int argc = 1;
  static char name[] = "RuntimeViewportPaneBenchmark";
  static char* argv[] = {name, nullptr};
  static QApplication* instance = [] {
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    return new QApplication(argc, argv);
  }();
  return *instance;
}

void presentFrames(benchmark::State& state, RuntimeViewportContainerView::Presentation path) {
  application();
  constexpr int kWidth = 1920;
  constexpr int kHeight = 1080;
  // Two pictures in turn, so that every frame changes what is shown.
  std::vector<std::uint8_t> first(std::size_t{kWidth} * kHeight * 4, 0x40);
  std::vector<std::uint8_t> second(first.size(), 0xc0);
  RuntimeViewportContainerView view(nullptr, path);
  view.resize(kWidth, kHeight);
  view.show();
  QCoreApplication::processEvents();
  bool odd = false;
  for (auto _ : state) {
    odd = !odd;
    const ViewportFramePixels frame{odd ? first.data() : second.data(), kWidth, kHeight,
                                    std::size_t{kWidth} * 4, nullptr};
    bool presented = false;
    if (!view.presentFrame(
            frame, [&] { presented = true; }, [] {})) {
      state.SkipWithError("the view cannot present");
      break;
    }
    while (!presented)
      QCoreApplication::processEvents(QEventLoop::AllEvents);
  }
  state.SetLabel(view.usesOpenGL() ? "opengl" : "software");
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(first.size()));
}

void BM_ViewportFrame1080p(benchmark::State& state) {
  presentFrames(state, RuntimeViewportContainerView::Presentation::automatic);
}
BENCHMARK(BM_ViewportFrame1080p)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ViewportFrame1080pOpenGL(benchmark::State& state) {
  presentFrames(state, RuntimeViewportContainerView::Presentation::opengl);
}
BENCHMARK(BM_ViewportFrame1080pOpenGL)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ViewportFrame1080pSoftware(benchmark::State& state) {
  presentFrames(state, RuntimeViewportContainerView::Presentation::software);
}
BENCHMARK(BM_ViewportFrame1080pSoftware)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orvan::ui::benchmarks

BENCHMARK_MAIN();
