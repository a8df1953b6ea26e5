// The viewport's surface on the offscreen platform: frames from shared memory on screen, and what
// mouse, keys, wheel and gestures become.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <QKeyEvent>
#include <QNativeGestureEvent>
#include <QPointingDevice>
#include <QTest>
#include <QWheelEvent>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "Platform/PosixSharedSurfaceLookup.h"
#include "QtApplicationEnvironment.h"
#include "Viewport/RuntimeViewportContainerView.h"
#include "Viewport/ViewportProtocol.h"
#include "orvan/wire/SharedSurfaceLayout.h"

namespace orvan::ui {
namespace {

using ::testing::ElementsAre;

// A frame surface as the viewport's producer makes one: a shared-memory object with the header,
// then rows of BGRA pixels, each row padded past its pixels.
class TestSurface {
 public:
  TestSurface(int width, int height, std::uint32_t leftBgra, std::uint32_t rightBgra)
      : width_(width), height_(height), rowBytes_(static_cast<std::size_t>(width) * 4 + 64) {
    std::random_device random;
    id_ = random();
    name_ = wire::sharedSurfaceName(id_);
    const int fd = ::shm_open(name_.c_str(), O_CREAT | O_EXCL | O_RDWR, 0600);
    EXPECT_GE(fd, 0);
    bytes_ = wire::kSharedSurfaceHeaderBytes + rowBytes_ * static_cast<std::size_t>(height);
    EXPECT_EQ(::ftruncate(fd, static_cast<off_t>(bytes_)), 0);
    mapping_ = ::mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ::close(fd);
    wire::SharedSurfaceHeader header;
    header.width = static_cast<std::uint32_t>(width);
    header.height = static_cast<std::uint32_t>(height);
    header.rowBytes = static_cast<std::uint32_t>(rowBytes_);
    header.ownerPid = static_cast<std::uint32_t>(::getpid());
    header.capacityBytes = static_cast<std::uint32_t>(rowBytes_ * height);
    std::memcpy(mapping_, &header, sizeof header);
    for (int row = 0; row < height; ++row) {
      auto* line = pixels() + static_cast<std::size_t>(row) * rowBytes_;
      for (int column = 0; column < width; ++column) {
        const std::uint32_t value = column < width / 2 ? leftBgra : rightBgra;
        std::memcpy(line + column * 4, &value, 4);
      }
      std::memset(line + width * 4, 0x7f, rowBytes_ - static_cast<std::size_t>(width) * 4);
    }
  }
  ~TestSurface() {
    ::munmap(mapping_, bytes_);
    ::shm_unlink(name_.c_str());
  }
  std::uint8_t* pixels() const {
    return static_cast<std::uint8_t*>(mapping_) + wire::kSharedSurfaceHeaderBytes;
  }
  ViewportFramePixels frame() const { return {pixels(), width_, height_, rowBytes_, nullptr}; }
  std::uint32_t id() const { return id_; }

 private:
  std::uint32_t id_ = 0;
  int width_;
  int height_;
  std::size_t rowBytes_;
  std::string name_;
  std::size_t bytes_ = 0;
  void* mapping_ = nullptr;
};

// Little-endian BGRA bytes read as one number: 0xAARRGGBB.
constexpr std::uint32_t kRed = 0xffff0000;
constexpr std::uint32_t kBlue = 0xff0000ff;

struct PointerCall {
  editor::PointerPhase phase;
  double x;
  double y;
  int button;
  unsigned modifiers;
  bool operator==(const PointerCall&) const = default;
};

class RuntimeViewportContainerViewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::testApplication();
    view_ = std::make_unique<RuntimeViewportContainerView>();
    view_->resize(200, 100);
    view_->input.pointer = [this](editor::PointerPhase phase, double x, double y, int button,
                                  unsigned modifiers) {
      pointers_.push_back({phase, x, y, button, modifiers});
    };
  }
  void showView() {
    view_->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(view_.get()));
  }

  std::unique_ptr<RuntimeViewportContainerView> view_;
  std::vector<PointerCall> pointers_;
};

