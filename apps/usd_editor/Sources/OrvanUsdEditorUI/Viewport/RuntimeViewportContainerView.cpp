#include "Viewport/RuntimeViewportContainerView.h"

#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QNativeGestureEvent>
#include <QOffscreenSurface>
#include <QOpenGLBuffer>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>
#include <QOpenGLWidget>
#include <QPainter>
#include <QPointer>
#include <QScreen>
#include <QTimer>
#include <QWheelEvent>

#include <cmath>
#include <cstring>
#include <utility>

#include <spdlog/spdlog.h>

namespace orvan::ui {

namespace {

// Runs `callback` on the main thread after the current event, unless `context` is gone by then.
void postToMain(QObject* context, std::function<void()> callback) {
  if (callback)
    QTimer::singleShot(0, context, std::move(callback));
}

// Whether frames go through OpenGL, and the renderer's name when a context could be made.
struct OpenGLProbe {
  bool context = false;
  std::string renderer;
  bool softwareRenderer() const {
    const QString name = QString::fromStdString(renderer).toLower();
    return name.contains("llvmpipe") || name.contains("softpipe") || name.contains("software");
  }
};

OpenGLProbe probeOpenGL() {
  OpenGLProbe probe;
  QOpenGLContext context;
  if (!context.create())
    return probe;
  probe.context = true;
  QOffscreenSurface surface;
  surface.setFormat(context.format());
  surface.create();
  if (context.makeCurrent(&surface)) {
    if (const auto* name = context.functions()->glGetString(GL_RENDERER))
      probe.renderer = reinterpret_cast<const char*>(name);
    context.doneCurrent();
  }
  return probe;
}

bool usesOpenGLFor(RuntimeViewportContainerView::Presentation presentation) {
  using Presentation = RuntimeViewportContainerView::Presentation;
  if (presentation == Presentation::software)
    return false;
  const OpenGLProbe probe = probeOpenGL();
  if (!probe.context) {
    spdlog::info("OrvanUsdEditor: viewport frames are painted without OpenGL (no context)");
    return false;
  }
  if (presentation == Presentation::automatic && probe.softwareRenderer()) {
    spdlog::info("OrvanUsdEditor: viewport frames are painted without OpenGL (renderer {})",
                 probe.renderer);
    return false;
  }
  return true;
}

// Shared memory rows, top first, become texture rows 0 up; the quad puts row 0 at the top.
constexpr float kQuad[] = {
    // x, y, s, t
    -1.f, 1.f, 0.f, 0.f, 1.f, 1.f, 1.f, 0.f, -1.f, -1.f, 0.f, 1.f, 1.f, -1.f, 1.f, 1.f,
};

constexpr char kVertexShader[] = R"(
attribute highp vec2 position;
attribute highp vec2 texcoord;
varying highp vec2 coordinate;
void main() {
  coordinate = texcoord;
  gl_Position = vec4(position, 0.0, 1.0);
}
)";

// Without BGRA uploads (OpenGL ES) the bytes arrive as RGBA and the shader swaps them back.
constexpr char kFragmentShader[] = R"(
varying highp vec2 coordinate;
uniform sampler2D frame;
uniform lowp float swapRedAndBlue;
void main() {
  lowp vec4 texel = texture2D(frame, coordinate);
  gl_FragColor = vec4(mix(texel.rgb, texel.bgr, swapRedAndBlue), 1.0);
}
)";

}  // namespace

