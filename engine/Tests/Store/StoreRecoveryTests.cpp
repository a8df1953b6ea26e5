#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "Store/AtomicFile.h"
#include "Store/ContentHash.h"
#include "Store/LiveFileWriter.h"
#include "Store/StoreRecovery.h"
#include "StoreTestFolder.h"

namespace orvan::engine {
namespace {

using namespace std::chrono_literals;

WriteBackRecord written(std::uint64_t revision, const std::string& hash) {
  return WriteBackRecord{.path = "a.usda", .revision = revision, .contentHash = hash};
}

TEST(StoreRecovery, AFileThatHoldsWhatTheServerWroteIsReplayedOnFromThere) {
  EXPECT_EQ(planLayerRecovery("a.usda", written(5, "h5"), "h5", 5),
            (LayerRecovery{.path = "a.usda",
                           .action = RecoveryAction::kUpToDate,
                           .baseRevision = 5,
                           .lastRevision = 5,
                           .diskHash = "h5"}));
  const LayerRecovery behind = planLayerRecovery("a.usda", written(5, "h5"), "h5", 9);
  EXPECT_EQ(behind.action, RecoveryAction::kReplay);
  EXPECT_EQ(behind.baseRevision, 5u);
  EXPECT_EQ(behind.lastRevision, 9u);
}

TEST(StoreRecovery, AFileRenamedJustBeforeTheCrashIsKnownByItsPendingContent) {
  WriteBackRecord record = written(5, "h5");
  record.pendingRevision = 8;
  record.pendingHash = "h8";
  const LayerRecovery renamed = planLayerRecovery("a.usda", record, "h8", 9);
  EXPECT_EQ(renamed.action, RecoveryAction::kReplay);
  EXPECT_EQ(renamed.baseRevision, 8u);
  // Not renamed yet: the older content, the older revision.
  EXPECT_EQ(planLayerRecovery("a.usda", record, "h5", 9).baseRevision, 5u);
  // A replacement of the content before the first edit.
  const WriteBackRecord initial{.path = "a.usda", .pendingRevision = 0, .pendingHash = "h0"};
  EXPECT_EQ(planLayerRecovery("a.usda", initial, "h0", 0).action, RecoveryAction::kUpToDate);
  EXPECT_EQ(planLayerRecovery("a.usda", initial, "h0", 3).action, RecoveryAction::kReplay);
  // The same content both times: the newer revision.
  record.pendingHash = "h5";
  EXPECT_EQ(planLayerRecovery("a.usda", record, "h5", 8).action, RecoveryAction::kUpToDate);
}

TEST(StoreRecovery, OtherContentIsAnExternalChangeAndAMissingFileIsRebuilt) {
  WriteBackRecord record = written(5, "h5");
  record.pendingRevision = 8;
  record.pendingHash = "h8";
  const LayerRecovery external = planLayerRecovery("a.usda", record, "other", 9);
  EXPECT_EQ(external.action, RecoveryAction::kExternalChange);
  EXPECT_EQ(external.diskHash, "other");
  EXPECT_EQ(planLayerRecovery("a.usda", record, std::nullopt, 9).action, RecoveryAction::kMissing);
  EXPECT_EQ(planLayerRecovery("a.usda", std::nullopt, "x", 0).action, RecoveryAction::kUntracked);
  // A record of a replacement that never landed is no claim on the file's content...
  const WriteBackRecord firstWrite{.path = "a.usda", .pendingRevision = 2, .pendingHash = "h2"};
  EXPECT_EQ(planLayerRecovery("a.usda", firstWrite, "original", 2).action,
            RecoveryAction::kExternalChange);
  // ... but the snapshot taken when the server first saw the file is.
  const LayerSnapshot seen{.path = "a.usda", .revision = 0, .blobHash = "original"};
  const LayerRecovery fromSnapshot = planLayerRecovery("a.usda", firstWrite, "original", 2, seen);
  EXPECT_EQ(fromSnapshot.action, RecoveryAction::kReplay);
  EXPECT_EQ(fromSnapshot.baseRevision, 0u);
  EXPECT_EQ(planLayerRecovery("a.usda", std::nullopt, std::nullopt, 2, seen).action,
            RecoveryAction::kMissing);
}

class LiveFileCheckTest : public ::testing::Test {
 protected:
  void SetUp() override {
    store_ = ProjectStore::open(folder_.file("store.sqlite3")).value();
    path_ = folder_.file("scene.usda");
    LiveFileWriter writer(LiveFileWriter::recordingInto(*store_));
    writer.enqueue("main", path_, 3, [] { return LayerContent{.revision = 3, .text = "three"}; });
    ASSERT_TRUE(writer.flush());
  }
  LiveFileCheck check() {
    const auto found = detectExternalChange(*store_, "main", path_);
    EXPECT_TRUE(found) << found.error().message;
    return found ? *found : LiveFileCheck{};
  }

