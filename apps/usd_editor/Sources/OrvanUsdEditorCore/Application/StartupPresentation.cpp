#include "Application/StartupPresentation.h"

#include "orvan/wire/Text.h"

namespace orvan::editor {

StartupSheetContent startupSheetContent(const std::optional<VelkConnectionIssue>& connectionIssue,
                                        std::string_view initialProjectError,
                                        std::string_view projectServerURL) {
  if (connectionIssue)
    return {connectionIssue->title, connectionIssue->message, connectionIssue};
  if (!initialProjectError.empty()) {
    return {std::string(kProjectDidNotRespondTitle), std::string(initialProjectError),
            std::nullopt};
  }
  const std::string_view server = trimWhitespaceAndNewlines(projectServerURL);
  if (server.empty()) {
    return {std::string(kOpeningProjectTitle), std::string(kNoProjectServerMessage), std::nullopt};
  }
  return {std::string(kOpeningProjectTitle), std::string(server), std::nullopt};
}

std::optional<std::string> lastPathComponent(std::string_view pathOrURL) {
  std::string_view text = trimWhitespaceAndNewlines(pathOrURL);
  const std::size_t query = text.find_first_of("?#");
  if (query != std::string_view::npos && text.find("://") != std::string_view::npos) {
    text = text.substr(0, query);
  }
  while (text.size() > 1 && text.back() == '/')
    text.remove_suffix(1);
  const std::size_t slash = text.rfind('/');
  const std::string_view last = slash == std::string_view::npos ? text : text.substr(slash + 1);
  if (last.empty() || last == "/" || last == "." || last == "..")
    return std::nullopt;
  return std::string(last);
}

std::string projectLabel(const ProjectLabelInputs& inputs) {
  if (inputs.projectConnectionInFlight && !inputs.seamlessWorkspaceTransitionInFlight) {
    return inputs.projectTransitionMessage.empty() ? std::string(kOpeningProjectTitle)
                                                   : std::string(inputs.projectTransitionMessage);
  }
  if (!inputs.stageSceneUri.empty()) {
    if (auto name = lastPathComponent(inputs.stageSceneUri))
      return *name;
  }
  if (!trimWhitespaceAndNewlines(inputs.remoteStageURL).empty())
    return "Loading project";
  if (trimWhitespaceAndNewlines(inputs.scenePath).empty())
    return "No project";
  return lastPathComponent(inputs.scenePath).value_or(std::string(inputs.scenePath));
}

std::string projectLoadingMessage(const ProjectLoadingInputs& inputs) {
  if (inputs.seamlessWorkspaceTransitionInFlight && inputs.projectConnectionInFlight &&
      !inputs.projectTransitionMessage.empty()) {
    return std::string(inputs.projectTransitionMessage);
  }
  if (inputs.projectConnectionInFlight)
    return std::string(kOpeningProjectTitle);
  if (inputs.stageRefreshInFlight)
    return "Loading stage";
  return "Loading Project";
}

}  // namespace orvan::editor
