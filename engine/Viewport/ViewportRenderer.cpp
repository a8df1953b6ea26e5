#include "Viewport/ViewportRenderer.h"

#include <epoxy/egl.h>
#include <epoxy/gl.h>

#include <algorithm>
#include <cstring>

#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/type_ptr.hpp>

namespace orvan::engine {
namespace {

constexpr int kMaxLights = 8;

constexpr const char* kVertexShader = R"(#version 330 core
layout(location = 0) in vec3 position;
layout(location = 1) in vec3 normal;
layout(location = 2) in vec3 color;
uniform mat4 viewProjection;
out vec3 worldPosition;
out vec3 worldNormal;
out vec3 baseColor;
void main() {
  worldPosition = position;
  worldNormal = normal;
  baseColor = color;
  gl_Position = viewProjection * vec4(position, 1.0);
}
)";

// Lambert shading, lit from both sides: the normal is turned towards the eye, so open shapes
// (planes, meshes with either winding) read the same from both sides.
constexpr const char* kFragmentShader = R"(#version 330 core
in vec3 worldPosition;
in vec3 worldNormal;
in vec3 baseColor;
uniform vec3 ambient;
uniform vec3 eye;
uniform int lightCount;
uniform vec3 lightDirection[8];
uniform vec3 lightRadiance[8];
out vec4 fragment;
void main() {
  vec3 n = normalize(worldNormal);
  if (dot(n, eye - worldPosition) < 0.0) n = -n;
  vec3 light = ambient;
  for (int i = 0; i < lightCount; ++i) {
    light += lightRadiance[i] * max(dot(n, -lightDirection[i]), 0.0);
  }
  fragment = vec4(clamp(baseColor * light, 0.0, 1.0), 1.0);
}
)";

std::string eglErrorText(const char* what) {
  char code[16];
  std::snprintf(code, sizeof code, "0x%04x", static_cast<unsigned>(eglGetError()));
  return std::string(what) + " failed (EGL error " + code + ")";
}

// The scene's triangles in world space with their colours, cut into buffers of at most this many
// vertices: a few draw calls however many prims there are.
constexpr std::size_t kBatchVertices = 1u << 20;
constexpr std::size_t kVertexFloats = 9;  // position, normal, colour

struct GpuBatch {
  GLuint vertexArray = 0;
  GLuint vertexBuffer = 0;
  GLuint indexBuffer = 0;
  GLsizei indexCount = 0;
};

struct BatchData {
  std::vector<float> vertices;
  std::vector<std::uint32_t> indices;

  std::size_t vertexCount() const { return vertices.size() / kVertexFloats; }
};

void appendObject(BatchData& batch, const SceneObject& object) {
  const TriangleMesh& mesh = object.mesh;
  const auto first = static_cast<std::uint32_t>(batch.vertexCount());
  const glm::mat3 normalMatrix = glm::transpose(glm::inverse(glm::mat3(object.world)));
  for (std::size_t i = 0; i < mesh.positions.size(); ++i) {
    const glm::vec3 p = glm::vec3(object.world * glm::vec4(mesh.positions[i], 1.0f));
    const glm::vec3 n =
        normalMatrix * (i < mesh.normals.size() ? mesh.normals[i] : glm::vec3(0, 1, 0));
    const glm::vec3& c = object.color;
    batch.vertices.insert(batch.vertices.end(), {p.x, p.y, p.z, n.x, n.y, n.z, c.r, c.g, c.b});
  }
  for (const std::uint32_t index : mesh.indices) {
    batch.indices.push_back(first + index);
  }
}

GLuint compileShader(GLenum stage, const char* source, std::string& error) {
  const GLuint shader = glCreateShader(stage);
  glShaderSource(shader, 1, &source, nullptr);
  glCompileShader(shader);
  GLint ok = GL_FALSE;
  glGetShaderiv(shader, GL_COMPILE_STATUS, &ok);
  if (ok == GL_TRUE) {
    return shader;
  }
  char log[1024] = {};
  glGetShaderInfoLog(shader, sizeof log, nullptr, log);
  error = std::string("a shader did not compile: ") + log;
  glDeleteShader(shader);
  return 0;
}

