// The viewport host's main-thread cost per displayed frame at 1920x1080: the "frame" line read
// from the client, decoded, its surface looked up, handed to the view and acknowledged, with the
// watchdog and safety timers running on virtual time at 60 frames a second. The view is a fake
// that finishes at once: the texture upload belongs to the widget and is measured there.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "Foundation/TimerQueue.h"
#include "Platform/PosixSharedSurfaceLookup.h"
#include "Platform/ProcessLauncher.h"
#include "Viewport/RuntimeViewportHostView.h"
#include "orvan/wire/SharedSurfaceLayout.h"

namespace orvan::editor::benchmarks {
namespace {

constexpr std::uint32_t kWidth = 1920;
constexpr std::uint32_t kHeight = 1080;

// The main thread on virtual time.
class VirtualMain final : public MainExecutor {
 public:
  void post(Closure closure) override { queue_.push_back(std::move(closure)); }
  TaskHandle postAfter(Duration delay, Closure closure) override {
    TaskHandle handle = TaskHandle::make();
    timers_.push(now_ + delay, handle.token(), std::move(closure));
    return handle;
  }
  TimePoint now() const override { return now_; }
  bool isMainThread() const override { return true; }
  void runUntilIdle() {
    while (true) {
      if (!queue_.empty()) {
        Closure next = std::move(queue_.front());
        queue_.pop_front();
        next();
        continue;
      }
      auto due = timers_.popDue(now_);
      if (!due)
        return;
      (*due)();
    }
  }
  void advanceBy(Duration delay) {
    now_ += delay;
    runUntilIdle();
  }

 private:
  std::deque<Closure> queue_;
  TimerQueue timers_;
  TimePoint now_ = TimePoint(std::chrono::hours(1));
};

class Inline final : public BackgroundExecutor {
 public:
  void post(Closure closure) override { closure(); }
};

struct Child {
  ProcessLaunchOptions options;
  std::size_t bytesWritten = 0;
};

class BenchChild final : public ChildProcess {
 public:
  explicit BenchChild(std::shared_ptr<Child> child) : child_(std::move(child)) {}
  int processId() const override { return 1; }
  Status writeStdin(std::string_view bytes) override {
    child_->bytesWritten += bytes.size();
    return okStatus();
  }
  void closeStdin() override {}
  Result<std::string> readStdout(std::size_t) override { return std::string(); }
  std::string capturedStdout() const override { return {}; }
  std::string capturedStderr() const override { return {}; }
  bool isRunning() const override { return true; }
  ExitStatus waitForExit() override { return ExitStatus::exited(0); }
  std::optional<ExitStatus> exitStatus() const override { return std::nullopt; }
  void terminate(Duration) override {}

 private:
  std::shared_ptr<Child> child_;
};

class BenchLauncher final : public ProcessLauncher {
 public:
  std::vector<std::shared_ptr<Child>> children;
  Result<std::unique_ptr<ChildProcess>> launch(ProcessLaunchOptions options) override {
    children.push_back(std::make_shared<Child>(Child{std::move(options), 0}));
    return std::unique_ptr<ChildProcess>(std::make_unique<BenchChild>(children.back()));
  }
  Result<ProcessOutput> runToCompletion(ProcessLaunchOptions) override {
    return Error::editor(kLaunchFailedCode, "unused");
  }
  bool isExecutableFile(const std::string&) const override { return true; }
};

// Three in-memory surfaces, as a producer's pool for one size.
class MemoryLookup final : public SharedSurfaceLookup {
 public:
  MemoryLookup() : pixels_(std::size_t{kWidth} * kHeight * 4) {}
  std::shared_ptr<const SharedSurface> lookup(std::uint32_t id) override {
    if (id < 1 || id > 3)
      return nullptr;
    return surfaces_[id - 1];
  }

 private:
  std::vector<std::uint8_t> pixels_;
  std::shared_ptr<const SharedSurface> surfaces_[3] = {
      std::make_shared<SharedSurface>(SharedSurface{1, kWidth, kHeight, kWidth * 4, nullptr}),
      std::make_shared<SharedSurface>(SharedSurface{2, kWidth, kHeight, kWidth * 4, nullptr}),
      std::make_shared<SharedSurface>(SharedSurface{3, kWidth, kHeight, kWidth * 4, nullptr})};
};

// Three real shared-memory surfaces of a producer, unlinked again at the end.
class ShmSurfaces {
 public:
  ShmSurfaces() {
    for (std::uint32_t index = 0; index < 3; ++index) {
      const std::uint32_t id =
          0x5eed0000u + static_cast<std::uint32_t>(::getpid() % 4096) * 4 + index;
      const std::string name = wire::sharedSurfaceName(id);
      ::shm_unlink(name.c_str());
      const int descriptor = ::shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
      if (descriptor < 0)
        continue;
      wire::SharedSurfaceHeader header;
      header.width = kWidth;
      header.height = kHeight;
      header.rowBytes = kWidth * 4;
      header.ownerPid = static_cast<std::uint32_t>(::getpid());
      header.capacityBytes = kWidth * kHeight * 4;
      const std::size_t length = wire::kSharedSurfaceHeaderBytes + header.capacityBytes;
      names_.push_back(name);
      const bool written =
          ::ftruncate(descriptor, static_cast<off_t>(length)) == 0 &&
          ::pwrite(descriptor, &header, sizeof header, 0) == static_cast<ssize_t>(sizeof header);
      ::close(descriptor);
      if (written)
        ids.push_back(id);
    }
  }
  ~ShmSurfaces() {
    for (const std::string& name : names_)
      ::shm_unlink(name.c_str());
  }
  std::vector<std::uint32_t> ids;

