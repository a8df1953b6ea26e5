#include "velk_client_state_bridge.h"

#include <new>
#include <optional>
#include <utility>

#include "orvan/client/ClientTarget.h"
#include "orvan/client/ConnectionState.h"
#include "orvan/client/DeepLink.h"
#include "orvan/client/DestinationPickerCopy.h"
#include "orvan/client/SwitchCoordinator.h"

using orvan::client::ClientTarget;
using orvan::client::SwitchCoordinator;

struct VelkClientTarget {
  ClientTarget target;
};

struct VelkClientSwitch {
  SwitchCoordinator coordinator;
};

namespace {

// No exception may cross into C: a failed allocation anywhere below becomes the fallback value.
template <class Result, class Body>
Result guarded(Result fallback, Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    return fallback;
  }
}

const char* or_empty(const char* text) {
  return text != nullptr ? text : "";
}

// A scope from the six boundary fields; NULL leaves a field empty and everything else stays empty.
ClientTarget target_from_fields(const char* server_url, const char* project_id,
                                const char* project_root, const char* scene_uri,
                                const char* workspace, const char* active_layer) {
  ClientTarget target;
  target.server_url = or_empty(server_url);
  target.project_id = or_empty(project_id);
  target.project_root = or_empty(project_root);
  target.scene_uri = or_empty(scene_uri);
  target.workspace = or_empty(workspace);
  target.active_layer = or_empty(active_layer);
  return orvan::client::normalize_target(std::move(target), orvan::client::kDefaultServerUrl);
}

VelkClientTarget* new_target_record(ClientTarget target) {
  return new (std::nothrow) VelkClientTarget{std::move(target)};
}

const orvan::client::ConnectionStateDescriptor& row(int32_t kind) {
  return orvan::client::connection_state_descriptor(kind);
}

}  // namespace

