#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "orvan/wire/JsonFields.h"
#include "orvan/wire/records/ProjectRecords.h"

// The project server's records of workspaces: the catalogue, the revision history with its
// restore, and the comments left in a workspace.
namespace orvan::editor {

// One workspace of a project as the catalogue lists it.
struct ProjectWorkspaceSummary {
  std::string id = {};
  std::string name = {};
  std::optional<std::string> parentId = {};
  std::optional<std::string> baseScene = {};
  std::optional<std::string> headKey = {};
  std::optional<bool> archived = {};
  std::optional<bool> current = {};
  std::optional<std::int64_t> activeClientCount = {};
  std::optional<std::vector<SceneClientSummary>> activeAgents = {};

  bool operator==(const ProjectWorkspaceSummary&) const = default;
  static auto jsonFields() {
    using T = ProjectWorkspaceSummary;
    return std::tuple{json::required("id", &T::id),
                      json::required("name", &T::name),
                      json::optional("parentId", &T::parentId),
                      json::optional("baseScene", &T::baseScene),
                      json::optional("headKey", &T::headKey),
                      json::optional("archived", &T::archived),
                      json::optional("current", &T::current),
                      json::optional("activeClientCount", &T::activeClientCount),
                      json::optional("activeAgents", &T::activeAgents)};
  }
};

// The answer of the workspace list and of the workspace operations that return the whole list.
struct ProjectWorkspaceCatalogResponse {
  std::optional<bool> accepted = {};
  std::optional<std::uint64_t> revision = {};
  std::optional<std::string> workspace = {};
  std::optional<std::vector<ProjectWorkspaceSummary>> workspaces = {};
  std::optional<std::string> message = {};

  bool operator==(const ProjectWorkspaceCatalogResponse&) const = default;
  static auto jsonFields() {
    using T = ProjectWorkspaceCatalogResponse;
    return std::tuple{
        json::optional("accepted", &T::accepted), json::optional("revision", &T::revision),
        json::optional("workspace", &T::workspace), json::optional("workspaces", &T::workspaces),
        json::optional("message", &T::message)};
  }
};

// One saved state in a workspace's history. `parents` are keys of earlier revisions.
struct ProjectWorkspaceRevision {
  std::string key = {};
  std::uint64_t number = 0;
  std::vector<std::string> parents = {};
  std::string author = {};
  std::string createdAt = {};
  std::string summary = {};
  std::int64_t changedFileCount = 0;
  bool current = false;

  bool operator==(const ProjectWorkspaceRevision&) const = default;
  static auto jsonFields() {
    using T = ProjectWorkspaceRevision;
    return std::tuple{json::required("key", &T::key),
                      json::required("number", &T::number),
                      json::required("parents", &T::parents),
                      json::required("author", &T::author),
                      json::required("createdAt", &T::createdAt),
                      json::required("summary", &T::summary),
                      json::required("changedFileCount", &T::changedFileCount),
                      json::required("current", &T::current)};
  }
};

struct WorkspaceRevisionsResponse {
  bool accepted = false;
  std::optional<std::uint64_t> revision = {};
  std::optional<std::string> projectId = {};
  std::optional<std::string> scene = {};
  std::optional<std::string> workspace = {};
  std::optional<std::string> headKey = {};
  std::optional<std::vector<ProjectWorkspaceRevision>> revisions = {};
  std::optional<std::string> message = {};

  bool operator==(const WorkspaceRevisionsResponse&) const = default;
  static auto jsonFields() {
    using T = WorkspaceRevisionsResponse;
    return std::tuple{
        json::required("accepted", &T::accepted),   json::optional("revision", &T::revision),
        json::optional("projectId", &T::projectId), json::optional("scene", &T::scene),
        json::optional("workspace", &T::workspace), json::optional("headKey", &T::headKey),
        json::optional("revisions", &T::revisions), json::optional("message", &T::message)};
  }
};

// The answer of a restore: where the head was and is, and whether the server checked that the
// live files match the restored revision.
struct WorkspaceRestoreResponse {
  bool accepted = false;
  std::optional<std::uint64_t> revision = {};
  std::optional<std::string> message = {};
  std::optional<std::string> projectId = {};
  std::optional<std::string> scene = {};
  std::optional<std::string> workspace = {};
  std::optional<std::string> targetRevision = {};
  std::optional<std::string> previousHeadKey = {};
  std::optional<std::string> headKey = {};
  std::optional<std::uint64_t> revisionNumber = {};
  std::optional<bool> liveCheckoutVerified = {};
  std::optional<std::int64_t> verifiedLiveFileCount = {};

