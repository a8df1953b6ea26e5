#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>

#include "Authoring/EditPlanner.h"
#include "Authoring/EditableScene.h"
#include "Inspector/StageInspector.h"
#include "UsdText/LayerReader.h"

namespace orvan::engine::testing {

namespace fs = std::filesystem;

// A small project: a root layer (the strongest) with a sublayer that overrides the box, a
// referenced asset made instanceable, entities with ids, a material binding and a relationship
// inside a group.
inline const std::map<std::string, std::string>& fixtureFiles() {
  static const std::map<std::string, std::string> files{
      {"root.usda", R"(#usda 1.0
(
    defaultPrim = "World"
    subLayers = [
        @./sub.usda@
    ]
)

def Xform "World" (
    kind = "assembly"
)
{
    def Cube "Box" (
        kind = "component"
    )
    {
        custom uint64 orvan:entityId = 7
        custom string orvan:name = "Box"
        double size = 1
        color3f[] primvars:displayColor = [(0.8, 0.2, 0.2)]
        rel material:binding = </World/Looks/Red>
        double3 xformOp:translate = (1, 2, 3)
        uniform token[] xformOpOrder = ["xformOp:translate"]
    }

    def Xform "Group" (
        kind = "component"
    )
    {
        custom uint64 orvan:entityId = 8
        rel orvan:target = </World/Group/Ball>
        double3 xformOp:translate = (10, 0, 0)
        uniform token[] xformOpOrder = ["xformOp:translate"]

        def Sphere "Ball" (
            kind = "component"
        )
        {
            custom uint64 orvan:entityId = 9
            double radius = 0.5
        }
    }

    def Scope "Looks"
    {
        def Material "Red"
        {
        }
    }

    def Xform "Lamp" (
        instanceable = true
        kind = "component"
        prepend references = @./asset.usda@
    )
    {
        custom uint64 orvan:entityId = 10
    }
}
)"},
      {"sub.usda", R"(#usda 1.0

over "World"
{
    over "Box"
    {
        custom double orvan:weight = 4
        double size = 2
    }
}
)"},
      {"asset.usda", R"(#usda 1.0
(
    defaultPrim = "Model"
)

def Xform "Model"
{
    def Sphere "Bulb"
    {
        double radius = 0.1
    }
}
)"},
  };
  return files;
}

// A folder of its own per test, removed afterwards.
class ProjectFolder {
 public:
  explicit ProjectFolder(const std::map<std::string, std::string>& files = fixtureFiles()) {
    std::string pattern = (fs::temp_directory_path() / "orvan-authoring-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data());
    for (const auto& [name, text] : files)
      write(name, text);
  }
  ~ProjectFolder() {
    std::error_code error;
    fs::remove_all(path_, error);
  }
  ProjectFolder(const ProjectFolder&) = delete;
  ProjectFolder& operator=(const ProjectFolder&) = delete;

  void write(const std::string& name, const std::string& text) const {
    fs::create_directories((path_ / name).parent_path());
    std::ofstream(path_ / name, std::ios::binary) << text;
  }
  std::string file(const std::string& name) const { return (path_ / name).string(); }
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

inline std::unique_ptr<EditableScene> loadScene(const ProjectFolder& folder,
                                                const std::string& root = "root.usda") {
  auto loaded = EditableScene::load(folder.file(root), folder.path().string());
  if (auto* error = std::get_if<std::string>(&loaded))
    throw std::runtime_error(*error);
  return std::move(std::get<std::unique_ptr<EditableScene>>(loaded));
}

inline EditOperation primOp(PrimOperationKind kind) {
  EditOperation operation;
  operation.type = OperationType::Prim;
  operation.kind = kind;
  return operation;
}

inline EditOperation addOp(std::string parent, std::string name, std::string primitive) {
  EditOperation operation = primOp(PrimOperationKind::Add);
  operation.parentPath = std::move(parent);
  operation.primName = std::move(name);
  operation.primitiveKind = std::move(primitive);
  return operation;
}

inline EditOperation sourceOp(PrimOperationKind kind, std::string source, std::string parent = "",
                              std::string name = "") {
  EditOperation operation = primOp(kind);
  operation.sourcePath = std::move(source);
  operation.parentPath = std::move(parent);
  operation.primName = std::move(name);
  return operation;
}

inline EditOperation propertyOp(std::string path, std::string name, std::string value) {
  EditOperation operation;
  operation.type = OperationType::UsdProperty;
  operation.kind = UsdPropertyOperationKind::Set;
  operation.primPath = std::move(path);
  operation.propertyName = std::move(name);
  operation.value = std::move(value);
  return operation;
}

inline EditOperation propertyResetOp(std::string path, std::string name) {
  EditOperation operation = propertyOp(std::move(path), std::move(name), "");
  operation.kind = UsdPropertyOperationKind::Reset;
  return operation;
}

inline EditOperation historyOp(HistoryOperationKind kind) {
  EditOperation operation;
  operation.type = OperationType::History;
  operation.kind = kind;
  return operation;
}

inline EditRequest requestOf(std::vector<EditOperation> operations, std::string activeLayer = "",
                             std::string client = "client-a") {
  EditRequest request;
  request.clientId = std::move(client);
  request.activeLayer = std::move(activeLayer);
  request.operations = std::move(operations);
  return request;
}

// Every layer's text, keyed by file name: what "nothing changed" is measured by.
inline std::map<std::string, std::string> allTexts(const EditableScene& scene) {
  std::map<std::string, std::string> texts;
  for (const std::string& identifier : scene.layerStack())
    texts[fs::path(identifier).filename().string()] = scene.layerText(identifier);
  return texts;
}

inline InspectResult inspectScene(const EditableScene& scene) {
  const StageOpenResult composed = scene.compose();
  if (!composed.ok())
    throw std::runtime_error(composed.error->describe());
  return inspectStage(*composed.stage);
}

// The scene as the files would hold it once written back: every layer's text written into a new
// folder (with the assets it references), then read and inspected from disk.
inline InspectResult inspectWrittenBack(const EditableScene& scene, const ProjectFolder& copy) {
  for (const std::string& identifier : scene.layerStack()) {
    copy.write(fs::path(identifier).lexically_relative(scene.projectRoot()).string(),
               scene.layerText(identifier));
  }
  copy.write("asset.usda", fixtureFiles().at("asset.usda"));
  const std::string root =
      copy.file(fs::path(scene.rootIdentifier()).lexically_relative(scene.projectRoot()).string());
  const StageOpenResult opened = openStage(root);
  if (!opened.ok())
    throw std::runtime_error(opened.error->describe());
  return inspectStage(*opened.stage);
}

inline const editor::UsdPrimDetail* findPrimDetail(const InspectResult& result,
                                                   std::string_view path) {
  for (const editor::UsdPrimDetail& detail : result.inspection.prims) {
    if (detail.path == path)
      return &detail;
  }
  return nullptr;
}

inline std::string componentValue(const editor::UsdPrimDetail& detail, std::string_view type,
                                  std::string_view property) {
  for (const editor::UsdComponent& component : detail.components) {
    if (component.type != type)
      continue;
    for (const editor::ComponentProperty& p : component.properties) {
      if (p.name == property)
        return p.value;
    }
  }
  return "<missing>";
}

inline std::string attributeValue(const editor::UsdPrimDetail& detail, std::string_view name) {
  for (const editor::UsdAttribute& attribute : detail.attributes) {
    if (attribute.name == name)
      return attribute.value;
  }
  return "<missing>";
}

class AuthoringTest : public ::testing::Test {
 protected:
  void SetUp() override { scene = loadScene(folder); }

  EditResult apply(std::vector<EditOperation> operations, std::string activeLayer = "",
                   std::string client = "client-a") {
    return applyEdit(*scene, requestOf(std::move(operations), std::move(activeLayer), client), ids,
                     history);
  }

  std::string rootText() const { return scene->layerText(folder.file("root.usda")); }
  std::string subText() const { return scene->layerText(folder.file("sub.usda")); }

  ProjectFolder folder;
  std::unique_ptr<EditableScene> scene;
  EntityIdSource ids;
  ClientHistory history;
};

}  // namespace orvan::engine::testing
