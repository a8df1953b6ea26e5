#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "Viewport/RunOptions.h"

namespace orvan::engine {
namespace {

TEST(ViewportRunOptions, ArgumentsAreReadOrRefusedWithTheReason) {
  const RunOptionsResult full =
      parseRunOptions({"--scene", "a.usda", "--size", "640x360", "--frames", "12", "--yaw", "-45.5",
                       "--pitch", "10", "--output", "out.ppm"});
  ASSERT_TRUE(full.error.empty()) << full.error;
  EXPECT_EQ(full.options.scene, "a.usda");
  EXPECT_EQ(full.options.width, 640);
  EXPECT_EQ(full.options.height, 360);
  EXPECT_EQ(full.options.frames, 12);
  EXPECT_FLOAT_EQ(full.options.yawDegrees, -45.5f);
  EXPECT_FLOAT_EQ(full.options.pitchDegrees, 10.0f);
  EXPECT_EQ(full.options.output, "out.ppm");
  EXPECT_TRUE(parseRunOptions({"--help"}).help);

  struct Case {
    std::vector<std::string> arguments;
    std::string error;
  };
  for (const Case& c : {Case{{}, "--scene is required"}, Case{{"--scene"}, "--scene needs a value"},
                        Case{{"--scene", "a", "--size", "640"}, "bad value for --size: 640"},
                        Case{{"--scene", "a", "--size", "0x10"}, "bad value for --size: 0x10"},
                        Case{{"--scene", "a", "--size", "10x20x"}, "bad value for --size: 10x20x"},
                        Case{{"--scene", "a", "--frames", "0"}, "bad value for --frames: 0"},
                        Case{{"--scene", "a", "--yaw", "nan"}, "bad value for --yaw: nan"},
                        Case{{"--scene", "a", "--colour", "red"}, "unknown argument --colour"}}) {
    EXPECT_EQ(parseRunOptions(c.arguments).error, c.error);
  }
}

std::string runtime() {
  return ORVAN_ENGINE_BIN_DIR "/orvan_runtime_viewport";
}

// The executable renders the demo scene into a picture with the scene in it, not one colour.
TEST(ViewportRuntime, RendersTheDemoSceneToAPicture) {
  const std::filesystem::path out = std::filesystem::temp_directory_path() /
                                    ("orvan_viewport_" + std::to_string(::getpid()) + ".ppm");
  const std::string command = runtime() + " --scene " ORVAN_DEMO_DIR "/hello_world.usda" +
                              " --size 96x54 --output " + out.string() + " > /dev/null";
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
  std::ifstream in(out, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::filesystem::remove(out);
  const std::string header = "P6\n96 54\n255\n";
  ASSERT_EQ(bytes.size(), header.size() + 96 * 54 * 3);
  EXPECT_EQ(bytes.substr(0, header.size()), header);
  std::set<std::string> colours;
  for (std::size_t i = header.size(); i < bytes.size(); i += 3) {
    colours.insert(bytes.substr(i, 3));
  }
  // The background, the ground and the shapes on it.
  EXPECT_GT(colours.size(), 5u);
}

TEST(ViewportRuntime, AMissingSceneOrBadArgumentsFailWithAMessage) {
  const std::string missing = runtime() + " --scene /nonexistent/scene.usda 2>&1";
  FILE* pipe = ::popen(missing.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::string output;
  char buffer[256];
  while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) {
    output += buffer;
  }
  const int status = ::pclose(pipe);
  EXPECT_NE(status, 0);
  EXPECT_NE(output.find("/nonexistent/scene.usda"), std::string::npos) << output;
  EXPECT_NE(std::system((runtime() + " --size big 2> /dev/null").c_str()), 0);
}

}  // namespace
}  // namespace orvan::engine
