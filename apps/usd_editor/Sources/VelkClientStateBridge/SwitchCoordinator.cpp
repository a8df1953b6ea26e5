#include "orvan/client/SwitchCoordinator.h"

#include <limits>
#include <string>
#include <utility>

namespace orvan::client {
namespace {

void take_when_set(std::string& field, const std::string& value) {
  if (!value.empty())
    field = value;
}

void take_when_set(std::int32_t& field, std::int32_t value) {
  if (value != 0)
    field = value;
}

// The request, with every field the server resolved replacing the requested one.
ClientTarget merge_resolved(ClientTarget merged, const ClientTarget& resolved) {
  take_when_set(merged.server_url, resolved.server_url);
  take_when_set(merged.project_id, resolved.project_id);
  take_when_set(merged.project_root, resolved.project_root);
  take_when_set(merged.project_name, resolved.project_name);
  take_when_set(merged.scene_uri, resolved.scene_uri);
  take_when_set(merged.workspace, resolved.workspace);
  take_when_set(merged.active_layer, resolved.active_layer);
  take_when_set(merged.client_id, resolved.client_id);
  take_when_set(merged.address, resolved.address);
  take_when_set(merged.host, resolved.host);
  take_when_set(merged.port, resolved.port);
  take_when_set(merged.web_port, resolved.web_port);
  if (!resolved.selection.empty())
    merged.selection = resolved.selection;
  take_when_set(merged.runtime_id, resolved.runtime_id);
  take_when_set(merged.runtime_instance_id, resolved.runtime_instance_id);
  take_when_set(merged.capsule_id, resolved.capsule_id);
  if (resolved.tick)
    merged.tick = resolved.tick;
  merged.pause_on_open = merged.pause_on_open || resolved.pause_on_open;
  take_when_set(merged.camera, resolved.camera);
  take_when_set(merged.inspect_path, resolved.inspect_path);
  take_when_set(merged.debug_view, resolved.debug_view);
  take_when_set(merged.test_failure_id, resolved.test_failure_id);
  return merged;
}

}  // namespace

SwitchCoordinator::SwitchCoordinator(const ClientTarget& target)
    : active(normalize_target(target, kDefaultServerUrl)) {}

std::optional<SwitchPlan> SwitchCoordinator::begin(const ClientTarget& requested,
                                                   bool keep_active_visible) {
  ClientTarget normalized = normalize_target(requested, kDefaultServerUrl);
  if (target_names_nothing(normalized))
    return std::nullopt;

  if (target_matches_active_scope(normalized, active)) {
    // Asking for what is already active cancels a switch that is still running.
    if (plan) {
      advance_generation();
      plan.reset();
    }
    return std::nullopt;
  }

  advance_generation();
  SwitchPlan next;
  next.id = generation;
  next.active = active;
  next.preserves_presented_content = same_project_scope(active, normalized);
  next.requested = std::move(normalized);
  next.mode = keep_active_visible ? SwitchMode::keep_active_visible : SwitchMode::show_requested;
  plan = std::move(next);
  return plan;
}

bool SwitchCoordinator::accept(std::uint64_t id, const ClientTarget& resolved) {
  if (!is_current(id) || plan->mode != SwitchMode::show_requested)
    return false;
  active = normalize_target(merge_resolved(plan->requested, resolved), kDefaultServerUrl);
  plan.reset();
  return true;
}

bool SwitchCoordinator::fail(std::uint64_t id) {
  if (!is_current(id))
    return false;
  plan.reset();
  return true;
}

void SwitchCoordinator::reset_active(const ClientTarget& target) {
  advance_generation();
  plan.reset();
  active = normalize_target(target, kDefaultServerUrl);
}

bool SwitchCoordinator::is_current(std::uint64_t id) const {
  return id != 0 && plan.has_value() && id == generation;
}

const ClientTarget& SwitchCoordinator::visible_target() const {
  if (plan && plan->mode == SwitchMode::show_requested)
    return plan->requested;
  return active;
}

void SwitchCoordinator::advance_generation() {
  // 0 means "no switch" at the C boundary, so the counter skips it when it wraps.
  generation = generation == std::numeric_limits<std::uint64_t>::max() ? 1 : generation + 1;
}

}  // namespace orvan::client
