#include "Viewport/ViewportRenderer.h"

#include <epoxy/egl.h>
#include <epoxy/gl.h>

#include <algorithm>
#include <cstring>

#include <glm/gtc/type_ptr.hpp>

namespace orvan::engine {
namespace {

constexpr int kMaxLights = 8;

constexpr const char* kVertexShader = R"(#version 330 core
layout(location = 0) in vec3 position;
layout(location = 1) in vec3 normal;
uniform mat4 model;
uniform mat3 normalMatrix;
uniform mat4 viewProjection;
out vec3 worldPosition;
out vec3 worldNormal;
void main() {
  vec4 world = model * vec4(position, 1.0);
  worldPosition = world.xyz;
  worldNormal = normalMatrix * normal;
  gl_Position = viewProjection * world;
}
)";

// Lambert shading, lit from both sides: the normal is turned towards the eye, so open shapes
// (planes, meshes with either winding) read the same from both sides.
constexpr const char* kFragmentShader = R"(#version 330 core
in vec3 worldPosition;
in vec3 worldNormal;
uniform vec3 baseColor;
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

struct GpuMesh {
  GLuint vertexArray = 0;
  GLuint vertexBuffer = 0;
  GLuint indexBuffer = 0;
  GLsizei indexCount = 0;
  glm::mat4 world{1.0f};
  glm::vec3 color{0.5f};
};

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
  std::vector<GpuMesh> meshes;
  std::vector<SceneLight> lights;
  glm::vec3 background{0.0f};
  glm::vec3 ambient{0.0f};

  ~Impl() {
    if (context != EGL_NO_CONTEXT) {
      eglMakeCurrent(display, surface, surface, context);
      releaseMeshes();
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
    if (display != EGL_NO_DISPLAY) {
      eglTerminate(display);
    }
  }

  void releaseMeshes() {
    for (GpuMesh& mesh : meshes) {
      glDeleteBuffers(1, &mesh.vertexBuffer);
      glDeleteBuffers(1, &mesh.indexBuffer);
      glDeleteVertexArrays(1, &mesh.vertexArray);
    }
    meshes.clear();
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
    if (width < 1 || height < 1 || width > largest || height > largest) {
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

  void upload(const SceneObject& object) {
    const TriangleMesh& source = object.mesh;
    std::vector<float> interleaved;
    interleaved.reserve(source.positions.size() * 6);
    for (std::size_t i = 0; i < source.positions.size(); ++i) {
      const glm::vec3 n = i < source.normals.size() ? source.normals[i] : glm::vec3(0, 1, 0);
      const glm::vec3& p = source.positions[i];
      interleaved.insert(interleaved.end(), {p.x, p.y, p.z, n.x, n.y, n.z});
    }
    GpuMesh mesh;
    mesh.world = object.world;
    mesh.color = object.color;
    mesh.indexCount = static_cast<GLsizei>(source.indices.size());
    glGenVertexArrays(1, &mesh.vertexArray);
    glBindVertexArray(mesh.vertexArray);
    glGenBuffers(1, &mesh.vertexBuffer);
    glBindBuffer(GL_ARRAY_BUFFER, mesh.vertexBuffer);
    glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(interleaved.size() * sizeof(float)),
                 interleaved.data(), GL_STATIC_DRAW);
    glGenBuffers(1, &mesh.indexBuffer);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, mesh.indexBuffer);
    glBufferData(GL_ELEMENT_ARRAY_BUFFER,
                 static_cast<GLsizeiptr>(source.indices.size() * sizeof(std::uint32_t)),
                 source.indices.data(), GL_STATIC_DRAW);
    glEnableVertexAttribArray(0);
    glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 6 * sizeof(float), nullptr);
    glEnableVertexAttribArray(1);
    glVertexAttribPointer(1, 3, GL_FLOAT, GL_FALSE, 6 * sizeof(float),
                          reinterpret_cast<const void*>(3 * sizeof(float)));
    glBindVertexArray(0);
    meshes.push_back(mesh);
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
  impl_->releaseMeshes();
  impl_->meshes.reserve(scene.objects.size());
  for (const SceneObject& object : scene.objects) {
    impl_->upload(object);
  }
  impl_->lights = scene.lights;
  impl_->background = scene.background;
  impl_->ambient = scene.ambient;
}

RenderResult ViewportRenderer::render(const OrbitCamera& camera, int width, int height) {
  RenderResult result;
  Impl& gl = *impl_;
  eglMakeCurrent(gl.display, gl.surface, gl.surface, gl.context);
  result.error = gl.resize(width, height);
  if (!result.error.empty()) {
    return result;
  }
  glBindFramebuffer(GL_FRAMEBUFFER, gl.framebuffer);
  glViewport(0, 0, width, height);
  glEnable(GL_DEPTH_TEST);
  glDisable(GL_CULL_FACE);
  glClearColor(gl.background.r, gl.background.g, gl.background.b, 1.0f);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);

  glUseProgram(gl.program);
  const glm::mat4 viewProjection =
      projectionMatrix(camera, static_cast<float>(width) / static_cast<float>(height)) *
      viewMatrix(camera);
  glUniformMatrix4fv(glGetUniformLocation(gl.program, "viewProjection"), 1, GL_FALSE,
                     glm::value_ptr(viewProjection));
  glUniform3fv(glGetUniformLocation(gl.program, "ambient"), 1, glm::value_ptr(gl.ambient));
  const glm::vec3 eye = eyePosition(camera);
  glUniform3fv(glGetUniformLocation(gl.program, "eye"), 1, glm::value_ptr(eye));
  gl.setLights(camera);
  const GLint model = glGetUniformLocation(gl.program, "model");
  const GLint normalMatrix = glGetUniformLocation(gl.program, "normalMatrix");
  const GLint baseColor = glGetUniformLocation(gl.program, "baseColor");
  for (const GpuMesh& mesh : gl.meshes) {
    const glm::mat3 normals = glm::transpose(glm::inverse(glm::mat3(mesh.world)));
    glUniformMatrix4fv(model, 1, GL_FALSE, glm::value_ptr(mesh.world));
    glUniformMatrix3fv(normalMatrix, 1, GL_FALSE, glm::value_ptr(normals));
    glUniform3fv(baseColor, 1, glm::value_ptr(mesh.color));
    glBindVertexArray(mesh.vertexArray);
    glDrawElements(GL_TRIANGLES, mesh.indexCount, GL_UNSIGNED_INT, nullptr);
  }
  glBindVertexArray(0);

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