// The OpenGL path: a texture the size of the frame, filled by one upload per frame and drawn over
// the whole view.
class ViewportGlSurface final : public QOpenGLWidget, protected QOpenGLFunctions {
 public:
  explicit ViewportGlSurface(QWidget* parent) : QOpenGLWidget(parent) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    connect(this, &QOpenGLWidget::frameSwapped, this, [this] {
      std::vector<std::function<void()>> waiting = std::exchange(awaitingSwap_, {});
      for (std::function<void()>& presented : waiting)
        presented();
    });
  }
  ~ViewportGlSurface() override { releaseResources(); }

  bool isReady() const { return ready_; }
  bool hasFrame() const { return hasFrame_; }

  bool upload(const ViewportFramePixels& frame) {
    if (!ready_)
      return false;
    makeCurrent();
    if (!context() || !context()->isValid())
      return false;
    glBindTexture(GL_TEXTURE_2D, texture_);
    if (frame.width != textureWidth_ || frame.height != textureHeight_) {
      glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, frame.width, frame.height, 0, uploadFormat_,
                   GL_UNSIGNED_BYTE, nullptr);
      textureWidth_ = frame.width;
      textureHeight_ = frame.height;
    }
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    const std::size_t tightRowBytes = static_cast<std::size_t>(frame.width) * 4;
    if (frame.rowBytes == tightRowBytes) {
      glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, frame.width, frame.height, uploadFormat_,
                      GL_UNSIGNED_BYTE, frame.pixels);
    } else if (rowLengthUnpack_) {
      glPixelStorei(GL_UNPACK_ROW_LENGTH, static_cast<GLint>(frame.rowBytes / 4));
      glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, frame.width, frame.height, uploadFormat_,
                      GL_UNSIGNED_BYTE, frame.pixels);
      glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    } else {
      for (int row = 0; row < frame.height; ++row) {
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, row, frame.width, 1, uploadFormat_, GL_UNSIGNED_BYTE,
                        frame.pixels + static_cast<std::size_t>(row) * frame.rowBytes);
      }
    }
    hasFrame_ = true;
    doneCurrent();
    update();
    return true;
  }

  void clearFrame() {
    hasFrame_ = false;
    update();
  }

  void awaitSwap(std::function<void()> presented) {
    if (presented)
      awaitingSwap_.push_back(std::move(presented));
  }

 protected:
  void initializeGL() override {
    initializeOpenGLFunctions();
    QOpenGLContext* current = context();
    const bool embedded = current->isOpenGLES();
    uploadFormat_ = embedded ? GL_RGBA : GL_BGRA;
    swapRedAndBlue_ = embedded ? 1.f : 0.f;
    rowLengthUnpack_ = !embedded || current->format().majorVersion() >= 3;
    connect(
        current, &QOpenGLContext::aboutToBeDestroyed, this, [this] { releaseResources(); },
        Qt::DirectConnection);

    program_ = std::make_unique<QOpenGLShaderProgram>();
    const bool built =
        program_->addShaderFromSourceCode(QOpenGLShader::Vertex, kVertexShader) &&
        program_->addShaderFromSourceCode(QOpenGLShader::Fragment, kFragmentShader) &&
        program_->link();
    if (!built) {
      spdlog::warn("OrvanUsdEditor: viewport shader failed: {}", program_->log().toStdString());
      program_.reset();
      return;
    }
    quad_.create();
    quad_.bind();
    quad_.allocate(kQuad, sizeof kQuad);
    quad_.release();
    glGenTextures(1, &texture_);
    glBindTexture(GL_TEXTURE_2D, texture_);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    textureWidth_ = textureHeight_ = 0;
    ready_ = true;
  }

  void paintGL() override {
    glClearColor(0.f, 0.f, 0.f, 1.f);
    glClear(GL_COLOR_BUFFER_BIT);
    if (!hasFrame_ || !program_)
      return;
    program_->bind();
    quad_.bind();
    const int position = program_->attributeLocation("position");
    const int texcoord = program_->attributeLocation("texcoord");
    program_->enableAttributeArray(position);
    program_->enableAttributeArray(texcoord);
    program_->setAttributeBuffer(position, GL_FLOAT, 0, 2, 4 * sizeof(float));
    program_->setAttributeBuffer(texcoord, GL_FLOAT, 2 * sizeof(float), 2, 4 * sizeof(float));
    program_->setUniformValue("frame", 0);
    program_->setUniformValue("swapRedAndBlue", swapRedAndBlue_);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, texture_);
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    program_->disableAttributeArray(position);
    program_->disableAttributeArray(texcoord);
    quad_.release();
    program_->release();
  }

 private:
  void releaseResources() {
    if (!ready_)
      return;
    ready_ = false;
    makeCurrent();
    glDeleteTextures(1, &texture_);
    texture_ = 0;
    quad_.destroy();
    program_.reset();
    doneCurrent();
  }

  bool ready_ = false;
  bool hasFrame_ = false;
  GLenum uploadFormat_ = GL_RGBA;
  GLfloat swapRedAndBlue_ = 0.f;
  bool rowLengthUnpack_ = false;
  GLuint texture_ = 0;
  int textureWidth_ = 0;
  int textureHeight_ = 0;
  QOpenGLBuffer quad_{QOpenGLBuffer::VertexBuffer};
  std::unique_ptr<QOpenGLShaderProgram> program_;
  std::vector<std::function<void()>> awaitingSwap_;
};

// ---- Input words

unsigned viewportModifierBits(Qt::KeyboardModifiers modifiers) {
  unsigned bits = 0;
  if (modifiers & Qt::ShiftModifier)
    bits |= 1;
  if (modifiers & Qt::ControlModifier)
    bits |= 2;
  if (modifiers & Qt::AltModifier)
    bits |= 4;
  if (modifiers & Qt::MetaModifier)
    bits |= 8;
  return bits;
}

