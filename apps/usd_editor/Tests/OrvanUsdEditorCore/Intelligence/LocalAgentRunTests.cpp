#include "Intelligence/LocalAgentRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

namespace orvan::editor {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

VelkAgentAuthoringScope arenaScope() {
  VelkAgentAuthoringScope scope;
  scope.projectId = "proj-7";
  scope.workspaceId = "ws-main";
  scope.scenePath = "/Scenes/Levels/Arena.usda";
  scope.activeLayerId = "layer-2";
  scope.selectedPaths = {"/World/Crate", "", "/World/Say \"hi\"", "/World/Back\\slash"};
  return scope;
}

// The whole text is the contract with the plugin's tools, so it is compared byte for byte.
TEST(LocalAgentPromptTest, AssemblesTheWholeContractTextInOrder) {
  const std::string expected =
      "Work only through the installed Velk MCP tools. Do not modify local files or use shell "
      "commands.\n"
      "First call velk_workspace with exactly this scope and changeMode: \"continue\":\n"
      "projectId: proj-7\n"
      "workspaceId: ws-main\n"
      "sceneId: Levels/Arena.usda\n"
      "Work directly in that exact workspace. Do not create, select, or report another "
      "workspace.\n"
      "The authoritative current editor selection is this JSON array:\n"
      "selectedPaths: [\"/World/Crate\",\n"
      "\"/World/Say \\\"hi\\\"\",\n"
      "\"/World/Back\\\\slash\"\n"
      "]\n"
      "Selection is an explicit target only. Use selectedPaths when the request explicitly "
      "names the selected object(s), or uses a pronoun that clearly refers to an explicitly "
      "selected target. Do not repurpose selected geometry for a scene-wide, world-wide, "
      "rendering, or project-wide request. For any non-entity request, inspect the relevant "
      "typed schema and use its declared target; a schema may declare a sceneRoot target "
      "instead of an entity. Do not confuse an entity's visual, material, or prim property "
      "with a global scene or renderer setting: select the semantic owner declared by the "
      "schema. Interpret global language as scene or renderer intent; interpret UI intent only "
      "when the request explicitly says UI, HUD, menu, or panel. If selectedPaths is empty and "
      "the request explicitly depends on selection, explain that nothing is selected instead "
      "of guessing a target.\n"
      "Make exactly the minimum calls needed: inspect focused schemas, query only the directly "
      "relevant target, then call velk_change once. velk_change validates atomically, so do "
      "not call velk_verify unless velk_change reports a validation or authoring failure.\n"
      "Do not claim completion unless the successful velk_change resultLocation exactly "
      "matches the projectId, workspaceId, and sceneId above. Stop immediately after the "
      "successful result. A brief plain-language summary is enough; do not emit protocol "
      "markers.\n"
      "Current active layer: layer-2\n"
      "User request: Make the crate red";
  EXPECT_EQ(localAgentPrompt(arenaScope(), "Make the crate red"), expected);
}

TEST(LocalAgentPromptTest, EmptySelectionUnprefixedSceneAndAutomaticLayer) {
  VelkAgentAuthoringScope scope = arenaScope();
  scope.selectedPaths = {"", ""};
  scope.activeLayerId.clear();
  scope.scenePath = "Scenes/Arena.usda";
  const std::string prompt = localAgentPrompt(scope, "Delete it");
  EXPECT_THAT(prompt, HasSubstr("\nsceneId: Arena.usda\n"));
  EXPECT_THAT(prompt, HasSubstr("selectedPaths: [\n]\nSelection is an explicit target only."));
  EXPECT_TRUE(prompt.ends_with("\nCurrent active layer: (automatic)\nUser request: Delete it"));

  // Only quotes and backslashes are escaped: the rule is the contract, not JSON escaping.
  EXPECT_EQ(agentSelectionArrayText({"/Tab\there/\xC3\xA9"}), "[\"/Tab\there/\xC3\xA9\"\n]");
  EXPECT_EQ(agentSceneIdentifier("/Scenes/Scenes/Main.usda"), "Scenes/Main.usda");
  EXPECT_EQ(agentSceneIdentifier("/ScenesX/Main.usda"), "/ScenesX/Main.usda");
  EXPECT_EQ(agentSceneIdentifier("/Levels/Main.usda"), "/Levels/Main.usda");
}

TEST(AgentExecutableTest, FixedLocationsComeFirstAndThePathNeverLeadsToTheCurrentDirectory) {
  std::set<std::string> installed;
  std::vector<std::string> asked;
  const auto lookup = [&](std::string searchPath) {
    return AgentExecutableLookup{"/home/ann", std::move(searchPath), [&](const std::string& path) {
                                   asked.push_back(path);
                                   return installed.count(path) > 0;
                                 }};
  };
  EXPECT_EQ(localAgentExecutable(VelkAgentProvider::claude, lookup("/usr/bin:/bin")), std::nullopt);
  EXPECT_THAT(asked, ElementsAre("/home/ann/.local/bin/claude", "/home/ann/.claude/local/claude",
                                 "/opt/homebrew/bin/claude", "/usr/local/bin/claude",
                                 "/usr/bin/claude", "/bin/claude"));

  installed = {"/usr/local/bin/claude", "/home/ann/.claude/local/claude"};
  EXPECT_EQ(localAgentExecutable(VelkAgentProvider::claude, lookup("")),
            "/home/ann/.claude/local/claude");

  installed = {"bin/codex", "codex", "/opt/tools/codex"};
  asked.clear();
  EXPECT_EQ(localAgentExecutable(VelkAgentProvider::codex, lookup("::bin:/opt/tools/:/x")),
            "/opt/tools/codex");
  EXPECT_THAT(asked, Not(Contains("bin/codex")));
  EXPECT_THAT(asked, Not(Contains("codex")));
  EXPECT_THAT(asked, Not(Contains("/x/codex"))) << "the search ends at the first match";
}

// The prompt follows "--", so that a request reading like an option stays the prompt.
TEST(AgentArgumentsTest, EachProviderGetsItsExactCommandLine) {
  EXPECT_THAT(
      localAgentArguments(VelkAgentProvider::codex, "gpt-5.3-codex-spark", "/work dir", "do it"),
      ElementsAre("exec", "--json", "--model", "gpt-5.3-codex-spark", "--sandbox", "read-only",
                  "--skip-git-repo-check", "-C", "/work dir", "--", "do it"));
  EXPECT_THAT(localAgentArguments(VelkAgentProvider::claude, "opus", "/ignored", "--print-nothing"),
              ElementsAre("--print", "--model", "opus", "--output-format", "stream-json",
                          "--allowedTools", "mcp__plugin_velk_velk__*", "--", "--print-nothing"));
}

TEST(AgentProgressLabelTest, ToolCallsMapToTheirLabelsAndAgentMessagesOnlySummarise) {
  const std::pair<std::string_view, std::string_view> tools[] = {
      {"velk_workspace", "Opening the current scene"},
      {"mcp__plugin_velk_velk__velk_inspect", "Inspecting the relevant scene data"},
      {"velk.velk_observe", "Inspecting the relevant scene data"},
      {"velk_describe_schema", "Checking the available settings"},
      {"velk/velk_change", "Applying the change"},
      {"velk_verify", "Checking the applied change"},
  };
  for (const auto& [tool, label] : tools) {
    SCOPED_TRACE(tool);
    const std::string call = R"({"type":"function_call","name":")" + std::string(tool) + "\"}";
    EXPECT_EQ(agentProgressLabel(call).label, label);
  }
  EXPECT_EQ(
      agentProgressLabel(R"({"payload":{"type":"function_call","name":"velk_verify"}})").label,
      "Checking the applied change")
      << "a call may arrive wrapped in a payload";
  for (const std::string_view line :
       {"plain text", "[1,2]", R"({"type":"function_call","name":"velk_changes"})",
        R"({"type":"function_call"})", R"({"payload":{"type":"agent_message","message":7}})"}) {
    SCOPED_TRACE(line);
    EXPECT_EQ(agentProgressLabel(line),
              (AgentProgress{std::string(kAgentPreparingLabel), std::nullopt}));
  }
  EXPECT_EQ(agentProgressLabel(R"({"payload":{"type":"agent_message","message":"Made it red."}})"),
            (AgentProgress{std::nullopt, "Made it red."}));
}

}  // namespace
}  // namespace orvan::editor
