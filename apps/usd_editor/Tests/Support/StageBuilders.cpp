#include "Support/StageBuilders.h"

namespace orvan::editor::testing {

namespace {

// The fields a tree node and a flat detail share, taken from the path.
template <class Prim>
Prim named(const std::string& path, const std::string& typeName) {
  const auto slash = path.rfind('/');
  Prim prim;
  prim.path = path;
  prim.name = path.substr(slash + 1);
  prim.typeName = typeName;
  prim.parent = slash == 0 ? "/" : path.substr(0, slash);
  return prim;
}

// Adds the node's detail to the stage and gives the node back.
UsdPrimNode addPrim(StageInspection& stage, const std::string& path, const std::string& typeName) {
  stage.prims.push_back(makePrimDetail(path, typeName));
  return named<UsdPrimNode>(path, typeName);
}

}  // namespace

UsdPrimDetail makePrimDetail(const std::string& path, const std::string& typeName) {
  UsdPrimDetail detail = named<UsdPrimDetail>(path, typeName);
  detail.entityPath = path;
  detail.entityId = std::hash<std::string>{}(path);
  return detail;
}

UsdPrimNode makePrimNode(const std::string& path, const std::string& typeName) {
  return named<UsdPrimNode>(path, typeName);
}

UsdPrimDetail& addPrimDetail(StageInspection& stage, const std::string& path,
                             const std::string& typeName) {
  UsdPrimDetail detail = named<UsdPrimDetail>(path, typeName);
  detail.entityPath = path;
  stage.prims.push_back(std::move(detail));
  return stage.prims.back();
}

StageInspection makeTreeStage(std::size_t rootCount, std::size_t childrenPerRoot,
                              std::size_t grandchildrenPerChild) {
  StageInspection stage = StageInspection::empty();
  stage.sceneUri = "/test/scene.usda";
  for (std::size_t r = 0; r < rootCount; ++r) {
    UsdPrimNode root = addPrim(stage, "/Root" + std::to_string(r), "Xform");
    for (std::size_t c = 0; c < childrenPerRoot; ++c) {
      UsdPrimNode child = addPrim(stage, root.path + "/Child" + std::to_string(c), "Cube");
      for (std::size_t g = 0; g < grandchildrenPerChild; ++g)
        child.children.push_back(
            addPrim(stage, child.path + "/Leaf" + std::to_string(g), "Sphere"));
      root.children.push_back(std::move(child));
    }
    stage.rootPrims.push_back(std::move(root));
  }
  return stage;
}

}  // namespace orvan::editor::testing