  bool operator==(const WorkspaceRestoreResponse&) const = default;
  static auto jsonFields() {
    using T = WorkspaceRestoreResponse;
    return std::tuple{json::required("accepted", &T::accepted),
                      json::optional("revision", &T::revision),
                      json::optional("message", &T::message),
                      json::optional("projectId", &T::projectId),
                      json::optional("scene", &T::scene),
                      json::optional("workspace", &T::workspace),
                      json::optional("targetRevision", &T::targetRevision),
                      json::optional("previousHeadKey", &T::previousHeadKey),
                      json::optional("headKey", &T::headKey),
                      json::optional("revisionNumber", &T::revisionNumber),
                      json::optional("liveCheckoutVerified", &T::liveCheckoutVerified),
                      json::optional("verifiedLiveFileCount", &T::verifiedLiveFileCount)};
  }
};

// Where a running game was when a comment was left on it.
struct ProjectCommentRuntimeContext {
  std::optional<std::string> capsuleKey = {};
  std::optional<std::string> deepLink = {};
  std::optional<std::string> platform = {};
  std::optional<std::uint64_t> revision = {};
  std::optional<std::uint64_t> tick = {};
  std::optional<bool> attached = {};

  bool operator==(const ProjectCommentRuntimeContext&) const = default;
  static auto jsonFields() {
    using T = ProjectCommentRuntimeContext;
    return std::tuple{json::optional("capsuleKey", &T::capsuleKey),
                      json::optional("deepLink", &T::deepLink),
                      json::optional("platform", &T::platform),
                      json::optional("revision", &T::revision),
                      json::optional("tick", &T::tick),
                      json::optional("attached", &T::attached)};
  }
};

// A comment in a workspace, anchored to a prim, a layer or the scene as `anchorKind` says.
struct ProjectWorkspaceComment {
  std::string id = {};
  std::string author = {};
  std::string body = {};
  std::optional<std::string> anchorKind = {};
  std::optional<std::string> anchorPath = {};
  std::optional<std::string> sceneUri = {};
  std::optional<ProjectCommentRuntimeContext> runtimeContext = {};
  std::optional<std::string> sourceHeadKey = {};
  std::optional<std::string> createdAt = {};
  std::optional<bool> resolved = {};
  std::optional<std::string> resolvedBy = {};
  std::optional<std::string> resolvedAt = {};

  bool operator==(const ProjectWorkspaceComment&) const = default;
  static auto jsonFields() {
    using T = ProjectWorkspaceComment;
    return std::tuple{json::required("id", &T::id),
                      json::required("author", &T::author),
                      json::required("body", &T::body),
                      json::optional("anchorKind", &T::anchorKind),
                      json::optional("anchorPath", &T::anchorPath),
                      json::optional("sceneUri", &T::sceneUri),
                      json::optional("runtimeContext", &T::runtimeContext),
                      json::optional("sourceHeadKey", &T::sourceHeadKey),
                      json::optional("createdAt", &T::createdAt),
                      json::optional("resolved", &T::resolved),
                      json::optional("resolvedBy", &T::resolvedBy),
                      json::optional("resolvedAt", &T::resolvedAt)};
  }
};

// The answer of the comment list and of every comment change.
struct WorkspaceCommentsResponse {
  std::optional<bool> accepted = {};
  std::optional<std::uint64_t> revision = {};
  std::optional<std::string> message = {};
  std::optional<std::string> workspace = {};
  std::optional<std::vector<ProjectWorkspaceComment>> comments = {};

  bool operator==(const WorkspaceCommentsResponse&) const = default;
  static auto jsonFields() {
    using T = WorkspaceCommentsResponse;
    return std::tuple{
        json::optional("accepted", &T::accepted), json::optional("revision", &T::revision),
        json::optional("message", &T::message), json::optional("workspace", &T::workspace),
        json::optional("comments", &T::comments)};
  }
};

}  // namespace orvan::editor
