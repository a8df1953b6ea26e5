// The one-shot argument vectors the editor builds, each turned into the body the authoring
// endpoint takes, and the command lines the helper refuses.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "EditClient/EditCommandLine.h"
#include "EditClient/EditCommands.h"

namespace orvan::engine {
namespace {

EditCommandLineResult parse(const std::vector<std::string>& arguments) {
  const std::vector<std::string_view> views(arguments.begin(), arguments.end());
  return parseEditClientArguments(views);
}

// The body for the operation arguments after the editor's usual head.
std::string bodyFor(std::vector<std::string> operation) {
  std::vector<std::string> arguments = {
      "--json", "--author", "Ada",    "--workspace",    "main",      "--client-id",
      "c1",     "--scene",  "s.usda", "--active-layer", "/p/a.usda", "grpc://127.0.0.1:9",
      "12"};
  arguments.insert(arguments.end(), operation.begin(), operation.end());
  const EditCommandLineResult result = parse(arguments);
  EXPECT_TRUE(result.commandLine) << result.error;
  if (!result.commandLine)
    return {};
  return encodeEditBody(result.commandLine->scope, result.commandLine->command);
}

std::string body(std::string_view operation) {
  return R"({"scene":"s.usda","workspace":"main","activeLayer":"/p/a.usda","author":"Ada","clientId":"c1","baseRevision":12,"operations":[)" +
         std::string(operation) + "]}";
}

struct ArgumentCase {
  std::vector<std::string> operation;
  std::string expected;
};

TEST(EditCommandLineTest, EveryOperationFormBecomesItsBody) {
  const std::vector<ArgumentCase> cases = {
      {{"--prim-op", "add", "/World", "Cube", "cube", "--initial-translation", "1", "-2.5", "0"},
       R"({"type":"prim","kind":"add","parentPath":"/World","primName":"Cube","primitiveKind":"cube","referenceURI":"","payloadURI":"","assetName":"","sourcePath":"","initialTranslation":[1.0,-2.5,0.0],"instanceable":false})"},
      {{"--prim-op", "add", "/World", "Lamp", "mesh", "Lamp\tPost"},
       R"({"type":"prim","kind":"add","parentPath":"/World","primName":"Lamp","primitiveKind":"mesh","referenceURI":"","payloadURI":"","assetName":"Lamp\tPost","sourcePath":"","instanceable":false})"},
      {{"--prim-op", "payload", "/World", "City", "./city.usda", ""},
       R"({"type":"prim","kind":"payload","parentPath":"/World","primName":"City","primitiveKind":"","referenceURI":"","payloadURI":"./city.usda","assetName":"","sourcePath":"","instanceable":false})"},
      {{"--prim-op", "reparent", "/World/A", "/World/B", "A"},
       R"({"type":"prim","kind":"reparent","parentPath":"/World/B","primName":"A","primitiveKind":"","referenceURI":"","payloadURI":"","assetName":"","sourcePath":"/World/A","instanceable":false})"},
      {{"--prim-op", "set-instanceable", "/World/T", "false"},
       R"({"type":"prim","kind":"set-instanceable","parentPath":"","primName":"","primitiveKind":"","referenceURI":"","payloadURI":"","assetName":"","sourcePath":"/World/T","instanceable":false})"},
      {{"--component-op", "set", "/World/A", "Name", "name", "-1"},
       R"({"type":"component","kind":"set","entityPath":"/World/A","componentType":"Name","propertyName":"name","value":"-1"})"},
      {{"--component-op", "reorder", "/World/A", "", "Light,Script"},
       R"({"type":"component","kind":"reorder","entityPath":"/World/A","componentType":"","propertyName":"","value":"Light,Script"})"},
      // A vector travels one argument per component and reaches the endpoint comma-joined.
      {{"--usd-property-op", "set", "/World/A", "xformOp:translate", "1", "-2", "3.5"},
       R"({"type":"usdProperty","kind":"set","primPath":"/World/A","propertyName":"xformOp:translate","value":"1,-2,3.5"})"},
      {{"--usd-property-op", "set", "/World/A", "doc"},
       R"({"type":"usdProperty","kind":"set","primPath":"/World/A","propertyName":"doc","value":""})"},
      {{"--usd-property-op", "reset", "/World/A", "size"},
       R"({"type":"usdProperty","kind":"reset","primPath":"/World/A","propertyName":"size","value":""})"},
      {{"--layer-op", "add", "detail", "--move-root-content-to-base-layer"},
       R"({"type":"layer","kind":"add","identifier":"","name":"detail","direction":"","muted":false,"moveRootContentToBaseLayer":true})"},
      {{"--layer-op", "add", "detail"},
       R"({"type":"layer","kind":"add","identifier":"","name":"detail","direction":"","muted":false,"moveRootContentToBaseLayer":false})"},
      {{"--layer-op", "move", "/p/a.usda", "down"},
       R"({"type":"layer","kind":"move","identifier":"/p/a.usda","name":"","direction":"down","muted":false,"moveRootContentToBaseLayer":false})"},
      {{"--layer-op", "mute", "/p/a.usda", "true"},
       R"({"type":"layer","kind":"mute","identifier":"/p/a.usda","name":"","direction":"","muted":true,"moveRootContentToBaseLayer":false})"},
      {{"--layer-op", "merge-down", "/p/a.usda"},
       R"({"type":"layer","kind":"merge-down","identifier":"/p/a.usda","name":"","direction":"","muted":false,"moveRootContentToBaseLayer":false})"},
      {{"--asset-op", "replace", "Lamp", "mesh", "/tmp/l.usda", "store://l"},
       R"({"type":"asset","kind":"replace","name":"Lamp","assetKind":"mesh","sourceURI":"/tmp/l.usda","storeURI":"store://l"})"},
      {{"--asset-op", "remove", "Lamp"},
       R"({"type":"asset","kind":"remove","name":"Lamp","assetKind":"","sourceURI":"","storeURI":""})"},
      {{"--undo"}, R"({"type":"history","kind":"undo"})"},
      {{"--redo"}, R"({"type":"history","kind":"redo"})"},
  };
  for (const ArgumentCase& item : cases)
    EXPECT_EQ(bodyFor(item.operation), body(item.expected))
        << item.operation[0] << " " << item.operation[1];
}

TEST(EditCommandLineTest, TheStdioFormNeedsItsScopeAndNothingAfterTheAddress) {
  const auto stdio = parse({"--stdio", "--author", "Ada", "--client-id", "c1", "--scene", "s.usda",
                            "--workspace", "main", "grpc://127.0.0.1:9"});
  ASSERT_TRUE(stdio.commandLine) << stdio.error;
  EXPECT_EQ(stdio.commandLine->mode, EditClientMode::kStdio);
  EXPECT_EQ(stdio.commandLine->scope, (EditScope{"Ada", "c1", "s.usda", "main", ""}));
  EXPECT_EQ(stdio.commandLine->address, "grpc://127.0.0.1:9");

  const std::vector<std::vector<std::string>> refused = {
      {},
      {"--stdio", "--author", "A", "--client-id", "c", "--scene", "s", "--workspace", "w"},
      {"--stdio", "--author", "A", "--client-id", "c", "--workspace", "w", "grpc://h:1"},
      {"--stdio", "--author", "A", "--client-id", "c", "--scene", "s", "--workspace", "w",
       "grpc://h:1", "7"},
      {"--stdio", "--json", "--author", "A", "--workspace", "w", "grpc://h:1", "7", "--undo"},
      {"--author", "A", "--workspace", "w", "grpc://h:1", "7", "--undo"},
      {"--json", "--workspace", "w", "grpc://h:1", "7", "--undo"},
      {"--json", "--author", "A", "--workspace", "w", "--token", "t", "grpc://h:1", "7", "--undo"},
      {"--json", "--author", "A", "--workspace"},
      {"--json", "--author", "A", "--workspace", "w", "grpc://h:1"},
      {"--json", "--author", "A", "--workspace", "w", "grpc://h:1", "-7", "--undo"},
      {"--json", "--author", "A", "--workspace", "w", "grpc://h:1", "7"},
      {"--json", "--author", "A", "--workspace", "w", "grpc://h:1", "7", "--undo", "now"},
      {"--json", "--author", "A", "--workspace", "w", "grpc://h:1", "7", "--fly"},
      {"--json", "--author", "A", "--workspace", "w", "grpc://h:1", "7", "--undo", "--redo"},
      {"--json", "--author", "A", "--workspace", "w", "grpc://h:1", "7", "--prim-op", "add", "/W",
       "C"},
      {"--json", "--author", "A", "--workspace", "w", "grpc://h:1", "7", "--prim-op", "delete",
       "/W/C", "--initial-translation", "1", "2", "3"},
      {"--json", "--author", "A", "--workspace", "w", "grpc://h:1", "7", "--prim-op", "add", "/W",
       "C", "cube", "--initial-translation", "1", "2"},
      {"--json", "--author", "A", "--workspace", "w", "grpc://h:1", "7", "--prim-op", "add", "/W",
       "C", "cube", "--initial-translation", "1", "x", "3"},
      {"--json", "--author", "A", "--workspace", "w", "grpc://h:1", "7", "--prim-op",
       "set-instanceable", "/W/C", "1"},
      {"--json", "--author", "A", "--workspace", "w", "grpc://h:1", "7", "--layer-op", "remove",
       "/p/a.usda", "--move-root-content-to-base-layer"},
      {"--json", "--author", "A", "--workspace", "w", "grpc://h:1", "7", "--layer-op", "move",
       "/p/a.usda", "left"},
      {"--json", "--author", "A", "--workspace", "w", "grpc://h:1", "7", "--layer-op", "mute",
       "/p/a.usda"},
      {"--json", "--author", "A", "--workspace", "w", "grpc://h:1", "7", "--component-op", "set",
       "/W/A", "Name", "name"},
      {"--json", "--author", "A", "--workspace", "w", "grpc://h:1", "7", "--usd-property-op",
       "reset", "/W/A", "size", "2"},
      {"--json", "--author", "A", "--workspace", "w", "grpc://h:1", "7", "--asset-op", "replace",
       "L", "mesh"},
  };
  for (const auto& arguments : refused) {
    const EditCommandLineResult result = parse(arguments);
    std::string joined;
    for (const std::string& argument : arguments)
      joined += argument + " ";
    EXPECT_FALSE(result.commandLine) << joined;
    EXPECT_FALSE(result.error.empty()) << joined;
  }
}

}  // namespace
}  // namespace orvan::engine
