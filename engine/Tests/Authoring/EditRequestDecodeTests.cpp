// The edit request body: every field reaches its operation, and malformed bodies give one error
// sentence instead of a request.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Authoring/EditOperation.h"

namespace orvan::engine {
namespace {

using ::testing::HasSubstr;

std::string errorOf(std::string_view json, const EditRequestLimits& limits = {}) {
  auto decoded = decodeEditRequest(json, limits);
  if (auto* error = std::get_if<std::string>(&decoded))
    return *error;
  return "<decoded>";
}

TEST(EditRequestDecode, EveryFieldReachesItsOperationAndAbsentOnesTakeTheirDefaults) {
  const auto decoded = decodeEditRequest(R"({
    "project": "hello-world", "scene": "hello_world.usda", "workspace": "main",
    "activeLayer": "sub.usda", "author": "Ada", "clientId": "editor-1", "baseRevision": 41,
    "label": "move 2 prims", "unknownKey": [1, 2],
    "operations": [
      {"type": "prim", "kind": "add", "parentPath": "/World", "primName": "Cube",
       "primitiveKind": "cube", "assetName": "Box", "initialTranslation": [1, 2.5, 3]},
      {"type": "prim", "kind": "set-instanceable", "sourcePath": "/World/Lamp", "instanceable": true},
      {"type": "component", "kind": "set", "entityPath": "/World/Cube", "componentType": "Transform",
       "propertyName": "translation", "value": "1,2,3"},
      {"type": "usdProperty", "kind": "reset", "primPath": "/World/Cube", "propertyName": "size"},
      {"type": "layer", "kind": "merge-down", "identifier": "/p/a.usda", "name": "a",
       "direction": "up", "muted": true, "moveRootContentToBaseLayer": true},
      {"type": "asset", "kind": "replace", "name": "Crate", "assetKind": "mesh",
       "sourceURI": "a.usda", "storeURI": "b.usda"},
      {"type": "history", "kind": "redo"}
    ]})");
  ASSERT_TRUE(std::holds_alternative<EditRequest>(decoded)) << std::get<std::string>(decoded);
  const EditRequest& request = std::get<EditRequest>(decoded);
  EXPECT_EQ(request.activeLayer, "sub.usda");
  EXPECT_EQ(request.clientId, "editor-1");
  EXPECT_EQ(request.baseRevision, 41u);
  ASSERT_EQ(request.operations.size(), 7u);
  const EditOperation& add = request.operations[0];
  EXPECT_EQ(add.kindAs<PrimOperationKind>(), PrimOperationKind::Add);
  EXPECT_EQ(add.primName, "Cube");
  EXPECT_EQ(add.assetName, "Box");
  EXPECT_EQ(add.initialTranslation, (std::vector<double>{1, 2.5, 3}));
  EXPECT_FALSE(add.instanceable);
  EXPECT_EQ(request.operations[1].kindAs<PrimOperationKind>(), PrimOperationKind::SetInstanceable);
  EXPECT_TRUE(request.operations[1].instanceable);
  EXPECT_FALSE(request.operations[1].initialTranslation.has_value());
  EXPECT_EQ(request.operations[2].value, "1,2,3");
  EXPECT_EQ(request.operations[3].kindAs<UsdPropertyOperationKind>(),
            UsdPropertyOperationKind::Reset);
  const EditOperation& layer = request.operations[4];
  EXPECT_EQ(layer.kindAs<LayerOperationKind>(), LayerOperationKind::MergeDown);
  EXPECT_TRUE(layer.muted);
  EXPECT_TRUE(layer.moveRootContentToBaseLayer);
  EXPECT_EQ(layer.direction, "up");
  EXPECT_EQ(request.operations[5].storeURI, "b.usda");
  EXPECT_EQ(request.operations[6].kindAs<HistoryOperationKind>(), HistoryOperationKind::Redo);
  EXPECT_EQ(operationKindWord(request.operations[1].kind), "set-instanceable");
  EXPECT_EQ(operationKindWord(layer.kind), "merge-down");
}

TEST(EditRequestDecode, MalformedBodiesAreOneSentenceNamingWhatIsWrong) {
  EXPECT_THAT(errorOf(""), HasSubstr("does not decode"));
  EXPECT_THAT(errorOf("{\"operations\": [}"), HasSubstr("does not decode"));
  EXPECT_THAT(errorOf("[]"), HasSubstr("does not decode"));
  EXPECT_THAT(errorOf("{}"), HasSubstr("operations"));
  EXPECT_EQ(errorOf(R"({"operations": []})"), "The edit request holds no operations");
  EXPECT_EQ(errorOf(R"({"operations": [{"type": "spline", "kind": "add"}]})"),
            "Unknown operation type 'spline' at operations[0]");
  EXPECT_EQ(errorOf(R"({"operations": [{"type": "prim", "kind": "add"},
                                       {"type": "prim", "kind": "explode"}]})"),
            "Unknown prim operation kind 'explode' at operations[1]");
  EXPECT_THAT(errorOf(R"({"operations": [{"type": "prim", "kind": "add", "primName": 5}]})"),
              HasSubstr("expected string"));
  EXPECT_THAT(errorOf(R"({"operations": [{"kind": "add"}]})"), HasSubstr("missing required key"));
  EXPECT_THAT(
      errorOf(R"({"baseRevision": -1, "operations": [{"type": "history", "kind": "undo"}]})"),
      HasSubstr("does not decode"));
  EXPECT_THAT(
      errorOf(R"({"operations": [{"type": "prim", "kind": "add", "initialTranslation": ["x"]}]})"),
      HasSubstr("does not decode"));
  EXPECT_THAT(errorOf(R"({"operations": [{"type": "prim", "kind": "add"}]} trailing)"),
              HasSubstr("does not decode"));
  EXPECT_THAT(errorOf("{\"operations\": [{\"type\": \"prim\", \"kind\": \"add\", \"primName\": "
                      "\"\xff\xfe\"}]}"),
              HasSubstr("does not decode"));
}

TEST(EditRequestDecode, LimitsOnSizeCountAndFieldsAreKept) {
  EditRequestLimits limits;
  limits.maxOperations = 2;
  limits.maxFieldBytes = 8;
  limits.maxBodyBytes = 400;
  const std::string op = R"({"type": "prim", "kind": "delete", "sourcePath": "/A"})";
  EXPECT_EQ(errorOf("{\"operations\": [" + op + "," + op + "," + op + "]}", limits),
            "The edit request holds more than 2 operations");
  EXPECT_EQ(errorOf(R"({"operations": [{"type": "prim", "kind": "delete",
                                        "sourcePath": "/World/Long"}]})",
                    limits),
            "A field of operations[0] is longer than 8 bytes");
  EXPECT_EQ(errorOf(R"({"label": "a long label", "operations": [)" + op + "]}", limits),
            "A field of the edit request is longer than 8 bytes");
  EXPECT_EQ(errorOf(std::string(401, ' '), limits),
            "The edit request is larger than the limit of 400 bytes");
  EXPECT_EQ(errorOf("{\"operations\": [" + op + "]}", limits), "<decoded>");
}

}  // namespace
}  // namespace orvan::engine
