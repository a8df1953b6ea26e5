#include "Launch/EditorConfiguration.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>

#include <spdlog/spdlog.h>

#include "Launch/BuildSettings.h"
#include "orvan/wire/Text.h"
#include "orvan/wire/URLComponents.h"

namespace orvan::editor {

namespace {

std::string currentDirectoryPath() {
  std::error_code error;
  const auto path = std::filesystem::current_path(error);
  return error ? std::string() : path.string();
}

// An unsigned 64-bit decimal with an optional leading sign; negative values other than -0 and
// anything that does not parse or overflows yield nothing.
std::optional<std::uint64_t> parseRevision(std::string_view text) {
  bool negative = false;
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  if (text.empty())
    return std::nullopt;
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size())
    return std::nullopt;
  if (negative && value != 0)
    return std::nullopt;
  return value;
}

using Setter = std::function<void(EditorConfiguration&, const std::string&)>;

void setViewportBackend(EditorConfiguration& configuration, const std::string& value) {
  if (const auto backend = parseEditorViewportBackend(value)) {
    // The in-process library does not exist on this platform: the out-of-process flow stays.
    if (*backend == EditorViewportBackend::inProcess) {
      spdlog::warn(
          "OrvanUsdEditor: viewport backend in-process is not available on this "
          "platform; using {}",
          editorViewportBackendName(configuration.viewportBackend));
      return;
    }
    configuration.viewportBackend = *backend;
    return;
  }
  spdlog::warn("OrvanUsdEditor: unknown viewport backend '{}'; using {}", value,
               editorViewportBackendName(configuration.viewportBackend));
}

void setWorkspace(EditorConfiguration& configuration, const std::string& value) {
  configuration.workspace = value.empty() ? "main" : value;
}

void setRevision(EditorConfiguration& configuration, const std::string& value) {
  if (value.empty())
    return;
  if (const auto revision = parseRevision(value))
    configuration.revision = *revision;
}

// The options that take a value, by their exact names.
const std::map<std::string_view, Setter>& valueOptions() {
  static const std::map<std::string_view, Setter> options = [] {
    auto field = [](std::string EditorConfiguration::*member) -> Setter {
      return [member](EditorConfiguration& configuration, const std::string& value) {
        configuration.*member = value;
      };
    };
    return std::map<std::string_view, Setter>{
        {"--project-id", field(&EditorConfiguration::projectId)},
        {"--project", field(&EditorConfiguration::projectPath)},
        {"--scene", field(&EditorConfiguration::scenePath)},
        {"--workspace", setWorkspace},
        {"--ws", setWorkspace},
        {"--runtime", field(&EditorConfiguration::runtimePath)},
        {"--viewport", field(&EditorConfiguration::viewportPath)},
        {"--viewport-client", field(&EditorConfiguration::viewportClientPath)},
        {"--inspector", field(&EditorConfiguration::inspectorPath)},
        {"--edit-client", field(&EditorConfiguration::editClientPath)},
        {"--tool-client", field(&EditorConfiguration::toolClientPath)},
        {"--project-tool", field(&EditorConfiguration::projectToolPath)},
        {"--launcher", field(&EditorConfiguration::launcherPath)},
        {"--template-scene", field(&EditorConfiguration::templateScenePath)},
        {"--web-editor-url", field(&EditorConfiguration::webEditorURL)},
        {"--project-server-url", field(&EditorConfiguration::projectServerURL)},
        {"--remote-stage-url", field(&EditorConfiguration::remoteStageURL)},
        {"--address", field(&EditorConfiguration::address)},
        {"--viewport-address", field(&EditorConfiguration::viewportAddress)},
        {"--viewport-backend", setViewportBackend},
        {"--client-id", field(&EditorConfiguration::clientId)},
        {"--revision", setRevision},
    };
  }();
  return options;
}

// How many arguments an option takes with its value: 1 for the flag, 2 for the others, 0 for an
// argument that is no option of the editor.
std::size_t argumentsTakenBy(const std::string& argument) {
  if (argument == "--local-mode")
    return 1;
  return valueOptions().contains(argument) ? 2 : 0;
}

}  // namespace

std::optional<EditorViewportBackend> parseEditorViewportBackend(std::string_view argument) {
  const std::string name = lowercased(trimWhitespaceAndNewlines(argument));
  if (name == "in-process" || name == "inprocess")
    return EditorViewportBackend::inProcess;
  if (name == "iosurface" || name == "out-of-process" || name == "multiprocess") {
    return EditorViewportBackend::ioSurface;
  }
  return std::nullopt;
}

std::string_view editorViewportBackendName(EditorViewportBackend backend) {
  switch (backend) {
    case EditorViewportBackend::inProcess:
      return "in-process";
    case EditorViewportBackend::ioSurface:
      return "iosurface";
  }
  return "in-process";
}

