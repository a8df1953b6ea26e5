#include "ServerClient/VelkConnectionIssue.h"

#include <utility>

#include "orvan/wire/Text.h"
#include "velk_client_state_bridge.h"

namespace orvan::editor {
namespace {

constexpr std::string_view kPermissionTitleSuffix = " needs permission";
constexpr std::string_view kAccessRequestedLabel = "Access Requested";
constexpr std::string_view kAccessPendingMessage =
    "Your access request is pending. Choose another project while you wait for the owner to "
    "approve it.";

// Action numbers the client core might add later read as no action rather than a wrong one.
VelkConnectionAction actionFromNumber(std::int32_t number) {
  if (number < 0 || number > static_cast<std::int32_t>(VelkConnectionAction::chooseProject)) {
    return VelkConnectionAction::none;
  }
  return static_cast<VelkConnectionAction>(number);
}

void describeRequestedProject(VelkConnectionIssue& issue, const VelkConnectionProject& project) {
  if (project.name) {
    const std::string_view name = trimWhitespaceAndNewlines(*project.name);
    if (!name.empty())
      issue.title = std::string(name) + std::string(kPermissionTitleSuffix);
  }
  if (project.requestStatus == "pending") {
    issue.primaryLabel = kAccessRequestedLabel;
    issue.message = kAccessPendingMessage;
    issue.primaryAction = VelkConnectionAction::none;
  }
}

}  // namespace

VelkConnectionIssue VelkConnectionIssue::classify(std::int32_t statusCode,
                                                  std::optional<std::string_view> code,
                                                  bool networkError,
                                                  std::optional<VelkConnectionProject> project,
                                                  std::string diagnostic) {
  const std::string codeText(code.value_or(std::string_view()));
  const std::int32_t kind =
      velk_connection_classify(statusCode, codeText.c_str(), networkError ? 1 : 0);

  VelkConnectionIssue issue;
  issue.kind = kind;
  issue.code = velk_client_state_code(kind);
  issue.icon = velk_client_state_icon(kind);
  issue.title = velk_client_state_title(kind);
  issue.message = velk_client_state_message(kind);
  issue.primaryLabel = velk_client_state_primary_label(kind);
  issue.primaryAction = actionFromNumber(velk_client_state_primary_action(kind));
  issue.secondaryLabel = velk_client_state_secondary_label(kind);
  issue.secondaryAction = actionFromNumber(velk_client_state_secondary_action(kind));
  issue.retryable = velk_client_state_retryable(kind) != 0;
  issue.blocksProject = velk_client_state_blocks_project(kind) != 0;

  if (issue.primaryAction == VelkConnectionAction::requestAccess && project) {
    describeRequestedProject(issue, *project);
  }
  issue.project = std::move(project);
  issue.diagnostic = std::move(diagnostic);
  return issue;
}

}  // namespace orvan::editor
