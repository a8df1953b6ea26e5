#include <gtest/gtest.h>

#include <QDir>
#include <QImage>
#include <QLabel>
#include <QTemporaryDir>

#include "MainWindow.h"
#include "PaneLayout.h"
#include "WindowCapture.h"
#include "QtApplicationEnvironment.h"

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

TEST(MainWindowTest, CaptureReportsAFileThatCannotBeWritten) {
  testApplication();
  MainWindow window;
  window.show();
  const QString reason = writeWindowPng(window, "/proc/orvan-cannot-write-here/window.png");
  EXPECT_FALSE(reason.isEmpty());
}

}  // namespace
}  // namespace orvan::ui
