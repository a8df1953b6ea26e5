#include "Store/LiveFileWriter.h"

#include <algorithm>
#include <cstdio>
#include <exception>

#include "Store/AtomicFile.h"
#include "Store/ContentHash.h"

namespace orvan::engine {

using Clock = WriteTiming::Clock;

Clock::time_point nextWriteTime(const WriteTiming& timing, std::chrono::milliseconds delay,
                                std::chrono::milliseconds longestRetryDelay) {
  Clock::time_point due = timing.firstPending;
  if (timing.lastStarted) {
    const Clock::duration spacing = std::max<Clock::duration>(delay, 2 * timing.lastDuration);
    due = std::max(due, *timing.lastStarted + spacing);
  }
  if (timing.failures > 0 && timing.lastFailed) {
    const unsigned doublings = std::min(timing.failures - 1, 16u);
    const Clock::duration wait =
        std::min<Clock::duration>(delay * (1ll << doublings), longestRetryDelay);
    due = std::max(due, *timing.lastFailed + wait);
  }
  return due;
}

namespace {

// A replacement that was recorded but never confirmed (the process died after the rename, or the
// confirmation could not be stored) may be what the file holds. Before a new replacement takes
// its place in the record, the file says whether it landed, so the record never loses track of
// the content on disk.
StoreStatus settleUnconfirmedReplacement(ProjectStore& store, const std::string& workspace,
                                         const std::string& path) {
  const auto record = store.writeBack(workspace, path);
  if (!record)
    return record.error();
  if (!*record || (*record)->pendingHash.empty())
    return editor::Unit{};
  const FileStamp stamp = stampOf(path);
  if (!stamp.exists)
    return editor::Unit{};
  const auto hash = contentHashOfFile(path);
  if (!hash || *hash != (*record)->pendingHash)
    return editor::Unit{};
  return store.recordWriteBack(workspace, WrittenFile{.path = path,
                                                      .revision = (*record)->pendingRevision,
                                                      .contentHash = *hash,
                                                      .stamp = stamp});
}

}  // namespace

LiveFileWriter::LiveFileWriter(Hooks hooks, Options options)
    : hooks_(std::move(hooks)), options_(options), thread_([this] { run(); }) {}

LiveFileWriter::~LiveFileWriter() {
  const StoreStatus flushed = flush();
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  thread_.join();
  for (const auto& [path, state] : files_)
    if (state.pending && state.latestSequence > state.writtenSequence && state.lastError.empty())
      reportFailure(path, "not written: " + path + " changed while the writer stopped");
  if (!flushed)
    reportFailure("", "stopped with files not written (the revision log holds their edits): " +
                          flushed.error().message);
}

LiveFileWriter::Hooks LiveFileWriter::recordingInto(
    ProjectStore& store, std::function<void(const std::string&, const std::string&)> failed) {
  Hooks hooks;
  hooks.aboutToReplace = [&store](const FileWrite& write) -> StoreStatus {
    if (auto settled = settleUnconfirmedReplacement(store, write.workspace, write.path); !settled)
      return settled;
    return store.recordWriteIntent(write.workspace, write.path, write.revision, write.contentHash);
  };
  hooks.written = [&store, failed](const FileWrite& write) {
    const StoreStatus recorded =
        store.recordWriteBack(write.workspace, WrittenFile{.path = write.path,
                                                           .revision = write.revision,
                                                           .contentHash = write.contentHash,
                                                           .stamp = write.stamp});
    // The intent recorded before the rename still tells what the file holds.
    if (!recorded && failed)
      failed(write.path, recorded.error().message);
  };
  hooks.failed = std::move(failed);
  return hooks;
}

void LiveFileWriter::enqueue(std::string workspace, std::string path, std::uint64_t revision,
                             Producer produce) {
  {
    const std::lock_guard lock(mutex_);
    FileState& state = files_[path];
    const Clock::time_point since = state.pending ? state.timing.firstPending : Clock::now();
    state.pending = Pending{
        .workspace = std::move(workspace),
        .revision = std::max(revision, state.pending ? state.pending->revision : std::uint64_t{0}),
        .produce = std::move(produce)};
    state.timing.firstPending = since;
    state.latestSequence = ++enqueued_;
  }
  changed_.notify_all();
}

StoreStatus LiveFileWriter::flush() {
  std::unique_lock lock(mutex_);
  const Clock::time_point started = Clock::now();
  const std::uint64_t target = enqueued_;
  flushStarted_ = started;
  flushTarget_ = std::max(flushTarget_, target);
  changed_.notify_all();
  changed_.wait(lock, [&] {
    return std::all_of(files_.begin(), files_.end(),
                       [&](const auto& file) { return flushedFile(file.second, target, started); });
  });
  std::string failures;
  for (const auto& [path, state] : files_) {
    if (state.writtenSequence >= std::min(state.latestSequence, target))
      continue;
    failures += (failures.empty() ? "" : "; ") + path + ": " + state.lastError;
  }
  if (!failures.empty())
    return StoreError{failures};
  return editor::Unit{};
}

std::size_t LiveFileWriter::pendingCount() {
  const std::lock_guard lock(mutex_);
  return static_cast<std::size_t>(std::count_if(files_.begin(), files_.end(), [](const auto& file) {
    return file.second.pending.has_value() || file.second.inFlight;
  }));
}

std::uint64_t LiveFileWriter::writeCount() {
  return writes_;
}

bool LiveFileWriter::flushedFile(const FileState& state, std::uint64_t target,
                                 Clock::time_point started) const {
  if (state.writtenSequence >= std::min(state.latestSequence, target))
    return true;
  // A file that failed since the flush began has had its chance.
  return !state.inFlight && state.timing.lastFailed && *state.timing.lastFailed >= started;
}

std::optional<Clock::time_point> LiveFileWriter::dueTime(const FileState& state) const {
  if (!state.pending || state.inFlight)
    return std::nullopt;
  // Only what a flush waits for is written at once, so a flush does not speed up the edits that
  // come after it; a file that failed since the last flush began waits as usual.
  const bool failedThisFlush = state.timing.lastFailed && *state.timing.lastFailed >= flushStarted_;
  const bool flushing = state.writtenSequence < std::min(state.latestSequence, flushTarget_);
  if (flushing && !failedThisFlush)
    return Clock::time_point::min();
  return nextWriteTime(state.timing, options_.delay, options_.longestRetryDelay);
}

void LiveFileWriter::run() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    std::optional<Clock::time_point> earliest;
    std::string path;
    for (const auto& [candidate, state] : files_) {
      const auto due = dueTime(state);
      if (due && (!earliest || *due < *earliest)) {
        earliest = due;
        path = candidate;
      }
    }
    if (!earliest) {
      changed_.wait(lock);
      continue;
    }
    if (*earliest > Clock::now()) {
      changed_.wait_until(lock, *earliest);
      continue;
    }
    FileState& state = files_[path];
    Pending pending = std::move(*state.pending);
    const Clock::time_point since = state.timing.firstPending;
    state.pending.reset();
    state.inFlight = true;
    state.inFlightSequence = state.latestSequence;
    const std::string lastHash = state.writtenHash;
    const FileStamp lastStamp = state.writtenStamp;
    const Clock::time_point started = Clock::now();
    lock.unlock();
    Outcome outcome = write(path, pending, lastHash, lastStamp);
    lock.lock();
    const Clock::time_point finished = Clock::now();
    state.inFlight = false;
    state.timing.lastStarted = started;
    state.timing.lastDuration = finished - started;
    if (outcome.ok) {
      state.timing.failures = 0;
      state.timing.lastFailed.reset();
      state.lastError.clear();
      state.writtenHash = std::move(outcome.hash);
      state.writtenStamp = outcome.stamp;
      state.writtenSequence = state.inFlightSequence;
    } else {
      ++state.timing.failures;
      state.timing.lastFailed = finished;
      state.lastError = outcome.error;
      // A newer enqueue that came meanwhile supersedes the failed one, but the file has been
      // waiting since the older one.
      if (!state.pending)
        state.pending = std::move(pending);
      state.timing.firstPending = since;
    }
    changed_.notify_all();
  }
}

