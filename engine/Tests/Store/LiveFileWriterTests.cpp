#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <thread>

#include "Store/AtomicFile.h"
#include "Store/ContentHash.h"
#include "Store/LiveFileWriter.h"
#include "StoreTestFolder.h"

namespace orvan::engine {
namespace {

using namespace std::chrono_literals;
using Clock = WriteTiming::Clock;

// What the writer reported, and a way to wait for it without guessing how long a write takes.
class Reports {
 public:
  LiveFileWriter::Hooks hooks() {
    LiveFileWriter::Hooks hooks;
    hooks.written = [this](const LiveFileWriter::FileWrite& write) {
      const std::lock_guard lock(mutex_);
      written_.push_back(write);
      changed_.notify_all();
    };
    hooks.failed = [this](const std::string& path, const std::string& reason) {
      const std::lock_guard lock(mutex_);
      failures_.push_back(path + ": " + reason);
      changed_.notify_all();
    };
    return hooks;
  }
  // Waits (up to a minute, so a busy machine cannot fail it) until `count` writes are reported.
  bool waitForWrites(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, 60s, [&] { return written_.size() >= count; });
  }
  bool waitForRevision(std::uint64_t revision) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(
        lock, 60s, [&] { return !written_.empty() && written_.back().revision == revision; });
  }
  bool waitForFailures(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, 60s, [&] { return failures_.size() >= count; });
  }
  std::vector<LiveFileWriter::FileWrite> written() {
    const std::lock_guard lock(mutex_);
    return written_;
  }
  std::vector<std::string> failures() {
    const std::lock_guard lock(mutex_);
    return failures_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<LiveFileWriter::FileWrite> written_;
  std::vector<std::string> failures_;
};

LiveFileWriter::Producer fixed(std::uint64_t revision, std::string text) {
  return [revision, text] { return LayerContent{.revision = revision, .text = text}; };
}

TEST(LiveFileWriterTiming, AQuietFileIsWrittenAtOnceThenAtMostOncePerDelay) {
  const Clock::time_point start = Clock::now();
  WriteTiming timing{.firstPending = start + 10ms};
  EXPECT_EQ(nextWriteTime(timing, 250ms, 30s), start + 10ms);

  timing.lastStarted = start;
  timing.lastDuration = 20ms;
  EXPECT_EQ(nextWriteTime(timing, 250ms, 30s), start + 250ms);
  timing.firstPending = start + 400ms;  // the file was quiet for longer than the delay
  EXPECT_EQ(nextWriteTime(timing, 250ms, 30s), start + 400ms);

  // A write that takes long keeps the disk busy at most half of the time.
  timing.firstPending = start + 10ms;
  timing.lastDuration = 400ms;
  EXPECT_EQ(nextWriteTime(timing, 250ms, 30s), start + 800ms);
}

TEST(LiveFileWriterTiming, FailuresWaitLongerEachTimeUpToALimit) {
  const Clock::time_point start = Clock::now();
  WriteTiming timing{.firstPending = start, .lastStarted = start, .lastDuration = 1ms};
  timing.lastFailed = start + 1ms;
  timing.failures = 1;
  EXPECT_EQ(nextWriteTime(timing, 250ms, 30s), start + 1ms + 250ms);
  timing.failures = 3;
  EXPECT_EQ(nextWriteTime(timing, 250ms, 30s), start + 1ms + 1000ms);
  timing.failures = 40;
  EXPECT_EQ(nextWriteTime(timing, 250ms, 30s), start + 1ms + 30s);
}

TEST(LiveFileWriter, ChangesWithinTheDelayAreCoalescedIntoOneWriteOfTheNewest) {
  StoreTestFolder folder;
  const std::string path = folder.file("scene.usda");
  Reports reports;
  LiveFileWriter writer(reports.hooks(), LiveFileWriter::Options{.delay = 30s});
  writer.enqueue("main", path, 1, fixed(1, "one"));
  ASSERT_TRUE(reports.waitForWrites(1));  // a quiet file is written at once
  EXPECT_EQ(readWhole(path), "one");
  for (std::uint64_t revision = 2; revision <= 50; ++revision)
    writer.enqueue("main", path, revision, fixed(revision, "text " + std::to_string(revision)));
  // The next write may come 30 s after the first: nothing else has been written yet.
  EXPECT_EQ(writer.writeCount(), 1u);
  EXPECT_EQ(writer.pendingCount(), 1u);
  ASSERT_TRUE(writer.flush());
  EXPECT_EQ(writer.writeCount(), 2u);
  EXPECT_EQ(writer.pendingCount(), 0u);
  EXPECT_EQ(readWhole(path), "text 50");
  const auto written = reports.written();
  ASSERT_EQ(written.size(), 2u);
  EXPECT_EQ(written[1].revision, 50u);
  EXPECT_EQ(written[1].contentHash, contentHash("text 50"));
  EXPECT_EQ(written[1].stamp, stampOf(path));
}

