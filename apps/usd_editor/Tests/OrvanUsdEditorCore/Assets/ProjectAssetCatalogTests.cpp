#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "Assets/PendingCreatedProjectAsset.h"
#include "Assets/ProjectAssetCatalogStore.h"
#include "Assets/ProjectAssetMerging.h"

namespace orvan::editor {
namespace {

using ::testing::ElementsAre;

ProjectAssetItem row(const std::string& path, const std::string& kind = "USD") {
  const std::size_t slash = path.rfind('/');
  return ProjectAssetItem{.path = path,
                          .name = slash == std::string::npos ? path : path.substr(slash + 1),
                          .folder = slash == std::string::npos ? "" : path.substr(0, slash),
                          .kind = kind};
}

std::vector<std::string> pathsOf(const std::vector<ProjectAssetItem>& rows) {
  std::vector<std::string> paths;
  for (const ProjectAssetItem& item : rows)
    paths.push_back(item.path);
  return paths;
}

TEST(ProjectAssetCatalogStoreTest, KeepsTwelveScopesForgettingTheLeastRecentlyRemembered) {
  ProjectAssetCatalogStore store;
  for (int i = 0; i < 12; ++i)
    store.remember("h", {row("a.usda")}, "scope" + std::to_string(i));
  store.remember("h2", {row("b.usda")}, "scope0");  // scope0 is now the most recent
  EXPECT_EQ(store.recentScopeKeys().back(), "scope0");

  store.remember("h", {row("c.usda")}, "scope12");
  EXPECT_EQ(store.catalog("scope1"), nullptr) << "the least recently remembered goes first";
  ASSERT_NE(store.catalog("scope0"), nullptr);
  EXPECT_EQ(*store.catalog("scope0"), (ScopeCatalog{"h2", {row("b.usda")}}));
  EXPECT_EQ(store.catalogs().size(), 12u);
  EXPECT_EQ(store.recentScopeKeys().size(), 12u);

  store.reconcile("scope13", "h", {row("d.usda")}, true);
  EXPECT_EQ(store.catalog("scope2"), nullptr) << "storing through reconcile remembers too";

  store.removeAll();
  EXPECT_TRUE(store.catalogs().empty());
  EXPECT_TRUE(store.recentScopeKeys().empty());
}

TEST(ProjectAssetCatalogStoreTest, CompleteListsForTheKnownHeadNeverLoseRowsButAskAgain) {
  ProjectAssetCatalogStore store;
  const auto first =
      store.reconcile("s", "h1", {row("a.usda"), row("b.png", "Image"), row("c.usda")}, true);
  EXPECT_FALSE(first.needsCompleteFetch);
  EXPECT_THAT(pathsOf(first.assets), ElementsAre("a.usda", "b.png", "c.usda"));

  ProjectAssetItem renamed = row("c.usda");
  renamed.name = "Crate";
  const auto omitting = store.reconcile("s", "h1", {renamed, row("a.usda")}, true);
  EXPECT_THAT(pathsOf(omitting.assets), ElementsAre("a.usda", "b.png", "c.usda"))
      << "known rows keep their places; the omitted one stays";
  EXPECT_EQ(omitting.assets[2].name, "Crate") << "a listed row replaces the stored one";
  EXPECT_TRUE(omitting.needsCompleteFetch);
  EXPECT_EQ(store.catalog("s")->headKey, "h1");

  const auto withoutHead = store.reconcile(
      "s", "", {row("a.usda"), row("a.usda"), row("b.png", "Image"), row("c.usda")}, true);
  EXPECT_FALSE(withoutHead.needsCompleteFetch) << "a path listed twice counts once";
  EXPECT_EQ(store.catalog("s")->headKey, "h1") << "no head given keeps the stored one";
}

TEST(ProjectAssetCatalogStoreTest, ACompleteListForANewHeadDropsRowsItDoesNotName) {
  ProjectAssetCatalogStore store;
  store.reconcile("s", "h1", {row("a.usda"), row("b.usda")}, true);
  const auto moved = store.reconcile("s", "h2", {row("b.usda"), row("n.usda")}, true);
  EXPECT_THAT(pathsOf(moved.assets), ElementsAre("b.usda", "n.usda"));
  EXPECT_FALSE(moved.needsCompleteFetch);
  EXPECT_EQ(*store.catalog("s"), (ScopeCatalog{"h2", moved.assets}));
}

TEST(ProjectAssetCatalogStoreTest, PartialListsOnlyAddAndFillIn) {
  ProjectAssetCatalogStore store;
  const auto firstPartial = store.reconcile("s", "h1", {row("a.usda")}, false);
  EXPECT_TRUE(firstPartial.needsCompleteFetch);
  EXPECT_EQ(store.catalog("s")->headKey, "") << "a partial list is complete for no head";

  ProjectAssetItem rich = row("b.usda");
  rich.contentUrl = "https://cdn/b";
  rich.runtimeAssetId = 7;
  rich.cooked = false;
  store.reconcile("s", "h1", {row("a.usda"), rich, row("c.usda")}, true);
  EXPECT_EQ(store.catalog("s")->headKey, "h1") << "the first complete list sets the head";

  ProjectAssetItem thin{.path = "b.usda", .cooked = true};
  const auto partial = store.reconcile("s", "h1", {thin, row("d.usda"), thin}, false);
  EXPECT_THAT(pathsOf(partial.assets), ElementsAre("a.usda", "b.usda", "c.usda", "d.usda"));
  EXPECT_TRUE(partial.needsCompleteFetch);
  const ProjectAssetItem& merged = partial.assets[1];
  EXPECT_EQ(merged.cooked, true) << "what the stage row says wins";
  EXPECT_EQ(merged.contentUrl, "https://cdn/b") << "what only the stored row knows stays";
  EXPECT_EQ(merged.runtimeAssetId, 7u);
  EXPECT_EQ(store.catalog("s")->assets, partial.assets);
  EXPECT_EQ(store.catalog("s")->headKey, "h1");

  const auto empty = store.reconcile("s", "h9", {}, false);
  EXPECT_EQ(empty.assets.size(), 4u) << "not even an empty partial list, under another head";
}

ProjectAssetItem identified(const std::string& path, std::optional<std::string> generation,
                            std::optional<std::uint64_t> hash) {
  ProjectAssetItem item = row(path);
  item.sourceGeneration = std::move(generation);
  item.contentHash = hash;
  return item;
}

TEST(ProjectAssetSourceIdentityTest, KeptOnlyForRowsThatBringNoneAndStayInTheirFolder) {
  ProjectAssetItem relocated = identified("c.usda", "g3", 33);
  relocated.assetPath = "Props/c.usda";
  const std::vector<ProjectAssetItem> previous{identified("Props/a.usda", "g1", 11), relocated,
                                               identified("h.usda", "g4", 44)};
  ProjectAssetItem moved = row("c.usda");
  moved.assetPath = "Moved/c.usda";
  const auto rows = projectAssetsPreservingKnownSourceIdentity(
      {identified("Props/a.usda", "0", 0), moved, identified("h.usda", std::nullopt, 99),
       row("new.usda")},
      previous);
  EXPECT_EQ(rows[0], identified("Props/a.usda", "g1", 11)) << "a blank identity is none";
  EXPECT_EQ(rows[1], moved) << "a moved source is another source";
  EXPECT_EQ(rows[2], identified("h.usda", std::nullopt, 99)) << "a row's own identity wins";
  EXPECT_EQ(rows[3], row("new.usda"));

  ProjectAssetCatalogStore store;
  store.reconcile("s", "h1", previous, true);
  const auto fresh = store.reconcile("s", "h2", {row("Props/a.usda")}, true);
  EXPECT_EQ(fresh.assets.at(0).contentHash, 11u) << "a new head still keeps known identities";
}

TEST(PendingCreatedProjectAssetTest, ShownAtOnceUntilTheServerListsThePath) {
  const TimePoint start{};
  PendingCreatedProjectAssets pending;
  pending["pending:b.png"] = {row("pending:b.png", "Image"), start + std::chrono::seconds(2)};
  pending["pending:a.png"] = {row("pending:a.png", "Image"), start + std::chrono::seconds(1)};
  ProjectAssetItem fromServer = row("x.usda");
  fromServer.name = "Server";
  pending["x.usda"] = {row("x.usda"), start};

  const auto shown = projectAssetsOverlayingPendingCreations(pending, {fromServer});
  EXPECT_THAT(pathsOf(shown), ElementsAre("x.usda", "pending:a.png", "pending:b.png"))
      << "oldest creation first, after the listed rows";
  EXPECT_EQ(shown[0].name, "Server") << "a listed row is never replaced by its pending one";
  EXPECT_EQ(projectAssetsOverlayingPendingCreations({}, {fromServer}), std::vector{fromServer});
}

TEST(PendingCreatedProjectAssetTest, OnlyTheSameObjectConfirmsACreation) {
  ProjectAssetItem created = row("Assets/a.png", "Image");
  created.contentHash = 5;
  created.assetPath = "Assets/a.png";
  const auto listedAs = [&](const std::function<void(ProjectAssetItem&)>& change) {
    ProjectAssetItem listed = created;
    change(listed);
    return projectAssetAuthoritativelyConfirmsPendingCreation(created, listed);
  };
  EXPECT_TRUE(listedAs([](ProjectAssetItem& item) { item.kind = "image"; }));
  EXPECT_TRUE(projectAssetAuthoritativelyConfirmsPendingCreation(created, row("Assets/a.png", "")))
      << "fields only one side carries are not compared";
  EXPECT_FALSE(listedAs([](ProjectAssetItem& item) { item.path = "Assets/b.png"; }));
  EXPECT_FALSE(listedAs([](ProjectAssetItem& item) { item.contentHash = 4; }));
  EXPECT_FALSE(listedAs([](ProjectAssetItem& item) { item.kind = "Material"; }));
  EXPECT_FALSE(listedAs([](ProjectAssetItem& item) { item.assetPath = "Assets/old/a.png"; }));
  EXPECT_FALSE(projectAssetAuthoritativelyConfirmsPendingCreation(
      identified("a.png", "g1", std::nullopt), identified("a.png", "g0", std::nullopt)));
}

}  // namespace
}  // namespace orvan::editor
