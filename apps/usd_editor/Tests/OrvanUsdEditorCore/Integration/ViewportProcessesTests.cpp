// The viewport host with real processes: the real launcher, pipes and reader threads, the serial
// input writer and a surface in POSIX shared memory, played by a small stand-in program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "../Viewport/ViewportHostFakes.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PosixSharedSurfaceLookup.h"
#include "Support/Eventually.h"
#include "Support/ManualScheduler.h"
#include "Viewport/RuntimeViewportHostView.h"

namespace orvan::editor::testing {
namespace {

class ViewportProcessesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RuntimeViewportHostOptions options;
    options.log = [this](std::string_view message) { logs.emplace_back(message); };
    options.timingLogsEnabled = false;
    options.playTimingEnabled = false;
    host = std::make_unique<RuntimeViewportHostView>(scheduler, launcher, surfaces, options);
  }

  bool logged(const std::string& line,
              std::chrono::steady_clock::duration patience = std::chrono::seconds(20)) {
    return eventually(
        [&] {
          scheduler.runUntilIdle();
          return std::find(logs.begin(), logs.end(), line) != logs.end();
        },
        patience);
  }

  ManualScheduler scheduler;
  PosixProcessLauncher launcher;
  PosixSharedSurfaceLookup surfaces;
  FakeSurfaceView view;
  std::vector<std::string> logs;
  std::unique_ptr<RuntimeViewportHostView> host;
};

TEST_F(ViewportProcessesTest, AFrameTravelsFromTheClientsSurfaceToTheViewAndIsAcknowledged) {
  RuntimeViewportState state;
  state.configuration.scenePath = "/scenes/a.usda";
  state.configuration.viewportPath = ORVAN_FAKE_VIEWPORT_PATH;
  state.configuration.viewportClientPath = ORVAN_FAKE_VIEWPORT_PATH;
  std::vector<bool> connections;
  state.onConnectionChanged = [&connections](bool connected) { connections.push_back(connected); };
  view.completeAtOnce = true;
  host->attach(&view);
  host->updateHost(state);

  ASSERT_TRUE(logged("Velk viewport runtime: Viewport server listening on test"));
  ASSERT_TRUE(logged("Velk viewport: opened 1600x1200"));
  ASSERT_TRUE(logged("Velk viewport: acked 1"));
  ASSERT_EQ(view.presentations.size(), 1u);
  const auto& surface = view.presentations[0].surface;
  EXPECT_EQ(surface->width, 4u);
  EXPECT_EQ(surface->height, 2u);
  EXPECT_EQ(surface->pixels[31], 93) << "the producer's last pixel byte";
  EXPECT_EQ(host->displayedFrameCount(), 1u);
  EXPECT_TRUE(host->isConnected());
  EXPECT_EQ(std::count_if(logs.begin(), logs.end(),
                          [](const std::string& line) {
                            return line.starts_with(
                                "Velk viewport: first frame displayed "
                                "scene=/scenes/a.usda surface=");
                          }),
            1);

  host->shutdown();
  EXPECT_THAT(connections, ::testing::ElementsAre(true, false));
  // The client reads "close", then the end of its input, and goes.
  EXPECT_FALSE(logged("OrvanUsdEditor: viewport client exited status=0 reason=exit",
                      std::chrono::milliseconds(300)))
      << "exits after shutdown are not reported";
}

}  // namespace
}  // namespace orvan::editor::testing
