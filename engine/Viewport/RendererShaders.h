#pragma once

// The GLSL programs of the viewport renderer.
namespace orvan::engine::shaders {

// Scene: world-space triangles with a base colour, roughness and metallic per vertex.
constexpr const char* kSceneVertex = R"(#version 330 core
layout(location = 0) in vec3 position;
layout(location = 1) in vec3 normal;
layout(location = 2) in vec3 color;
layout(location = 3) in vec2 material;
uniform mat4 viewProjection;
out vec3 worldPosition;
out vec3 worldNormal;
out vec3 baseColor;
out vec2 surface;
void main() {
  worldPosition = position;
  worldNormal = normal;
  baseColor = color;
  surface = material;
  gl_Position = viewProjection * vec4(position, 1.0);
}
)";

// Lit from both sides: the normal is turned towards the eye, so open shapes (planes, meshes of
// either winding) read the same from both sides. Diffuse plus a GGX highlight shaped by roughness;
// metals tint the highlight and lose the diffuse part. A light of radiance 1 falling straight on
// a white diffuse surface gives 1. The sum is tone mapped (a filmic curve) and encoded as sRGB.
constexpr const char* kSceneFragment = R"(#version 330 core
in vec3 worldPosition;
in vec3 worldNormal;
in vec3 baseColor;
in vec2 surface;
uniform vec3 ambient;
uniform vec3 skyColor;
uniform vec3 groundColor;
uniform vec3 eye;
uniform int lightCount;
uniform int lightKind[8];
uniform vec3 lightDirection[8];
uniform vec3 lightPosition[8];
uniform vec3 lightRadiance[8];
uniform float lightRadius[8];
out vec4 fragment;

const float PI = 3.14159265;

vec3 toneMapped(vec3 x) {
  return clamp((x * (2.51 * x + 0.03)) / (x * (2.43 * x + 0.59) + 0.14), 0.0, 1.0);
}

vec3 srgb(vec3 c) {
  return mix(c * 12.92, 1.055 * pow(c, vec3(1.0 / 2.4)) - 0.055, step(0.0031308, c));
}

void main() {
  vec3 n = normalize(worldNormal);
  vec3 v = normalize(eye - worldPosition);
  if (dot(n, v) < 0.0) n = -n;
  float roughness = clamp(surface.x, 0.05, 1.0);
  float metallic = clamp(surface.y, 0.0, 1.0);
  vec3 diffuse = baseColor * (1.0 - metallic);
  vec3 f0 = mix(vec3(0.04), baseColor, metallic);
  float a2 = roughness * roughness * roughness * roughness;
  float k = (roughness + 1.0) * (roughness + 1.0) / 8.0;
  float nv = max(dot(n, v), 1e-4);
  vec3 color = (ambient + mix(groundColor, skyColor, 0.5 + 0.5 * n.y)) * (diffuse + f0);
  for (int i = 0; i < lightCount; ++i) {
    vec3 l;
    vec3 radiance = lightRadiance[i];
    if (lightKind[i] == 0) {
      l = -lightDirection[i];
    } else {
      vec3 toLight = lightPosition[i] - worldPosition;
      float d2 = max(dot(toLight, toLight), lightRadius[i] * lightRadius[i]);
      l = toLight * inversesqrt(max(dot(toLight, toLight), 1e-12));
      radiance /= d2;
    }
    float nl = dot(n, l);
    if (nl <= 0.0) continue;
    vec3 h = normalize(l + v);
    float nh = max(dot(n, h), 0.0);
    float d = nh * nh * (a2 - 1.0) + 1.0;
    float distribution = a2 / (PI * d * d);
    float geometry = (nl / (nl * (1.0 - k) + k)) * (nv / (nv * (1.0 - k) + k));
    float edge = 1.0 - max(dot(v, h), 0.0);
    float edge2 = edge * edge;
    vec3 fresnel = f0 + (1.0 - f0) * (edge2 * edge2 * edge);
    vec3 specular = distribution * geometry * fresnel / (4.0 * nl * nv) * PI;
    color += (diffuse * (1.0 - fresnel) + specular) * radiance * nl;
  }
  fragment = vec4(srgb(toneMapped(color)), 1.0);
}
)";

