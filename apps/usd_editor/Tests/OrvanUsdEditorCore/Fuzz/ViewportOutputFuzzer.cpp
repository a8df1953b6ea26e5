// Any bytes on the viewport client's standard output, in any chunking: the host never fails, logs
// or skips what it cannot read, and acknowledges every reported frame exactly once.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>

#include "../Viewport/ViewportHostFakes.h"
#include "Support/ManualScheduler.h"
#include "Viewport/ViewportProtocol.h"

#define FUZZ_CHECK(condition)                                                                \
  do {                                                                                       \
    if (!(condition)) {                                                                      \
      std::fprintf(stderr, "%s:%d: invariant broken: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                          \
    }                                                                                        \
  } while (0)

namespace orvan::editor::testing {
namespace {

using namespace std::chrono_literals;

struct Reported {
  int frames = 0;  // frame lines with an index and a surface
  bool indicesDistinct = true;
  std::map<std::uint64_t, std::uint32_t> surfaces;
};

// What the host will read: the complete lines, decoded as it decodes them.
Reported reportedFrames(std::string_view text) {
  Reported reported;
  std::size_t start = 0;
  for (std::size_t end; (end = text.find('\n', start)) != std::string_view::npos; start = end + 1) {
    const auto line = decodeViewportClientLine(text.substr(start, end - start));
    if (!line)
      continue;
    if (line->type == "reviewCommentMarkers") {
      for (const ReviewCommentMarker& marker :
           parseReviewCommentMarkers(line->markers.value_or("")))
        FUZZ_CHECK(!marker.path.empty());
    }
    if (line->type != "frame" || !line->frameIndex || !line->surfaceId)
      continue;
    ++reported.frames;
    if (!reported.surfaces.emplace(*line->frameIndex, *line->surfaceId).second)
      reported.indicesDistinct = false;
  }
  return reported;
}

void run(const std::uint8_t* data, std::size_t size) {
  if (size < 1)
    return;
  // The first byte chooses the chunk size, the rest is the output.
  const std::size_t chunk = 1 + data[0] % 64;
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);

  ManualScheduler scheduler;
  FakeProcessLauncher launcher;
  launcher.executables = {"/rt", "/client"};
  FakeSurfaceLookup surfaces;
  surfaces.add(7, 4, 4);
  surfaces.add(8, 0, 4);
  InlineExecutor input;
  FakeSurfaceView view;
  RuntimeViewportHostOptions options;
  options.log = [](std::string_view) {};
  options.inputQueue = &input;
  options.parentProcessId = 1;
  options.environmentLookup = [](const std::string&) { return std::optional<std::string>(); };
  options.timingLogsEnabled = true;
  options.playTimingEnabled = true;
  RuntimeViewportHostView host(scheduler, launcher, surfaces, options);
  RuntimeViewportState state;
  state.configuration.scenePath = "/s.usda";
  state.configuration.viewportPath = "/rt";
  state.configuration.viewportClientPath = "/client";
  host.attach(&view);
  host.updateHost(state);
  launcher.launched.at(0)->emitStdout("Viewport server listening\n");
  scheduler.runUntilIdle();
  const auto client = launcher.startedFrom("/client").at(0);
  const std::size_t linesBefore = client->lines().size();

  for (std::size_t at = 0; at < text.size(); at += chunk) {
    client->emitStdout(std::string(text.substr(at, chunk)));
    if (data[0] & 0x80)
      scheduler.runUntilIdle();
  }
  scheduler.runUntilIdle();
  scheduler.advanceBy(1s);

  const Reported reported = reportedFrames(text);
  const auto lines = client->lines();
  int acknowledgements = 0;
  for (std::size_t index = linesBefore; index < lines.size(); ++index) {
    const std::string& line = lines[index];
    FUZZ_CHECK(line.find('\n') == std::string::npos && line.find('\r') == std::string::npos);
    if (!line.starts_with("frame-ack|"))
      continue;
    ++acknowledgements;
    const std::size_t bar = line.find('|', 10);
    FUZZ_CHECK(bar != std::string::npos);
    const std::uint64_t frameIndex = std::stoull(line.substr(10, bar - 10));
    const auto found = reported.surfaces.find(frameIndex);
    FUZZ_CHECK(found != reported.surfaces.end());
  }
  if (reported.indicesDistinct)
    FUZZ_CHECK(acknowledgements == reported.frames);
  FUZZ_CHECK(acknowledgements <= reported.frames);
  host.shutdown();
}

}  // namespace
}  // namespace orvan::editor::testing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  orvan::editor::testing::run(data, size);
  return 0;
}
