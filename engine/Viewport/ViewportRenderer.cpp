#include "Viewport/ViewportRenderer.h"

#include <epoxy/egl.h>
#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/type_ptr.hpp>

#include "Viewport/GizmoMesh.h"
#include "Viewport/RendererShaders.h"

namespace orvan::engine {
namespace {

constexpr int kMaxLights = 8;

std::string eglErrorText(const char* what) {
  char code[16];
  std::snprintf(code, sizeof code, "0x%04x", static_cast<unsigned>(eglGetError()));
  return std::string(what) + " failed (EGL error " + code + ")";
}

// The scene's triangles in world space with their colours, cut into buffers of at most this many
// vertices: a few draw calls however many prims there are.
constexpr std::size_t kBatchVertices = 1u << 20;
constexpr std::size_t kVertexFloats = 11;  // position, normal, colour, roughness and metallic

struct GpuBatch {
  GLuint vertexArray = 0;
  GLuint vertexBuffer = 0;
  GLuint indexBuffer = 0;
  GLsizei indexCount = 0;
};

// Where one prim's triangles sit: which batch, and its run of indices there.
struct ObjectRange {
  std::string path;
  std::size_t batch = 0;
  std::size_t firstVertex = 0;
  std::size_t firstIndex = 0;
  GLsizei indexCount = 0;
  Bounds bounds;
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
    const glm::vec3& c = i < mesh.colors.size() ? mesh.colors[i] : object.color;
    batch.vertices.insert(batch.vertices.end(), {p.x, p.y, p.z, n.x, n.y, n.z, c.r, c.g, c.b,
                                                 object.roughness, object.metallic});
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

GLuint linkProgram(const char* vertexSource, const char* fragmentSource, std::string& error) {
  const GLuint vertex = compileShader(GL_VERTEX_SHADER, vertexSource, error);
  const GLuint fragment =
      vertex != 0 ? compileShader(GL_FRAGMENT_SHADER, fragmentSource, error) : 0;
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

GLint uniform(GLuint program, const char* name) {
  return glGetUniformLocation(program, name);
}

// The pixel rectangle (GL's bottom-up rows) that holds a box's projection, grown by `margin`;
// the whole frame when the box reaches behind the eye.
struct PixelRect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
};

PixelRect screenRect(const Bounds& bounds, const glm::mat4& viewProjection, int width, int height,
                     int margin) {
  const PixelRect whole{0, 0, width, height};
  glm::vec2 low(std::numeric_limits<float>::max());
  glm::vec2 high(std::numeric_limits<float>::lowest());
  for (int corner = 0; corner < 8; ++corner) {
    const glm::vec3 p((corner & 1) != 0 ? bounds.max.x : bounds.min.x,
                      (corner & 2) != 0 ? bounds.max.y : bounds.min.y,
                      (corner & 4) != 0 ? bounds.max.z : bounds.min.z);
    const glm::vec4 clip = viewProjection * glm::vec4(p, 1.0f);
    if (clip.w <= 1e-6f) {
      return whole;
    }
    const glm::vec2 ndc = glm::vec2(clip) / clip.w;
    low = glm::min(low, ndc);
    high = glm::max(high, ndc);
  }
  const auto toPixel = [](float ndc, int size) {
    return static_cast<int>(std::floor((ndc + 1.0f) * 0.5f * static_cast<float>(size)));
  };
  const int x0 = std::clamp(toPixel(low.x, width) - margin, 0, width);
  const int y0 = std::clamp(toPixel(low.y, height) - margin, 0, height);
  const int x1 = std::clamp(toPixel(high.x, width) + margin + 1, 0, width);
  const int y1 = std::clamp(toPixel(high.y, height) + margin + 1, 0, height);
  return {x0, y0, std::max(x1 - x0, 0), std::max(y1 - y0, 0)};
}

}  // namespace

struct ViewportRenderer::Impl {
  EGLDisplay display = EGL_NO_DISPLAY;
  EGLContext context = EGL_NO_CONTEXT;
  EGLSurface surface = EGL_NO_SURFACE;  // a 1×1 pbuffer when surfaceless contexts are missing
  GLuint program = 0;
  GLuint flatProgram = 0;
  GLuint gridProgram = 0;
  GLuint outlineProgram = 0;
  GLuint framebuffer = 0;
  GLuint colorBuffer = 0;
  GLuint depthBuffer = 0;
  GLuint maskFramebuffer = 0;
  GLuint maskTexture = 0;
  GLuint gridVertexArray = 0;
  GLuint gridBuffer = 0;
  GLuint emptyVertexArray = 0;
  GLuint overlayVertexArray = 0;  // the gizmo's triangles, rebuilt each frame
  GLuint overlayVertexBuffer = 0;
  GLuint overlayIndexBuffer = 0;
  int framebufferWidth = 0;
  int framebufferHeight = 0;
  std::vector<GpuBatch> batches;
  std::vector<ObjectRange> objects;
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
      glDeleteFramebuffers(1, &maskFramebuffer);
      glDeleteTextures(1, &maskTexture);
      glDeleteBuffers(1, &gridBuffer);
      glDeleteBuffers(1, &overlayVertexBuffer);
      glDeleteBuffers(1, &overlayIndexBuffer);
      glDeleteVertexArrays(1, &gridVertexArray);
      glDeleteVertexArrays(1, &emptyVertexArray);
      glDeleteVertexArrays(1, &overlayVertexArray);
      for (const GLuint p : {program, flatProgram, gridProgram, outlineProgram}) {
        glDeleteProgram(p);
      }
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
    objects.clear();
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
    program = linkProgram(shaders::kSceneVertex, shaders::kSceneFragment, error);
    flatProgram =
        program != 0 ? linkProgram(shaders::kFlatVertex, shaders::kFlatFragment, error) : 0;
    gridProgram =
        flatProgram != 0 ? linkProgram(shaders::kGridVertex, shaders::kGridFragment, error) : 0;
    outlineProgram = gridProgram != 0
                         ? linkProgram(shaders::kScreenVertex, shaders::kOutlineFragment, error)
                         : 0;
    if (outlineProgram == 0) {
      return error;
    }
    glGenFramebuffers(1, &framebuffer);
    glGenRenderbuffers(1, &colorBuffer);
    glGenRenderbuffers(1, &depthBuffer);
    glGenFramebuffers(1, &maskFramebuffer);
    glGenTextures(1, &maskTexture);
    glGenVertexArrays(1, &emptyVertexArray);
    // The grid: two triangles of a unit square, scaled and placed by the vertex shader.
    const float corners[] = {-1, -1, 1, -1, 1, 1, -1, -1, 1, 1, -1, 1};
    glGenVertexArrays(1, &gridVertexArray);
    glBindVertexArray(gridVertexArray);
    glGenBuffers(1, &gridBuffer);
    glBindBuffer(GL_ARRAY_BUFFER, gridBuffer);
    glBufferData(GL_ARRAY_BUFFER, sizeof corners, corners, GL_STATIC_DRAW);
    glEnableVertexAttribArray(0);
    glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 2 * sizeof(float), nullptr);
    glGenVertexArrays(1, &overlayVertexArray);
    glBindVertexArray(overlayVertexArray);
    glGenBuffers(1, &overlayVertexBuffer);
    glBindBuffer(GL_ARRAY_BUFFER, overlayVertexBuffer);
    glGenBuffers(1, &overlayIndexBuffer);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, overlayIndexBuffer);
    constexpr GLsizei stride = 9 * sizeof(float);
    for (GLuint attribute = 0; attribute < 3; ++attribute) {
      glEnableVertexAttribArray(attribute);
      glVertexAttribPointer(attribute, 3, GL_FLOAT, GL_FALSE, stride,
                            reinterpret_cast<const void*>(attribute * 3 * sizeof(float)));
    }
    glBindVertexArray(0);
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
    const bool complete = glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
    glBindTexture(GL_TEXTURE_2D, maskTexture);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_R8, width, height, 0, GL_RED, GL_UNSIGNED_BYTE, nullptr);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glBindFramebuffer(GL_FRAMEBUFFER, maskFramebuffer);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, maskTexture, 0);
    if (!complete || glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
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
    for (GLuint attribute = 0; attribute < 4; ++attribute) {
      glEnableVertexAttribArray(attribute);
      glVertexAttribPointer(attribute, attribute < 3 ? 3 : 2, GL_FLOAT, GL_FALSE, stride,
                            reinterpret_cast<const void*>(attribute * 3 * sizeof(float)));
    }
    glBindVertexArray(0);
    batches.push_back(batch);
  }

  void setLights(const OrbitCamera& camera) {
    std::vector<SceneLight> used;
    glm::vec3 sky(0.0f);
    bool anyLight = false;
    for (const SceneLight& light : lights) {
      anyLight = true;
      switch (light.kind) {
        case LightKind::distant:
        case LightKind::point:
          used.push_back(light);
          break;
        case LightKind::dome:
          sky += light.radiance;
          break;
      }
    }
    if (!anyLight) {
      // The default light comes from the camera, a little above it.
      const glm::vec3 forward = glm::normalize(camera.target - eyePosition(camera));
      used.push_back({glm::normalize(forward + glm::vec3(0, -0.3f, 0)), glm::vec3(0.9f)});
    }
    glUniform3fv(uniform(program, "skyColor"), 1, glm::value_ptr(sky));
    // The ground under a dome returns a part of the sky's light.
    const glm::vec3 ground = sky * 0.3f;
    glUniform3fv(uniform(program, "groundColor"), 1, glm::value_ptr(ground));
    const int count = std::min(static_cast<int>(used.size()), kMaxLights);
    glUniform1i(uniform(program, "lightCount"), count);
    for (int i = 0; i < count; ++i) {
      const SceneLight& light = used[static_cast<std::size_t>(i)];
      const std::string index = "[" + std::to_string(i) + "]";
      const auto at = [&](const char* name) {
        return uniform(program, (std::string(name) + index).c_str());
      };
      glUniform1i(at("lightKind"), light.kind == LightKind::distant ? 0 : 1);
      glUniform3fv(at("lightDirection"), 1, glm::value_ptr(light.direction));
      glUniform3fv(at("lightPosition"), 1, glm::value_ptr(light.position));
      glUniform3fv(at("lightRadiance"), 1, glm::value_ptr(light.radiance));
      glUniform1f(at("lightRadius"), light.radius);
    }
  }

  void drawScene(const OrbitCamera& camera, const glm::mat4& viewProjection) {
    glUseProgram(program);
    glUniformMatrix4fv(uniform(program, "viewProjection"), 1, GL_FALSE,
                       glm::value_ptr(viewProjection));
    glUniform3fv(uniform(program, "ambient"), 1, glm::value_ptr(ambient));
    const glm::vec3 eye = eyePosition(camera);
    glUniform3fv(uniform(program, "eye"), 1, glm::value_ptr(eye));
    setLights(camera);
    for (const GpuBatch& batch : batches) {
      glBindVertexArray(batch.vertexArray);
      glDrawElements(GL_TRIANGLES, batch.indexCount, GL_UNSIGNED_INT, nullptr);
    }
    glBindVertexArray(0);
  }

  void drawGrid(const OrbitCamera& camera, const glm::mat4& viewProjection) {
    const glm::vec3 eye = eyePosition(camera);
    const float reach = std::max(camera.distance, std::abs(eye.y));
    // Seen exactly edge-on the grid is one line across the horizon, over everything: left out.
    if (!(reach > 0.0f) || !std::isfinite(reach) || std::abs(eye.y) < reach * 1e-3f) {
      return;
    }
    // Lines every unit near by; every ten (or hundred) units from far away, so that they never
    // crowd into a grey sheet.
    const float spacing = std::pow(10.0f, std::max(0.0f, std::floor(std::log10(reach / 8.0f))));
    glUseProgram(gridProgram);
    glUniformMatrix4fv(uniform(gridProgram, "viewProjection"), 1, GL_FALSE,
                       glm::value_ptr(viewProjection));
    const glm::vec3 centre(camera.target.x, 0.0f, camera.target.z);
    glUniform3fv(uniform(gridProgram, "centre"), 1, glm::value_ptr(centre));
    // Beyond the fade (measured from the eye, which is within `reach` of the centre) the grid is
    // gone: the square ends there.
    glUniform1f(uniform(gridProgram, "extent"), reach * 7.0f);
    glUniform3fv(uniform(gridProgram, "eye"), 1, glm::value_ptr(eye));
    glUniform1f(uniform(gridProgram, "spacing"), spacing);
    glUniform1f(uniform(gridProgram, "reach"), reach);
    glEnable(GL_BLEND);
    // The frame stays opaque: the destination's alpha is kept.
    glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ZERO, GL_ONE);
    glDepthMask(GL_FALSE);
    glDepthFunc(GL_LEQUAL);
    // Drawn on a ground plane at y = 0 too: pulled a little towards the eye.
    glEnable(GL_POLYGON_OFFSET_FILL);
    glPolygonOffset(-1.0f, -4.0f);
    glBindVertexArray(gridVertexArray);
    glDrawArrays(GL_TRIANGLES, 0, 6);
    glBindVertexArray(0);
    glDisable(GL_POLYGON_OFFSET_FILL);
    glDepthFunc(GL_LESS);
    glDepthMask(GL_TRUE);
    glDisable(GL_BLEND);
  }

  void drawOutline(const std::vector<std::string>& selectedPaths, const glm::mat4& viewProjection,
                   int width, int height) {
    Bounds selected;
    // Runs of indices per batch; a subtree's prims lie next to each other, so a selected group
    // of thousands of prims is still a few draws.
    std::vector<std::vector<std::pair<std::size_t, GLsizei>>> perBatch(batches.size());
    for (const ObjectRange& object : objects) {
      if (std::none_of(selectedPaths.begin(), selectedPaths.end(),
                       [&](const std::string& path) { return isSameOrBelow(object.path, path); })) {
        continue;
      }
      auto& runs = perBatch[object.batch];
      if (!runs.empty() &&
          runs.back().first + static_cast<std::size_t>(runs.back().second) == object.firstIndex) {
        runs.back().second += object.indexCount;
      } else {
        runs.emplace_back(object.firstIndex, object.indexCount);
      }
      selected.add(object.bounds);
    }
    if (selected.empty()) {
      return;
    }
    constexpr int kOutlinePx = 2;
    const PixelRect rect = screenRect(selected, viewProjection, width, height, kOutlinePx + 1);
    if (rect.width == 0 || rect.height == 0) {
      return;
    }
    glEnable(GL_SCISSOR_TEST);
    glScissor(rect.x, rect.y, rect.width, rect.height);
    // The mask: every pixel the selected prims cover, hidden parts included.
    glBindFramebuffer(GL_FRAMEBUFFER, maskFramebuffer);
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT);
    glDisable(GL_DEPTH_TEST);
    glUseProgram(flatProgram);
    glUniformMatrix4fv(uniform(flatProgram, "viewProjection"), 1, GL_FALSE,
                       glm::value_ptr(viewProjection));
    glUniform1f(uniform(flatProgram, "shading"), 0.0f);
    glVertexAttrib3f(2, 1.0f, 1.0f, 1.0f);
    for (std::size_t b = 0; b < perBatch.size(); ++b) {
      if (perBatch[b].empty()) {
        continue;
      }
      glBindVertexArray(batches[b].vertexArray);
      // The colour comes from the constant attribute, not the scene's colours.
      glDisableVertexAttribArray(2);
      for (const auto& [first, count] : perBatch[b]) {
        glDrawElements(GL_TRIANGLES, count, GL_UNSIGNED_INT,
                       reinterpret_cast<const void*>(first * sizeof(std::uint32_t)));
      }
      glEnableVertexAttribArray(2);
    }
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glUseProgram(outlineProgram);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, maskTexture);
    glUniform1i(uniform(outlineProgram, "mask"), 0);
    const glm::vec3 outline(1.0f, 0.62f, 0.1f);
    glUniform3fv(uniform(outlineProgram, "outlineColor"), 1, glm::value_ptr(outline));
    glBindVertexArray(emptyVertexArray);
    glDrawArrays(GL_TRIANGLES, 0, 3);
    glBindVertexArray(0);
    glDisable(GL_SCISSOR_TEST);
    glEnable(GL_DEPTH_TEST);
  }

  void drawGizmo(const GizmoOverlay& gizmo, const OrbitCamera& camera,
                 const glm::mat4& viewProjection, int height) {
    const auto frame = gizmoFrame(camera, height, gizmo.target, gizmo.tool, gizmo.space);
    if (!frame) {
      return;
    }
    const ColoredMesh shape = buildGizmoMesh(*frame, gizmo.tool, gizmo.highlighted);
    if (shape.mesh.indices.empty()) {
      return;
    }
    std::vector<float> vertices;
    vertices.reserve(shape.mesh.positions.size() * 9);
    for (std::size_t i = 0; i < shape.mesh.positions.size(); ++i) {
      const glm::vec3& p = shape.mesh.positions[i];
      const glm::vec3& n = shape.mesh.normals[i];
      const glm::vec3& c = shape.colors[i];
      vertices.insert(vertices.end(), {p.x, p.y, p.z, n.x, n.y, n.z, c.r, c.g, c.b});
    }
    glBindVertexArray(overlayVertexArray);
    glBindBuffer(GL_ARRAY_BUFFER, overlayVertexBuffer);
    glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(vertices.size() * sizeof(float)),
                 vertices.data(), GL_STREAM_DRAW);
    glBufferData(GL_ELEMENT_ARRAY_BUFFER,
                 static_cast<GLsizeiptr>(shape.mesh.indices.size() * sizeof(std::uint32_t)),
                 shape.mesh.indices.data(), GL_STREAM_DRAW);
    // In front of everything, but its own parts hide one another.
    glClear(GL_DEPTH_BUFFER_BIT);
    glUseProgram(flatProgram);
    glUniformMatrix4fv(uniform(flatProgram, "viewProjection"), 1, GL_FALSE,
                       glm::value_ptr(viewProjection));
    const glm::vec3 eye = eyePosition(camera);
    glUniform3fv(uniform(flatProgram, "eye"), 1, glm::value_ptr(eye));
    glUniform1f(uniform(flatProgram, "shading"), 1.0f);
    glDrawElements(GL_TRIANGLES, static_cast<GLsizei>(shape.mesh.indices.size()), GL_UNSIGNED_INT,
                   nullptr);
    glBindVertexArray(0);
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
    if (data.vertexCount() + object.mesh.positions.size() > kBatchVertices &&
        !data.indices.empty()) {
      impl_->upload(data);
      data = {};
    }
    impl_->objects.push_back({object.path, impl_->batches.size(), data.vertexCount(),
                              data.indices.size(), static_cast<GLsizei>(object.mesh.indices.size()),
                              object.bounds});
    appendObject(data, object);
  }
  impl_->upload(data);
  impl_->lights = scene.lights;
  impl_->background = scene.background;
  impl_->ambient = scene.ambient;
}

