#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "orvan/wire/JsonFields.h"
#include "orvan/wire/records/StageInspection.h"

// The project server's records of hosted projects: the catalogue, the answers of project and
// workspace operations, project links and invitations.
namespace orvan::editor {

// How many people have which role in a project.
struct ProjectMemberSummary {
  std::optional<std::int64_t> total = {};
  std::optional<std::int64_t> owner = {};
  std::optional<std::int64_t> editor = {};
  std::optional<std::int64_t> viewer = {};

  bool operator==(const ProjectMemberSummary&) const = default;
  static auto jsonFields() {
    using T = ProjectMemberSummary;
    return std::tuple{json::optional("total", &T::total), json::optional("owner", &T::owner),
                      json::optional("editor", &T::editor), json::optional("viewer", &T::viewer)};
  }
};

// One entry of the project catalogue. Older servers give no `id`; such a project is known by its
// `path`.
struct HostedProjectSummary {
  std::optional<std::string> id = {};
  std::string name = {};
  std::string path = {};
  std::string scene = {};
  bool current = false;
  std::optional<std::string> role = {};
  std::optional<bool> canInvite = {};
  std::optional<bool> canEdit = {};
  std::optional<ProjectMemberSummary> members = {};

  bool operator==(const HostedProjectSummary&) const = default;
  static auto jsonFields() {
    using T = HostedProjectSummary;
    return std::tuple{json::optional("id", &T::id),
                      json::required("name", &T::name),
                      json::required("path", &T::path),
                      json::required("scene", &T::scene),
                      json::required("current", &T::current),
                      json::optional("role", &T::role),
                      json::optional("canInvite", &T::canInvite),
                      json::optional("canEdit", &T::canEdit),
                      json::optional("members", &T::members)};
  }
};

// The project catalogue: the server's project root, the project it has open and every project
// the signed-in user may open.
struct HostedProjectsResponse {
  std::string root = {};
  std::string current = {};
  std::vector<HostedProjectSummary> projects = {};

  bool operator==(const HostedProjectsResponse&) const = default;
  static auto jsonFields() {
    using T = HostedProjectsResponse;
    return std::tuple{json::required("root", &T::root), json::required("current", &T::current),
                      json::required("projects", &T::projects)};
  }
};

// The answer of opening, creating or deleting a project and of the workspace operations. It may
// carry the new stage to save a round trip; `stageNotModified` without an envelope means the
// stage still matches the entity tag the request sent, so the cached one stays valid.
struct HostedProjectOperationResponse {
  bool accepted = false;
  std::uint64_t revision = 0;
  std::string message = {};
  std::optional<std::string> projectId = {};
  std::optional<std::string> projectPath = {};
  std::optional<std::string> workspace = {};
  std::optional<std::string> scene = {};
  std::optional<RemoteStageResponse> stageEnvelope = {};
  std::optional<bool> stageNotModified = {};
  std::optional<std::string> stageETag = {};

  bool operator==(const HostedProjectOperationResponse&) const = default;
  static auto jsonFields() {
    using T = HostedProjectOperationResponse;
    return std::tuple{json::required("accepted", &T::accepted),
                      json::required("revision", &T::revision),
                      json::required("message", &T::message),
                      json::optional("projectId", &T::projectId),
                      json::optional("projectPath", &T::projectPath),
                      json::optional("workspace", &T::workspace),
                      json::optional("scene", &T::scene),
                      json::optional("stageEnvelope", &T::stageEnvelope),
                      json::optional("stageNotModified", &T::stageNotModified),
                      json::optional("stageETag", &T::stageETag)};
  }
};

// What a project link resolves to on the server.
struct HostedDeepLinkResponse {
  bool accepted = false;
  std::optional<std::string> message = {};
  std::optional<std::string> id = {};
  std::optional<std::string> project = {};
  std::optional<std::string> scene = {};
  std::optional<std::string> sceneRef = {};
  std::optional<std::string> workspace = {};
  std::optional<std::string> address = {};

  bool operator==(const HostedDeepLinkResponse&) const = default;
  static auto jsonFields() {
    using T = HostedDeepLinkResponse;
    return std::tuple{json::required("accepted", &T::accepted),
                      json::optional("message", &T::message),
                      json::optional("id", &T::id),
                      json::optional("project", &T::project),
                      json::optional("scene", &T::scene),
                      json::optional("sceneRef", &T::sceneRef),
                      json::optional("workspace", &T::workspace),
                      json::optional("address", &T::address)};
  }
};

// The answer of an invitation: whether access was granted at once, and whether the mail went out.
struct HostedProjectInviteResponse {
  bool accepted = false;
  std::optional<std::uint64_t> revision = {};
  std::string message = {};
  std::optional<std::string> email = {};
  std::optional<std::string> role = {};
  std::optional<std::string> inviteLink = {};
  std::optional<bool> emailSent = {};
  std::optional<std::string> emailError = {};
  std::optional<bool> accessGranted = {};
  std::optional<bool> autoAccepted = {};
  std::optional<bool> invitePending = {};

  bool operator==(const HostedProjectInviteResponse&) const = default;
  static auto jsonFields() {
    using T = HostedProjectInviteResponse;
    return std::tuple{json::required("accepted", &T::accepted),
                      json::optional("revision", &T::revision),
                      json::required("message", &T::message),
                      json::optional("email", &T::email),
                      json::optional("role", &T::role),
                      json::optional("inviteLink", &T::inviteLink),
                      json::optional("emailSent", &T::emailSent),
                      json::optional("emailError", &T::emailError),
                      json::optional("accessGranted", &T::accessGranted),
                      json::optional("autoAccepted", &T::autoAccepted),
                      json::optional("invitePending", &T::invitePending)};
  }
};

}  // namespace orvan::editor