// Flat colour per vertex with a little shading from the eye: the gizmo; and the selection mask
// when every colour is white.
constexpr const char* kFlatVertex = R"(#version 330 core
layout(location = 0) in vec3 position;
layout(location = 1) in vec3 normal;
layout(location = 2) in vec3 color;
uniform mat4 viewProjection;
uniform vec3 eye;
uniform float shading;
out vec3 shade;
void main() {
  shade = color;
  if (shading > 0.0) {
    float facing = abs(dot(normalize(normal), normalize(eye - position)));
    shade *= 0.55 + 0.45 * facing;
  }
  gl_Position = viewProjection * vec4(position, 1.0);
}
)";

constexpr const char* kFlatFragment = R"(#version 330 core
in vec3 shade;
out vec4 fragment;
void main() {
  fragment = vec4(shade, 1.0);
}
)";

// The ground grid: a large square on y = 0 around the camera's target.
constexpr const char* kGridVertex = R"(#version 330 core
layout(location = 0) in vec2 corner;
uniform mat4 viewProjection;
uniform vec3 centre;
uniform float extent;
out vec3 worldPosition;
void main() {
  worldPosition = vec3(centre.x + corner.x * extent, 0.0, centre.z + corner.y * extent);
  gl_Position = viewProjection * vec4(worldPosition, 1.0);
}
)";

// Lines one pixel wide whatever the distance (from the screen-space rate of the coordinate);
// every tenth line stronger, the X axis red and the Z axis blue. The fainter lines fade out
// sooner, so that far away only the stronger ones remain and the grid never thickens into a grey
// sheet; beyond 6 reaches nothing is left.
constexpr const char* kGridFragment = R"(#version 330 core
in vec3 worldPosition;
uniform vec3 eye;
uniform float spacing;
uniform float reach;
out vec4 fragment;
float lineAt(vec2 coordinate, vec2 width) {
  vec2 distanceToLine = abs(fract(coordinate - 0.5) - 0.5) / width;
  return 1.0 - min(min(distanceToLine.x, distanceToLine.y), 1.0);
}
void main() {
  float d = distance(eye, worldPosition);
  float farFade = 1.0 - smoothstep(reach * 2.4, reach * 6.0, d);
  if (farFade <= 0.0) discard;
  float nearFade = 1.0 - smoothstep(reach, reach * 2.5, d);
  vec2 p = worldPosition.xz;
  // One screen-space rate serves every line family.
  vec2 width = max(fwidth(p), vec2(1e-6));
  float alpha = max(lineAt(p / spacing, width / spacing) * 0.3 * nearFade,
                    lineAt(p / (spacing * 10.0), width / (spacing * 10.0)) * 0.55 * farFade);
  vec3 color = vec3(0.55);
  float onX = 1.0 - min(abs(p.y) / width.y, 1.0);
  float onZ = 1.0 - min(abs(p.x) / width.x, 1.0);
  if (onX > 0.0 || onZ > 0.0) {
    color = onX >= onZ ? vec3(0.85, 0.25, 0.25) : vec3(0.25, 0.4, 0.9);
    alpha = max(alpha, max(onX, onZ) * 0.85 * farFade);
  }
  fragment = vec4(color, alpha);
}
)";

// A triangle that covers the screen.
constexpr const char* kScreenVertex = R"(#version 330 core
out vec2 uv;
void main() {
  vec2 corner = vec2(float((gl_VertexID << 1) & 2), float(gl_VertexID & 2));
  uv = corner;
  gl_Position = vec4(corner * 2.0 - 1.0, 0.0, 1.0);
}
)";

// The outline: pixels outside the selection's mask with a masked pixel within two pixels.
constexpr const char* kOutlineFragment = R"(#version 330 core
uniform sampler2D mask;
uniform vec3 outlineColor;
out vec4 fragment;
void main() {
  ivec2 at = ivec2(gl_FragCoord.xy);
  ivec2 size = textureSize(mask, 0);
  if (texelFetch(mask, at, 0).r > 0.5) discard;
  float near = 0.0;
  for (int dy = -2; dy <= 2; ++dy) {
    for (int dx = -2; dx <= 2; ++dx) {
      if (dx * dx + dy * dy > 5) continue;
      ivec2 p = clamp(at + ivec2(dx, dy), ivec2(0), size - 1);
      near = max(near, texelFetch(mask, p, 0).r);
    }
  }
  if (near < 0.5) discard;
  fragment = vec4(outlineColor, 1.0);
}
)";

}  // namespace orvan::engine::shaders