extern "C" {

VelkClientTarget* velk_client_target_parse(const char* link, const char* default_server) {
  if (link == nullptr)
    return nullptr;
  return guarded<VelkClientTarget*>(nullptr, [&]() -> VelkClientTarget* {
    const std::string_view server = default_server != nullptr && default_server[0] != '\0'
                                        ? std::string_view(default_server)
                                        : orvan::client::kDefaultServerUrl;
    std::optional<ClientTarget> parsed = orvan::client::parse_deep_link(link, server);
    if (!parsed)
      return nullptr;
    return new_target_record(std::move(*parsed));
  });
}

void velk_client_target_destroy(VelkClientTarget* target) {
  delete target;
}

const char* velk_client_target_server_url(const VelkClientTarget* target) {
  return target != nullptr ? target->target.server_url.c_str() : "";
}

const char* velk_client_target_project_id(const VelkClientTarget* target) {
  return target != nullptr ? target->target.project_id.c_str() : "";
}

const char* velk_client_target_project_root(const VelkClientTarget* target) {
  return target != nullptr ? target->target.project_root.c_str() : "";
}

const char* velk_client_target_scene_uri(const VelkClientTarget* target) {
  return target != nullptr ? target->target.scene_uri.c_str() : "";
}

const char* velk_client_target_workspace(const VelkClientTarget* target) {
  return target != nullptr ? target->target.workspace.c_str() : "";
}

const char* velk_client_target_active_layer(const VelkClientTarget* target) {
  return target != nullptr ? target->target.active_layer.c_str() : "";
}

int velk_client_target_has_render_scope_fields(const char* server_url, const char* project_id,
                                               const char* project_root, const char* scene_uri,
                                               const char* workspace, const char* active_layer) {
  return guarded(0, [&] {
    return orvan::client::target_has_render_scope(target_from_fields(
               server_url, project_id, project_root, scene_uri, workspace, active_layer))
               ? 1
               : 0;
  });
}

VelkClientSwitch* velk_client_switch_create(void) {
  return guarded<VelkClientSwitch*>(nullptr, [] { return new (std::nothrow) VelkClientSwitch{}; });
}

void velk_client_switch_destroy(VelkClientSwitch* handle) {
  delete handle;
}

uint64_t velk_client_switch_reset_active(VelkClientSwitch* handle, const char* server_url,
                                         const char* project_id, const char* project_root,
                                         const char* scene_uri, const char* workspace,
                                         const char* active_layer) {
  if (handle == nullptr)
    return 0;
  return guarded<uint64_t>(0, [&] {
    handle->coordinator.reset_active(target_from_fields(server_url, project_id, project_root,
                                                        scene_uri, workspace, active_layer));
    return handle->coordinator.generation;
  });
}

uint64_t velk_client_switch_begin_target(VelkClientSwitch* handle, const char* server_url,
                                         const char* project_id, const char* project_root,
                                         const char* scene_uri, const char* workspace,
                                         const char* active_layer, int keep_active_visible) {
  if (handle == nullptr)
    return 0;
  return guarded<uint64_t>(0, [&]() -> uint64_t {
    const std::optional<orvan::client::SwitchPlan> plan =
        handle->coordinator.begin(target_from_fields(server_url, project_id, project_root,
                                                     scene_uri, workspace, active_layer),
                                  keep_active_visible != 0);
    return plan ? plan->id : 0;
  });
}

int velk_client_switch_target_is_current(const VelkClientSwitch* handle, uint64_t id) {
  if (handle == nullptr)
    return 0;
  return handle->coordinator.is_current(id) ? 1 : 0;
}

int velk_client_switch_preserves_presented_content(const VelkClientSwitch* handle, uint64_t id) {
  if (handle == nullptr || !handle->coordinator.is_current(id))
    return 0;
  return handle->coordinator.plan->preserves_presented_content ? 1 : 0;
}

int velk_client_switch_accept_target(VelkClientSwitch* handle, uint64_t id, const char* server_url,
                                     const char* project_id, const char* project_root,
                                     const char* scene_uri, const char* workspace,
                                     const char* active_layer) {
  if (handle == nullptr)
    return 0;
  return guarded(0, [&] {
    return handle->coordinator.accept(id, target_from_fields(server_url, project_id, project_root,
                                                             scene_uri, workspace, active_layer))
               ? 1
               : 0;
  });
}

int velk_client_switch_fail_target(VelkClientSwitch* handle, uint64_t id) {
  if (handle == nullptr)
    return 0;
  return handle->coordinator.fail(id) ? 1 : 0;
}

VelkClientTarget* velk_client_switch_visible_target_copy(const VelkClientSwitch* handle) {
  if (handle == nullptr)
    return nullptr;
  return guarded<VelkClientTarget*>(
      nullptr, [&] { return new_target_record(handle->coordinator.visible_target()); });
}

const char* velk_client_destination_copy(int32_t kind, int32_t field) {
  const orvan::client::DestinationPickerCopy& copy =
      kind == 0 ? orvan::client::kProjectPickerCopy : orvan::client::kWorkspacePickerCopy;
  return copy.field(field);
}

int32_t velk_connection_classify(int32_t status_code, const char* code, int network_error) {
  return static_cast<int32_t>(
      orvan::client::classify_connection_state(status_code, code, network_error != 0));
}

int32_t velk_client_state_kind(int32_t status_code, const char* code, int network_error) {
  return velk_connection_classify(status_code, code, network_error);
}

int32_t velk_client_state_primary_action(int32_t kind) {
  return static_cast<int32_t>(row(kind).primary_action);
}

int32_t velk_client_state_secondary_action(int32_t kind) {
  return static_cast<int32_t>(row(kind).secondary_action);
}

int velk_client_state_retryable(int32_t kind) {
  return row(kind).retryable ? 1 : 0;
}

int velk_client_state_blocks_project(int32_t kind) {
  return row(kind).blocks_project ? 1 : 0;
}

const char* velk_client_state_code(int32_t kind) {
  return row(kind).code;
}

const char* velk_client_state_icon(int32_t kind) {
  return row(kind).icon;
}

const char* velk_client_state_title(int32_t kind) {
  return row(kind).title;
}

const char* velk_client_state_message(int32_t kind) {
  return row(kind).message;
}

const char* velk_client_state_primary_label(int32_t kind) {
  return row(kind).primary_label;
}

const char* velk_client_state_secondary_label(int32_t kind) {
  return row(kind).secondary_label;
}

}  // extern "C"