  StoreTestFolder folder_;
  std::unique_ptr<ProjectStore> store_;
  std::string path_;
};

TEST_F(LiveFileCheckTest, AnUntouchedFileIsUnchangedWithoutBeingRead) {
  const LiveFileCheck unchanged = check();
  EXPECT_EQ(unchanged.state, LiveFileState::kUnchanged);
  EXPECT_EQ(unchanged.contentHash, "");  // the stamp sufficed
}

TEST_F(LiveFileCheckTest, AnotherContentIsAChangeWithTheNewText) {
  writeWhole(path_, "THREE");  // same size, same file
  const LiveFileCheck changed = check();
  EXPECT_EQ(changed.state, LiveFileState::kChanged);
  EXPECT_EQ(changed.content, "THREE");
  EXPECT_EQ(changed.contentHash, contentHash("THREE"));
  EXPECT_EQ(changed.stamp, stampOf(path_));
  EXPECT_EQ((*store_->writeBack("main", path_))->revision, 3u);  // the record is the caller's
}

TEST_F(LiveFileCheckTest, ATouchedFileIsUnchangedAndItsNewStampIsRecorded) {
  const timespec times[2] = {{.tv_sec = 1'000'000, .tv_nsec = 0},
                             {.tv_sec = 1'000'000, .tv_nsec = 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path_.c_str(), times, 0), 0);
  const LiveFileCheck touched = check();
  EXPECT_EQ(touched.state, LiveFileState::kUnchanged);
  EXPECT_EQ(touched.contentHash, contentHash("three"));
  EXPECT_EQ((*store_->writeBack("main", path_))->stamp, stampOf(path_));
  EXPECT_EQ(check().contentHash, "");  // no read the next time
}

TEST_F(LiveFileCheckTest, AFileBeingReplacedByTheWriterIsNotTakenForAChange) {
  // The writer records the replacement, then renames it into place; a check in between the
  // rename and the report sees a new file that the record already knows.
  ASSERT_TRUE(store_->recordWriteIntent("main", path_, 4, contentHash("four")));
  ASSERT_TRUE(replaceFileAtomically(path_, "four"));
  EXPECT_EQ(check().state, LiveFileState::kUnchanged);
}

TEST_F(LiveFileCheckTest, ADeletedFileIsMissingAndAnUnknownOneIsAChange) {
  std::filesystem::remove(path_);
  EXPECT_EQ(check().state, LiveFileState::kMissing);
  writeWhole(folder_.file("new.usda"), "new");
  const auto unknown = detectExternalChange(*store_, "main", folder_.file("new.usda"));
  ASSERT_TRUE(unknown);
  EXPECT_EQ(unknown->state, LiveFileState::kChanged);
  EXPECT_EQ(unknown->content, "new");
}

TEST_F(LiveFileCheckTest, RecoveryLooksAtEveryRecordedFileAndTheOnesAskedFor) {
  for (int n = 1; n <= 4; ++n)
    ASSERT_TRUE(store_->appendRevision(NewRevision{
        .workspace = "main", .changeSetText = "x", .layerPaths = {n == 4 ? path_ : "other"}}));
  const std::string fresh = folder_.file("fresh.usda");
  writeWhole(fresh, "fresh");
  const auto plans = planRecovery(*store_, "main", {fresh});
  ASSERT_TRUE(plans) << plans.error().message;
  ASSERT_EQ(plans->size(), 2u);
  EXPECT_EQ((*plans)[0].path, fresh);
  EXPECT_EQ((*plans)[0].action, RecoveryAction::kUntracked);
  EXPECT_EQ((*plans)[1], (LayerRecovery{.path = path_,
                                        .action = RecoveryAction::kReplay,
                                        .baseRevision = 3,
                                        .lastRevision = 4,
                                        .diskHash = contentHash("three")}));
}

// The process died after renaming a replacement and before confirming it; the next process
// announces its own replacement and dies before the rename. The file still holds the first one,
// and the record must still know it.
TEST_F(LiveFileCheckTest, AReplacementThatLandedUnconfirmedIsNotForgottenByTheNextOne) {
  ASSERT_TRUE(store_->recordWriteIntent("main", path_, 5, contentHash("five")));
  ASSERT_TRUE(replaceFileAtomically(path_, "five"));  // and no confirmation: killed here
  LiveFileWriter::Hooks hooks = LiveFileWriter::recordingInto(*store_);
  const auto record = hooks.aboutToReplace;
  hooks.aboutToReplace = [&](const LiveFileWriter::FileWrite& write) -> StoreStatus {
    if (auto recorded = record(write); !recorded)
      return recorded;
    return StoreError{"killed before the rename"};
  };
  hooks.failed = [](const std::string&, const std::string&) {};
  {
    LiveFileWriter writer(hooks, LiveFileWriter::Options{.delay = 1ms});
    writer.enqueue("main", path_, 6, [] { return LayerContent{.revision = 6, .text = "six"}; });
    EXPECT_FALSE(writer.flush());
  }
  EXPECT_EQ(readWhole(path_), "five");
  const auto plans = planRecovery(*store_, "main");
  ASSERT_TRUE(plans);
  ASSERT_EQ(plans->size(), 1u);
  EXPECT_EQ(plans->front().action, RecoveryAction::kUpToDate);
  EXPECT_EQ(plans->front().baseRevision, 5u);
}

TEST(SnapshotPolicy, ALayerIsSnapshottedWhenReplayingWouldCostTooMuch) {
  const SnapshotPolicy policy;
  EXPECT_FALSE(snapshotDue(policy, 0, 0, 100));
  EXPECT_FALSE(snapshotDue(policy, 10, 1000, 1000));
  EXPECT_TRUE(snapshotDue(policy, 500, 10, 100));
  EXPECT_TRUE(snapshotDue(policy, 3, 256 * 1024, 1000));
  // A 57 MB layer waits for about half its size in change sets.
  EXPECT_FALSE(snapshotDue(policy, 100, 20'000'000, 57'000'000));
  EXPECT_TRUE(snapshotDue(policy, 100, 28'500'000, 57'000'000));
}

}  // namespace
}  // namespace orvan::engine
