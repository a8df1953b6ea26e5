// The composer against scenes with known answers: each folder of Fixtures/Compose holds a
// scene.usda, the layers it uses, and expected.txt with what the composed stage must say.
//
//   prims: /A /A/B ...          every prim, in stage order
//   /A type: Cube               the composed type name
//   /A defined: true            whether some opinion defines the prim
//   /A problem: text            some problem of the prim contains the text
//   /A.name: value              the strongest value as the text form writes it (targets as <...>)
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "UsdText/LayerWriter.h"
#include "UsdText/StageComposer.h"

namespace orvan::engine {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> cases() {
  std::vector<std::string> found;
  for (const auto& entry : fs::directory_iterator(ORVAN_ENGINE_FIXTURES_DIR "/Compose")) {
    if (entry.is_directory() && fs::exists(entry.path() / "expected.txt"))
      found.push_back(entry.path().filename().string());
  }
  std::sort(found.begin(), found.end());
  return found;
}

std::string propertyText(const ComposedProperty& property) {
  if (property.kind == PropertyKind::Relationship || (!property.value && property.hasTargets)) {
    std::string text;
    for (const std::string& target : property.targets)
      text += (text.empty() ? "<" : ", <") + target + ">";
    return text;
  }
  if (property.value)
    return formatValue(*property.value);
  if (property.timeSamples)
    return formatValue(*property.timeSamples);
  return "<no value>";
}

// What the stage says for one line's subject, in the line's own terms.
std::string answer(const Stage& stage, const std::string& subject) {
  const std::size_t space = subject.find(' ');
  const std::size_t dot = subject.find('.', subject.rfind('/'));
  const bool isProperty = space == std::string::npos && dot != std::string::npos;
  const std::string path = subject.substr(0, isProperty ? dot : space);
  const ComposedPrim* prim = stage.findPrim(path);
  if (!prim)
    return "<no prim " + path + ">";
  if (isProperty) {
    const auto property = stage.findProperty(*prim, subject.substr(dot + 1));
    return property ? propertyText(*property) : "<no property>";
  }
  const std::string what = subject.substr(space + 1);
  if (what == "type")
    return std::string(prim->typeName);
  if (what == "defined")
    return prim->defined ? "true" : "false";
  if (what == "problem") {
    std::string all;
    for (const std::uint32_t problem : prim->problems)
      all += stage.problems[problem].message + "\n";
    return all;
  }
  return "<unknown question " + what + ">";
}

class ComposedScene : public testing::TestWithParam<std::string> {};

TEST_P(ComposedScene, GivesTheExpectedAnswer) {
  const fs::path folder = fs::path(ORVAN_ENGINE_FIXTURES_DIR "/Compose") / GetParam();
  const StageOpenResult result = openStage((folder / "scene.usda").string());
  ASSERT_TRUE(result.ok()) << result.error->describe();
  const Stage& stage = *result.stage;

  std::ifstream expected(folder / "expected.txt");
  std::string line;
  int checks = 0;
  while (std::getline(expected, line)) {
    if (line.empty() || line.front() == '#')
      continue;
    const std::size_t colon = line.find(": ");
    ASSERT_NE(colon, std::string::npos) << line;
    const std::string subject = line.substr(0, colon);
    const std::string want = line.substr(colon + 2);
    ++checks;
    if (subject == "prims") {
      std::string paths;
      for (const ComposedPrim& prim : stage.prims)
        paths += (paths.empty() ? "" : " ") + prim.path;
      EXPECT_EQ(paths, want);
      continue;
    }
    const std::string got = answer(stage, subject);
    if (subject.ends_with(" problem"))
      EXPECT_NE(got.find(want), std::string::npos) << subject << ":\n" << got;
    else
      EXPECT_EQ(got, want) << subject;
  }
  EXPECT_GT(checks, 1) << "the case says what it expects";
}

INSTANTIATE_TEST_SUITE_P(Corpus, ComposedScene, testing::ValuesIn(cases()),
                         [](const testing::TestParamInfo<std::string>& info) {
                           return info.param;
                         });

}  // namespace
}  // namespace orvan::engine
