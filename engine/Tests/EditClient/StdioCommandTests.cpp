// The stdio lines the editor writes, each turned into the body the authoring endpoint takes, and
// the lines the helper must refuse without dying.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "EditClient/EditCommands.h"
#include "EditClient/StdioCommands.h"

namespace orvan::engine {
namespace {

const EditScope kScope{"Ada", "c1", "s.usda", "main", ""};

std::string bodyOf(std::string_view line) {
  const StdioLine parsed = parseStdioLine(line);
  EXPECT_EQ(parsed.kind, StdioLineKind::kEdit) << parsed.problem;
  return encodeEditBody(kScope, parsed.command);
}

std::string body(std::string_view revision, std::string_view operations) {
  return R"({"scene":"s.usda","workspace":"main","activeLayer":"","author":"Ada","clientId":"c1","baseRevision":)" +
         std::string(revision) + R"(,"operations":[)" + std::string(operations) + "]}";
}

struct LineCase {
  std::string line;
  std::string operations;
};

TEST(StdioCommandTest, EveryCommandBecomesItsOperation) {
  const std::vector<LineCase> cases = {
      {"prims\t7\t1\tadd\t/World\tCube\tcube",
       R"({"type":"prim","kind":"add","parentPath":"/World","primName":"Cube","primitiveKind":"cube","referenceURI":"","payloadURI":"","assetName":"","sourcePath":"","instanceable":false})"},
      {"prims\t7\t1\tadd\t/World\tLamp\tmesh\tasset=Lamp Post\ttranslation=1.0,-2.5,1e-05",
       R"({"type":"prim","kind":"add","parentPath":"/World","primName":"Lamp","primitiveKind":"mesh","referenceURI":"","payloadURI":"","assetName":"Lamp Post","sourcePath":"","initialTranslation":[1.0,-2.5,1e-05],"instanceable":false})"},
      {"prims\t7\t1\treference\t/World\tTree\t./tree.usda",
       R"({"type":"prim","kind":"reference","parentPath":"/World","primName":"Tree","primitiveKind":"","referenceURI":"./tree.usda","payloadURI":"","assetName":"","sourcePath":"","instanceable":false})"},
      {"prims\t7\t1\tpayload\t/World\tCity\t./city.usda\t",
       R"({"type":"prim","kind":"payload","parentPath":"/World","primName":"City","primitiveKind":"","referenceURI":"","payloadURI":"./city.usda","assetName":"","sourcePath":"","instanceable":false})"},
      {"prims\t7\t1\tdelete\t/World/Cube",
       R"({"type":"prim","kind":"delete","parentPath":"","primName":"","primitiveKind":"","referenceURI":"","payloadURI":"","assetName":"","sourcePath":"/World/Cube","instanceable":false})"},
      {"prims\t7\t1\treset\t/World/Cube",
       R"({"type":"prim","kind":"reset","parentPath":"","primName":"","primitiveKind":"","referenceURI":"","payloadURI":"","assetName":"","sourcePath":"/World/Cube","instanceable":false})"},
      {"prims\t7\t1\tduplicate\t/World/Cube\t/World\tCube1",
       R"({"type":"prim","kind":"duplicate","parentPath":"/World","primName":"Cube1","primitiveKind":"","referenceURI":"","payloadURI":"","assetName":"","sourcePath":"/World/Cube","instanceable":false})"},
      // A rename travels as a reparent to the same parent under a new name.
      {"prims\t7\t1\treparent\t/World/Cube\t/World\tBox",
       R"({"type":"prim","kind":"reparent","parentPath":"/World","primName":"Box","primitiveKind":"","referenceURI":"","payloadURI":"","assetName":"","sourcePath":"/World/Cube","instanceable":false})"},
      {"prims\t7\t1\tset-instanceable\t/World/Tree\ttrue",
       R"({"type":"prim","kind":"set-instanceable","parentPath":"","primName":"","primitiveKind":"","referenceURI":"","payloadURI":"","assetName":"","sourcePath":"/World/Tree","instanceable":true})"},
      {"component\t7\tadd\t/World/Cube\tLight",
       R"({"type":"component","kind":"add","entityPath":"/World/Cube","componentType":"Light","propertyName":"","value":""})"},
      {"component\t7\tremove\t/World/Cube\tLight",
       R"({"type":"component","kind":"remove","entityPath":"/World/Cube","componentType":"Light","propertyName":"","value":""})"},
      {"component\t7\tenable\t/World/Cube\tLight\tfalse",
       R"({"type":"component","kind":"enable","entityPath":"/World/Cube","componentType":"Light","propertyName":"","value":"false"})"},
      {"component\t7\tset\t/World/Cube\tTransform\ttranslation\t1,2,3",
       R"({"type":"component","kind":"set","entityPath":"/World/Cube","componentType":"Transform","propertyName":"translation","value":"1,2,3"})"},
      {"component\t7\treset\t/World/Cube\tTransform\tscale",
       R"({"type":"component","kind":"reset","entityPath":"/World/Cube","componentType":"Transform","propertyName":"scale","value":""})"},
      {"component\t7\treorder\t/World/Cube\t\tLight,RenderShape",
       R"({"type":"component","kind":"reorder","entityPath":"/World/Cube","componentType":"","propertyName":"","value":"Light,RenderShape"})"},
      {"usd-property\t7\tset\t/World/Cube\tsize\t2",
       R"({"type":"usdProperty","kind":"set","primPath":"/World/Cube","propertyName":"size","value":"2"})"},
      {"usd-property\t7\treset\t/World/Cube\tsize",
       R"({"type":"usdProperty","kind":"reset","primPath":"/World/Cube","propertyName":"size","value":""})"},
      {"asset\t7\treplace\tLamp\tmesh\t/tmp/lamp.usda",
       R"({"type":"asset","kind":"replace","name":"Lamp","assetKind":"mesh","sourceURI":"/tmp/lamp.usda","storeURI":""})"},
      {"asset\t7\treplace\tLamp\tmesh\t/tmp/lamp.usda\tstore://lamp",
       R"({"type":"asset","kind":"replace","name":"Lamp","assetKind":"mesh","sourceURI":"/tmp/lamp.usda","storeURI":"store://lamp"})"},
      {"asset\t7\tremove\tLamp",
       R"({"type":"asset","kind":"remove","name":"Lamp","assetKind":"","sourceURI":"","storeURI":""})"},
      {"history\t7\tundo", R"({"type":"history","kind":"undo"})"},
      {"history\t7\tredo", R"({"type":"history","kind":"redo"})"},
  };
  for (const LineCase& item : cases)
    EXPECT_EQ(bodyOf(item.line), body("7", item.operations)) << item.line;
}

TEST(StdioCommandTest, BatchesFindEachOperationPastItsOptionalTokens) {
  // Operations of varying width: an add with both tokens, one with none, a payload whose empty
  // asset field is still a field, a delete with a translation.
  const std::string line =
      "prims\t18446744073709551615\t4\tadd\t/\tA\tcube\tasset=Box\ttranslation=1.0,2.0,3.0\t"
      "add\t/World\tB\tsphere\tpayload\t/World\tC\t./c.usda\t\tdelete\t/World/D\t"
      "translation=0.0,0.0,0.0";
  const StdioLine parsed = parseStdioLine(line);
  ASSERT_EQ(parsed.kind, StdioLineKind::kEdit) << parsed.problem;
  EXPECT_EQ(parsed.command.baseRevision, 18446744073709551615ull);
  ASSERT_EQ(parsed.command.operations.size(), 4u);
  const auto& a = std::get<PrimOperationFields>(parsed.command.operations[0]);
  EXPECT_EQ(a.assetName, "Box");
  EXPECT_EQ(a.initialTranslation, (std::vector<double>{1, 2, 3}));
  const auto& b = std::get<PrimOperationFields>(parsed.command.operations[1]);
  EXPECT_EQ(b.primName, "B");
  EXPECT_EQ(b.assetName, "");
  EXPECT_FALSE(b.initialTranslation);
  const auto& c = std::get<PrimOperationFields>(parsed.command.operations[2]);
  EXPECT_EQ(c.payloadURI, "./c.usda");
  const auto& d = std::get<PrimOperationFields>(parsed.command.operations[3]);
  EXPECT_EQ(d.sourcePath, "/World/D");
  EXPECT_EQ(d.initialTranslation, (std::vector<double>{0, 0, 0}));

  // A name that merely looks like a token in a fixed field stays the field.
  const StdioLine named = parseStdioLine("prims\t1\t1\tadd\t/World\tasset=x\tcube");
  ASSERT_EQ(named.kind, StdioLineKind::kEdit) << named.problem;
  EXPECT_EQ(std::get<PrimOperationFields>(named.command.operations[0]).primName, "asset=x");

  const std::string components =
      "components\t3\t3\tset\t/World/A\tTransform\ttranslation\t1,2,3\tadd\t/World/A\tLight\t"
      "enable\t/World/A\tLight\ttrue";
  EXPECT_EQ(
      bodyOf(components),
      body(
          "3",
          R"({"type":"component","kind":"set","entityPath":"/World/A","componentType":"Transform","propertyName":"translation","value":"1,2,3"},)"
          R"({"type":"component","kind":"add","entityPath":"/World/A","componentType":"Light","propertyName":"","value":""},)"
          R"({"type":"component","kind":"enable","entityPath":"/World/A","componentType":"Light","propertyName":"","value":"true"})"));
}

TEST(StdioCommandTest, TheScopeOfTheCommandLineFramesEveryBody) {
  EditCommand command{0, {HistoryOperationFields{"history", "undo"}}};
  EXPECT_EQ(
      encodeEditBody(EditScope{"Bö \"B\"", "id", "", "ws", "/p/layer.usda"}, command),
      R"({"workspace":"ws","activeLayer":"/p/layer.usda","author":"Bö \"B\"","clientId":"id","baseRevision":0,"operations":[{"type":"history","kind":"undo"}]})");
}

TEST(StdioCommandTest, HandshakeWordsAndCarriageReturnsAsData) {
  EXPECT_EQ(parseStdioLine("ping").kind, StdioLineKind::kPing);
  EXPECT_EQ(parseStdioLine("quit").kind, StdioLineKind::kQuit);
  // The editor cleans carriage returns out of its fields; one that comes anyway is data, so that a
  // line written back from what was read is the same line.
  EXPECT_EQ(parseStdioLine("quit\r").kind, StdioLineKind::kUnknown);
  const StdioLine value = parseStdioLine("usd-property\t2\tset\t/A\tdoc\ttwo\r\r");
  ASSERT_EQ(value.kind, StdioLineKind::kEdit);
  EXPECT_EQ(std::get<UsdPropertyOperationFields>(value.command.operations[0]).value, "two\r\r");
}

TEST(StdioCommandTest, UnknownWordsAndBrokenLinesAreNamedAsSuch) {
  for (const std::string line : {"layer\t1\tadd\tNew", "Prims\t1\t1\tdelete\t/A", "hello", "\t"}) {
    const StdioLine parsed = parseStdioLine(line);
    EXPECT_EQ(parsed.kind, StdioLineKind::kUnknown) << line;
    EXPECT_NE(parsed.problem.find("unknown stdio command"), std::string::npos) << parsed.problem;
  }
  const std::vector<std::string> malformed = {
      "",
      "ping\textra",
      "prims",
      "prims\t-1\t1\tdelete\t/A",
      "prims\t+1\t1\tdelete\t/A",
      "prims\t 1\t1\tdelete\t/A",
      "prims\t18446744073709551616\t1\tdelete\t/A",
      "prims\t1\t0",
      "prims\t1\tx\tdelete\t/A",
      "prims\t1\t10001\tdelete\t/A",
      "prims\t1\t2\tdelete\t/A",
      "prims\t1\t1\tdelete\t/A\tdelete\t/B",
      "prims\t1\t1\tmove\t/A\t/B\tC",
      "prims\t1\t1\tadd\t/World\tCube",
      "prims\t1\t1\tset-instanceable\t/A\tyes",
      "prims\t1\t1\tadd\t/World\tCube\tcube\ttranslation=1.0,2.0",
      "prims\t1\t1\tadd\t/World\tCube\tcube\ttranslation=1.0,2.0,3.0,4.0",
      "prims\t1\t1\tadd\t/World\tCube\tcube\ttranslation=1.0,nan,3.0",
      "prims\t1\t1\tadd\t/World\tCube\tcube\ttranslation=1.0,,3.0",
      "prims\t1\t1\tadd\t/World\tCube\tcube\ttranslation=1.0,2.0,3.0\tasset=Box",
      "prims\t1\t1\treference\t/World\tTree\t./t.usda\tasset=Box",
      "component\t1\tfly\t/World/A\tLight",
      "component\t1\tset\t/World/A\tTransform\ttranslation",
      "component\t1\tadd\t/World/A\tLight\textra",
      "components\t1\t2\tadd\t/World/A\tLight",
      "usd-property\t1\tset\t/World/A\tsize",
      "usd-property\t1\treset\t/World/A\tsize\t2",
      "usd-property\t1\ttoggle\t/World/A\tsize",
      "asset\t1\treplace\tLamp\tmesh",
      "asset\t1\treplace\tLamp\tmesh\tsrc\tstore\textra",
      "asset\t1\tremove\tLamp\textra",
      "history\t1\trewind",
      "history\t1",
      "history\tone\tundo",
      "component\t1\tset\t/World/\xff\tName\tname\tx",
      "usd-property\t1\tset\t/A\tname\t\xc3",
  };
  for (const std::string& line : malformed) {
    const StdioLine parsed = parseStdioLine(line);
    EXPECT_EQ(parsed.kind, StdioLineKind::kMalformed) << line;
    EXPECT_NE(parsed.problem.find("malformed stdio command"), std::string::npos) << parsed.problem;
  }
}

}  // namespace
}  // namespace orvan::engine
