#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Store/FileStamp.h"
#include "Store/ProjectStore.h"

namespace orvan::engine {

// The text of one layer as it stands, and the revision of its workspace that text reflects.
struct LayerContent {
  std::uint64_t revision = 0;
  std::string text = {};
};

// When a file with pending content may be written next. A file is written at once when it has
// been quiet for a while, then at most once per `delay` (or twice its last write's duration, when
// that is longer, so a huge layer does not keep the disk busy all the time); after a failure the
// wait doubles up to `longestRetryDelay`.
struct WriteTiming {
  using Clock = std::chrono::steady_clock;
  Clock::time_point firstPending = {};
  std::optional<Clock::time_point> lastStarted = {};
  Clock::duration lastDuration = {};
  unsigned failures = 0;  // in a row, since the last success
  std::optional<Clock::time_point> lastFailed = {};
};
WriteTiming::Clock::time_point nextWriteTime(const WriteTiming& timing,
                                             std::chrono::milliseconds delay,
                                             std::chrono::milliseconds longestRetryDelay);

// Writes layer texts back to their live files on a thread of its own, each atomically
// (FileReplacement: a temporary file beside it, synced, renamed over it, the folder synced).
//
// `enqueue` says a file's layer changed. The producer runs later on the writer thread and gives
// the layer's current text together with the revision that text reflects; it must take whatever
// lock guards the layer itself and read both under it, so the pair is consistent (the writer
// holds none of its own locks while it runs). Newer enqueues of a file replace older ones that
// are not written yet. A producer that throws, like a write that fails, is reported and tried
// again later; nothing pending is dropped.
class LiveFileWriter {
 public:
  struct Options {
    std::chrono::milliseconds delay{250};
    std::chrono::milliseconds longestRetryDelay{30'000};
  };
  struct FileWrite {
    std::string workspace = {};
    std::string path = {};
    std::uint64_t revision = 0;
    std::string contentHash = {};
    FileStamp stamp = {};  // of the written file, in `written`
  };
  struct Hooks {
    // Runs after the new content is on the disk beside the file and before it is renamed over
    // it; an error stops this write, which is tried again later.
    std::function<StoreStatus(const FileWrite&)> aboutToReplace = {};
    // The live file now holds the write.
    std::function<void(const FileWrite&)> written = {};
    // A write failed and will be tried again; without a hook the reason goes to standard error.
    std::function<void(const std::string& path, const std::string& reason)> failed = {};
  };
  using Producer = std::function<LayerContent()>;

  // The hooks run on the writer thread; they must not call back into the writer. Whatever they
  // use (the store of `recordingInto`) must outlive it.
  LiveFileWriter(Hooks hooks, Options options);
  explicit LiveFileWriter(Hooks hooks) : LiveFileWriter(std::move(hooks), Options{}) {}
  // Writes what is pending, then stops the thread.
  ~LiveFileWriter();
  LiveFileWriter(const LiveFileWriter&) = delete;
  LiveFileWriter& operator=(const LiveFileWriter&) = delete;

  // Hooks that record every replacement in the store before the rename (so that after a crash the
  // file on disk is known whichever content it holds) and every completed write after it.
  static Hooks recordingInto(
      ProjectStore& store, std::function<void(const std::string&, const std::string&)> failed = {});

  void enqueue(std::string workspace, std::string path, std::uint64_t revision, Producer produce);
  // Writes everything pending now, without waiting for the delay, and returns once what was
  // enqueued before the call is on the disk (or a newer text of the same file is). Edits that keep
  // coming meanwhile do not hold it up. What failed stays pending and is named in the error.
  StoreStatus flush();
  std::size_t pendingCount();
  // Completed writes so far (files whose content did not change count too), counted before the
  // `written` hook hears of them.
  std::uint64_t writeCount();

 private:
  struct Pending {
    std::string workspace;
    std::uint64_t revision = 0;
    Producer produce;
  };
  struct FileState {
    WriteTiming timing;
    std::optional<Pending> pending;
    bool inFlight = false;
    // Enqueues are numbered: the newest one of this file, the one being written, the newest one
    // on the disk.
    std::uint64_t latestSequence = 0;
    std::uint64_t inFlightSequence = 0;
    std::uint64_t writtenSequence = 0;
    std::string lastError;
    std::string writtenHash;  // what the writer last put there, and its stamp
    FileStamp writtenStamp;
  };
  struct Outcome {
    bool ok = false;
    std::string error = {};
    std::string hash = {};
    FileStamp stamp = {};
  };

  void run();
  Outcome write(const std::string& path, const Pending& pending, const std::string& lastHash,
                const FileStamp& lastStamp);
  std::optional<WriteTiming::Clock::time_point> dueTime(const FileState& state) const;
  bool flushedFile(const FileState& state, std::uint64_t target,
                   WriteTiming::Clock::time_point started) const;
  void reportFailure(const std::string& path, const std::string& reason);

  const Hooks hooks_;
  const Options options_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::string, FileState> files_;
  std::uint64_t enqueued_ = 0;
  // The newest enqueue a flush waits for: files behind it are written without waiting.
  std::uint64_t flushTarget_ = 0;
  WriteTiming::Clock::time_point flushStarted_ = {};
  std::atomic<std::uint64_t> writes_ = 0;
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace orvan::engine