TEST(LiveFileWriter, APendingFileCatchesUpWithoutAFlushAndWritesAreSpacedByTheDelay) {
  StoreTestFolder folder;
  const std::string path = folder.file("scene.usda");
  Reports reports;
  constexpr auto kDelay = 40ms;
  LiveFileWriter writer(reports.hooks(), LiveFileWriter::Options{.delay = kDelay});
  std::atomic<std::uint64_t> head{0};
  const auto current = [&] {
    const std::uint64_t revision = head;
    return LayerContent{.revision = revision, .text = "revision " + std::to_string(revision)};
  };
  const Clock::time_point start = Clock::now();
  for (std::uint64_t revision = 1; revision <= 300; ++revision) {
    head = revision;
    writer.enqueue("main", path, revision, current);
    if (revision % 30 == 0)
      std::this_thread::sleep_for(5ms);
  }
  const Clock::duration enqueuing = Clock::now() - start;
  // The last change reaches the disk by itself.
  ASSERT_TRUE(reports.waitForRevision(300));
  const Clock::duration elapsed = Clock::now() - start;
  EXPECT_EQ(readWhole(path), "revision 300");
  // Write starts are at least one delay apart: however slow the machine, no more writes than
  // that allows (and, unless it stalls, far fewer than the 300 changes).
  const auto allowed = static_cast<std::size_t>(elapsed / kDelay) + 1;
  EXPECT_LE(reports.written().size(), allowed)
      << "enqueuing took " << std::chrono::duration<double>(enqueuing).count() << " s";
  EXPECT_LT(reports.written().size(), 300u);
}

// An edit arrives during every write of the file. The flush waits for what was pending when it
// began, not for the edits after it (before, it wrote on until they stopped).
TEST(LiveFileWriter, AFlushReturnsWhileEditsKeepComing) {
  StoreTestFolder folder;
  const std::string path = folder.file("scene.usda");
  Reports reports;
  std::atomic<int> calls{0};
  LiveFileWriter* writing = nullptr;
  LiveFileWriter::Producer produce;
  produce = [&] {
    const int call = ++calls;
    if (call < 100)
      writing->enqueue("main", path, static_cast<std::uint64_t>(call) + 1, produce);
    return LayerContent{.revision = static_cast<std::uint64_t>(call),
                        .text = "revision " + std::to_string(call)};
  };
  LiveFileWriter writer(reports.hooks(), LiveFileWriter::Options{.delay = 30s});
  writing = &writer;
  writer.enqueue("main", path, 1, produce);
  ASSERT_TRUE(writer.flush());
  EXPECT_LE(calls, 4);
  EXPECT_TRUE(readWhole(path).starts_with("revision "));
}

TEST(LiveFileWriter, AFailedWriteIsReportedKeptAndTriedAgain) {
  StoreTestFolder folder;
  const std::string path = folder.file("later/scene.usda");
  Reports reports;
  LiveFileWriter writer(reports.hooks(),
                        LiveFileWriter::Options{.delay = 5ms, .longestRetryDelay = 40ms});
  writer.enqueue("main", path, 7, fixed(7, "seven"));
  const StoreStatus flushed = writer.flush();
  ASSERT_FALSE(flushed);
  EXPECT_EQ(flushed.error().message,
            path + ": cannot write beside " + path + ": No such file or directory");
  ASSERT_TRUE(reports.waitForFailures(1));
  EXPECT_EQ(reports.failures()[0],
            path + ": cannot write beside " + path + ": No such file or directory");
  EXPECT_EQ(writer.pendingCount(), 1u);

  std::filesystem::create_directories(folder.file("later"));
  ASSERT_TRUE(reports.waitForWrites(1));  // retried by itself
  EXPECT_EQ(readWhole(path), "seven");
  EXPECT_EQ(reports.written()[0].revision, 7u);
  ASSERT_TRUE(writer.flush());
  EXPECT_EQ(writer.pendingCount(), 0u);
}

