#include "Support/StageBuilders.h"

namespace orvan::editor::testing {

namespace {

// The fields a tree node and a flat detail share, taken from the path.
template <class Prim>
Prim named(const std::string& path, const std::string& typeName) {
  Prim prim;
  prim.path = path;
  prim.name = path.substr(path.rfind('/') + 1);
  prim.typeName = typeName;
  const auto slash = path.rfind('/');
  prim.parent = slash == 0 ? "/" : path.substr(0, slash);
  return prim;
}

UsdPrimNode makeNode(const std::string& path, const std::string& typeName) {
  return named<UsdPrimNode>(path, typeName);
}

}  // namespace

UsdPrimDetail makePrimDetail(const std::string& path, const std::string& typeName) {
  UsdPrimDetail detail = named<UsdPrimDetail>(path, typeName);
  detail.entityPath = path;
  detail.entityId = std::hash<std::string>{}(path);
  return detail;
}

StageInspection makeTreeStage(std::size_t rootCount, std::size_t childrenPerRoot,
                              std::size_t grandchildrenPerChild) {
  StageInspection stage = StageInspection::empty();
  stage.sceneUri = "/test/scene.usda";
  for (std::size_t r = 0; r < rootCount; ++r) {
    UsdPrimNode root = makeNode("/Root" + std::to_string(r), "Xform");
    stage.prims.push_back(makePrimDetail(root.path, root.typeName));
    for (std::size_t c = 0; c < childrenPerRoot; ++c) {
      UsdPrimNode child = makeNode(root.path + "/Child" + std::to_string(c), "Cube");
      stage.prims.push_back(makePrimDetail(child.path, child.typeName));
      for (std::size_t g = 0; g < grandchildrenPerChild; ++g) {
        UsdPrimNode grandchild = makeNode(child.path + "/Leaf" + std::to_string(g), "Sphere");
        stage.prims.push_back(makePrimDetail(grandchild.path, grandchild.typeName));
        child.children.push_back(std::move(grandchild));
      }
      root.children.push_back(std::move(child));
    }
    stage.rootPrims.push_back(std::move(root));
  }
  return stage;
}

}  // namespace orvan::editor::testing
