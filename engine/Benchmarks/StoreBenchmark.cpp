// The versioned store: the latency of recording one accepted edit (durable on return) and the cost
// of writing a large live file back. Times are wall-clock: most of it is waiting for the disk.
// The store folder is $ORVAN_BENCH_DIR when set, else the system's temporary folder; the "tmpfs"
// runs put the store in /dev/shm, where a sync costs nothing, which shows what durability costs.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <vector>

#include "BenchmarkScenes.h"
#include "Store/AtomicFile.h"
#include "Store/ContentHash.h"
#include "Store/LiveFileWriter.h"
#include "Store/ProjectStore.h"

namespace orvan::engine {
namespace {

class BenchFolder {
 public:
  explicit BenchFolder(bool inMemory) {
    const char* chosen = std::getenv("ORVAN_BENCH_DIR");
    const std::filesystem::path base = inMemory ? std::filesystem::path("/dev/shm")
                                                : (chosen ? std::filesystem::path(chosen)
                                                          : std::filesystem::temp_directory_path());
    std::string pattern = (base / "orvan_store_bench_XXXXXX").string();
    path_ = ::mkdtemp(pattern.data()) != nullptr ? pattern : "";
  }
  ~BenchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  bool ok() const { return !path_.empty(); }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::string changeSet(std::size_t bytes) {
  std::string text;
  while (text.size() < bytes)
    text += "set /World/Prim_" + std::to_string(text.size()) + ".xformOp:translate = (1, 2, 3)\n";
  text.resize(bytes);
  return text;
}

void appendRevision(benchmark::State& state) {
  const bool inMemory = state.range(0) != 0;
  BenchFolder folder(inMemory);
  if (!folder.ok()) {
    state.SkipWithError("no folder for the store");
    return;
  }
  auto store = ProjectStore::open(folder.file("store.sqlite3"));
  if (!store) {
    state.SkipWithError(store.error().message.c_str());
    return;
  }
  const NewRevision revision{.workspace = "main",
                             .author = "Ada Lovelace",
                             .clientId = "editor-1234",
                             .label = "move 2 prims",
                             .changeSetText = changeSet(2048),
                             .layerPaths = {"/project/hello_world.usda"}};
  std::vector<double> milliseconds;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    const auto number = (*store)->appendRevision(revision);
    if (!number) {
      state.SkipWithError(number.error().message.c_str());
      return;
    }
    benchmark::DoNotOptimize(*number);
    milliseconds.push_back(
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
            .count());
  }
  // The tail matters as much as the mean: every edit waits for its own sync.
  std::sort(milliseconds.begin(), milliseconds.end());
  const auto at = [&](double fraction) {
    return milliseconds[static_cast<std::size_t>(fraction *
                                                 static_cast<double>(milliseconds.size() - 1))];
  };
  state.counters["p50_ms"] = at(0.5);
  state.counters["p99_ms"] = at(0.99);
  state.counters["max_ms"] = milliseconds.back();
  state.SetLabel(inMemory ? "tmpfs" : "disk");
}
BENCHMARK(appendRevision)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// One write-back of the 100k-prim scene (57 MB): the text hashed, written beside the file,
// synced, recorded in the store, renamed over the file, the folder synced, the write recorded.
void writeBackLargeFile(benchmark::State& state) {
  const std::string& text = sceneText(static_cast<std::size_t>(state.range(0)));
  BenchFolder folder(false);
  auto store = ProjectStore::open(folder.file("store.sqlite3"));
  if (!folder.ok() || !store) {
    state.SkipWithError("no store");
    return;
  }
  LiveFileWriter writer(LiveFileWriter::recordingInto(**store));
  const std::string path = folder.file("scene.usda");
  std::uint64_t revision = 0;
  for (auto _ : state) {
    ++revision;
    // Every write differs from the last, so none is skipped as unchanged.
    writer.enqueue("main", path, revision, [&text, revision] {
      return LayerContent{.revision = revision, .text = text + "# " + std::to_string(revision)};
    });
    if (const StoreStatus flushed = writer.flush(); !flushed) {
      state.SkipWithError(flushed.error().message.c_str());
      return;
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(writeBackLargeFile)->Arg(100'000)->Unit(benchmark::kMillisecond)->UseRealTime();

// The parts of it: hashing alone, and the atomic replacement alone.
void hashLargeFile(benchmark::State& state) {
  const std::string& text = sceneText(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state)
    benchmark::DoNotOptimize(contentHash(text));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(hashLargeFile)->Arg(100'000)->Unit(benchmark::kMillisecond);

void replaceLargeFile(benchmark::State& state) {
  const std::string& text = sceneText(static_cast<std::size_t>(state.range(0)));
  BenchFolder folder(false);
  for (auto _ : state) {
    if (const auto stamp = replaceFileAtomically(folder.file("scene.usda"), text); !stamp) {
      state.SkipWithError(stamp.error().message.c_str());
      return;
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(replaceLargeFile)->Arg(100'000)->Unit(benchmark::kMillisecond)->UseRealTime();

// A snapshot of the same file: stored as a blob once, then found by its hash.
void snapshotLargeFile(benchmark::State& state) {
  const std::string& text = sceneText(static_cast<std::size_t>(state.range(0)));
  BenchFolder folder(false);
  auto store = ProjectStore::open(folder.file("store.sqlite3"));
  if (!folder.ok() || !store) {
    state.SkipWithError("no store");
    return;
  }
  std::uint64_t revision = 0;
  for (auto _ : state) {
    ++revision;
    const std::string content = text + "# " + std::to_string(revision);
    if (const auto hash = (*store)->putBlob(content); !hash) {
      state.SkipWithError(hash.error().message.c_str());
      return;
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(snapshotLargeFile)->Arg(100'000)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orvan::engine

BENCHMARK_MAIN();