// Each way of presenting shows the same picture. The OpenGL way needs a display (Xvfb will do);
// the offscreen platform makes no OpenGL context, so there it is skipped.
class FramePresentationTest
    : public RuntimeViewportContainerViewTest,
      public ::testing::WithParamInterface<RuntimeViewportContainerView::Presentation> {};

TEST_P(FramePresentationTest, AFrameFromSharedMemoryIsDrawnAndReportedCopiedThenShown) {
  view_ = std::make_unique<RuntimeViewportContainerView>(nullptr, GetParam());
  view_->resize(200, 100);
  if (GetParam() == RuntimeViewportContainerView::Presentation::opengl && !view_->usesOpenGL())
    GTEST_SKIP() << "no OpenGL context on this platform";
  showView();
  TestSurface surface(64, 32, kRed, kBlue);
  editor::PosixSharedSurfaceLookup surfaces;
  std::shared_ptr<const editor::SharedSurface> mapped = surfaces.lookup(surface.id());
  ASSERT_TRUE(mapped);
  bool completed = false;
  bool presented = false;
  editor::ViewportSurfaceView& port = *view_;
  ASSERT_TRUE(port.present(
      mapped, 1.0, [&] { presented = true; }, [&] { completed = true; }));
  EXPECT_FALSE(completed) << "the host hears of it after this call, on the main thread";
  ASSERT_TRUE(testing::processEventsUntil([&] { return completed && presented; }, 2000));

  // With OpenGL the texture is the view's own copy, so the producer may write again at once.
  // Painted, the picture is read from the surface itself, and the frame counts as copied only
  // after the paint.
  if (view_->usesOpenGL())
    std::memset(surface.pixels(), 0, 32 * (64 * 4 + 64));
  const QImage shown = view_->renderedImage();
  ASSERT_EQ(shown.size(), QSize(200, 100) * view_->devicePixelRatio());
  EXPECT_EQ(shown.pixel(20, 50), kRed);
  EXPECT_EQ(shown.pixel(180, 50), kBlue);
  EXPECT_EQ(view_->frameSize(), QSize(64, 32));

  view_->clearFrame();
  EXPECT_FALSE(view_->hasFrame());
  EXPECT_EQ(view_->renderedImage().pixel(20, 50), 0xff000000) << "a cleared view is black";
}

INSTANTIATE_TEST_SUITE_P(
    EachPath, FramePresentationTest,
    ::testing::Values(RuntimeViewportContainerView::Presentation::automatic,
                      RuntimeViewportContainerView::Presentation::opengl,
                      RuntimeViewportContainerView::Presentation::software),
    [](const ::testing::TestParamInfo<RuntimeViewportContainerView::Presentation>& info) {
      switch (info.param) {
        case RuntimeViewportContainerView::Presentation::automatic:
          return std::string("automatic");
        case RuntimeViewportContainerView::Presentation::opengl:
          return std::string("opengl");
        case RuntimeViewportContainerView::Presentation::software:
          return std::string("software");
      }
      return std::string("unknown");
    });

TEST_F(RuntimeViewportContainerViewTest, AFrameThatCannotBeShownIsRefusedWithoutCallbacks) {
  showView();
  TestSurface surface(8, 8, kRed, kRed);
  bool called = false;
  auto mark = [&] { called = true; };
  ViewportFramePixels empty = surface.frame();
  empty.width = 0;
  EXPECT_FALSE(view_->presentFrame(empty, mark, mark));
  ViewportFramePixels shortRows = surface.frame();
  shortRows.rowBytes = 8;
  EXPECT_FALSE(view_->presentFrame(shortRows, mark, mark));
  EXPECT_FALSE(view_->presentFrame({}, mark, mark));
  QCoreApplication::processEvents();
  EXPECT_FALSE(called);
  EXPECT_FALSE(view_->hasFrame());
}

