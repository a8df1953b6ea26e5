#include "orvan/client/DestinationPickerCopy.h"

namespace orvan::client {

extern constexpr DestinationPickerCopy kProjectPickerCopy = {
    "Projects",
    "Choose a project to open.",
    "Search projects",
    "Loading projects",
    "No projects found",
    "Couldn\u2019t Load Projects",
    "Open",
    "Current",
    "Retry",
    "Cancel",
    "New Project",
};

extern constexpr DestinationPickerCopy kWorkspacePickerCopy = {
    "Workspaces",
    "Choose a workspace to open.",
    "Search workspaces",
    "Loading workspaces",
    "No workspaces found",
    "Couldn\u2019t Load Workspaces",
    "Open",
    "Current",
    "Retry",
    "Cancel",
    "New Workspace",
};

const char* DestinationPickerCopy::field(std::int32_t index) const {
  switch (index) {
    case 0:
      return title;
    case 1:
      return subtitle;
    case 2:
      return search_prompt;
    case 3:
      return loading;
    case 4:
      return empty;
    case 5:
      return failure;
    case 6:
      return open_action;
    case 7:
      return current_badge;
    case 8:
      return retry_action;
    case 9:
      return cancel_action;
    case 10:
      return create_action;
    default:
      return "";
  }
}

}  // namespace orvan::client