 private:
  std::vector<std::string> names_;
};

class InstantView final : public ViewportSurfaceView {
 public:
  bool hasWindow() const override { return true; }
  bool isVisible() const override { return true; }
  double widthPoints() const override { return 960; }
  double heightPoints() const override { return 540; }
  std::optional<double> backingScale() const override { return 2.0; }
  bool inLiveResize() const override { return false; }
  std::optional<double> screenFramesPerSecond() const override { return 60.0; }
  std::optional<std::string> screenIdentifier() const override { return std::nullopt; }
  bool present(std::shared_ptr<const SharedSurface>, double, std::function<void()> presented,
               std::function<void()> completed) override {
    presented();
    completed();
    return true;
  }
  void clear() override {}
};

void displayFrames(benchmark::State& state, SharedSurfaceLookup& surfaces,
                   const std::vector<std::uint32_t>& ids) {
  if (ids.empty()) {
    state.SkipWithError("no shared surfaces could be created");
    return;
  }
  VirtualMain main;
  BenchLauncher launcher;
  Inline input;
  InstantView view;
  RuntimeViewportHostOptions options;
  options.log = [](std::string_view) {};
  options.inputQueue = &input;
  options.parentProcessId = 1;
  options.environmentLookup = [](const std::string&) { return std::optional<std::string>(); };
  options.timingLogsEnabled = false;
  options.playTimingEnabled = false;
  RuntimeViewportHostView host(main, launcher, surfaces, options);
  RuntimeViewportState viewState;
  viewState.configuration.scenePath = "/scene.usda";
  viewState.configuration.viewportPath = "/rt";
  viewState.configuration.viewportClientPath = "/client";
  host.attach(&view);
  host.updateHost(viewState);
  launcher.children.at(0)->options.standardOutput.onLine({"Viewport server listening"});
  main.runUntilIdle();
  Child& client = *launcher.children.at(1);
  if (!host.hasSentOpen()) {
    state.SkipWithError("the host did not open");
    return;
  }

  std::uint64_t frameIndex = 0;
  const auto frameInterval = std::chrono::microseconds(16667);
  for (auto _ : state) {
    ++frameIndex;
    const std::uint32_t surfaceId = ids[frameIndex % ids.size()];
    // What the client prints: the reader thread's line (here on this thread) and the hop.
    client.options.standardOutput.onLine(
        {R"({"type":"frame","frameIndex":)" + std::to_string(frameIndex) + R"(,"surfaceId":)" +
         std::to_string(surfaceId) +
         R"(,"widthPx":1920,"heightPx":1080,"scaleFactor":2.0,"pixelFormat":"bgra8"})"});
    main.advanceBy(frameInterval);
  }
  state.counters["displayed"] = static_cast<double>(host.displayedFrameCount());
  state.counters["bytesWritten"] = static_cast<double>(client.bytesWritten);
  state.SetItemsProcessed(state.iterations());
  if (host.displayedFrameCount() != static_cast<std::uint64_t>(state.iterations()))
    state.SkipWithError("a frame was not displayed");
}

void BM_DisplayFrame_MemorySurface(benchmark::State& state) {
  MemoryLookup surfaces;
  displayFrames(state, surfaces, {1, 2, 3});
}
BENCHMARK(BM_DisplayFrame_MemorySurface);

void BM_DisplayFrame_SharedMemorySurface(benchmark::State& state) {
  ShmSurfaces shm;
  PosixSharedSurfaceLookup surfaces;
  displayFrames(state, surfaces, shm.ids);
}
BENCHMARK(BM_DisplayFrame_SharedMemorySurface);

void BM_DecodeFrameLine(benchmark::State& state) {
  const std::string line =
      R"({"type":"frame","frameIndex":123456,"surfaceId":3735928559,"widthPx":1920,"heightPx":1080,"scaleFactor":2.0,"pixelFormat":"bgra8"})";
  for (auto _ : state) {
    auto decoded = decodeViewportClientLine(line);
    benchmark::DoNotOptimize(decoded);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DecodeFrameLine);

}  // namespace
}  // namespace orvan::editor::benchmarks

BENCHMARK_MAIN();