GLuint linkProgram(std::string& error) {
  const GLuint vertex = compileShader(GL_VERTEX_SHADER, kVertexShader, error);
  const GLuint fragment =
      vertex != 0 ? compileShader(GL_FRAGMENT_SHADER, kFragmentShader, error) : 0;
  if (fragment == 0) {
    glDeleteShader(vertex);
    return 0;
  }
  const GLuint program = glCreateProgram();
  glAttachShader(program, vertex);
  glAttachShader(program, fragment);
  glLinkProgram(program);
  glDeleteShader(vertex);
  glDeleteShader(fragment);
  GLint ok = GL_FALSE;
  glGetProgramiv(program, GL_LINK_STATUS, &ok);
  if (ok == GL_TRUE) {
    return program;
  }
  char log[1024] = {};
  glGetProgramInfoLog(program, sizeof log, nullptr, log);
  error = std::string("the shader program did not link: ") + log;
  glDeleteProgram(program);
  return 0;
}

}  // namespace

struct ViewportRenderer::Impl {
  EGLDisplay display = EGL_NO_DISPLAY;
  EGLContext context = EGL_NO_CONTEXT;
  EGLSurface surface = EGL_NO_SURFACE;  // a 1×1 pbuffer when surfaceless contexts are missing
  GLuint program = 0;
  GLuint framebuffer = 0;
  GLuint colorBuffer = 0;
  GLuint depthBuffer = 0;
  int framebufferWidth = 0;
  int framebufferHeight = 0;
  std::vector<GpuBatch> batches;
  std::vector<SceneLight> lights;
  glm::vec3 background{0.0f};
  glm::vec3 ambient{0.0f};

  ~Impl() {
    if (context != EGL_NO_CONTEXT) {
      eglMakeCurrent(display, surface, surface, context);
      releaseBatches();
      glDeleteRenderbuffers(1, &colorBuffer);
      glDeleteRenderbuffers(1, &depthBuffer);
      glDeleteFramebuffers(1, &framebuffer);
      glDeleteProgram(program);
      eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
      eglDestroyContext(display, context);
    }
    if (surface != EGL_NO_SURFACE) {
      eglDestroySurface(display, surface);
    }
    // The display stays initialised: it is one per process, shared by every renderer, and
    // terminating it unloads the driver under whatever it still holds.
    eglReleaseThread();
  }

  void releaseBatches() {
    for (GpuBatch& batch : batches) {
      glDeleteBuffers(1, &batch.vertexBuffer);
      glDeleteBuffers(1, &batch.indexBuffer);
      glDeleteVertexArrays(1, &batch.vertexArray);
    }
    batches.clear();
  }

