// orvan_project_tool's commands, run in-process against files in a scratch directory.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include <unistd.h>

#include "ProjectTool/ProjectTool.h"
#include "UsdText/LayerReader.h"
#include "UsdText/StageComposer.h"

namespace orvan::engine {
namespace {

namespace fs = std::filesystem;

class ProjectToolTest : public testing::Test {
 protected:
  void SetUp() override {
    directory_ = fs::temp_directory_path() /
                 ("orvan_project_tool_" + std::to_string(::getpid()) + "_" +
                  ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(directory_);
    fs::create_directories(directory_);
  }
  void TearDown() override { fs::remove_all(directory_); }

  int run(std::vector<std::string> arguments) {
    out_.str("");
    err_.str("");
    return runProjectTool(arguments, out_, err_);
  }

  std::string path(const std::string& name) const { return (directory_ / name).string(); }

  static std::string readFile(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  }

  static void writeFile(const std::string& file, const std::string& text) {
    std::ofstream(file, std::ios::binary) << text;
  }

  fs::path directory_;
  std::ostringstream out_;
  std::ostringstream err_;
};

TEST_F(ProjectToolTest, GenerateWritesASceneThatChecksClean) {
  ASSERT_EQ(run({"generate", "1234", path("big.usda")}), kToolOk) << err_.str();
  const StageOpenResult stage = openStage(path("big.usda"));
  ASSERT_TRUE(stage.ok());
  EXPECT_EQ(stage.stage->prims.size(), 1234u);

  EXPECT_EQ(run({"check", path("big.usda")}), kToolOk);
  EXPECT_NE(out_.str().find("1234 prims, 1 layers, 0 problems"), std::string::npos) << out_.str();
  EXPECT_FALSE(fs::exists(path("big.usda") + ".orvan-tmp"));
}

TEST_F(ProjectToolTest, CheckReportsEveryProblemAndFailsTheExitStatus) {
  EXPECT_EQ(run({"check", ORVAN_ENGINE_FIXTURES_DIR "/UsdText/compose/refs_root.usda"}),
            kToolProblems);
  const std::string report = out_.str();
  for (const char* prim : {"</World/NoDefault>", "</World/Missing>", "</World/Binary>",
                           "</World/Foreign>", "</World/Cycle>"}) {
    EXPECT_NE(report.find(std::string("problem: ") + prim), std::string::npos) << prim << "\n"
                                                                               << report;
  }
  // Muting the layer that is missing is how a user silences it.
  EXPECT_EQ(run({"check", ORVAN_ENGINE_FIXTURES_DIR "/UsdText/compose/stack_root.usda"}),
            kToolProblems);
  EXPECT_EQ(run({"check", ORVAN_ENGINE_FIXTURES_DIR "/UsdText/compose/stack_root.usda", "--mute",
                 ORVAN_ENGINE_FIXTURES_DIR "/UsdText/compose/stack_missing.usda"}),
            kToolOk)
      << out_.str();

  EXPECT_EQ(run({"check", ORVAN_ENGINE_FIXTURES_DIR "/UsdText/bad_tuple_arity.usda"}),
            kToolProblems);
  EXPECT_NE(err_.str().find("bad_tuple_arity.usda:5:28: expected a tuple of 3 numbers"),
            std::string::npos)
      << err_.str();
}

TEST_F(ProjectToolTest, FormatRewritesInPlaceOnceAndLeavesBadLayersAlone) {
  writeFile(path("messy.usda"),
            "#usda 1.0\n(defaultPrim=\"A\")\n# note\ndef Xform \"A\"{float3 v=(1,2,3)\n"
            "def Cube \"B\"(kind=\"component\"){double size=2}}\n");
  ASSERT_EQ(run({"format", path("messy.usda")}), kToolOk) << err_.str();
  const std::string once = readFile(path("messy.usda"));
  EXPECT_NE(once.find("    float3 v = (1, 2, 3)\n"), std::string::npos) << once;
  EXPECT_NE(once.find("# note\ndef Xform \"A\"\n{\n"), std::string::npos) << once;
  ASSERT_EQ(run({"format", path("messy.usda")}), kToolOk);
  EXPECT_EQ(readFile(path("messy.usda")), once);

  const std::string broken = "#usda 1.0\ndef \"A\" {\n";
  writeFile(path("broken.usda"), broken);
  EXPECT_EQ(run({"format", path("broken.usda")}), kToolProblems);
  EXPECT_EQ(readFile(path("broken.usda")), broken);
  EXPECT_NE(err_.str().find("broken.usda:3:1:"), std::string::npos) << err_.str();
}

TEST_F(ProjectToolTest, WrongCommandLinesExplainThemselves) {
  EXPECT_EQ(run({}), kToolUsage);
  EXPECT_EQ(run({"paint"}), kToolUsage);
  EXPECT_EQ(run({"generate", "0", path("x.usda")}), kToolUsage);
  EXPECT_EQ(run({"generate", "12x", path("x.usda")}), kToolUsage);
  EXPECT_EQ(run({"check", path("x.usda"), "--loud"}), kToolUsage);
  EXPECT_NE(err_.str().find("usage: orvan_project_tool"), std::string::npos);
  EXPECT_FALSE(fs::exists(path("x.usda")));
  EXPECT_EQ(run({"generate", "5", path("no/such/dir/x.usda")}), kToolProblems);
}

}  // namespace
}  // namespace orvan::engine