int viewportButtonNumber(Qt::MouseButton button) {
  if (button == Qt::LeftButton)
    return 0;
  if (button == Qt::RightButton)
    return 2;
  return 1;
}

int viewportDragButtonNumber(Qt::MouseButtons buttons) {
  if (buttons & Qt::LeftButton)
    return 0;
  if (buttons & Qt::RightButton)
    return 2;
  if (buttons != Qt::NoButton)
    return 1;
  return 0;
}

double wheelZoomDelta(int angleDeltaY) {
  // 120 eighths of a degree per notch; a notch counts as a magnification of 0.1.
  const double magnification = angleDeltaY / 1200.0;
  return -180.0 * magnification;
}

// ---- The view

RuntimeViewportContainerView::RuntimeViewportContainerView(QWidget* parent,
                                                           Presentation presentation)
    : QWidget(parent) {
  setObjectName("RuntimeViewport");
  setAttribute(Qt::WA_OpaquePaintEvent);
  setFocusPolicy(Qt::StrongFocus);
  setMouseTracking(true);
  setMinimumSize(1, 1);
  if (usesOpenGLFor(presentation))
    glSurface_ = new ViewportGlSurface(this);
  reason_ = new QLabel(this);
  reason_->setObjectName("ViewportReason");
  reason_->setAlignment(Qt::AlignCenter);
  reason_->setWordWrap(true);
  reason_->setAttribute(Qt::WA_TransparentForMouseEvents);
  reason_->setStyleSheet("color: #9aa0a6; background: transparent;");
  reason_->hide();
}

RuntimeViewportContainerView::~RuntimeViewportContainerView() = default;

bool RuntimeViewportContainerView::presentFrame(const ViewportFramePixels& frame,
                                                std::function<void()> presented,
                                                std::function<void()> completed) {
  if (!frame.pixels || frame.width < 1 || frame.height < 1 ||
      frame.rowBytes < static_cast<std::size_t>(frame.width) * 4) {
    return false;
  }
  if (glSurface_) {
    if (!glSurface_->upload(frame))
      return false;
    glSurface_->awaitSwap(std::move(presented));
  } else {
    // No copy here: the image reads the shared surface, which stays mapped while it is held.
    // Painting it is the one copy, so the frame counts as copied out (and may be acknowledged)
    // only once it has been painted.
    image_ = QImage(frame.pixels, frame.width, frame.height, static_cast<qsizetype>(frame.rowBytes),
                    QImage::Format_RGB32);
    imageOwner_ = frame.owner;
    if (presented)
      awaitingPaint_.push_back(std::move(presented));
    if (completed)
      awaitingCopy_.push_back(std::move(completed));
    update();
    hasFrame_ = true;
    frameSize_ = QSize(frame.width, frame.height);
    return true;
  }
  hasFrame_ = true;
  frameSize_ = QSize(frame.width, frame.height);
  postToMain(this, std::move(completed));
  return true;
}

void RuntimeViewportContainerView::clearFrame() {
  hasFrame_ = false;
  frameSize_ = QSize();
  if (glSurface_)
    glSurface_->clearFrame();
  image_ = QImage();
  imageOwner_.reset();
  update();
}

void RuntimeViewportContainerView::setReasonText(const QString& text) {
  reason_->setText(text);
  reason_->setVisible(!text.isEmpty());
  reason_->raise();
}

QString RuntimeViewportContainerView::reasonText() const {
  return reason_->isHidden() ? QString() : reason_->text();
}

QImage RuntimeViewportContainerView::renderedImage() {
  return grab().toImage();
}

bool RuntimeViewportContainerView::hasWindow() const {
  const QWidget* top = window();
  return top && top->isVisible();
}

bool RuntimeViewportContainerView::present(std::shared_ptr<const editor::SharedSurface> surface,
                                           double scale, std::function<void()> presented,
                                           std::function<void()> completed) {
  // The frame fills the view whatever its scale: its pixels were rendered for this view's size.
  (void)scale;
  if (!surface)
    return false;
  const ViewportFramePixels frame{surface->pixels, static_cast<int>(surface->width),
                                  static_cast<int>(surface->height), surface->rowBytes, surface};
  return presentFrame(frame, std::move(presented), std::move(completed));
}

std::optional<double> RuntimeViewportContainerView::screenFramesPerSecond() const {
  const QScreen* current = screen();
  if (!current || current->refreshRate() <= 0)
    return std::nullopt;
  return current->refreshRate();
}

std::optional<std::string> RuntimeViewportContainerView::screenIdentifier() const {
  const QScreen* current = screen();
  if (!current || current->name().isEmpty())
    return std::nullopt;
  return current->name().toStdString();
}

