#include "ProjectTool/ProjectTool.h"

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "UsdText/LayerReader.h"
#include "UsdText/LayerWriter.h"
#include "UsdText/SceneGenerator.h"
#include "UsdText/StageComposer.h"

namespace orvan::engine {
namespace {

constexpr const char* kUsage =
    "usage: orvan_project_tool generate N OUT\n"
    "       orvan_project_tool check SCENE [--mute LAYER]... [--no-payloads]\n"
    "       orvan_project_tool format LAYER [--stdout]\n";

int usage(std::ostream& err, const std::string& why) {
  err << "orvan_project_tool: " << why << "\n" << kUsage;
  return kToolUsage;
}

// Writes beside the target and renames over it, so a failed write never leaves half a layer.
bool writeFileAtomically(const std::string& path, const std::string& text, std::string& error) {
  const std::string temporary = path + ".orvan-tmp";
  {
    std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
    if (!file || !file.write(text.data(), static_cast<std::streamsize>(text.size())) ||
        !file.flush()) {
      error = "could not write " + temporary;
      std::remove(temporary.c_str());
      return false;
    }
  }
  std::error_code code;
  std::filesystem::rename(temporary, path, code);
  if (code) {
    error = "could not replace " + path + ": " + code.message();
    std::remove(temporary.c_str());
    return false;
  }
  return true;
}

int generate(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
  if (arguments.size() != 3)
    return usage(err, "generate needs a prim count and an output file");
  const std::string& countText = arguments[1];
  std::size_t count = 0;
  const auto [end, code] =
      std::from_chars(countText.data(), countText.data() + countText.size(), count);
  if (code != std::errc() || end != countText.data() + countText.size() || count == 0) {
    return usage(err, "the prim count must be a whole number above 0, not '" + countText + "'");
  }
  std::string error;
  if (!writeFileAtomically(arguments[2], generateScene(count), error)) {
    err << "orvan_project_tool: " << error << "\n";
    return kToolProblems;
  }
  out << "Wrote " << count << " prims to " << arguments[2] << "\n";
  return kToolOk;
}

int check(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
  if (arguments.size() < 2)
    return usage(err, "check needs a scene");
  ComposeOptions options;
  for (std::size_t i = 2; i < arguments.size(); ++i) {
    if (arguments[i] == "--no-payloads") {
      options.loadPayloads = false;
    } else if (arguments[i] == "--mute" && i + 1 < arguments.size()) {
      options.mutedLayers.push_back(arguments[++i]);
    } else {
      return usage(err, "unknown option '" + arguments[i] + "'");
    }
  }
  const StageOpenResult result = openStage(arguments[1], options);
  if (!result.ok()) {
    err << result.error->describe() << "\n";
    return kToolProblems;
  }
  const Stage& stage = *result.stage;
  out << arguments[1] << ": " << stage.prims.size() << " prims, " << stage.layers.size()
      << " layers, " << stage.problems.size() << " problems\n";
  for (const StageProblem& problem : stage.problems) {
    out << "problem: " << (problem.primPath.empty() ? "layer stack" : "<" + problem.primPath + ">")
        << ": " << problem.message << "\n";
  }
  return stage.problems.empty() ? kToolOk : kToolProblems;
}

int format(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
  if (arguments.size() < 2 || arguments.size() > 3)
    return usage(err, "format needs one layer");
  const bool toStdout = arguments.size() == 3;
  if (toStdout && arguments[2] != "--stdout")
    return usage(err, "unknown option '" + arguments[2] + "'");
  const LayerReadResult read = readLayerFile(arguments[1]);
  if (!read.ok()) {
    err << read.error->describe() << "\n";
    return kToolProblems;
  }
  const std::string text = writeLayer(*read.layer);
  if (toStdout) {
    out << text;
    return kToolOk;
  }
  std::string error;
  if (!writeFileAtomically(arguments[1], text, error)) {
    err << "orvan_project_tool: " << error << "\n";
    return kToolProblems;
  }
  return kToolOk;
}

}  // namespace

int runProjectTool(const std::vector<std::string>& arguments, std::ostream& out,
                   std::ostream& err) {
  if (arguments.empty())
    return usage(err, "no command given");
  const std::string& command = arguments[0];
  if (command == "generate")
    return generate(arguments, out, err);
  if (command == "check")
    return check(arguments, out, err);
  if (command == "format")
    return format(arguments, out, err);
  return usage(err, "unknown command '" + command + "'");
}

}  // namespace orvan::engine
