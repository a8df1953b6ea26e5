#include "UsdText/SceneGenerator.h"

#include <array>
#include <cstdio>

namespace orvan::engine {
namespace {

class Random {
 public:
  explicit Random(std::uint64_t seed)
      : state_(seed * 6364136223846793005ull + 1442695040888963407ull) {}
  double unit() {
    state_ = state_ * 6364136223846793005ull + 1442695040888963407ull;
    return static_cast<double>(state_ >> 11) / static_cast<double>(1ull << 53);
  }

 private:
  std::uint64_t state_;
};

struct ShapeKind {
  const char* type;
  const char* dimensions;  // attribute lines written as they are
};

constexpr std::array<ShapeKind, 6> kShapes{{
    {"Cube", "                double size = 1\n"},
    {"Sphere", "                double radius = 0.5\n"},
    {"Cone", "                double height = 1\n                double radius = 0.5\n"},
    {"Cylinder", "                double height = 1\n                double radius = 0.5\n"},
    {"Capsule", "                double height = 1\n                double radius = 0.25\n"},
    {"Plane", "                double length = 1\n                double width = 1\n"},
}};

class Generator {
 public:
  Generator(std::size_t primCount, const GeneratedSceneShape& shape)
      : budget_(primCount == 0 ? 1 : primCount), shape_(shape), random_(shape.seed) {}

  std::string run() {
    out_.reserve(budget_ * 520 + 512);
    out_ +=
        "#usda 1.0\n"
        "(\n"
        "    defaultPrim = \"World\"\n"
        "    metersPerUnit = 1\n"
        "    upAxis = \"Y\"\n"
        ")\n\n"
        "def Xform \"World\" (\n"
        "    kind = \"assembly\"\n"
        ")\n"
        "{\n"
        "    custom color3f orvan:backgroundColor = (0.03, 0.035, 0.045)\n"
        "    custom bool orvan:shadowsEnabled = true\n";
    --budget_;
    for (std::size_t zone = 0; budget_ > 0; ++zone)
      writeZone(zone);
    out_ += "}\n";
    return std::move(out_);
  }

 private:
  void line(const char* format, auto... values) {
    char buffer[256];
    const int length = std::snprintf(buffer, sizeof buffer, format, values...);
    if (length > 0)
      out_.append(buffer, static_cast<std::size_t>(length));
  }

  void writeZone(std::size_t zone) {
    --budget_;
    line("\n    def Xform \"Zone_%zu\" (\n        kind = \"group\"\n    )\n    {\n", zone);
    line("                double3 xformOp:translate = (%zu, 0, 0)\n", zone * 200);
    out_ += "        uniform token[] xformOpOrder = [\"xformOp:translate\"]\n";
    for (std::size_t cluster = 0; cluster < shape_.clustersPerZone && budget_ > 0; ++cluster) {
      writeCluster(cluster);
    }
    out_ += "    }\n";
  }

  void writeCluster(std::size_t cluster) {
    --budget_;
    line("\n        def Xform \"Cluster_%zu\"\n        {\n", cluster);
    line("            double3 xformOp:translate = (0, 0, %zu)\n", cluster * 20);
    out_ += "            uniform token[] xformOpOrder = [\"xformOp:translate\"]\n";
    for (std::size_t entity = 0; entity < shape_.entitiesPerCluster && budget_ > 0; ++entity)
      writeEntity(entity);
    out_ += "        }\n";
  }

  void writeEntity(std::size_t entity) {
    --budget_;
    const ShapeKind& kind = kShapes[nextId_ % kShapes.size()];
    ++nextId_;
    line("\n            def %s \"%s_%zu\" (\n", kind.type, kind.type, entity);
    out_ += "                kind = \"component\"\n            )\n            {\n";
    line("                custom uint64 orvan:entityId = %llu\n",
         static_cast<unsigned long long>(0x9E3779B97F4A7C15ull * nextId_ >> 1));
    line("                double3 xformOp:translate = (%.3f, %.3f, %.3f)\n",
         random_.unit() * 20 - 10, random_.unit() * 2, random_.unit() * 20 - 10);
    line("                float3 xformOp:rotateXYZ = (0, %.1f, 0)\n", random_.unit() * 360);
    const double scale = 0.5 + random_.unit();
    line("                float3 xformOp:scale = (%.3f, %.3f, %.3f)\n", scale, scale, scale);
    out_ +=
        "                uniform token[] xformOpOrder = [\"xformOp:translate\", "
        "\"xformOp:rotateXYZ\", "
        "\"xformOp:scale\"]\n";
    line("                color3f[] primvars:displayColor = [(%.3f, %.3f, %.3f)]\n", random_.unit(),
         random_.unit(), random_.unit());
    out_.append(kind.dimensions);
    out_ += "            }\n";
  }

  std::size_t budget_;
  GeneratedSceneShape shape_;
  Random random_;
  std::uint64_t nextId_ = 0;
  std::string out_;
};

}  // namespace

std::string generateScene(std::size_t primCount, const GeneratedSceneShape& shape) {
  return Generator(primCount, shape).run();
}

}  // namespace orvan::engine
