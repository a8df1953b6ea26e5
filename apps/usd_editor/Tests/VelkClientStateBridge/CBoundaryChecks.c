/* Exercises the client core through its C header from a C translation unit, so that the header
 * stays valid C and the boundary behaves the same for C callers. Each check records its first
 * failing condition and carries on, so that every record it made is still released. */
#include "CBoundaryChecks.h"

#include <stddef.h>
#include <string.h>

#include "velk_client_state_bridge.h"

#define CHECK(state, condition)                     \
  do {                                              \
    if (!(condition) && (state)->failure == NULL) { \
      (state)->failure = #condition;                \
      (state)->line = __LINE__;                     \
    }                                               \
  } while (0)

static int same(const char* a, const char* b) {
  return a != NULL && b != NULL && strcmp(a, b) == 0;
}

static int ends_with_slash(const char* text) {
  size_t length = strlen(text);
  return length > 0 && text[length - 1] == '/';
}

void velk_c_check_targets(VelkCheckState* state) {
  VelkClientTarget* full = velk_client_target_parse(
      "velk://open?p=x&s=/a/Demo.orvanproject/s/a.usda&w=dev&activeLayer=L&projectRoot=/r", NULL);
  VelkClientTarget* with_empty_default = velk_client_target_parse("velk://open?p=x", "");
  VelkClientTarget* with_server = velk_client_target_parse("velk://open?p=x", "https://d//");
  VelkClientTarget* nothing = velk_client_target_parse("velk://open", NULL);

  CHECK(state, velk_client_target_parse(NULL, "https://d") == NULL);
  CHECK(state, nothing == NULL);
  CHECK(state, full != NULL);
  CHECK(state, same(velk_client_target_project_id(full), "x"));
  CHECK(state, same(velk_client_target_scene_uri(full), "s/a.usda"));
  CHECK(state, same(velk_client_target_workspace(full), "dev"));
  CHECK(state, same(velk_client_target_active_layer(full), "L"));
  CHECK(state, same(velk_client_target_project_root(full), "/r"));
  CHECK(state, velk_client_target_server_url(full)[0] != '\0');
  CHECK(state, !ends_with_slash(velk_client_target_server_url(full)));
  CHECK(state, same(velk_client_target_server_url(full),
                    velk_client_target_server_url(with_empty_default)));
  CHECK(state, same(velk_client_target_server_url(with_server), "https://d"));

  CHECK(state, same(velk_client_target_server_url(NULL), ""));
  CHECK(state, same(velk_client_target_project_id(NULL), ""));
  CHECK(state, same(velk_client_target_project_root(NULL), ""));
  CHECK(state, same(velk_client_target_scene_uri(NULL), ""));
  CHECK(state, same(velk_client_target_workspace(NULL), ""));
  CHECK(state, same(velk_client_target_active_layer(NULL), ""));

  CHECK(state,
        velk_client_target_has_render_scope_fields(NULL, "p", NULL, "a.usda", NULL, NULL) == 1);
  CHECK(state,
        velk_client_target_has_render_scope_fields(NULL, NULL, "/r", "a.usda", NULL, NULL) == 1);
  CHECK(state, velk_client_target_has_render_scope_fields("https://s", NULL, NULL, "a.usda", "w",
                                                          "l") == 0);
  CHECK(state, velk_client_target_has_render_scope_fields(NULL, "p", "/r", "", NULL, NULL) == 0);
  CHECK(state, velk_client_target_has_render_scope_fields(NULL, NULL, NULL, NULL, NULL, NULL) == 0);

  velk_client_target_destroy(full);
  velk_client_target_destroy(with_empty_default);
  velk_client_target_destroy(with_server);
  velk_client_target_destroy(nothing);
  velk_client_target_destroy(NULL);
}

static void check_null_switch(VelkCheckState* state) {
  CHECK(state, velk_client_switch_reset_active(NULL, "s", "p", "", "a", "", "") == 0);
  CHECK(state, velk_client_switch_begin_target(NULL, "s", "p", "", "a", "", "", 0) == 0);
  CHECK(state, velk_client_switch_target_is_current(NULL, 1) == 0);
  CHECK(state, velk_client_switch_preserves_presented_content(NULL, 1) == 0);
  CHECK(state, velk_client_switch_accept_target(NULL, 1, "s", "p", "", "a", "", "") == 0);
  CHECK(state, velk_client_switch_fail_target(NULL, 1) == 0);
  CHECK(state, velk_client_switch_visible_target_copy(NULL) == NULL);
  velk_client_switch_destroy(NULL);
}

