// Appends revisions to a store and writes their live files back, as fast as it can, until it is
// killed. After each append returns it prints "durable N": the tests kill it with SIGKILL at a
// random moment and check that every revision it called durable is still there, and that the
// live files hold whole contents.
//   orvan_store_crash_writer STORE LIVE_FOLDER
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>

#include "CrashLayers.h"
#include "Store/AtomicFile.h"
#include "Store/LiveFileWriter.h"
#include "Store/ProjectStore.h"

using namespace orvan::engine;

namespace {

void say(const std::string& line) {
  const std::string out = line + "\n";
  // One write per line: a line in the pipe is whole even when the process dies right after.
  [[maybe_unused]] const ssize_t wrote = ::write(STDOUT_FILENO, out.data(), out.size());
}

int fail(const std::string& reason) {
  std::fprintf(stderr, "crash writer: %s\n", reason.c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3)
    return fail("usage: orvan_store_crash_writer STORE LIVE_FOLDER");
  const std::string folder = argv[2];
  std::filesystem::create_directories(folder);
  removeReplacementTemporaries(folder);
  auto opened = ProjectStore::open(argv[1]);
  if (!opened)
    return fail(opened.error().message);
  ProjectStore& store = **opened;
  const std::map<std::string, std::string> paths{
      {crash::kSmallLayer, folder + "/" + crash::kSmallLayer},
      {crash::kBigLayer, folder + "/" + crash::kBigLayer}};

  // The state the live files follow: the head, and the newest revision that changed each layer.
  std::mutex stateMutex;
  std::uint64_t head = 0;
  std::map<std::string, std::uint64_t> lastChange;
  {
    const auto stored = store.headRevision(crash::kWorkspace);
    if (!stored)
      return fail(stored.error().message);
    head = *stored;
    for (const auto& [name, path] : paths) {
      const auto last = store.lastRevisionTouching(crash::kWorkspace, path);
      if (!last)
        return fail(last.error().message);
      lastChange[name] = *last;
    }
  }
  const auto produce = [&](const std::string& name) {
    return [&, name] {
      const std::lock_guard lock(stateMutex);
      return LayerContent{.revision = head, .text = crash::layerText(name, lastChange[name])};
    };
  };

  LiveFileWriter writer(LiveFileWriter::recordingInto(store),
                        LiveFileWriter::Options{.delay = std::chrono::milliseconds(3)});
  for (const auto& [name, path] : paths)
    writer.enqueue(crash::kWorkspace, path, head, produce(name));
  say("ready " + std::to_string(head));

  while (true) {
    const std::uint64_t next = head + 1;
    NewRevision revision{.workspace = crash::kWorkspace,
                         .author = "crash writer",
                         .clientId = "crash-" + std::to_string(::getpid()),
                         .label = "edit " + std::to_string(next),
                         .changeSetText = crash::changeSetText(next),
                         .layerPaths = {paths.at(crash::kSmallLayer)}};
    if (crash::touchesBigLayer(next))
      revision.layerPaths.push_back(paths.at(crash::kBigLayer));
    const auto appended = store.appendRevision(revision);
    if (!appended)
      return fail(appended.error().message);
    if (*appended != next)
      return fail("expected revision " + std::to_string(next) + ", got " +
                  std::to_string(*appended));
    {
      const std::lock_guard lock(stateMutex);
      head = next;
      lastChange[crash::kSmallLayer] = next;
      if (crash::touchesBigLayer(next))
        lastChange[crash::kBigLayer] = next;
    }
    say("durable " + std::to_string(next));
    writer.enqueue(crash::kWorkspace, paths.at(crash::kSmallLayer), next,
                   produce(crash::kSmallLayer));
    if (crash::touchesBigLayer(next))
      writer.enqueue(crash::kWorkspace, paths.at(crash::kBigLayer), next,
                     produce(crash::kBigLayer));
    if (next % 25 == 0) {
      std::map<std::string, std::string> contents;
      {
        const std::lock_guard lock(stateMutex);
        for (const auto& [name, path] : paths)
          contents[path] = crash::layerText(name, lastChange[name]);
      }
      if (auto snapped = store.snapshotContents(crash::kWorkspace, next, contents); !snapped)
        return fail(snapped.error().message);
    }
  }
}
