#pragma once

// A viewport host on virtual time with a fake launcher, surfaces and view.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Support/ManualScheduler.h"
#include "Viewport/RuntimeViewportHostView.h"
#include "ViewportHostFakes.h"

namespace orvan::editor::testing {

using namespace std::chrono_literals;

class ViewportHostTest : public ::testing::Test {
 protected:
  static constexpr const char* kRuntime = "/opt/orvan/orvan_runtime_viewport";
  static constexpr const char* kClient = "/opt/orvan/orvan_viewport_client";

  void SetUp() override {
    launcher.executables = {kRuntime, kClient};
    makeHost();
  }

  void makeHost(std::map<std::string, std::string> environment = {}, bool timing = false) {
    RuntimeViewportHostOptions options;
    options.log = [this](std::string_view message) { logs.emplace_back(message); };
    options.inputQueue = &inputQueue;
    options.parentProcessId = 777;
    options.environmentLookup =
        [environment](const std::string& name) -> std::optional<std::string> {
      const auto found = environment.find(name);
      if (found == environment.end())
        return std::nullopt;
      return found->second;
    };
    options.timingLogsEnabled = timing;
    options.playTimingEnabled = timing;
    host = std::make_unique<RuntimeViewportHostView>(scheduler, launcher, surfaces, options);
  }

  RuntimeViewportState state() {
    RuntimeViewportState value;
    value.configuration.workspaceRoot = "/ws";
    value.configuration.scenePath = "scenes/a.usda";
    value.configuration.address = "grpcs://authoring.test:443";
    value.configuration.workspace = "main";
    value.configuration.clientId = "native-editor-7";
    value.configuration.viewportPath = kRuntime;
    value.configuration.viewportClientPath = kClient;
    value.configuration.viewportAddress = "127.0.0.1:50099";
    value.projectId = "p1";
    value.authToken = "tok";
    value.selectedPaths = {"/World/A"};
    value.onConnectionChanged = [this](bool connected) { connectionChanges.push_back(connected); };
    value.onSelection = [this](std::vector<std::string> paths) { selections.push_back(paths); };
    value.onTransformCommit = [this](ViewportTransformCommit commit) {
      commits.push_back(std::move(commit));
    };
    value.onReviewCommentMarkers = [this](std::vector<ReviewCommentMarker> markers) {
      markerLists.push_back(std::move(markers));
    };
    value.onSceneDrop = [this](std::string payload, ViewportDropPlacement placement) {
      drops.emplace_back(std::move(payload), std::move(placement));
    };
    return value;
  }

  // The view gets its window and the editor's first update: the runtime starts.
  void show(RuntimeViewportState value) {
    host->attach(&view);
    host->updateHost(std::move(value));
    scheduler.runUntilIdle();
  }
  // ... and the runtime says it listens: the client starts and the open line goes out.
  void openStream(RuntimeViewportState value) {
    show(std::move(value));
    runtime()->emitStdout("Viewport server listening\n");
    scheduler.runUntilIdle();
    readLines();
  }
  void openStream() { openStream(state()); }

  std::shared_ptr<FakeChild> runtime(int index = -1) const { return nth(kRuntime, index); }
  std::shared_ptr<FakeChild> client(int index = -1) const { return nth(kClient, index); }
  std::size_t runtimeCount() const { return launcher.startedFrom(kRuntime).size(); }
  std::size_t clientCount() const { return launcher.startedFrom(kClient).size(); }

  // Lines written to the newest client since the last call.
  std::vector<std::string> readLines() {
    const auto current = client();
    if (current != readFrom_) {
      readFrom_ = current;
      readCount_ = 0;
    }
    if (!current)
      return {};
    const std::vector<std::string> all = current->lines();
    std::vector<std::string> fresh(all.begin() + static_cast<long>(readCount_), all.end());
    readCount_ = all.size();
    return fresh;
  }

  void emit(const std::string& text) {
    client()->emitStdout(text);
    scheduler.runUntilIdle();
  }
  static std::string frameLine(std::uint64_t index, std::uint32_t surface) {
    return R"({"type":"frame","frameIndex":)" + std::to_string(index) + R"(,"surfaceId":)" +
           std::to_string(surface) +
           R"(,"widthPx":1600,"heightPx":1200,"scaleFactor":2,"pixelFormat":"bgra8"})" + "\n";
  }

  int countLogs(std::string_view text) const {
    return static_cast<int>(std::count(logs.begin(), logs.end(), std::string(text)));
  }
  int countLogsStartingWith(std::string_view prefix) const {
    return static_cast<int>(std::count_if(
        logs.begin(), logs.end(), [prefix](const auto& line) { return line.starts_with(prefix); }));
  }

  ManualScheduler scheduler;
  FakeProcessLauncher launcher;
  FakeSurfaceLookup surfaces;
  InlineExecutor inputQueue;
  FakeSurfaceView view;
  std::vector<std::string> logs;
  std::vector<bool> connectionChanges;
  std::vector<std::vector<std::string>> selections;
  std::vector<ViewportTransformCommit> commits;
  std::vector<std::vector<ReviewCommentMarker>> markerLists;
  std::vector<std::pair<std::string, ViewportDropPlacement>> drops;
  std::unique_ptr<RuntimeViewportHostView> host;

 private:
  std::shared_ptr<FakeChild> nth(const char* path, int index) const {
    const auto started = launcher.startedFrom(path);
    if (started.empty())
      return nullptr;
    const long at = index < 0 ? static_cast<long>(started.size()) + index : index;
    if (at < 0 || at >= static_cast<long>(started.size()))
      return nullptr;
    return started[static_cast<std::size_t>(at)];
  }

  std::shared_ptr<FakeChild> readFrom_;
  std::size_t readCount_ = 0;
};

}  // namespace orvan::editor::testing