/* The coordinator's own rules are tested in C++, also through this boundary; here only what the
 * boundary adds: NULL fields, the integer flag, and answers for ids of no running switch. */
void velk_c_check_switch(VelkCheckState* state) {
  VelkClientSwitch* handle = velk_client_switch_create();
  VelkClientTarget* initial = velk_client_switch_visible_target_copy(handle);
  VelkClientTarget* after = NULL;
  VelkClientTarget* kept = NULL;
  uint64_t workspace_switch = 0;
  uint64_t hidden_switch = 0;

  check_null_switch(state);
  CHECK(state, handle != NULL);
  CHECK(state, same(velk_client_target_workspace(initial), "main"));
  CHECK(state, velk_client_target_server_url(initial)[0] != '\0');

  CHECK(state, velk_client_switch_reset_active(handle, "https://s", "p1", NULL, "a.usda", NULL,
                                               NULL) == 1);
  workspace_switch =
      velk_client_switch_begin_target(handle, "https://s/", "p1", NULL, "a.usda", "dev", NULL, 0);
  CHECK(state, workspace_switch == 2);
  CHECK(state, velk_client_switch_target_is_current(handle, workspace_switch) == 1);
  CHECK(state, velk_client_switch_preserves_presented_content(handle, workspace_switch) == 1);
  CHECK(state, velk_client_switch_accept_target(handle, workspace_switch, "https://s", "p1", NULL,
                                                NULL, "dev", "L") == 1);
  CHECK(state, velk_client_switch_preserves_presented_content(handle, workspace_switch) == 0);
  after = velk_client_switch_visible_target_copy(handle);
  CHECK(state, same(velk_client_target_scene_uri(after), "a.usda"));
  CHECK(state, same(velk_client_target_active_layer(after), "L"));
  CHECK(state, same(velk_client_target_server_url(after), "https://s"));

  /* A switch that keeps the active scope on screen can't be accepted, only failed. */
  hidden_switch =
      velk_client_switch_begin_target(handle, "https://s", "p3", NULL, "c.usda", NULL, NULL, 1);
  CHECK(state, velk_client_switch_accept_target(handle, hidden_switch, "https://s", "p3", NULL,
                                                "c.usda", NULL, NULL) == 0);
  kept = velk_client_switch_visible_target_copy(handle);
  CHECK(state, same(velk_client_target_project_id(kept), "p1"));
  CHECK(state, velk_client_switch_fail_target(handle, hidden_switch) == 1);
  CHECK(state, velk_client_switch_fail_target(handle, hidden_switch) == 0);

  velk_client_target_destroy(initial);
  velk_client_target_destroy(after);
  velk_client_target_destroy(kept);
  velk_client_switch_destroy(handle);
}

void velk_c_check_copy_and_states(VelkCheckState* state) {
  CHECK(state, same(velk_client_destination_copy(0, 0), "Projects"));
  CHECK(state, same(velk_client_destination_copy(7, 0), "Workspaces"));
  CHECK(state, same(velk_client_destination_copy(-1, 10), "New Workspace"));

  CHECK(state, velk_connection_classify(0, NULL, 0) == 9);
  CHECK(state, velk_connection_classify(401, "project_access_denied", 0) == 3);
  CHECK(state, velk_connection_classify(200, NULL, 7) == 6);
  CHECK(state, velk_client_state_kind(503, "scene_load_timeout", 0) == 11);
  CHECK(state, velk_client_state_kind(503, "anything", 0) == 7);

  CHECK(state, same(velk_client_state_code(velk_connection_classify(0, "session_expired", 0)),
                    "login_required"));
  CHECK(state, same(velk_client_state_title(99), "Velk could not complete that request"));
  CHECK(state, same(velk_client_state_title(0), ""));
  CHECK(state, same(velk_client_state_primary_label(4), "Request Access"));
  CHECK(state, same(velk_client_state_secondary_label(4), "Choose Another Project"));
  CHECK(state, velk_client_state_primary_action(4) == 3);
  CHECK(state, velk_client_state_secondary_action(4) == 4);
  CHECK(state, velk_client_state_primary_action(-3) == 2);
  CHECK(state, velk_client_state_retryable(8) == 0);
  CHECK(state, velk_client_state_blocks_project(8) == 1);
}
