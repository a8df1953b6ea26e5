// orvan_usd_inspector: prints the composed stage of a scene as the editor's StageInspection JSON.
// It only reads: the scene and its layers are never written.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Inspector/StageInspector.h"
#include "Inspector/StageLimits.h"
#include "UsdText/StageComposer.h"

namespace {

constexpr const char* kUsage =
    "usage: orvan_usd_inspector [--active-layer ID] [--mute LAYER]... [--no-payloads] "
    "[--confine DIR] [--max-prims N] [--max-sites N] [--max-layer-bytes N] "
    "[--max-output-bytes N] [--] SCENE";

// Every failure is one line "file:line:column: reason"; 0:0 stands for the file as a whole.
int fail(const std::string& file, std::uint32_t line, std::uint32_t column,
         const std::string& reason) {
  // The line is valid UTF-8 whatever bytes the scene's name or its text held.
  const std::string where = orvan::engine::escapeForMessage(file);
  const std::string why = orvan::engine::escapeForMessage(reason);
  std::fprintf(stderr, "%s:%u:%u: %s\n", where.c_str(), line, column, why.c_str());
  return 1;
}

int usage(const std::string& reason) {
  std::fprintf(stderr, "orvan_usd_inspector: %s; %s\n", reason.c_str(), kUsage);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  // A reader that goes away early must give a write error, not kill the process silently.
  std::signal(SIGPIPE, SIG_IGN);
  std::string scene;
  orvan::engine::InspectOptions inspect;
  orvan::engine::ComposeOptions compose;
  orvan::engine::StageLimits limits;
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  bool optionsEnded = false;  // after "--" every argument is the scene, even one that starts so
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    const bool option = !optionsEnded && argument.starts_with("--");
    if (option && argument == "--") {
      optionsEnded = true;
    } else if (option && (argument == "--active-layer" || argument == "--mute" ||
                          argument == "--confine" || orvan::engine::isStageLimitOption(argument))) {
      if (i + 1 >= arguments.size())
        return usage(argument + " needs a value");
      const std::string& value = arguments[++i];
      if (argument == "--mute") {
        compose.mutedLayers.push_back(value);
      } else if (argument == "--active-layer") {
        inspect.activeLayer = value;
      } else if (argument == "--confine") {
        compose.confinementRoot = value;
      } else if (const auto wrong = orvan::engine::setStageLimit(limits, argument, value)) {
        return usage(*wrong);
      }
    } else if (option && argument == "--no-payloads") {
      compose.loadPayloads = false;
    } else if (option || !scene.empty()) {
      return usage("unexpected argument '" + argument + "'");
    } else {
      scene = argument;
    }
  }
  compose.limits = limits.compose;
  inspect.maxOutputBytes = limits.maxOutputBytes;
  if (scene.empty())
    return usage("no scene given");

  const orvan::engine::StageOpenResult opened = orvan::engine::openStage(scene, compose);
  if (!opened.ok())
    return fail(opened.error->file, opened.error->line, opened.error->column,
                opened.error->message);
  int writeError = 0;
  const auto written = orvan::engine::writeInspectionJson(
      *opened.stage, inspect, [&writeError](std::string_view piece) {
        if (std::fwrite(piece.data(), 1, piece.size(), stdout) == piece.size())
          return true;
        writeError = errno;
        return false;
      });
  if (written && writeError == 0)
    return fail(scene, 0, 0, *written);
  if (writeError != 0 || std::fputc('\n', stdout) == EOF || std::fflush(stdout) != 0) {
    return fail(scene, 0, 0,
                std::string("could not write the stage: ") +
                    std::strerror(writeError != 0 ? writeError : errno));
  }
  return 0;
}
