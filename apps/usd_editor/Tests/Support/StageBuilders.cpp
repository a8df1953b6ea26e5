#include "Support/StageBuilders.h"

namespace orvan::editor::testing {

namespace {

std::string parentOf(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == 0 ? "/" : path.substr(0, slash);
}

UsdPrimNode makeNode(const std::string& path, const std::string& typeName) {
  UsdPrimNode node;
  node.path = path;
  node.name = path.substr(path.rfind('/') + 1);
  node.typeName = typeName;
  node.parent = parentOf(path);
  return node;
}

}  // namespace

UsdPrimDetail makePrimDetail(const std::string& path, const std::string& typeName) {
  UsdPrimDetail detail;
  detail.path = path;
  detail.name = path.substr(path.rfind('/') + 1);
  detail.typeName = typeName;
  detail.parent = parentOf(path);
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
