#include <gtest/gtest.h>

#include <QDir>
#include <QImage>
#include <QLabel>
#include <QTemporaryDir>

#include "MainWindow.h"
#include "PaneLayout.h"
#include "QtApplicationEnvironment.h"
#include "WindowCapture.h"

namespace orvan::ui {
namespace {

using testing::processEventsUntil;
using testing::testApplication;

TEST(MainWindowTest, OpensWithThePanesAtTheirDefaultSizesAndSavesAPng) {
  testApplication();
  MainWindow window;
  window.setStatusText("Loaded composed OpenUSD stage");
  window.show();
  ASSERT_TRUE(processEventsUntil([&] { return window.isVisible(); }, 2000));
  processEventsUntil([] { return false; }, 50);

  EXPECT_EQ(window.hierarchyPane()->width(), PaneSizes::kHierarchyWidth);
  EXPECT_EQ(window.inspectorPane()->width(), PaneSizes::kInspectorWidth);
  EXPECT_EQ(window.projectPane()->height(), PaneSizes::kProjectHeight);
  EXPECT_GE(window.viewportPane()->width(), PaneSizes::kMinViewportWidth);

  QTemporaryDir folder;
  ASSERT_TRUE(folder.isValid());
  const QString path = folder.filePath("shots/window.png");
  int exitCode = -1;
  QString reason = "not called";
  WindowCaptureOptions options;
  options.path = path;
  options.settleDelay = std::chrono::milliseconds(10);
  captureWindowWhenSettled(window, options, [&](int code, QString why) {
    exitCode = code;
    reason = why;
  });
  ASSERT_TRUE(processEventsUntil([&] { return exitCode != -1; }, 5000));
  EXPECT_EQ(exitCode, 0) << reason.toStdString();
  const QImage image(path);
  ASSERT_FALSE(image.isNull());
  EXPECT_EQ(image.size(), window.size() * window.devicePixelRatio());
}

TEST(MainWindowTest, AWindowThatNeverSettlesIsWrittenButTheCaptureFails) {
  testApplication();
  MainWindow window;
  window.show();
  QTemporaryDir folder;
  ASSERT_TRUE(folder.isValid());
  int exitCode = -1;
  QString reason;
  WindowCaptureOptions options;
  options.path = folder.filePath("unsettled.png");
  options.isSettled = [] { return false; };
  options.settleDelay = std::chrono::milliseconds(10);
  options.timeout = std::chrono::milliseconds(100);
  captureWindowWhenSettled(window, options, [&](int code, QString why) {
    exitCode = code;
    reason = why;
  });
  ASSERT_TRUE(processEventsUntil([&] { return exitCode != -1; }, 5000));
  EXPECT_EQ(exitCode, 1);
  EXPECT_TRUE(reason.contains("did not settle within 100 ms")) << reason.toStdString();
  EXPECT_FALSE(QImage(options.path).isNull()) << "the picture is still written, for a look";
}

TEST(ScreenshotRequestTest, TheFileFollowsTheOptionAndItsAbsenceIsAProblem) {
  const auto request = [](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "OrvanUsdEditor");
    return screenshotRequest(arguments);
  };
  EXPECT_FALSE(request({"--scene", "a.usda"}).has_value());
  const auto given = request({"--screenshot", "/tmp/w.png", "--local-mode"});
  ASSERT_TRUE(given.has_value());
  EXPECT_EQ(given->path, "/tmp/w.png");
  EXPECT_TRUE(given->problem.isEmpty());
  for (const auto& missing : std::vector<std::vector<std::string>>{
           {"--screenshot"}, {"--screenshot", ""}, {"--screenshot", "--scene", "a.usda"}}) {
    const auto refused = request(missing);
    ASSERT_TRUE(refused.has_value());
    EXPECT_EQ(refused->problem, "--screenshot needs a file name");
  }
}

TEST(MainWindowTest, CaptureReportsAFileThatCannotBeWritten) {
  testApplication();
  MainWindow window;
  window.show();
  const QString reason = writeWindowPng(window, "/proc/orvan-cannot-write-here/window.png");
  EXPECT_FALSE(reason.isEmpty());
}

}  // namespace
}  // namespace orvan::ui