TEST_F(RuntimeViewportContainerViewTest, AReasonShowsOverAnEmptyViewport) {
  showView();
  view_->setReasonText("Viewport starting\u2026");
  EXPECT_EQ(view_->reasonText(), "Viewport starting\u2026");
  const QImage shown = view_->renderedImage();
  bool hasText = false;
  for (int x = 0; x < shown.width() && !hasText; ++x)
    hasText = shown.pixel(x, shown.height() / 2) != 0xff000000;
  EXPECT_TRUE(hasText) << "the reason is drawn over the black";
  view_->setReasonText("");
  EXPECT_TRUE(view_->reasonText().isEmpty());
}

TEST_F(RuntimeViewportContainerViewTest, MouseButtonsAndModifiersBecomePointerCalls) {
  showView();
  QTest::mousePress(view_.get(), Qt::LeftButton, Qt::ShiftModifier, QPoint(10, 20));
  QTest::mouseMove(view_.get(), QPoint(30, 40));
  QTest::mouseRelease(view_.get(), Qt::LeftButton, Qt::ShiftModifier, QPoint(30, 40));
  QTest::mousePress(view_.get(), Qt::RightButton, Qt::ControlModifier | Qt::AltModifier,
                    QPoint(5, 6));
  QTest::mouseRelease(view_.get(), Qt::RightButton, Qt::MetaModifier, QPoint(5, 6));
  QTest::mousePress(view_.get(), Qt::MiddleButton, Qt::NoModifier, QPoint(1, 2));
  QTest::mouseRelease(view_.get(), Qt::MiddleButton, Qt::NoModifier, QPoint(1, 2));
  using P = editor::PointerPhase;
  EXPECT_THAT(pointers_,
              ElementsAre(PointerCall{P::down, 10, 20, 0, 1}, PointerCall{P::move, 30, 40, 0, 0},
                          PointerCall{P::up, 30, 40, 0, 1}, PointerCall{P::down, 5, 6, 2, 2 | 4},
                          PointerCall{P::up, 5, 6, 2, 8}, PointerCall{P::down, 1, 2, 1, 0},
                          PointerCall{P::up, 1, 2, 1, 0}));
  EXPECT_TRUE(view_->hasFocus()) << "a press takes the keyboard";

  // The lines the host writes for them, with the view's size and scale.
  std::vector<std::string> lines;
  for (const PointerCall& call : pointers_) {
    const editor::ViewportPixelPoint point = editor::viewportPixelPoint(
        call.x, call.y, view_->widthPoints(), view_->heightPoints(), *view_->backingScale());
    lines.push_back(editor::encodePointerLine(call.phase, point, call.button, call.modifiers));
  }
  EXPECT_THAT(lines, ElementsAre("down|10.0|80.0|0|1", "move|30.0|60.0|0|0", "up|30.0|60.0|0|1",
                                 "down|5.0|94.0|2|6", "up|5.0|94.0|2|8", "down|1.0|98.0|1|0",
                                 "up|1.0|98.0|1|0"));

  pointers_.clear();
  QMouseEvent rightDrag(QEvent::MouseMove, QPointF(7, 8), QPointF(7, 8), Qt::NoButton,
                        Qt::RightButton, Qt::AltModifier);
  QCoreApplication::sendEvent(view_.get(), &rightDrag);
  QMouseEvent otherDrag(QEvent::MouseMove, QPointF(9, 9), QPointF(9, 9), Qt::NoButton,
                        Qt::MiddleButton, Qt::NoModifier);
  QCoreApplication::sendEvent(view_.get(), &otherDrag);
  EXPECT_THAT(pointers_,
              ElementsAre(PointerCall{P::move, 7, 8, 2, 4}, PointerCall{P::move, 9, 9, 1, 0}));
}

