#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <thread>

#include "Store/ContentHash.h"
#include "Store/ProjectStore.h"
#include "StoreTestFolder.h"

namespace orvan::engine {
namespace {

std::unique_ptr<ProjectStore> openStore(const std::string& path) {
  auto opened = ProjectStore::open(path);
  if (!opened) {
    ADD_FAILURE() << opened.error().message;
    return nullptr;
  }
  return std::move(*opened);
}

NewRevision edit(const std::string& workspace, const std::string& text,
                 std::vector<std::string> layers = {"/p/root.usda"}) {
  return NewRevision{.workspace = workspace,
                     .author = "Ada",
                     .clientId = "editor-1",
                     .label = "edit " + text,
                     .timeMilliseconds = 1'700'000'000'000,
                     .changeSetText = text,
                     .layerPaths = std::move(layers)};
}

std::vector<std::uint64_t> numbersOf(const std::vector<StoredRevision>& revisions) {
  std::vector<std::uint64_t> numbers;
  for (const StoredRevision& revision : revisions)
    numbers.push_back(revision.revision);
  return numbers;
}

std::uint64_t fileBytes(const std::string& path) {
  std::error_code ignored;
  std::uint64_t total = 0;
  for (const char* suffix : {"", "-wal"})
    if (std::filesystem::exists(path + suffix, ignored))
      total += std::filesystem::file_size(path + suffix, ignored);
  return total;
}

TEST(ProjectStore, RevisionsFollowTheHeadPerWorkspaceAndSurviveReopening) {
  StoreTestFolder folder;
  const std::string path = folder.file("state/store.sqlite3");  // the folder is made too
  {
    auto store = openStore(path);
    ASSERT_TRUE(store);
    EXPECT_EQ(*store->headRevision("main"), 0u);
    EXPECT_EQ(*store->appendRevision(edit("main", "one")), 1u);
    EXPECT_EQ(*store->appendRevision(edit("main", "two", {"/p/b.usda", "/p/a.usda", "/p/b.usda"})),
              2u);
    EXPECT_EQ(*store->appendRevision(edit("review", "other")), 1u);
    EXPECT_EQ(*store->appendRevision(edit("main", "three")), 3u);
  }
  auto store = openStore(path);
  ASSERT_TRUE(store);
  EXPECT_EQ(*store->headRevision("main"), 3u);
  EXPECT_EQ(*store->headRevision("review"), 1u);
  EXPECT_EQ(*store->appendRevision(edit("main", "four")), 4u);
  EXPECT_EQ(*store->workspaces(), (std::vector<std::string>{"main", "review"}));

  const auto second = store->revision("main", 2);
  ASSERT_TRUE(second && *second);
  EXPECT_EQ(**second, (StoredRevision{.workspace = "main",
                                      .revision = 2,
                                      .author = "Ada",
                                      .clientId = "editor-1",
                                      .label = "edit two",
                                      .timeMilliseconds = 1'700'000'000'000,
                                      .changeSetText = "two",
                                      .layerPaths = {"/p/a.usda", "/p/b.usda"}}));
  EXPECT_FALSE(*store->revision("main", 5));
  EXPECT_FALSE(*store->revision("main", 0));

  EXPECT_EQ(numbersOf(*store->revisions("main", 1, 2)), (std::vector<std::uint64_t>{2, 3}));
  EXPECT_EQ(numbersOf(*store->latestRevisions("main", 2)), (std::vector<std::uint64_t>{3, 4}));
  EXPECT_EQ(numbersOf(*store->latestRevisions("main", 10)),
            (std::vector<std::uint64_t>{1, 2, 3, 4}));
  EXPECT_EQ(numbersOf(*store->revisionsAfter("main", 1)), (std::vector<std::uint64_t>{2, 3, 4}));
  EXPECT_EQ(numbersOf(*store->revisionsAfter("main", 1, 3)), (std::vector<std::uint64_t>{2, 3}));
  EXPECT_EQ((*store->revisionsAfter("main", 1))[1].layerPaths,
            std::vector<std::string>{"/p/root.usda"});
  EXPECT_EQ((*store->revisions("review", 0, 10))[0].changeSetText, "other");

  EXPECT_EQ(*store->lastRevisionTouching("main", "/p/a.usda"), 2u);
  EXPECT_EQ(*store->lastRevisionTouching("main", "/p/root.usda"), 4u);
  EXPECT_EQ(*store->lastRevisionTouching("main", "/p/root.usda", 2), 1u);
  EXPECT_EQ(*store->lastRevisionTouching("review", "/p/a.usda"), 0u);
}

TEST(ProjectStore, AnEditWithoutTimeGetsTheCurrentOneAndAWorkspaceNeedsAName) {
  StoreTestFolder folder;
  auto store = openStore(folder.file("store.sqlite3"));
  ASSERT_TRUE(store);
  NewRevision untimed = edit("main", "x");
  untimed.timeMilliseconds = 0;
  ASSERT_TRUE(store->appendRevision(untimed));
  EXPECT_GT((*store->revision("main", 1))->timeMilliseconds, 1'600'000'000'000);

  const auto unnamed = store->appendRevision(edit("", "x"));
  ASSERT_FALSE(unnamed);
  EXPECT_EQ(unnamed.error().message, "a workspace needs a name");
  EXPECT_EQ(*store->headRevision("main"), 1u);
}

TEST(ProjectStore, ConcurrentAppendsGetDistinctConsecutiveNumbers) {
  StoreTestFolder folder;
  const std::string path = folder.file("store.sqlite3");
  auto first = openStore(path);
  auto second = openStore(path);  // another connection, as another process would have
  ASSERT_TRUE(first && second);
  constexpr int kPerThread = 40;
  std::vector<std::uint64_t> got[3];
  const auto append = [&](ProjectStore& store, int thread) {
    for (int i = 0; i < kPerThread; ++i) {
      const auto number =
          store.appendRevision(edit("main", std::to_string(thread) + ":" + std::to_string(i)));
      ASSERT_TRUE(number) << number.error().message;
      got[thread].push_back(*number);
    }
  };
  std::thread a(append, std::ref(*first), 0);
  std::thread b(append, std::ref(*first), 1);
  std::thread c(append, std::ref(*second), 2);
  a.join();
  b.join();
  c.join();

  std::vector<std::uint64_t> all;
  for (const auto& numbers : got) {
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    all.insert(all.end(), numbers.begin(), numbers.end());
  }
  std::sort(all.begin(), all.end());
  std::vector<std::uint64_t> expected(3 * kPerThread);
  for (std::size_t i = 0; i < expected.size(); ++i)
    expected[i] = i + 1;
  EXPECT_EQ(all, expected);
  EXPECT_EQ(*first->headRevision("main"), expected.size());
  // Each number holds the payload its caller appended.
  const auto stored = *second->revisionsAfter("main", 0);
  ASSERT_EQ(stored.size(), expected.size());
  for (int thread = 0; thread < 3; ++thread)
    for (int i = 0; i < kPerThread; ++i)
      EXPECT_EQ(stored[got[thread][static_cast<std::size_t>(i)] - 1].changeSetText,
                std::to_string(thread) + ":" + std::to_string(i));
}

TEST(ProjectStore, BlobsAreKeptOnceUnderTheirContentHash) {
  StoreTestFolder folder;
  const std::string path = folder.file("store.sqlite3");
  auto store = openStore(path);
  ASSERT_TRUE(store);
  const auto abc = store->putBlob("abc");
  ASSERT_TRUE(abc);
  EXPECT_EQ(*abc, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(**store->blob(*abc), "abc");
  EXPECT_FALSE(*store->blob(std::string(64, '0')));
  EXPECT_TRUE(*store->hasBlob(*abc));
  EXPECT_EQ(**store->blob(*store->putBlob("")), "");

  // Larger than one stored piece, and not a multiple of it; with every byte value.
  std::string large(9 * 1024 * 1024 + 3, '\0');
  for (std::size_t i = 0; i < large.size(); ++i)
    large[i] = static_cast<char>((i * 2654435761u) >> 13);
  const auto hash = store->putBlob(large);
  ASSERT_TRUE(hash);
  EXPECT_EQ(*hash, contentHash(large));
  const std::uint64_t afterFirst = fileBytes(path);
  EXPECT_EQ(*store->putBlob(large), *hash);
  EXPECT_LT(fileBytes(path), afterFirst + 1024 * 1024);
  EXPECT_EQ(**store->blob(*hash), large);
}

TEST(ProjectStore, SnapshotsAndTheRevisionsAfterThemGiveTheFilesOfAnyRevision) {
  StoreTestFolder folder;
  auto store = openStore(folder.file("store.sqlite3"));
  ASSERT_TRUE(store);
  // A toy change set: "path=new text", the whole layer after the edit.
  const auto replay = [](std::map<std::string, std::string> files,
                         const std::vector<StoredRevision>& revisions) {
    for (const StoredRevision& revision : revisions) {
      const std::size_t equals = revision.changeSetText.find('=');
      files[revision.changeSetText.substr(0, equals)] = revision.changeSetText.substr(equals + 1);
    }
    return files;
  };
  std::map<std::string, std::string> truth{{"a.usda", "a0"}, {"b.usda", "b0"}};
  std::vector<std::map<std::string, std::string>> history{truth};
  ASSERT_TRUE(store->snapshotContents("main", 0, truth));
  for (int n = 1; n <= 9; ++n) {
    const std::string layer = n % 3 == 0 ? "b.usda" : "a.usda";
    truth[layer] = layer.substr(0, 1) + std::to_string(n);
    ASSERT_EQ(*store->appendRevision(edit("main", layer + "=" + truth[layer], {layer})),
              static_cast<std::uint64_t>(n));
    history.push_back(truth);
    if (n == 4) {
      ASSERT_TRUE(store->snapshotContents("main", 4, {{"a.usda", truth["a.usda"]}}));
    }
  }
  const auto atTwo = *store->snapshotAtOrBefore("main", 2);
  ASSERT_EQ(atTwo.size(), 2u);
  EXPECT_EQ(atTwo[0].revision, 0u);
  const auto atSeven = *store->snapshotAtOrBefore("main", 7);
  ASSERT_EQ(atSeven.size(), 2u);
  EXPECT_EQ(atSeven[0],
            (LayerSnapshot{.path = "a.usda", .revision = 4, .blobHash = contentHash("a4")}));
  EXPECT_EQ(atSeven[1].revision, 0u);

  for (std::uint64_t n = 0; n <= 9; ++n) {
    std::map<std::string, std::string> files;
    const std::vector<LayerSnapshot> layers = *store->snapshotAtOrBefore("main", n);
    for (const LayerSnapshot& layer : layers) {
      // Each file from its own snapshot and the revisions after it that changed it.
      std::vector<StoredRevision> after = *store->revisionsAfter("main", layer.revision, n);
      std::erase_if(after, [&](const StoredRevision& revision) {
        return revision.layerPaths != std::vector<std::string>{layer.path};
      });
      files.merge(replay({{layer.path, **store->blob(layer.blobHash)}}, after));
    }
    EXPECT_EQ(files, history[n]) << "at revision " << n;
  }

  const auto future = store->snapshotContents("main", 10, {{"a.usda", "x"}});
  ASSERT_FALSE(future);
  EXPECT_EQ(future.error().message,
            "cannot record a snapshot at revision 10 of main: its head is 9");
  const auto unknown = store->snapshot("main", 9, {{"a.usda", std::string(64, 'f')}});
  ASSERT_FALSE(unknown);
  EXPECT_EQ(unknown.error().message,
            "cannot record the snapshot of a.usda: no blob " + std::string(64, 'f'));
  EXPECT_EQ((*store->snapshotAtOrBefore("main", 9))[0].revision, 4u);
}

TEST(ProjectStore, WriteBacksKeepTheWrittenAndThePendingContent) {
  StoreTestFolder folder;
  auto store = openStore(folder.file("store.sqlite3"));
  ASSERT_TRUE(store);
  const FileStamp stamp{.exists = true, .size = 10, .modifiedNanoseconds = 5, .inode = 7};
  ASSERT_TRUE(store->recordWriteIntent("main", "/p/a.usda", 3, "h3"));
  EXPECT_EQ(**store->writeBack("main", "/p/a.usda"),
            (WriteBackRecord{.path = "/p/a.usda", .pendingRevision = 3, .pendingHash = "h3"}));
  ASSERT_TRUE(store->recordWriteBack(
      "main",
      WrittenFile{.path = "/p/a.usda", .revision = 3, .contentHash = "h3", .stamp = stamp}));
  EXPECT_EQ(
      **store->writeBack("main", "/p/a.usda"),
      (WriteBackRecord{.path = "/p/a.usda", .revision = 3, .contentHash = "h3", .stamp = stamp}));

  // A newer replacement announced while an older write is reported stays pending.
  ASSERT_TRUE(store->recordWriteIntent("main", "/p/a.usda", 6, "h6"));
  ASSERT_TRUE(store->recordWriteBack(
      "main",
      WrittenFile{.path = "/p/a.usda", .revision = 4, .contentHash = "h4", .stamp = stamp}));
  const auto record = **store->writeBack("main", "/p/a.usda");
  EXPECT_EQ(record.revision, 4u);
  EXPECT_EQ(record.pendingRevision, 6u);
  EXPECT_EQ(record.pendingHash, "h6");

  // A stamp refresh only lands on the record it was made for.
  const FileStamp touched{.exists = true, .size = 10, .modifiedNanoseconds = 9, .inode = 7};
  ASSERT_TRUE(store->recordWriteBack(
      "main",
      WrittenFile{.path = "/p/a.usda", .revision = 6, .contentHash = "h6", .stamp = stamp}));
  EXPECT_FALSE(*store->refreshWriteBackStamp("main", "/p/a.usda", 4, "h4", touched));
  EXPECT_TRUE(*store->refreshWriteBackStamp("main", "/p/a.usda", 6, "h6", touched));
  EXPECT_EQ((*store->writeBack("main", "/p/a.usda"))->stamp, touched);

  ASSERT_TRUE(store->recordWriteBack("main", 7, {{folder.file("gone.usda"), "h7"}}));
  EXPECT_FALSE((*store->writeBack("main", folder.file("gone.usda")))->stamp.exists);
  EXPECT_EQ(store->writeBacks("main")->size(), 2u);
  EXPECT_FALSE(*store->writeBack("review", "/p/a.usda"));
}

NewRevision muting(const std::string& scene, std::vector<std::string> layers) {
  NewRevision revision = edit("main", "mute", {"sub.usda"});
  revision.mutes = SceneMutes{.scene = scene, .mutedLayers = std::move(layers)};
  return revision;
}

// The muted layers of a scene change only with the revision that carries them, per workspace and
// scene, and stay across reopening; a revision whose set cannot be kept is not recorded either.
TEST(ProjectStore, MutedLayersChangeWithTheirRevisionOnlyAndSurviveReopening) {
  StoreTestFolder folder;
  const std::string path = folder.file("store.sqlite3");
  {
    auto store = openStore(path);
    ASSERT_TRUE(store);
    EXPECT_TRUE(store->mutedLayers("main", "a.usda")->empty());
    EXPECT_EQ(*store->appendRevision(muting("a.usda", {"z.usda", "sub/b.usda", "z.usda"})), 1u);
    EXPECT_EQ(*store->appendRevision(muting("other.usda", {"c.usda"})), 2u);
    // An edit that does not change the mutes leaves them alone.
    EXPECT_EQ(*store->appendRevision(edit("main", "move")), 3u);
    EXPECT_EQ(*store->mutedLayers("main", "a.usda"),
              (std::vector<std::string>{"sub/b.usda", "z.usda"}));
    EXPECT_TRUE(store->mutedLayers("draft", "a.usda")->empty());

    // A failure inside the transaction (here a trigger refusing one layer) takes the revision
    // back with the set: the head and the mutes stay as they were.
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    ASSERT_EQ(
        sqlite3_exec(db,
                     "CREATE TRIGGER refuse BEFORE INSERT ON muted_layers "
                     "WHEN NEW.layer_path = 'poison.usda' BEGIN SELECT RAISE(ABORT, 'no'); END",
                     nullptr, nullptr, nullptr),
        SQLITE_OK);
    sqlite3_close(db);
    EXPECT_FALSE(store->appendRevision(muting("a.usda", {"poison.usda"})));
    EXPECT_EQ(*store->headRevision("main"), 3u);
    EXPECT_FALSE(store->revision("main", 4).value().has_value());
    EXPECT_EQ(*store->mutedLayers("main", "a.usda"),
              (std::vector<std::string>{"sub/b.usda", "z.usda"}));

    // Unmuting the last layer leaves the scene with none.
    EXPECT_EQ(*store->appendRevision(muting("a.usda", {"z.usda"})), 4u);
    EXPECT_TRUE(store->recordMutedLayers("main", SceneMutes{.scene = "other.usda"}).ok());
    EXPECT_EQ(*store->headRevision("main"), 4u);  // not a revision
  }
  auto store = openStore(path);
  ASSERT_TRUE(store);
  EXPECT_EQ(*store->mutedLayers("main", "a.usda"), std::vector<std::string>{"z.usda"});
  EXPECT_TRUE(store->mutedLayers("main", "other.usda")->empty());
  EXPECT_EQ(*store->appendRevision(muting("a.usda", {})), 5u);
  EXPECT_TRUE(store->mutedLayers("main", "a.usda")->empty());
}

// A store written before muted layers were kept (schema 1: no table for them) opens with its
// history whole, gets the table and takes mutes from then on.
TEST(ProjectStore, AStoreOfTheFirstSchemaIsUpgradedInPlace) {
  StoreTestFolder folder;
  const std::string path = folder.file("store.sqlite3");
  {
    auto store = openStore(path);
    ASSERT_TRUE(store);
    ASSERT_TRUE(store->appendRevision(edit("main", "one")));
    ASSERT_TRUE(store->appendRevision(edit("main", "two")));
  }
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  ASSERT_EQ(
      sqlite3_exec(db, "DROP TABLE muted_layers; PRAGMA user_version=1", nullptr, nullptr, nullptr),
      SQLITE_OK);
  sqlite3_close(db);
  {
    auto store = openStore(path);
    ASSERT_TRUE(store);
    EXPECT_EQ(*store->headRevision("main"), 2u);
    EXPECT_EQ(numbersOf(*store->revisionsAfter("main", 0)), (std::vector<std::uint64_t>{1, 2}));
    EXPECT_TRUE(store->mutedLayers("main", "a.usda")->empty());
    EXPECT_EQ(*store->appendRevision(muting("a.usda", {"sub.usda"})), 3u);
  }
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  sqlite3_stmt* version = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(db, "PRAGMA user_version", -1, &version, nullptr), SQLITE_OK);
  ASSERT_EQ(sqlite3_step(version), SQLITE_ROW);
  EXPECT_EQ(sqlite3_column_int(version, 0), 2);
  sqlite3_finalize(version);
  sqlite3_close(db);
  auto store = openStore(path);
  ASSERT_TRUE(store);
  EXPECT_EQ(*store->mutedLayers("main", "a.usda"), std::vector<std::string>{"sub.usda"});
}

TEST(ProjectStore, AStoreFromANewerVersionOrNotAStoreIsRefusedWithoutTouchingIt) {
  StoreTestFolder folder;
  const std::string path = folder.file("store.sqlite3");
  { ASSERT_TRUE(openStore(path)); }
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, "PRAGMA user_version=9", nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(db);
  const auto newer = ProjectStore::open(path);
  ASSERT_FALSE(newer);
  EXPECT_EQ(newer.error().message, "the store " + path + " was made by a newer version (schema 9)");

  const std::string text = folder.file("notes.txt");
  writeWhole(text, std::string(8192, 'x'));
  const auto garbage = ProjectStore::open(text);
  ASSERT_FALSE(garbage);
  EXPECT_NE(garbage.error().message.find(text), std::string::npos) << garbage.error().message;
  EXPECT_EQ(readWhole(text), std::string(8192, 'x'));
}

}  // namespace
}  // namespace orvan::engine
