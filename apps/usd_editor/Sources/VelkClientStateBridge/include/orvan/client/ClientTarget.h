#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvan::client {

// The project server origin every normalisation falls back to, without a trailing slash. It is a
// deployment setting chosen when the library is built.
extern const std::string_view kDefaultServerUrl;

// Where a client points: server, project, scene, workspace and layer, plus what a link may ask
// for on top (runtime, capsule, tick, camera, objects). Text fields are byte strings that are never
// interpreted; an empty one means "not set". Nothing holds before normalize_target has run.
struct ClientTarget {
  std::string server_url;
  std::string project_id;
  std::string project_root;
  std::string project_name;
  std::string scene_uri;
  std::string workspace;
  std::string active_layer;
  std::string client_id;
  std::string address;
  std::string host;
  std::int32_t port = 0;
  std::int32_t web_port = 0;
  std::vector<std::string> selection;
  std::string runtime_id;
  std::string runtime_instance_id;
  std::string capsule_id;
  std::optional<std::uint64_t> tick;
  bool pause_on_open = false;
  std::string camera;
  std::string inspect_path;
  std::string debug_view;
  std::string test_failure_id;

  bool operator==(const ClientTarget&) const = default;
};

// Stores `address` verbatim and derives `host` and `port` from it. A malformed port falls back to
// the default of the address's scheme (443 for grpcs/https, 80 for http, 50051 otherwise).
void set_target_address(ClientTarget& target, std::string address);

// The canonical form of `target`: a server without trailing slashes, a workspace, an endpoint
// derived from the address, a selection without empties or duplicates and, inside a project, a
// project-relative scene where one can be made.
ClientTarget normalize_target(ClientTarget target, std::string_view default_server);

// `scene` as a path relative to its project, or empty when it can't be made portable.
std::string portable_scene_reference(std::string_view scene);

// True when the target names a scene and something that locates its project. A server alone
// never counts.
bool target_has_render_scope(const ClientTarget& target);

// Comparisons of raw records; both sides are normalised with kDefaultServerUrl first.
bool same_project_scope(const ClientTarget& a, const ClientTarget& b);
bool same_workspace_scope(const ClientTarget& a, const ClientTarget& b);
// Only `target`'s endpoint is compared: a target that names none matches any active endpoint.
bool target_matches_active_scope(const ClientTarget& target, const ClientTarget& active);

// True when nothing in the target locates a project, scene, endpoint, object, runtime or capsule.
// Workspace, layer and tick alone don't make a destination.
bool target_names_nothing(const ClientTarget& target);

}  // namespace orvan::client