TEST_F(RuntimeViewportContainerViewTest, KeysGoWithTheirUnmodifiedCharacters) {
  struct KeyCall {
    bool down;
    std::string characters;
    unsigned modifiers;
    bool operator==(const KeyCall&) const = default;
  };
  std::vector<KeyCall> keys;
  view_->input.key = [&](bool down, std::uint16_t, std::string characters, unsigned modifiers) {
    if (!characters.empty())  // the modifier keys themselves go too, with no characters
      keys.push_back({down, std::move(characters), modifiers});
  };
  showView();
  view_->setFocus();
  QTest::keyPress(view_.get(), Qt::Key_W, Qt::ShiftModifier);
  QTest::keyRelease(view_.get(), Qt::Key_W, Qt::ShiftModifier);
  QTest::keyPress(view_.get(), Qt::Key_5, Qt::ControlModifier);
  QTest::keyClick(view_.get(), Qt::Key_Space);
  EXPECT_THAT(keys,
              ElementsAre(KeyCall{true, "w", 1}, KeyCall{false, "w", 1}, KeyCall{true, "5", 2},
                          KeyCall{true, " ", 0}, KeyCall{false, " ", 0}));
}

TEST_F(RuntimeViewportContainerViewTest, WheelAndGesturesMoveTheCameraOnlyWhenItTakesThem) {
  struct GestureCall {
    std::string kind;
    double dx;
    double dy;
    bool operator==(const GestureCall&) const = default;
  };
  std::vector<GestureCall> gestures;
  bool cameraTakesGestures = true;
  view_->input.cameraGesture = [&](const std::string& kind, double dx, double dy) {
    gestures.push_back({kind, dx, dy});
    return cameraTakesGestures;
  };
  showView();
  const QPointF at(50, 50);
  QWheelEvent notch(at, at, QPoint(), QPoint(0, 120), Qt::NoButton, Qt::NoModifier,
                    Qt::NoScrollPhase, false);
  QCoreApplication::sendEvent(view_.get(), &notch);
  EXPECT_TRUE(notch.isAccepted());
  QWheelEvent trackpad(at, at, QPoint(3, -4), QPoint(0, -30), Qt::NoButton, Qt::NoModifier,
                       Qt::ScrollUpdate, false);
  QCoreApplication::sendEvent(view_.get(), &trackpad);
  QNativeGestureEvent pinch(Qt::ZoomNativeGesture, QPointingDevice::primaryPointingDevice(), 2, at,
                            at, at, 0.25, QPointF(), 0);
  QCoreApplication::sendEvent(view_.get(), &pinch);
  QNativeGestureEvent twist(Qt::RotateNativeGesture, QPointingDevice::primaryPointingDevice(), 2,
                            at, at, at, 15.0, QPointF(), 0);
  QCoreApplication::sendEvent(view_.get(), &twist);
  EXPECT_THAT(gestures, ElementsAre(GestureCall{"zoom", 0, -18}, GestureCall{"pan", 3, -4},
                                    GestureCall{"zoom", 0, -45}, GestureCall{"turntable", 15, 0}));

  cameraTakesGestures = false;
  QWheelEvent ignored(at, at, QPoint(), QPoint(0, -120), Qt::NoButton, Qt::NoModifier,
                      Qt::NoScrollPhase, false);
  QCoreApplication::sendEvent(view_.get(), &ignored);
  EXPECT_FALSE(ignored.isAccepted()) << "a game camera leaves the wheel to the panes around";
  EXPECT_EQ(gestures.back(), (GestureCall{"zoom", 0, 18}));
}

TEST_F(RuntimeViewportContainerViewTest, SizeAndVisibilityAreReported) {
  int sizes = 0;
  int windows = 0;
  view_->input.sizeChanged = [&] { ++sizes; };
  view_->input.windowChanged = [&] { ++windows; };
  showView();
  EXPECT_EQ(windows, 1);
  const int before = sizes;
  view_->resize(320, 240);
  EXPECT_GT(sizes, before);
  view_->hide();
  EXPECT_EQ(windows, 2);
}

}  // namespace
}  // namespace orvan::ui