std::string defaultWorkspaceRoot(const std::vector<std::string>& arguments,
                                 std::string_view currentDirectory) {
  const std::string program = arguments.empty() ? std::string() : arguments.front();
  const std::string path =
      standardizePath(hasPrefix(program, "/") ? program : joinPath(currentDirectory, program));
  const std::size_t marker = path.find("/apps/usd_editor/");
  if (marker != std::string::npos)
    return path.substr(0, marker);
  return std::string(currentDirectory);
}

EditorConfiguration EditorConfiguration::fromArguments(const std::vector<std::string>& arguments) {
  return fromArguments(arguments, currentDirectoryPath());
}

EditorConfiguration EditorConfiguration::fromArguments(const std::vector<std::string>& arguments,
                                                       std::string_view currentDirectory) {
  EditorConfiguration configuration;
  configuration.workspaceRoot = defaultWorkspaceRoot(arguments, currentDirectory);
  configuration.webEditorURL = std::string(kDefaultWebEditorURL);
  configuration.projectServerURL = std::string(kDefaultProjectServerURL);
  configuration.address = std::string(kDefaultAuthoringAddress);

  const auto& options = valueOptions();
  std::size_t index = 1;
  while (index < arguments.size()) {
    const std::string& argument = arguments[index];
    const std::size_t taken = argumentsTakenBy(argument);
    if (taken == 0) {
      index += 1;  // unknown: its would-be value is examined as an argument of its own
      continue;
    }
    if (taken == 1) {
      configuration.localMode = true;
    } else {
      const std::string value = index + 1 < arguments.size() ? arguments[index + 1] : std::string();
      options.at(argument)(configuration, value);
    }
    index += taken;
  }
  return configuration;
}

std::string EditorConfiguration::resolvedPath(std::string_view path) const {
  if (hasPrefix(path, "/"))
    return std::string(path);
  return joinPath(workspaceRoot, path);
}

bool isLocalAuthoringAddress(std::string_view text) {
  const std::string address = lowercased(trimWhitespaceAndNewlines(text));
  if (address.empty())
    return true;
  for (std::string_view prefix : {"localhost:", "127.0.0.1:", "grpc://localhost",
                                  "grpc://127.0.0.1", "grpcs://localhost", "grpcs://127.0.0.1"}) {
    if (hasPrefix(address, prefix))
      return true;
  }
  return false;
}

std::optional<std::string> EditorConfiguration::projectServerDerivedAuthoringAddress() const {
  return derivedAuthoringAddress(localMode, address, projectServerURL);
}

std::optional<std::string> derivedAuthoringAddress(bool localMode, std::string_view address,
                                                   std::string_view projectServerURL) {
  if (localMode || !isLocalAuthoringAddress(address))
    return std::nullopt;
  const auto url = URLComponents::parse(projectServerURL);
  if (!url)
    return std::nullopt;
  std::string host = url->host;
  if (host.empty())
    return std::nullopt;
  const bool secure = lowercased(url->scheme) == "https";
  if (host.find(':') != std::string::npos && !hasPrefix(host, "["))
    host = "[" + host + "]";
  const int port = url->port.value_or(secure ? 443 : 80);
  return std::string(secure ? "grpcs" : "grpc") + "://" + host + ":" + std::to_string(port);
}

bool EditorConfiguration::usdFbxAvailable(std::string_view pluginPath) const {
  std::size_t start = 0;
  while (start <= pluginPath.size()) {
    std::size_t end = pluginPath.find(':', start);
    if (end == std::string_view::npos)
      end = pluginPath.size();
    const std::string_view entry = pluginPath.substr(start, end - start);
    start = end + 1;
    if (entry.empty())
      continue;
    if (::access(joinPath(entry, "plugInfo.json").c_str(), F_OK) == 0)
      return true;
  }
  const std::string bundled =
      resolvedPath(".derived/usdfbx/install/usdFbx/resources/plugInfo.json");
  return ::access(bundled.c_str(), F_OK) == 0;
}

bool EditorConfiguration::usdFbxAvailable() const {
  const char* pluginPath = std::getenv("PXR_PLUGINPATH_NAME");
  return usdFbxAvailable(pluginPath ? pluginPath : "");
}

std::vector<std::string> EditorConfiguration::unknownOptions(
    const std::vector<std::string>& arguments, const std::vector<std::string_view>& alsoKnown) {
  std::vector<std::string> unknown;
  std::size_t index = 1;
  while (index < arguments.size()) {
    const std::string& argument = arguments[index];
    const std::size_t taken = argumentsTakenBy(argument);
    const bool known = std::find(alsoKnown.begin(), alsoKnown.end(), argument) != alsoKnown.end();
    if (taken == 0 && argument.starts_with("--") && !known)
      unknown.push_back(argument);
    index += std::max<std::size_t>(taken, 1);
  }
  return unknown;
}

}  // namespace orvan::editor