LiveFileWriter::Outcome LiveFileWriter::write(const std::string& path, const Pending& pending,
                                              const std::string& lastHash,
                                              const FileStamp& lastStamp) {
  const auto fail = [&](std::string reason) {
    reportFailure(path, reason);
    return Outcome{.error = std::move(reason)};
  };
  LayerContent content;
  try {
    content = pending.produce();
  } catch (const std::exception& error) {
    return fail("cannot make the text of " + path + ": " + error.what());
  } catch (...) {
    return fail("cannot make the text of " + path);
  }
  FileWrite fileWrite{.workspace = pending.workspace,
                      .path = path,
                      .revision = content.revision,
                      .contentHash = contentHash(content.text)};
  // An edit and its undo may leave the text as the writer last wrote it; the file on disk is then
  // left alone if it is still that very file.
  if (fileWrite.contentHash == lastHash && lastStamp.exists && stampOf(path) == lastStamp) {
    fileWrite.stamp = lastStamp;
    ++writes_;
    if (hooks_.written)
      hooks_.written(fileWrite);
    return Outcome{.ok = true, .hash = fileWrite.contentHash, .stamp = lastStamp};
  }
  auto prepared = FileReplacement::prepare(path, content.text);
  if (!prepared)
    return fail(prepared.error().message);
  if (hooks_.aboutToReplace) {
    const StoreStatus recorded = hooks_.aboutToReplace(fileWrite);
    if (!recorded)
      return fail("cannot record the write of " + path + ": " + recorded.error().message);
  }
  auto stamp = prepared->commit();
  if (!stamp)
    return fail(stamp.error().message);
  fileWrite.stamp = *stamp;
  ++writes_;
  if (hooks_.written)
    hooks_.written(fileWrite);
  return Outcome{.ok = true, .hash = fileWrite.contentHash, .stamp = *stamp};
}

void LiveFileWriter::reportFailure(const std::string& path, const std::string& reason) {
  if (hooks_.failed) {
    hooks_.failed(path, reason);
    return;
  }
  std::fprintf(stderr, "live file writer: %s\n", reason.c_str());
}

}  // namespace orvan::engine