TEST(LiveFileWriter, AProducerThatThrowsIsReportedAndAskedAgain) {
  StoreTestFolder folder;
  const std::string path = folder.file("scene.usda");
  Reports reports;
  LiveFileWriter writer(reports.hooks(), LiveFileWriter::Options{.delay = 5ms});
  std::atomic<bool> reloading{true};
  std::atomic<int> calls{0};
  writer.enqueue("main", path, 2, [&] {
    ++calls;
    if (reloading)
      throw std::runtime_error("the layer is being reloaded");
    return LayerContent{.revision = 2, .text = "two"};
  });
  EXPECT_FALSE(writer.flush());
  EXPECT_EQ(reports.failures().at(0),
            path + ": cannot make the text of " + path + ": the layer is being reloaded");
  EXPECT_FALSE(std::filesystem::exists(path));
  reloading = false;
  ASSERT_TRUE(writer.flush());
  EXPECT_EQ(readWhole(path), "two");
  EXPECT_GE(calls, 2);
}

TEST(LiveFileWriter, TheSameTextIsNotWrittenAgainUnlessTheFileWasReplaced) {
  StoreTestFolder folder;
  const std::string path = folder.file("scene.usda");
  Reports reports;
  LiveFileWriter writer(reports.hooks(), LiveFileWriter::Options{.delay = 1ms});
  writer.enqueue("main", path, 1, fixed(1, "same"));
  ASSERT_TRUE(writer.flush());
  const FileStamp first = stampOf(path);
  writer.enqueue("main", path, 2, fixed(2, "same"));  // an edit and its undo, say
  ASSERT_TRUE(writer.flush());
  EXPECT_EQ(stampOf(path), first);
  EXPECT_EQ(reports.written().at(1).revision, 2u);
  EXPECT_EQ(reports.written().at(1).stamp, first);

  ASSERT_TRUE(replaceFileAtomically(path, "someone else's"));
  writer.enqueue("main", path, 3, fixed(3, "same"));
  ASSERT_TRUE(writer.flush());
  EXPECT_EQ(readWhole(path), "same");
  EXPECT_EQ(reports.written().at(2).stamp, stampOf(path));
}

TEST(LiveFileWriter, TheStoreKnowsWhatIsAboutToReplaceTheFileAndWhatDid) {
  StoreTestFolder folder;
  const std::string path = folder.file("scene.usda");
  auto store = ProjectStore::open(folder.file("store.sqlite3")).value();
  std::vector<WriteBackRecord> seenBeforeRename;
  std::vector<std::string> failures;
  LiveFileWriter::Hooks hooks = LiveFileWriter::recordingInto(
      *store, [&](const std::string&, const std::string& reason) { failures.push_back(reason); });
  const auto record = hooks.aboutToReplace;
  std::atomic<bool> refuse{true};
  hooks.aboutToReplace = [&](const LiveFileWriter::FileWrite& write) -> StoreStatus {
    if (refuse)
      return StoreError{"the disk of the store is full"};
    const StoreStatus recorded = record(write);
    seenBeforeRename.push_back(**store->writeBack("main", path));
    EXPECT_EQ(readWhole(path), "old");  // not renamed yet
    return recorded;
  };
  writeWhole(path, "old");
  LiveFileWriter writer(hooks, LiveFileWriter::Options{.delay = 1ms});
  writer.enqueue("main", path, 4, fixed(4, "four"));
  const StoreStatus refused = writer.flush();
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().message,
            path + ": cannot record the write of " + path + ": the disk of the store is full");
  EXPECT_EQ(readWhole(path), "old");
  EXPECT_FALSE(failures.empty());
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()),
                          std::filesystem::directory_iterator()),
            4);  // the file, the store and its log and index: no temporary left

  refuse = false;
  ASSERT_TRUE(writer.flush());
  EXPECT_EQ(readWhole(path), "four");
  ASSERT_EQ(seenBeforeRename.size(), 1u);
  EXPECT_EQ(seenBeforeRename[0].pendingRevision, 4u);
  EXPECT_EQ(seenBeforeRename[0].pendingHash, contentHash("four"));
  EXPECT_EQ(**store->writeBack("main", path), (WriteBackRecord{.path = path,
                                                               .revision = 4,
                                                               .contentHash = contentHash("four"),
                                                               .stamp = stampOf(path)}));
}

TEST(LiveFileWriter, StoppingWritesWhatIsStillPending) {
  StoreTestFolder folder;
  const std::string path = folder.file("scene.usda");
  Reports reports;
  {
    LiveFileWriter writer(reports.hooks(), LiveFileWriter::Options{.delay = 30s});
    writer.enqueue("main", path, 1, fixed(1, "one"));
    ASSERT_TRUE(reports.waitForWrites(1));
    writer.enqueue("main", path, 2, fixed(2, "two"));
  }
  EXPECT_EQ(readWhole(path), "two");
  EXPECT_EQ(reports.written().size(), 2u);
}

}  // namespace
}  // namespace orvan::engine
