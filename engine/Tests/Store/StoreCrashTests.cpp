// The store and the live files under SIGKILL: a writer process appends revisions and writes its
// live files back as fast as it can, and is killed at random moments, again and again on the same
// store. Whatever it said was durable must be there, with no gap and no number used twice, and
// every live file must hold one whole content that the store can place at a revision.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <random>
#include <sstream>
#include <thread>

#include "CrashWriter/CrashLayers.h"
#include "Store/AtomicFile.h"
#include "Store/ProjectStore.h"
#include "Store/StoreRecovery.h"
#include "StoreTestFolder.h"

extern char** environ;

namespace orvan::engine {
namespace {

using namespace std::chrono_literals;

struct KilledRun {
  std::string output;
  std::uint64_t lastDurable = 0;
  bool killedBySignal = false;
};

// Starts the crash writer, lets it run for `lifetime` (counted from its "ready" line when
// `afterReady`, else from its start) and kills it with SIGKILL.
KilledRun runAndKill(const std::string& store, const std::string& live,
                     std::chrono::milliseconds lifetime, bool afterReady) {
  KilledRun run;
  int pipeEnds[2];
  if (::pipe(pipeEnds) != 0) {
    ADD_FAILURE() << "pipe";
    return run;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, pipeEnds[0]);
  const std::string program = ORVAN_STORE_CRASH_WRITER;
  std::vector<char*> argv{const_cast<char*>(program.c_str()), const_cast<char*>(store.c_str()),
                          const_cast<char*>(live.c_str()), nullptr};
  pid_t child = 0;
  const int spawned =
      ::posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(pipeEnds[1]);
  if (spawned != 0) {
    ::close(pipeEnds[0]);
    ADD_FAILURE() << "cannot start " << program;
    return run;
  }
  std::mutex mutex;
  std::condition_variable grew;
  std::thread reader([&] {
    char buffer[4096];
    while (true) {
      const ssize_t got = ::read(pipeEnds[0], buffer, sizeof buffer);
      if (got <= 0 && !(got < 0 && errno == EINTR))
        break;
      if (got > 0) {
        const std::lock_guard lock(mutex);
        run.output.append(buffer, static_cast<std::size_t>(got));
        grew.notify_all();
      }
    }
  });
  if (afterReady) {
    std::unique_lock lock(mutex);
    grew.wait_for(lock, 60s, [&] { return run.output.find("ready") != std::string::npos; });
  }
  std::this_thread::sleep_for(lifetime);
  ::kill(child, SIGKILL);
  int status = 0;
  ::waitpid(child, &status, 0);
  reader.join();
  ::close(pipeEnds[0]);
  run.killedBySignal = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  std::istringstream lines(run.output);
  std::string word;
  std::uint64_t number = 0;
  while (lines >> word >> number)
    if (word == "durable")
      run.lastDurable = std::max(run.lastDurable, number);
  return run;
}

std::size_t temporariesIn(const std::string& folder) {
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    count += isReplacementTemporary(entry.path().filename().string()) ? 1 : 0;
  return count;
}

TEST(StoreCrash, KilledWritersLoseNoDurableRevisionAndNeverTearALiveFile) {
  StoreTestFolder folder;
  const std::string store = folder.file("store.sqlite3");
  const std::string live = folder.file("live");
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::uint64_t previousHead = 0;
  std::uint64_t everDurable = 0;
  for (int round = 0; round < 8; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    const bool afterReady = round % 4 != 3;  // now and then while it is still starting
    const auto lifetime = std::chrono::milliseconds(random() % (afterReady ? 400 : 40));
    const KilledRun run = runAndKill(store, live, lifetime, afterReady);
    ASSERT_TRUE(run.killedBySignal) << run.output;
    everDurable = std::max(everDurable, run.lastDurable);

    auto opened = ProjectStore::open(store);
    ASSERT_TRUE(opened) << opened.error().message;
    ProjectStore& reopened = **opened;
    const std::uint64_t head = *reopened.headRevision(crash::kWorkspace);
    EXPECT_GE(head, everDurable);
    EXPECT_GE(head, previousHead);
    previousHead = head;

    // Every number from 1 to the head once, each holding what was appended under it.
    const auto revisions = *reopened.revisionsAfter(crash::kWorkspace, 0);
    ASSERT_EQ(revisions.size(), head);
    for (std::uint64_t n = 1; n <= head; ++n) {
      const StoredRevision& revision = revisions[n - 1];
      ASSERT_EQ(revision.revision, n);
      ASSERT_EQ(revision.changeSetText, crash::changeSetText(n));
      ASSERT_EQ(revision.layerPaths.size(), crash::touchesBigLayer(n) ? 2u : 1u);
    }

    const std::string smallPath = live + "/" + crash::kSmallLayer;
    const std::string bigPath = live + "/" + crash::kBigLayer;
    const auto plans = planRecovery(reopened, crash::kWorkspace, {smallPath, bigPath});
    ASSERT_TRUE(plans) << plans.error().message;
    ASSERT_EQ(plans->size(), 2u);
    for (const LayerRecovery& plan : *plans) {
      const std::string name = std::filesystem::path(plan.path).filename().string();
      const std::string& path = plan.path;
      SCOPED_TRACE(name);
      if (std::filesystem::exists(path)) {
        const auto revision = crash::revisionOfLayerText(name, readWhole(path));
        ASSERT_TRUE(revision) << "the live file is not one whole content";
      }
      // The store tells which revision the file holds, so that replay starts at the right one.
      switch (plan.action) {
        case RecoveryAction::kUpToDate:
        case RecoveryAction::kReplay: {
          const std::uint64_t lastChange =
              *reopened.lastRevisionTouching(crash::kWorkspace, path, plan.baseRevision);
          EXPECT_EQ(readWhole(path), crash::layerText(name, lastChange))
              << "base revision " << plan.baseRevision;
          break;
        }
        case RecoveryAction::kMissing:
        case RecoveryAction::kUntracked:
          EXPECT_FALSE(std::filesystem::exists(path));
          break;
        case RecoveryAction::kExternalChange:
          ADD_FAILURE() << "the writer's own file was taken for an external change";
          break;
      }
    }
    // Snapshots hold the files of their revision.
    const std::vector<LayerSnapshot> snapshots =
        *reopened.snapshotAtOrBefore(crash::kWorkspace, head);
    for (const LayerSnapshot& snapshot : snapshots) {
      const std::string name = std::filesystem::path(snapshot.path).filename().string();
      const std::uint64_t lastChange =
          *reopened.lastRevisionTouching(crash::kWorkspace, snapshot.path, snapshot.revision);
      EXPECT_EQ(**reopened.blob(snapshot.blobHash), crash::layerText(name, lastChange));
    }
    // A kill leaves at most the replacement of each file behind, and the next start removes it.
    if (std::filesystem::exists(live)) {
      EXPECT_LE(temporariesIn(live), 2u);
    }
  }
  EXPECT_GT(everDurable, 0u) << "the writer never got to append";
}

}  // namespace
}  // namespace orvan::engine
