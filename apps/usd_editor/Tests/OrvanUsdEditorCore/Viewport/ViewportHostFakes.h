#pragma once

// Fakes for the viewport host: a launcher whose children are scripted by the test, a surface
// lookup with made-up surfaces, a view, and an inline input writer.
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Platform/ProcessLauncher.h"
#include "Platform/SharedSurfaceLookup.h"
#include "Viewport/RuntimeViewportHostView.h"

namespace orvan::editor::testing {

// Runs each closure at once: a serial writer without a thread.
class InlineExecutor final : public BackgroundExecutor {
 public:
  void post(Closure closure) override { closure(); }
};

// What the test sees of one launched child, and how it speaks for it.
struct FakeChild {
  ProcessLaunchOptions options;
  bool running = true;
  bool stdinClosed = false;
  bool terminated = false;
  bool writesFail = false;
  std::string stdinBytes;

  // Lines written to the child's standard input, without their line feeds.
  std::vector<std::string> lines() const {
    std::vector<std::string> out;
    std::size_t start = 0;
    for (std::size_t end; (end = stdinBytes.find('\n', start)) != std::string::npos;
         start = end + 1)
      out.push_back(stdinBytes.substr(start, end - start));
    return out;
  }
  // As the monitor thread would: each complete line of `text` to the stdout handler; a rest
  // without a line feed as a partial line (the stream's last words).
  void emitStdout(const std::string& text) {
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
      options.standardOutput.onLine({text.substr(start, end - start), false, false});
    if (start < text.size())
      options.standardOutput.onLine({text.substr(start), false, true});
  }
  void emitStderr(const std::string& text) { options.standardError.onLine({text, false, false}); }
  void exit(ExitStatus status) {
    running = false;
    if (options.onExit)
      options.onExit(status);
  }
};

class FakeChildProcess final : public ChildProcess {
 public:
  explicit FakeChildProcess(std::shared_ptr<FakeChild> child) : child_(std::move(child)) {}
  int processId() const override { return 4242; }
  Status writeStdin(std::string_view bytes) override {
    if (child_->writesFail || child_->stdinClosed)
      return Error::editor(32, "Broken pipe");
    child_->stdinBytes.append(bytes);
    return okStatus();
  }
  void closeStdin() override { child_->stdinClosed = true; }
  Result<std::string> readStdout(std::size_t) override { return std::string(); }
  std::string capturedStdout() const override { return {}; }
  std::string capturedStderr() const override { return {}; }
  bool isRunning() const override { return child_->running; }
  ExitStatus waitForExit() override { return ExitStatus::exited(0); }
  std::optional<ExitStatus> exitStatus() const override { return std::nullopt; }
  void terminate(Duration) override {
    child_->terminated = true;
    if (child_->running)
      child_->exit(ExitStatus::signalled(15));
  }

 private:
  std::shared_ptr<FakeChild> child_;
};

class FakeProcessLauncher final : public ProcessLauncher {
 public:
  std::set<std::string> executables;
  std::set<std::string> failingLaunches;
  std::vector<std::shared_ptr<FakeChild>> launched;

  Result<std::unique_ptr<ChildProcess>> launch(ProcessLaunchOptions options) override {
    if (failingLaunches.contains(options.executablePath))
      return Error::editor(kLaunchFailedCode, "cannot start " + options.executablePath);
    auto child = std::make_shared<FakeChild>();
    child->options = std::move(options);
    launched.push_back(child);
    return std::unique_ptr<ChildProcess>(std::make_unique<FakeChildProcess>(child));
  }
  Result<ProcessOutput> runToCompletion(ProcessLaunchOptions) override {
    return Error::editor(kLaunchFailedCode, "not used");
  }
  bool isExecutableFile(const std::string& path) const override {
    return executables.contains(path);
  }

  // The children started from `path`, oldest first.
  std::vector<std::shared_ptr<FakeChild>> startedFrom(const std::string& path) const {
    std::vector<std::shared_ptr<FakeChild>> out;
    for (const auto& child : launched) {
      if (child->options.executablePath == path)
        out.push_back(child);
    }
    return out;
  }
};

// Surfaces by identifier; any other identifier fails the lookup.
class FakeSurfaceLookup final : public SharedSurfaceLookup {
 public:
  std::map<std::uint32_t, std::shared_ptr<const SharedSurface>> surfaces;
  int lookups = 0;

  void add(std::uint32_t id, std::uint32_t width, std::uint32_t height) {
    pixels_.emplace_back(std::size_t{width} * height * 4, std::uint8_t{0x80});
    surfaces[id] = std::make_shared<SharedSurface>(
        SharedSurface{id, width, height, width * 4, pixels_.back().data()});
  }
  std::shared_ptr<const SharedSurface> lookup(std::uint32_t id) override {
    ++lookups;
    const auto found = surfaces.find(id);
    return found == surfaces.end() ? nullptr : found->second;
  }

 private:
  std::vector<std::vector<std::uint8_t>> pixels_;
};

// A view whose presentation the test finishes by hand (or at once with `completeAtOnce`).
class FakeSurfaceView final : public ViewportSurfaceView {
 public:
  struct Presentation {
    std::shared_ptr<const SharedSurface> surface;
    double scale = 0;
    std::function<void()> presented;
    std::function<void()> completed;
  };

  bool window = true;
  bool visible = true;
  double width = 800;
  double height = 600;
  std::optional<double> scale = 2.0;
  bool liveResize = false;
  std::optional<double> framesPerSecond = 120.0;
  std::optional<std::string> screen = "DP-1";
  bool canPresent = true;
  bool completeAtOnce = false;
  std::vector<Presentation> presentations;
  int clears = 0;
  int cursorInvalidations = 0;

  bool hasWindow() const override { return window; }
  bool isVisible() const override { return visible; }
  double widthPoints() const override { return width; }
  double heightPoints() const override { return height; }
  std::optional<double> backingScale() const override { return scale; }
  bool inLiveResize() const override { return liveResize; }
  std::optional<double> screenFramesPerSecond() const override { return framesPerSecond; }
  std::optional<std::string> screenIdentifier() const override { return screen; }
  bool present(std::shared_ptr<const SharedSurface> surface, double surfaceScale,
               std::function<void()> presented, std::function<void()> completed) override {
    if (!canPresent)
      return false;
    if (completeAtOnce) {
      presented();
      completed();
    }
    presentations.push_back(
        {std::move(surface), surfaceScale, std::move(presented), std::move(completed)});
    return true;
  }
  void clear() override { ++clears; }
  void invalidateCursor() override { ++cursorInvalidations; }
};

}  // namespace orvan::editor::testing
