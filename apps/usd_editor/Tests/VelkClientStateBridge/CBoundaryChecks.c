/* Exercises the client core through its C header from a C translation unit, so that the header
 * stays valid C and the boundary behaves the same for C callers. The rules behind it are tested in
 * C++; here only what the boundary adds: NULL arguments, integer flags and codes, and the records
 * it hands out. Each check records its first failing condition and carries on, so that every
 * record it made is still released. */
#include "CBoundaryChecks.h"

#include <stddef.h>
#include <string.h>

#include "velk_client_state_bridge.h"

#define CHECK(condition)                            \
  do {                                              \
    if (!(condition) && (state)->failure == NULL) { \
      (state)->failure = #condition;                \
      (state)->line = __LINE__;                     \
    }                                               \
  } while (0)

static int same(const char* a, const char* b) {
  return a != NULL && b != NULL && strcmp(a, b) == 0;
}

static void check_targets(VelkCheckState* state) {
  VelkClientTarget* full = velk_client_target_parse(
      "velk://open?p=x&s=/a/Demo.orvanproject/s/a.usda&w=dev&activeLayer=L&projectRoot=/r", NULL);
  VelkClientTarget* with_empty_default = velk_client_target_parse("velk://open?p=x", "");
  VelkClientTarget* with_server = velk_client_target_parse("velk://open?p=x", "https://d//");

  CHECK(velk_client_target_parse(NULL, "https://d") == NULL);
  CHECK(velk_client_target_parse("velk://open", NULL) == NULL);
  CHECK(same(velk_client_target_project_id(full), "x"));
  CHECK(same(velk_client_target_scene_uri(full), "s/a.usda"));
  CHECK(same(velk_client_target_workspace(full), "dev"));
  CHECK(same(velk_client_target_active_layer(full), "L"));
  CHECK(same(velk_client_target_project_root(full), "/r"));
  CHECK(velk_client_target_server_url(full)[0] != '\0');
  CHECK(
      same(velk_client_target_server_url(full), velk_client_target_server_url(with_empty_default)));
  CHECK(same(velk_client_target_server_url(with_server), "https://d"));

  CHECK(same(velk_client_target_server_url(NULL), ""));
  CHECK(same(velk_client_target_project_id(NULL), ""));
  CHECK(same(velk_client_target_project_root(NULL), ""));
  CHECK(same(velk_client_target_scene_uri(NULL), ""));
  CHECK(same(velk_client_target_workspace(NULL), ""));
  CHECK(same(velk_client_target_active_layer(NULL), ""));

  CHECK(velk_client_target_has_render_scope_fields(NULL, NULL, "/r", "a.usda", NULL, NULL) == 1);
  CHECK(velk_client_target_has_render_scope_fields("https://s", NULL, NULL, "a.usda", "w", "l") ==
        0);
  CHECK(velk_client_target_has_render_scope_fields(NULL, NULL, NULL, NULL, NULL, NULL) == 0);

  velk_client_target_destroy(full);
  velk_client_target_destroy(with_empty_default);
  velk_client_target_destroy(with_server);
  velk_client_target_destroy(NULL);
}

static void check_switch(VelkCheckState* state) {
  VelkClientSwitch* handle = velk_client_switch_create();
  VelkClientTarget* initial = velk_client_switch_visible_target_copy(handle);
  VelkClientTarget* after = NULL;
  uint64_t id = 0;

  CHECK(velk_client_switch_reset_active(NULL, "s", "p", "", "a", "", "") == 0);
  CHECK(velk_client_switch_begin_target(NULL, "s", "p", "", "a", "", "", 0) == 0);
  CHECK(velk_client_switch_target_is_current(NULL, 1) == 0);
  CHECK(velk_client_switch_preserves_presented_content(NULL, 1) == 0);
  CHECK(velk_client_switch_accept_target(NULL, 1, "s", "p", "", "a", "", "") == 0);
  CHECK(velk_client_switch_fail_target(NULL, 1) == 0);
  CHECK(velk_client_switch_visible_target_copy(NULL) == NULL);
  velk_client_switch_destroy(NULL);

  CHECK(same(velk_client_target_workspace(initial), "main"));
  CHECK(velk_client_switch_reset_active(handle, "https://s", "p1", NULL, "a.usda", NULL, NULL) ==
        1);
  id = velk_client_switch_begin_target(handle, "https://s/", "p1", NULL, "a.usda", "dev", NULL, 0);
  CHECK(id == 2);
  CHECK(velk_client_switch_target_is_current(handle, id) == 1);
  CHECK(velk_client_switch_preserves_presented_content(handle, id) == 1);
  CHECK(velk_client_switch_accept_target(handle, id, "https://s", "p1", NULL, NULL, "dev", "L") ==
        1);
  CHECK(velk_client_switch_preserves_presented_content(handle, id) == 0);
  after = velk_client_switch_visible_target_copy(handle);
  CHECK(same(velk_client_target_scene_uri(after), "a.usda"));
  CHECK(same(velk_client_target_active_layer(after), "L"));

  /* Any non-zero flag keeps the active scope on screen: such a switch can only fail. */
  id = velk_client_switch_begin_target(handle, "https://s", "p3", NULL, "c.usda", NULL, NULL, 7);
  CHECK(velk_client_switch_accept_target(handle, id, "https://s", "p3", NULL, "c.usda", NULL,
                                         NULL) == 0);
  CHECK(velk_client_switch_fail_target(handle, id) == 1);
  CHECK(velk_client_switch_fail_target(handle, id) == 0);

  velk_client_target_destroy(initial);
  velk_client_target_destroy(after);
  velk_client_switch_destroy(handle);
}

void velk_c_check_boundary(VelkCheckState* state) {
  check_targets(state);
  check_switch(state);

  /* Kind 0 is the project picker; every other number is the workspace picker. */
  CHECK(same(velk_client_destination_copy(0, 0), "Projects"));
  CHECK(same(velk_client_destination_copy(7, 0), "Workspaces"));
  CHECK(same(velk_client_destination_copy(-1, 10), "New Workspace"));

  CHECK(velk_connection_classify(0, NULL, 0) == 9);
  CHECK(velk_connection_classify(200, NULL, 7) == 6);
  CHECK(velk_client_state_kind(503, "scene_load_timeout", 0) == 11);
  CHECK(same(velk_client_state_code(velk_connection_classify(0, "session_expired", 0)),
             "login_required"));
  CHECK(same(velk_client_state_title(0), ""));
  CHECK(same(velk_client_state_primary_label(4), "Request Access"));
  CHECK(same(velk_client_state_secondary_label(4), "Choose Another Project"));
  CHECK(velk_client_state_primary_action(4) == 3);
  CHECK(velk_client_state_secondary_action(4) == 4);
  CHECK(velk_client_state_primary_action(-3) == 2);
  CHECK(velk_client_state_retryable(8) == 0);
  CHECK(velk_client_state_blocks_project(8) == 1);
}
