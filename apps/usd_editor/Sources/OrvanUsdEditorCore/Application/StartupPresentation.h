#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ServerClient/VelkConnectionIssue.h"

// What the window says while the editor comes up: the start-up sheet and the project label.
namespace orvan::editor {

inline constexpr std::string_view kOpeningProjectTitle = "Opening Project";
inline constexpr std::string_view kProjectDidNotRespondTitle = "Project Did Not Respond";
inline constexpr std::string_view kNoProjectServerMessage = "No project server configured";

struct StartupSheetContent {
  std::string title;
  std::string message;
  // The buttons carry the issue's actions when there is one.
  std::optional<VelkConnectionIssue> issue;

  bool operator==(const StartupSheetContent&) const = default;
};

// The sheet's words, first match: a connection issue, a project that did not respond, no server,
// or the server being opened.
StartupSheetContent startupSheetContent(const std::optional<VelkConnectionIssue>& connectionIssue,
                                        std::string_view initialProjectError,
                                        std::string_view projectServerURL);

struct ProjectLabelInputs {
  bool projectConnectionInFlight = false;
  bool seamlessWorkspaceTransitionInFlight = false;
  std::string_view projectTransitionMessage = {};
  std::string_view stageSceneUri = {};
  std::string_view remoteStageURL = {};
  std::string_view scenePath = {};
};

// The window's title and the toolbar's project name.
std::string projectLabel(const ProjectLabelInputs& inputs);

// The last path component of a path or URL, without a query; nothing when there is none.
std::optional<std::string> lastPathComponent(std::string_view pathOrURL);

struct ProjectLoadingInputs {
  bool seamlessWorkspaceTransitionInFlight = false;
  bool projectConnectionInFlight = false;
  bool stageRefreshInFlight = false;
  std::string_view projectTransitionMessage = {};
};

std::string projectLoadingMessage(const ProjectLoadingInputs& inputs);

}  // namespace orvan::editor