  std::string open() {
    if (epoxy_has_egl_extension(EGL_NO_DISPLAY, "EGL_MESA_platform_surfaceless")) {
      display =
          eglGetPlatformDisplayEXT(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    }
    if (display == EGL_NO_DISPLAY) {
      display = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    }
    if (display == EGL_NO_DISPLAY) {
      return "no EGL display is available (is Mesa's EGL installed?)";
    }
    EGLint major = 0;
    EGLint minor = 0;
    if (eglInitialize(display, &major, &minor) != EGL_TRUE) {
      const std::string error = eglErrorText("eglInitialize");
      display = EGL_NO_DISPLAY;
      return error;
    }
    if (eglBindAPI(EGL_OPENGL_API) != EGL_TRUE) {
      return eglErrorText("eglBindAPI(OpenGL)");
    }
    const bool surfaceless = epoxy_has_egl_extension(display, "EGL_KHR_surfaceless_context");
    const EGLint configAttributes[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_SURFACE_TYPE,
                                       surfaceless ? 0 : EGL_PBUFFER_BIT, EGL_NONE};
    EGLConfig config = nullptr;
    EGLint configCount = 0;
    if (eglChooseConfig(display, configAttributes, &config, 1, &configCount) != EGL_TRUE ||
        configCount < 1) {
      return "no EGL configuration offers desktop OpenGL";
    }
    const EGLint contextAttributes[] = {EGL_CONTEXT_MAJOR_VERSION,
                                        3,
                                        EGL_CONTEXT_MINOR_VERSION,
                                        3,
                                        EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                        EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT,
                                        EGL_NONE};
    context = eglCreateContext(display, config, EGL_NO_CONTEXT, contextAttributes);
    if (context == EGL_NO_CONTEXT) {
      return eglErrorText("creating an OpenGL 3.3 core context");
    }
    if (!surfaceless) {
      const EGLint pbufferAttributes[] = {EGL_WIDTH, 1, EGL_HEIGHT, 1, EGL_NONE};
      surface = eglCreatePbufferSurface(display, config, pbufferAttributes);
      if (surface == EGL_NO_SURFACE) {
        return eglErrorText("creating a pbuffer surface");
      }
    }
    if (eglMakeCurrent(display, surface, surface, context) != EGL_TRUE) {
      return eglErrorText("eglMakeCurrent");
    }
    std::string error;
    program = linkProgram(error);
    if (program == 0) {
      return error;
    }
    glGenFramebuffers(1, &framebuffer);
    glGenRenderbuffers(1, &colorBuffer);
    glGenRenderbuffers(1, &depthBuffer);
    return {};
  }

  std::string resize(int width, int height) {
    if (width == framebufferWidth && height == framebufferHeight) {
      return {};
    }
    GLint largest = 0;
    glGetIntegerv(GL_MAX_RENDERBUFFER_SIZE, &largest);
    // 8K is the largest frame: beyond it a frame's memory, not the GPU, would be the limit.
    constexpr long long kMaxPixels = 7680LL * 4320LL;
    if (width < 1 || height < 1 || width > largest || height > largest ||
        static_cast<long long>(width) * height > kMaxPixels) {
      return "a frame of " + std::to_string(width) + "×" + std::to_string(height) +
             " pixels cannot be rendered; each side must be 1 to " + std::to_string(largest);
    }
    glBindRenderbuffer(GL_RENDERBUFFER, colorBuffer);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, width, height);
    glBindRenderbuffer(GL_RENDERBUFFER, depthBuffer);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, width, height);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, colorBuffer);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, depthBuffer);
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
      framebufferWidth = 0;
      framebufferHeight = 0;
      return "the offscreen framebuffer is incomplete";
    }
    framebufferWidth = width;
    framebufferHeight = height;
    return {};
  }

  void upload(const BatchData& data) {
    if (data.indices.empty()) {
      return;
    }
    GpuBatch batch;
    batch.indexCount = static_cast<GLsizei>(data.indices.size());
    glGenVertexArrays(1, &batch.vertexArray);
    glBindVertexArray(batch.vertexArray);
    glGenBuffers(1, &batch.vertexBuffer);
    glBindBuffer(GL_ARRAY_BUFFER, batch.vertexBuffer);
    glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(data.vertices.size() * sizeof(float)),
                 data.vertices.data(), GL_STATIC_DRAW);
    glGenBuffers(1, &batch.indexBuffer);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, batch.indexBuffer);
    glBufferData(GL_ELEMENT_ARRAY_BUFFER,
                 static_cast<GLsizeiptr>(data.indices.size() * sizeof(std::uint32_t)),
                 data.indices.data(), GL_STATIC_DRAW);
    constexpr GLsizei stride = kVertexFloats * sizeof(float);
    for (GLuint attribute = 0; attribute < 3; ++attribute) {
      glEnableVertexAttribArray(attribute);
      glVertexAttribPointer(attribute, 3, GL_FLOAT, GL_FALSE, stride,
                            reinterpret_cast<const void*>(attribute * 3 * sizeof(float)));
    }
    glBindVertexArray(0);
    batches.push_back(batch);
  }

  void setLights(const OrbitCamera& camera) {
    std::vector<SceneLight> used = lights;
    if (used.empty()) {
      // The default light comes from the camera, a little above it.
      const glm::vec3 forward = glm::normalize(camera.target - eyePosition(camera));
      used.push_back({glm::normalize(forward + glm::vec3(0, -0.3f, 0)), glm::vec3(0.9f)});
    }
    const int count = std::min(static_cast<int>(used.size()), kMaxLights);
    glUniform1i(glGetUniformLocation(program, "lightCount"), count);
    for (int i = 0; i < count; ++i) {
      const std::string index = "[" + std::to_string(i) + "]";
      glUniform3fv(glGetUniformLocation(program, ("lightDirection" + index).c_str()), 1,
                   glm::value_ptr(used[static_cast<std::size_t>(i)].direction));
      glUniform3fv(glGetUniformLocation(program, ("lightRadiance" + index).c_str()), 1,
                   glm::value_ptr(used[static_cast<std::size_t>(i)].radiance));
    }
  }
};

ViewportRenderer::CreateResult ViewportRenderer::create() {
  auto impl = std::make_unique<Impl>();
  std::string error = impl->open();
  if (!error.empty()) {
    return {nullptr, "no OpenGL 3.3 context for the viewport: " + error};
  }
  return {std::unique_ptr<ViewportRenderer>(new ViewportRenderer(std::move(impl))), {}};
}

