/* The client core's C boundary: client targets, deep links, the switch coordinator, the
 * destination picker words and the connection states. Valid C and C++.
 *
 * Strings are NUL-terminated byte strings; a NULL string argument counts as empty. Accessors hand
 * out borrowed pointers that stay valid until their record is destroyed, and an empty string,
 * never NULL, for a NULL record. Every switch function accepts a NULL handle and then returns 0 or
 * NULL. Nothing here throws or aborts on a failed allocation: the allocating functions return
 * NULL instead. */
#ifndef VELK_CLIENT_STATE_BRIDGE_H
#define VELK_CLIENT_STATE_BRIDGE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct VelkClientTarget VelkClientTarget;
typedef struct VelkClientSwitch VelkClientSwitch;

VelkClientTarget* velk_client_target_parse(const char* link, const char* default_server);
void velk_client_target_destroy(VelkClientTarget* target);
const char* velk_client_target_server_url(const VelkClientTarget* target);
const char* velk_client_target_project_id(const VelkClientTarget* target);
const char* velk_client_target_project_root(const VelkClientTarget* target);
const char* velk_client_target_scene_uri(const VelkClientTarget* target);
const char* velk_client_target_workspace(const VelkClientTarget* target);
const char* velk_client_target_active_layer(const VelkClientTarget* target);
int velk_client_target_has_render_scope_fields(const char* server_url, const char* project_id,
                                               const char* project_root, const char* scene_uri,
                                               const char* workspace, const char* active_layer);

VelkClientSwitch* velk_client_switch_create(void);
void velk_client_switch_destroy(VelkClientSwitch* handle);
uint64_t velk_client_switch_reset_active(VelkClientSwitch* handle, const char* server_url,
                                         const char* project_id, const char* project_root,
                                         const char* scene_uri, const char* workspace,
                                         const char* active_layer);
uint64_t velk_client_switch_begin_target(VelkClientSwitch* handle, const char* server_url,
                                         const char* project_id, const char* project_root,
                                         const char* scene_uri, const char* workspace,
                                         const char* active_layer, int keep_active_visible);
int velk_client_switch_target_is_current(const VelkClientSwitch* handle, uint64_t id);
int velk_client_switch_preserves_presented_content(const VelkClientSwitch* handle, uint64_t id);
int velk_client_switch_accept_target(VelkClientSwitch* handle, uint64_t id, const char* server_url,
                                     const char* project_id, const char* project_root,
                                     const char* scene_uri, const char* workspace,
                                     const char* active_layer);
int velk_client_switch_fail_target(VelkClientSwitch* handle, uint64_t id);
VelkClientTarget* velk_client_switch_visible_target_copy(const VelkClientSwitch* handle);
const char* velk_client_destination_copy(int32_t kind, int32_t field);

int32_t velk_connection_classify(int32_t status_code, const char* code, int network_error);
int32_t velk_client_state_kind(int32_t status_code, const char* code, int network_error);
int32_t velk_client_state_primary_action(int32_t kind);
int32_t velk_client_state_secondary_action(int32_t kind);
int velk_client_state_retryable(int32_t kind);
int velk_client_state_blocks_project(int32_t kind);
const char* velk_client_state_code(int32_t kind);
const char* velk_client_state_icon(int32_t kind);
const char* velk_client_state_title(int32_t kind);
const char* velk_client_state_message(int32_t kind);
const char* velk_client_state_primary_label(int32_t kind);
const char* velk_client_state_secondary_label(int32_t kind);

#ifdef __cplusplus
}
#endif

#endif /* VELK_CLIENT_STATE_BRIDGE_H */
