#include "ProjectsAndWorkspaces/HostedProject.h"

namespace orvan::editor {

HostedProject hostedProject(const HostedProjectSummary& summary) {
  const bool hasId = summary.id.has_value() && !summary.id->empty();
  std::int64_t memberCount = 0;
  if (summary.members.has_value() && summary.members->total.has_value()) {
    memberCount = *summary.members->total;
  }
  return HostedProject{.stableId = hasId ? *summary.id : summary.path,
                       .path = summary.path,
                       .name = summary.name,
                       .scenePath = summary.scene,
                       .source = "server",
                       .modifiedAt = std::nullopt,
                       .isCurrent = summary.current,
                       .role = summary.role,
                       .canInvite = summary.canInvite.value_or(false),
                       .memberCount = memberCount};
}

}  // namespace orvan::editor
