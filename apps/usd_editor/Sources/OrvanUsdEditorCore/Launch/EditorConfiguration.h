#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvan::editor {

// How viewport frames reach the window.
enum class EditorViewportBackend { inProcess, ioSurface };

// Accepts the names people type for each backend, ignoring surrounding white space and case.
std::optional<EditorViewportBackend> parseEditorViewportBackend(std::string_view argument);
std::string_view editorViewportBackendName(EditorViewportBackend backend);

// The launch record: where the editor runs from, what it points at and which helpers it drives.
// Built once from the process arguments; arguments and compiled-in defaults are its only sources.
struct EditorConfiguration {
  bool localMode = false;
  std::string workspaceRoot;
  std::string projectId;
  std::string projectPath;
  std::string scenePath;
  std::string workspace = "main";
  std::string runtimePath = "build/full-demo/orvan_runtime_sokol";
  std::string viewportPath = "build/full-demo/orvan_runtime_viewport";
  std::string viewportClientPath = "build/full-demo/orvan_viewport_client";
  std::string inspectorPath = "build/full-demo/orvan_usd_inspector";
  std::string editClientPath = "build/full-demo/orvan_edit_client";
  std::string toolClientPath = "build/full-demo/orvan_tool_client";
  std::string projectToolPath = "build/full-demo/orvan_project_tool";
  std::string launcherPath = "tools/run_usd_editor.sh";
  std::string templateScenePath = "demo/hello_world.usda";
  std::string webEditorURL;
  std::string projectServerURL;
  std::string remoteStageURL;
  std::string address;
  std::string viewportAddress = "127.0.0.1:50052";
  // Frames travel as shared surfaces from the viewport's own processes; the in-process host is
  // not available on this platform and is never chosen.
  EditorViewportBackend viewportBackend = EditorViewportBackend::ioSurface;
  std::string clientId = "native-editor";
  std::uint64_t revision = 1;

  // The defaults, with the workspace root found from `arguments[0]` and the current directory.
  // Parsing cannot fail: bad values are ignored.
  static EditorConfiguration fromArguments(const std::vector<std::string>& arguments);
  static EditorConfiguration fromArguments(const std::vector<std::string>& arguments,
                                           std::string_view currentDirectory);
  // The arguments starting with "--" that `fromArguments` skipped as no option of the editor,
  // apart from `alsoKnown` (options of the executable itself), in order: misspellings to warn
  // about, while the launch goes on without them. Values of known options are never listed.
  static std::vector<std::string> unknownOptions(
      const std::vector<std::string>& arguments,
      const std::vector<std::string_view>& alsoKnown = {});

  // A helper path as consumers use it: absolute as it stands, otherwise under `workspaceRoot`.
  std::string resolvedPath(std::string_view path) const;

  // The authoring address that follows the project server, when the configured one is local.
  std::optional<std::string> projectServerDerivedAuthoringAddress() const;

  // Whether FBX files can be given to the stage: a plug-in on PXR_PLUGINPATH_NAME (given as
  // `pluginPath`) or the one built under the workspace.
  bool usdFbxAvailable(std::string_view pluginPath) const;
  bool usdFbxAvailable() const;

  bool operator==(const EditorConfiguration&) const = default;
};

std::string defaultWorkspaceRoot(const std::vector<std::string>& arguments,
                                 std::string_view currentDirectory);

// The authoring address that follows `projectServerURL`, when `address` is local.
std::optional<std::string> derivedAuthoringAddress(bool localMode, std::string_view address,
                                                   std::string_view projectServerURL);

// Addresses of an authoring service on this machine; an empty address counts as local.
bool isLocalAuthoringAddress(std::string_view text);

// The system's words when FBX cannot be added.
inline constexpr std::string_view kUsdFbxUnavailablePayloadMessage =
    "usdFBX plugin unavailable. Build it with tools/bootstrap_usdfbx.sh before adding FBX "
    "payloads.";
inline constexpr std::string_view kUsdFbxUnavailableStoreMessage =
    "usdFBX plugin unavailable. Build it with tools/bootstrap_usdfbx.sh before adding FBX Store "
    "assets";

}  // namespace orvan::editor