ViewportRenderer::ViewportRenderer(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

ViewportRenderer::~ViewportRenderer() = default;

void ViewportRenderer::setScene(const Scene& scene) {
  eglMakeCurrent(impl_->display, impl_->surface, impl_->surface, impl_->context);
  impl_->releaseBatches();
  BatchData data;
  for (const SceneObject& object : scene.objects) {
    if (data.vertexCount() + object.mesh.positions.size() > kBatchVertices) {
      impl_->upload(data);
      data = {};
    }
    appendObject(data, object);
  }
  impl_->upload(data);
  impl_->lights = scene.lights;
  impl_->background = scene.background;
  impl_->ambient = scene.ambient;
}

std::string ViewportRenderer::draw(const OrbitCamera& camera, int width, int height,
                                   bool flipRows) {
  Impl& gl = *impl_;
  eglMakeCurrent(gl.display, gl.surface, gl.surface, gl.context);
  if (std::string error = gl.resize(width, height); !error.empty()) {
    return error;
  }
  glBindFramebuffer(GL_FRAMEBUFFER, gl.framebuffer);
  glViewport(0, 0, width, height);
  glEnable(GL_DEPTH_TEST);
  glDisable(GL_CULL_FACE);
  glClearColor(gl.background.r, gl.background.g, gl.background.b, 1.0f);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);

  glUseProgram(gl.program);
  const glm::mat4 flip =
      glm::scale(glm::mat4(1.0f), glm::vec3(1.0f, flipRows ? -1.0f : 1.0f, 1.0f));
  const glm::mat4 viewProjection =
      flip * projectionMatrix(camera, static_cast<float>(width) / static_cast<float>(height)) *
      viewMatrix(camera);
  glUniformMatrix4fv(glGetUniformLocation(gl.program, "viewProjection"), 1, GL_FALSE,
                     glm::value_ptr(viewProjection));
  glUniform3fv(glGetUniformLocation(gl.program, "ambient"), 1, glm::value_ptr(gl.ambient));
  const glm::vec3 eye = eyePosition(camera);
  glUniform3fv(glGetUniformLocation(gl.program, "eye"), 1, glm::value_ptr(eye));
  gl.setLights(camera);
  for (const GpuBatch& batch : gl.batches) {
    glBindVertexArray(batch.vertexArray);
    glDrawElements(GL_TRIANGLES, batch.indexCount, GL_UNSIGNED_INT, nullptr);
  }
  glBindVertexArray(0);
  return {};
}

std::string ViewportRenderer::renderInto(const OrbitCamera& camera, int width, int height,
                                         std::uint8_t* pixels, std::size_t rowBytes) {
  if (rowBytes < static_cast<std::size_t>(width) * 4 || rowBytes % 4 != 0) {
    return "a row of " + std::to_string(rowBytes) + " bytes cannot hold " + std::to_string(width) +
           " pixels";
  }
  if (std::string error = draw(camera, width, height, true); !error.empty()) {
    return error;
  }
  glPixelStorei(GL_PACK_ALIGNMENT, 4);
  glPixelStorei(GL_PACK_ROW_LENGTH, static_cast<GLint>(rowBytes / 4));
  glReadPixels(0, 0, width, height, GL_BGRA, GL_UNSIGNED_BYTE, pixels);
  glPixelStorei(GL_PACK_ROW_LENGTH, 0);
  if (const GLenum status = glGetError(); status != GL_NO_ERROR) {
    return "OpenGL reported error " + std::to_string(status) + " while rendering";
  }
  return {};
}

RenderResult ViewportRenderer::render(const OrbitCamera& camera, int width, int height) {
  RenderResult result;
  result.error = draw(camera, width, height, false);
  if (!result.error.empty()) {
    return result;
  }
  // GL's rows start at the bottom; the frame's start at the top.
  const std::size_t rowBytes = static_cast<std::size_t>(width) * 4;
  std::vector<std::uint8_t> bottomUp(rowBytes * static_cast<std::size_t>(height));
  glPixelStorei(GL_PACK_ALIGNMENT, 1);
  glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, bottomUp.data());
  if (const GLenum status = glGetError(); status != GL_NO_ERROR) {
    result.error = "OpenGL reported error " + std::to_string(status) + " while rendering";
    return result;
  }
  result.frame.width = width;
  result.frame.height = height;
  result.frame.rgba.resize(bottomUp.size());
  for (int row = 0; row < height; ++row) {
    std::memcpy(result.frame.rgba.data() + static_cast<std::size_t>(row) * rowBytes,
                bottomUp.data() + static_cast<std::size_t>(height - 1 - row) * rowBytes, rowBytes);
  }
  return result;
}

std::string ViewportRenderer::describe() const {
  eglMakeCurrent(impl_->display, impl_->surface, impl_->surface, impl_->context);
  const auto text = [](GLenum name) {
    const auto* value = reinterpret_cast<const char*>(glGetString(name));
    return std::string(value != nullptr ? value : "?");
  };
  return text(GL_RENDERER) + ", OpenGL " + text(GL_VERSION);
}

}  // namespace orvan::engine
