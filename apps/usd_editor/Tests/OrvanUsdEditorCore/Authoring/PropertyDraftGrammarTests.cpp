// The value grammar of inspector fields, the vector split and the preview store's rate limit.
#include <gtest/gtest.h>

#include "Authoring/PropertyDrafts.h"
#include "Support/ManualScheduler.h"

namespace orvan::editor {
namespace {

using namespace std::chrono_literals;

TEST(PropertyDraftGrammar, NumberListsAcceptOnlyWholeNumbers) {
  struct Case {
    std::string text;
    std::optional<std::vector<double>> numbers;
  };
  const std::vector<Case> cases = {
      {"1,2,3", std::vector<double>{1, 2, 3}},
      {" 1 ,\n2\t, 3 ", std::vector<double>{1, 2, 3}},
      {"1,,2,", std::vector<double>{1, 2}},
      {"1e3", std::vector<double>{1000}},
      {"-2.5E-1", std::vector<double>{-0.25}},
      {"+4", std::vector<double>{4}},
      {"", std::vector<double>{}},
      {"1,a,3", std::nullopt},
      {"12abc", std::nullopt},
      {"1 2", std::nullopt},
      {"0x10", std::nullopt},
      {"1.2.3", std::nullopt},
      {"--1", std::nullopt},
      {"+-1", std::nullopt},
      {"e", std::nullopt},
      {"nan", std::nullopt},
      {"inf", std::nullopt},
  };
  for (const Case& each : cases)
    EXPECT_EQ(parseNumberList(each.text), each.numbers) << "'" << each.text << "'";
}

TEST(PropertyDraftGrammar, ValidityByKind) {
  struct Case {
    std::string value;
    std::string kind;
    bool valid;
  };
  const std::vector<Case> cases = {
      {"3", "number", true},         {"1e3", "number", true},     {"1,2", "number", false},
      {"", "number", false},         {"abc", "number", false},    {"1,2", "vector2", true},
      {"1", "vector2", false},       {"1,2,3", "vector2", false}, {"1,2,3", "vector3", true},
      {"1,2", "vector3", false},     {"1,a,3", "vector3", false}, {"1,2,3", "vector4", true},
      {"1,2,3,4", "vector4", false}, {"hello", "string", true},   {"   ", "string", false},
      {"\n", "option", false},       {"x", "unknownKind", true},
  };
  for (const Case& each : cases)
    EXPECT_EQ(valueIsValid(each.value, each.kind), each.valid) << each.value << " as " << each.kind;
}

TEST(PropertyDraftGrammar, NormalizedValues) {
  struct Case {
    std::string value;
    std::string kind;
    std::string normalized;
  };
  const std::vector<Case> cases = {
      {"1e3", "number", "1000"},
      {"0.1234567", "number", "0.123457"},
      {" 1 , 2.50 ,3 ", "vector3", "1,2.5,3"},
      {"1234567,0", "vector2", "1.23457e+06,0"},
      {"  Hello world \n", "string", "Hello world"},
      {" 1 , 2 ", "option", "1 , 2"},
  };
  for (const Case& each : cases)
    EXPECT_EQ(normalizedValue(each.value, each.kind), each.normalized) << each.value;
}

TEST(PropertyDraftGrammar, VectorDraftsSplitIntoExactlyCountPlaces) {
  struct Case {
    std::string text;
    std::size_t count;
    std::vector<std::string> values;
  };
  const std::vector<Case> cases = {
      {"1,2,3", 3, {"1", "2", "3"}},
      {"1", 3, {"1", "0", "0"}},
      {"", 2, {"", "0"}},
      {"1,2,3,4", 3, {"1", "2", "3"}},
      {" 0.1234567 , 1e2 ", 2, {"0.123457", "100"}},
      {"1,a,3", 3, {"1", "a", "3"}},
  };
  for (const Case& each : cases)
    EXPECT_EQ(splitVectorDraft(each.text, each.count), each.values) << each.text;
}

TEST(PropertyDraftGrammar, KeysAndWhatTheViewportPreviews) {
  EXPECT_EQ(sliderCommitKey("RenderShape", "color", {"/World/A", "/World/B"}),
            "RenderShape|color|/World/A|/World/B");
  EXPECT_EQ(draftKey("RenderShape", "color"), "RenderShape|color");
  EXPECT_TRUE(supportsViewportPropertyPreview("RenderShape", "dimensions"));
  EXPECT_TRUE(supportsViewportPropertyPreview("WorldSettings", "ambientOcclusionStrength"));
  EXPECT_TRUE(supportsViewportPropertyPreview("MaterialBinding", "material"));
  EXPECT_FALSE(supportsViewportPropertyPreview("RenderShape", "radius"));
  EXPECT_FALSE(supportsViewportPropertyPreview("Script", "color"));

  const auto set = [](std::string type, std::string property) {
    return AtomicOperation{ComponentAtomicOperation{.kind = ComponentOperationKind::set,
                                                    .entityPath = "/World/A",
                                                    .componentType = std::move(type),
                                                    .propertyName = std::move(property),
                                                    .value = "asset:x"}};
  };
  EXPECT_EQ(resolvingAssetPointerKeys(set("MeshAsset", "asset")),
            std::set<std::string>{"/World/A|MeshAsset|asset"});
  EXPECT_EQ(resolvingAssetPointerKeys(set("MaterialBinding", "material")),
            std::set<std::string>{"/World/A|MaterialBinding|material"});
  EXPECT_TRUE(resolvingAssetPointerKeys(set("MeshAsset", "proxyDimensions")).empty());
  AtomicOperation reset = set("MeshAsset", "asset");
  std::get<ComponentAtomicOperation>(reset.value).kind = ComponentOperationKind::reset;
  EXPECT_TRUE(resolvingAssetPointerKeys(reset).empty());
}

TEST(LivePropertyPreviewStore, PublishesAtMostOneHundredTwentyTimesASecondAndLastValueWins) {
  testing::ManualScheduler scheduler;
  LivePropertyPreviewStore store(scheduler);
  std::vector<TimePoint> publishes;
  Subscription watch =
      store.values.subscribe([&](const auto&) { publishes.push_back(scheduler.now()); });
  for (int step = 0; step < 200; ++step) {
    store.set("/World/A|RenderShape|color", std::to_string(step));
    scheduler.advanceBy(1ms);
  }
  scheduler.advanceBy(20ms);
  ASSERT_GE(publishes.size(), 20u) << "previews keep flowing during a drag";
  EXPECT_LE(publishes.size(), 26u);
  for (std::size_t index = 1; index < publishes.size(); ++index)
    EXPECT_GE(publishes[index] - publishes[index - 1], std::chrono::nanoseconds(8333333))
        << "1/120 s" << index;
  EXPECT_EQ(store.values.get().at("/World/A|RenderShape|color"), "199");
  EXPECT_TRUE(store.pendingValues.empty());

  store.set("/World/A|RenderShape|color", "late");
  store.clear();
  scheduler.advanceBy(20ms);
  EXPECT_TRUE(store.values.get().empty()) << "a cleared store publishes nothing pending";
}

}  // namespace
}  // namespace orvan::editor
