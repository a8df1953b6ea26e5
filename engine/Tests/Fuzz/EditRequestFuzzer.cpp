// Any byte string as the body of an edit request: decoding gives a request or one error sentence,
// never a crash. A request that decodes is planned against a small scene held in memory: a
// refusal leaves every layer's text as it was, an accepted edit's change set survives its text
// form, and its inverse gives the exact texts back.

#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>

#include "Authoring/EditOperation.h"
#include "Authoring/EditPlanner.h"
#include "Authoring/EditableScene.h"
#include "FuzzCheck.h"

namespace {

using namespace orvan::engine;
namespace fs = std::filesystem;

constexpr const char* kScene = R"(#usda 1.0
(
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
        double size = 1
        rel material:binding = </World/Group/Ball>
        double3 xformOp:translate = (1, 2, 3)
        uniform token[] xformOpOrder = ["xformOp:translate"]
    }

    def Xform "Group"
    {
        custom uint64 orvan:entityId = 8

        def Sphere "Ball"
        {
            double radius = 0.5
        }
    }
}
)";

constexpr const char* kSublayer = R"(#usda 1.0

over "World"
{
    over "Box"
    {
        double size = 2
    }
}
)";

EditableScene& scene() {
  static std::unique_ptr<EditableScene> held = [] {
    std::string pattern = (fs::temp_directory_path() / "orvan-edit-fuzz-XXXXXX").string();
    const fs::path folder = ::mkdtemp(pattern.data());
    std::ofstream(folder / "root.usda") << kScene;
    std::ofstream(folder / "sub.usda") << kSublayer;
    auto loaded = EditableScene::load((folder / "root.usda").string(), folder.string());
    FUZZ_CHECK(std::holds_alternative<std::unique_ptr<EditableScene>>(loaded));
    return std::move(std::get<std::unique_ptr<EditableScene>>(loaded));
  }();
  return *held;
}

std::map<std::string, std::string> texts(const EditableScene& scene) {
  std::map<std::string, std::string> out;
  for (const std::string& identifier : scene.layerStack())
    out[identifier] = scene.layerText(identifier);
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view body(reinterpret_cast<const char*>(data), size);
  EditRequestLimits limits;
  limits.maxOperations = 64;
  const auto decoded = decodeEditRequest(body, limits);
  if (const auto* error = std::get_if<std::string>(&decoded)) {
    FUZZ_CHECK(!error->empty());
    return 0;
  }
  const EditRequest& request = std::get<EditRequest>(decoded);
  FUZZ_CHECK(!request.operations.empty() && request.operations.size() <= limits.maxOperations);

  EditableScene& held = scene();
  const auto before = texts(held);
  EntityIdSource ids;
  ClientHistory history;
  const EditResult result = applyEdit(held, request, ids, history);
  FUZZ_CHECK(!result.message.empty());
  if (!result.accepted) {
    FUZZ_CHECK(result.changes.empty());
    FUZZ_CHECK(texts(held) == before);
    return 0;
  }
  const auto decodedChanges = decodeChangeSet(encodeChangeSet(result.changes));
  FUZZ_CHECK(std::holds_alternative<ChangeSet>(decodedChanges));
  FUZZ_CHECK(std::get<ChangeSet>(decodedChanges) == result.changes);
  FUZZ_CHECK(!applyChangeSet(held, invertChangeSet(result.changes)).has_value());
  FUZZ_CHECK(texts(held) == before);
  return 0;
}