void ViewportRenderer::moveObjects(const Scene& scene, std::span<const std::size_t> objectIndices) {
  Impl& gl = *impl_;
  const bool same =
      scene.objects.size() == gl.objects.size() &&
      std::all_of(objectIndices.begin(), objectIndices.end(), [&](std::size_t i) {
        return i < scene.objects.size() && scene.objects[i].path == gl.objects[i].path;
      });
  if (!same) {
    setScene(scene);
    return;
  }
  eglMakeCurrent(gl.display, gl.surface, gl.surface, gl.context);
  for (const std::size_t i : objectIndices) {
    ObjectRange& range = gl.objects[i];
    BatchData data;
    appendObject(data, scene.objects[i]);
    glBindBuffer(GL_ARRAY_BUFFER, gl.batches[range.batch].vertexBuffer);
    glBufferSubData(
        GL_ARRAY_BUFFER, static_cast<GLintptr>(range.firstVertex * kVertexFloats * sizeof(float)),
        static_cast<GLsizeiptr>(data.vertices.size() * sizeof(float)), data.vertices.data());
    range.bounds = scene.objects[i].bounds;
  }
  glBindBuffer(GL_ARRAY_BUFFER, 0);
}

std::string ViewportRenderer::draw(const OrbitCamera& camera, int width, int height,
                                   const RenderOverlays& overlays, bool flipRows) {
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

  const glm::mat4 flip =
      glm::scale(glm::mat4(1.0f), glm::vec3(1.0f, flipRows ? -1.0f : 1.0f, 1.0f));
  const glm::mat4 viewProjection =
      flip * projectionMatrix(camera, static_cast<float>(width) / static_cast<float>(height)) *
      viewMatrix(camera);
  gl.drawScene(camera, viewProjection);
  if (overlays.grid) {
    gl.drawGrid(camera, viewProjection);
  }
  if (!overlays.selectedPaths.empty()) {
    gl.drawOutline(overlays.selectedPaths, viewProjection, width, height);
  }
  if (overlays.gizmo) {
    gl.drawGizmo(*overlays.gizmo, camera, viewProjection, height);
  }
  glBindVertexArray(0);
  return {};
}

std::string ViewportRenderer::renderInto(const OrbitCamera& camera, int width, int height,
                                         std::uint8_t* pixels, std::size_t rowBytes,
                                         const RenderOverlays& overlays) {
  if (rowBytes < static_cast<std::size_t>(width) * 4 || rowBytes % 4 != 0) {
    return "a row of " + std::to_string(rowBytes) + " bytes cannot hold " + std::to_string(width) +
           " pixels";
  }
  if (std::string error = draw(camera, width, height, overlays, true); !error.empty()) {
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

RenderResult ViewportRenderer::render(const OrbitCamera& camera, int width, int height,
                                      const RenderOverlays& overlays) {
  RenderResult result;
  result.error = draw(camera, width, height, overlays, false);
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
