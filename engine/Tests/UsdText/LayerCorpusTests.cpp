// The reader against the fixture corpus: every good layer survives read, write, read unchanged, and
// every bad one fails at the line and column its "# expect:" comment names.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "UsdText/LayerReader.h"
#include "UsdText/LayerWriter.h"
#include "UsdText/StageComposer.h"

namespace orvan::engine {
namespace {

namespace fs = std::filesystem;

// Every layer of our own making: the fixtures and the demo scenes.
std::vector<std::string> fixtures(bool bad) {
  std::vector<std::string> found;
  for (const char* root : {ORVAN_ENGINE_FIXTURES_DIR "/UsdText",
                           ORVAN_ENGINE_FIXTURES_DIR "/Compose", ORVAN_DEMO_DIR}) {
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
      if (!entry.is_regular_file() || entry.path().extension() != ".usda")
        continue;
      const bool isBad = entry.path().filename().string().rfind("bad_", 0) == 0;
      if (isBad == bad)
        found.push_back(entry.path().string());
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string testName(const testing::TestParamInfo<std::string>& info) {
  const fs::path path(info.param);
  std::string name = path.parent_path().filename().string() + "_" + path.stem().string();
  std::replace_if(
      name.begin(), name.end(), [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); },
      '_');
  return name;
}

class GoodLayer : public testing::TestWithParam<std::string> {};

TEST_P(GoodLayer, ReadsWritesAndReadsBackTheSameLayer) {
  const LayerReadResult first = readLayerFile(GetParam());
  ASSERT_TRUE(first.ok()) << first.error->describe();

  const std::string written = writeLayer(*first.layer);
  const LayerReadResult second = readLayerText(GetParam() + " (written)", written);
  ASSERT_TRUE(second.ok()) << second.error->describe() << "\n" << written;
  EXPECT_TRUE(first.layer->equivalentTo(*second.layer)) << written;
  // The canonical form is a fixed point: writing it again changes nothing.
  EXPECT_EQ(writeLayer(*second.layer), written);
}

TEST_P(GoodLayer, EveryPrefixOfTheFileFailsCleanlyOrReads) {
  // Cut the layer at every byte: the reader must never crash or read past the end, and a failure
  // must point inside the text it was given.
  const std::string text = readFile(GetParam());
  for (std::size_t length = 0; length < text.size(); length += 1 + length / 64) {
    const std::string prefix = text.substr(0, length);
    const LayerReadResult result = readLayerText("prefix.usda", prefix);
    if (result.ok())
      continue;
    const auto lines =
        static_cast<std::uint32_t>(std::count(prefix.begin(), prefix.end(), '\n')) + 1;
    EXPECT_GE(result.error->line, 1u) << length;
    EXPECT_LE(result.error->line, lines) << length;
    EXPECT_GE(result.error->column, 1u) << length;
  }
}

TEST_P(GoodLayer, MutatedCopiesEitherFailInsideTheTextOrRoundTrip) {
  // Whatever the reader accepts, the writer must be able to say again: any readable mutation of a
  // good layer round-trips, and composing it never crashes.
  const std::string original = readFile(GetParam());
  static constexpr std::string_view kInteresting = "{}()[]\"'@<>=,:;#.\n\\-0a ";
  std::uint32_t state = 2166136261u;
  const auto next = [&] {
    state = state * 1664525u + 1013904223u;
    return state >> 8;
  };
  int readable = 0;
  for (int round = 0; round < 300; ++round) {
    std::string text = original;
    // One to three bytes inserted or removed somewhere behind the header.
    for (int edits = 1 + static_cast<int>(next() % 3); edits > 0; --edits) {
      const std::size_t at = std::min(text.size(), 10 + next() % text.size());
      const char c = (next() % 4 == 0) ? static_cast<char>(next())
                                       : kInteresting[next() % kInteresting.size()];
      if (next() % 2 == 0)
        text.insert(at, 1, c);
      else
        text.erase(at, 1);
    }
    const LayerReadResult first = readLayerText(GetParam(), text);
    if (!first.ok()) {
      const auto lines = static_cast<std::uint32_t>(std::count(text.begin(), text.end(), '\n')) + 1;
      EXPECT_LE(first.error->line, lines) << text;
      EXPECT_GE(first.error->column, 1u) << text;
      continue;
    }
    ++readable;
    const std::string written = writeLayer(*first.layer);
    const LayerReadResult second = readLayerText("rewritten.usda", written);
    ASSERT_TRUE(second.ok()) << second.error->describe() << "\n--- input\n"
                             << text << "\n--- written\n"
                             << written;
    EXPECT_TRUE(first.layer->equivalentTo(*second.layer)) << "--- input\n"
                                                          << text << "\n--- written\n"
                                                          << written;
    const StageOpenResult composed = composeStage(first.layer);
    EXPECT_TRUE(composed.ok());
  }
  EXPECT_GT(readable, 0) << "some mutations (inside comments or values) stay readable";
}

INSTANTIATE_TEST_SUITE_P(Corpus, GoodLayer, testing::ValuesIn(fixtures(false)), testName);

class BadLayer : public testing::TestWithParam<std::string> {};

TEST_P(BadLayer, FailsAtTheExpectedLineAndColumn) {
  const std::string text = readFile(GetParam());
  std::smatch match;
  static const std::regex kExpect(R"(# expect: (\d+):(\d+) ([^\n]*))");
  ASSERT_TRUE(std::regex_search(text, match, kExpect)) << "the fixture says what it expects";

  const LayerReadResult result = readLayerFile(GetParam());
  ASSERT_FALSE(result.ok());
  const ReadError& error = *result.error;
  EXPECT_EQ(error.file, GetParam());
  EXPECT_EQ(error.line, std::stoul(match[1])) << error.describe();
  EXPECT_EQ(error.column, std::stoul(match[2])) << error.describe();
  EXPECT_NE(error.message.find(match[3].str()), std::string::npos) << error.describe();
  EXPECT_EQ(error.message.rfind("expected ", 0), 0u) << error.describe();
}

INSTANTIATE_TEST_SUITE_P(Corpus, BadLayer, testing::ValuesIn(fixtures(true)), testName);

TEST(LayerCorpus, HasFixturesOfBothKinds) {
  EXPECT_GE(fixtures(false).size(), 6u);
  EXPECT_GE(fixtures(true).size(), 10u);
}

TEST(LayerReaderFailures, FilesThatAreNotTextLayersFailWithoutCrashing) {
  const LayerReadResult missing = readLayerFile("/nonexistent/dir/scene.usda");
  ASSERT_FALSE(missing.ok());
  EXPECT_EQ(missing.error->line, 0u);
  EXPECT_NE(missing.error->describe().find("/nonexistent/dir/scene.usda"), std::string::npos);

  const LayerReadResult folder = readLayerFile(ORVAN_ENGINE_FIXTURES_DIR);
  ASSERT_FALSE(folder.ok());
  EXPECT_NE(folder.error->message.find("folder"), std::string::npos);
  EXPECT_FALSE(readLayerFile("/dev/null").ok());

  const LayerReadResult binary = readLayerText("mesh.usdc", std::string("BINLAYER\0\x01\x02", 11));
  ASSERT_FALSE(binary.ok());
  EXPECT_EQ(binary.error->line, 1u);
  EXPECT_EQ(binary.error->column, 1u);

  const LayerReadResult empty = readLayerText("empty.usda", "");
  EXPECT_FALSE(empty.ok());

  // Random bytes after a valid header.
  std::string noise = "#usda 1.0\n";
  std::uint32_t state = 12345;
  for (int i = 0; i < 4096; ++i) {
    state = state * 1103515245u + 12345u;
    noise += static_cast<char>(state >> 24);
  }
  EXPECT_FALSE(readLayerText("noise.usda", noise).ok());
}

}  // namespace
}  // namespace orvan::engine
