#pragma once

#include <QImage>
#include <QWidget>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Viewport/RuntimeViewportHostView.h"

class QLabel;

namespace orvan::ui {

class ViewportGlSurface;

// One frame of the viewport as it lies in shared memory: BGRA8 rows, top row first. `owner` keeps
// the mapping alive for as long as the view reads it.
struct ViewportFramePixels {
  const std::uint8_t* pixels = nullptr;
  int width = 0;
  int height = 0;
  std::size_t rowBytes = 0;
  std::shared_ptr<const void> owner;
};

// What the view's input becomes: calls on the viewport host, in view points with the origin at
// the top left. Buttons: 0 left, 1 other, 2 right. Modifiers: 1 shift, 2 control, 4 option (Alt),
// 8 command (Meta).
struct ViewportInputHandlers {
  std::function<void(editor::PointerPhase, double x, double y, int button, unsigned modifiers)>
      pointer = [](editor::PointerPhase, double, double, int, unsigned) {};
  std::function<void(bool down, std::uint16_t keyCode, std::string characters, unsigned modifiers)>
      key = [](bool, std::uint16_t, std::string, unsigned) {};
  // "pan", "zoom", "turntable". False: the camera takes no gestures now and the event goes on up.
  std::function<bool(const std::string& kind, double dx, double dy)> cameraGesture =
      [](const std::string&, double, double) { return false; };
  std::function<void()> sizeChanged = [] {};
  // Shown or hidden, which is what having a window means for a widget.
  std::function<void()> windowChanged = [] {};
};

// Modifier bits of the viewport's lines.
unsigned viewportModifierBits(Qt::KeyboardModifiers modifiers);
// 0 left, 2 right, 1 any other.
int viewportButtonNumber(Qt::MouseButton button);
// The button of a drag: left, right, other, or 0 for a plain move.
int viewportDragButtonNumber(Qt::MouseButtons buttons);
// A mouse wheel has no pinch on this platform: its notches zoom, as a pinch of a tenth per notch
// would (dy = -180 x magnification).
double wheelZoomDelta(int angleDeltaY);

// The surface the viewport's frames are shown on. With OpenGL each frame is uploaded once into a
// texture (the one copy between shared memory and the screen) and drawn as a quad over the whole
// view; where no OpenGL context can be made (the offscreen platform), or where OpenGL is itself a
// software rasterizer, the frame is copied into an image that is painted: on such a machine the
// window's OpenGL composition costs far more than the paint (see RuntimeViewportPaneBenchmark).
// Over an empty viewport a short reason says why it is empty. It is the surface the viewport host
// presents on.
class RuntimeViewportContainerView : public QWidget, public editor::ViewportSurfaceView {
  Q_OBJECT
 public:
  // automatic: OpenGL on a hardware renderer, else the image; opengl: OpenGL whenever a context
  // can be made; software: always the image.
  enum class Presentation { automatic, opengl, software };
  explicit RuntimeViewportContainerView(QWidget* parent = nullptr,
                                        Presentation presentation = Presentation::automatic);
  ~RuntimeViewportContainerView() override;

  ViewportInputHandlers input;

  // Shows a frame. `completed` runs on the main thread once the pixels were copied out of shared
  // memory, `presented` once the frame reached the screen. False: cannot show now (not yet
  // shown, no surface), nothing was copied and neither callback will run.
  bool presentFrame(const ViewportFramePixels& frame, std::function<void()> presented,
                    std::function<void()> completed);
  // Black, until the next frame.
  void clearFrame();
  // The text over an empty viewport; empty hides it.
  void setReasonText(const QString& text);
  QString reasonText() const;

  bool usesOpenGL() const { return glSurface_ != nullptr; }
  bool hasFrame() const { return hasFrame_; }
  QSize frameSize() const { return frameSize_; }
  // What the screen shows now, for tests and screenshots.
  QImage renderedImage();

  // ---- The host's view of it
  // Its window is shown.
  bool hasWindow() const override;
  bool isVisible() const override { return QWidget::isVisible(); }
  double widthPoints() const override { return width(); }
  double heightPoints() const override { return height(); }
  std::optional<double> backingScale() const override { return devicePixelRatioF(); }
  // Windows here resize without a live-resize phase; each size is a resize of its own.
  bool inLiveResize() const override { return false; }
  std::optional<double> screenFramesPerSecond() const override;
  std::optional<std::string> screenIdentifier() const override;
  bool present(std::shared_ptr<const editor::SharedSurface> surface, double scale,
               std::function<void()> presented, std::function<void()> completed) override;
  void clear() override { clearFrame(); }

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void keyReleaseEvent(QKeyEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  bool event(QEvent* event) override;

 private:
  void sendKey(QKeyEvent* event, bool down);
  void firePresented();

  ViewportGlSurface* glSurface_ = nullptr;
  QLabel* reason_ = nullptr;
  // The software path's copy of the last frame.
  QImage image_;
  std::shared_ptr<const void> imageOwner_;  // keeps the surface the image reads mapped
  bool hasFrame_ = false;
  QSize frameSize_;
  // Frames shown by the software path that wait for the next paint.
  std::vector<std::function<void()>> awaitingPaint_;
  std::vector<std::function<void()>> awaitingCopy_;
};

}  // namespace orvan::ui