void RuntimeViewportContainerView::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  if (glSurface_) {
    painter.fillRect(rect(), Qt::black);  // under the surface while it starts
    return;
  }
  if (hasFrame_ && !image_.isNull()) {
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(rect(), image_);
  } else {
    painter.fillRect(rect(), Qt::black);
  }
  if (!awaitingCopy_.empty()) {
    std::vector<std::function<void()>> copied = std::exchange(awaitingCopy_, {});
    postToMain(this, [copied = std::move(copied)] {
      for (const std::function<void()>& completed : copied)
        completed();
    });
  }
  if (!awaitingPaint_.empty())
    postToMain(this, [this] { firePresented(); });
}

void RuntimeViewportContainerView::firePresented() {
  std::vector<std::function<void()>> waiting = std::exchange(awaitingPaint_, {});
  for (std::function<void()>& presented : waiting)
    presented();
}

void RuntimeViewportContainerView::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  if (glSurface_)
    glSurface_->setGeometry(rect());
  reason_->setGeometry(rect().adjusted(16, 16, -16, -16));
  input.sizeChanged();
}

void RuntimeViewportContainerView::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  input.windowChanged();
}

void RuntimeViewportContainerView::hideEvent(QHideEvent* event) {
  QWidget::hideEvent(event);
  input.windowChanged();
}

void RuntimeViewportContainerView::mousePressEvent(QMouseEvent* event) {
  setFocus(Qt::MouseFocusReason);
  const QPointF at = event->position();
  input.pointer(editor::PointerPhase::down, at.x(), at.y(), viewportButtonNumber(event->button()),
                viewportModifierBits(event->modifiers()));
  event->accept();
}

void RuntimeViewportContainerView::mouseMoveEvent(QMouseEvent* event) {
  const QPointF at = event->position();
  input.pointer(editor::PointerPhase::move, at.x(), at.y(),
                viewportDragButtonNumber(event->buttons()),
                viewportModifierBits(event->modifiers()));
  event->accept();
}

void RuntimeViewportContainerView::mouseReleaseEvent(QMouseEvent* event) {
  const QPointF at = event->position();
  input.pointer(editor::PointerPhase::up, at.x(), at.y(), viewportButtonNumber(event->button()),
                viewportModifierBits(event->modifiers()));
  event->accept();
}

void RuntimeViewportContainerView::sendKey(QKeyEvent* event, bool down) {
  // The characters as without modifiers: a letter stays lower case under Shift or Control.
  std::string characters;
  const int key = event->key();
  if (key >= Qt::Key_A && key <= Qt::Key_Z) {
    characters = std::string(1, static_cast<char>('a' + (key - Qt::Key_A)));
  } else if (key >= Qt::Key_0 && key <= Qt::Key_9) {
    characters = std::string(1, static_cast<char>('0' + (key - Qt::Key_0)));
  } else {
    characters = event->text().toStdString();
  }
  // The platform's key symbol; the usual ones fit the line's 16 bits.
  const auto keyCode = static_cast<std::uint16_t>(event->nativeVirtualKey() & 0xFFFF);
  input.key(down, keyCode, std::move(characters), viewportModifierBits(event->modifiers()));
  event->accept();
}

void RuntimeViewportContainerView::keyPressEvent(QKeyEvent* event) {
  sendKey(event, true);
}

void RuntimeViewportContainerView::keyReleaseEvent(QKeyEvent* event) {
  sendKey(event, false);
}

void RuntimeViewportContainerView::wheelEvent(QWheelEvent* event) {
  // A trackpad scrolls precisely and pans; a mouse wheel zooms.
  const QPoint pixels = event->pixelDelta();
  const bool handled =
      !pixels.isNull() ? input.cameraGesture("pan", pixels.x(), pixels.y())
                       : input.cameraGesture("zoom", 0, wheelZoomDelta(event->angleDelta().y()));
  event->setAccepted(handled);
}

bool RuntimeViewportContainerView::event(QEvent* event) {
  if (event->type() != QEvent::NativeGesture)
    return QWidget::event(event);
  auto* gesture = static_cast<QNativeGestureEvent*>(event);
  bool handled = false;
  switch (gesture->gestureType()) {
    case Qt::ZoomNativeGesture:
      handled = input.cameraGesture("zoom", 0, -180.0 * gesture->value());
      break;
    case Qt::RotateNativeGesture:
      handled = input.cameraGesture("turntable", gesture->value(), 0);
      break;
    default:
      return QWidget::event(event);
  }
  event->setAccepted(handled);
  return handled;
}

}  // namespace orvan::ui
