#pragma once

#include <cstdint>
#include <optional>

#include "orvan/client/ClientTarget.h"

namespace orvan::client {

// What the client shows while a switch runs.
enum class SwitchMode : std::int32_t {
  keep_active_visible = 1,
  show_requested = 2,
};

// One switch in flight. `id` is the generation that names it and is never 0.
struct SwitchPlan {
  std::uint64_t id = 0;
  ClientTarget active;
  ClientTarget requested;
  SwitchMode mode = SwitchMode::show_requested;
  bool reserved_first = true;
  // True when the switch stays within the scene on screen (a workspace or layer change), so that
  // what is presented may stay while it runs.
  bool preserves_presented_content = false;
  bool reserved_second = true;

  bool operator==(const SwitchPlan&) const = default;
};

// Decides which of overlapping project or workspace switches is still current. A switch is named
// by the generation it was given; every later begin or reset makes older names stale, so that a
// late answer to a superseded switch is refused instead of landing.
struct SwitchCoordinator {
  ClientTarget active;  // always normalised
  std::optional<SwitchPlan> plan;
  std::uint64_t generation = 0;

  SwitchCoordinator() : SwitchCoordinator(ClientTarget{}) {}
  explicit SwitchCoordinator(const ClientTarget& target);

  // Starts a switch to `requested` and returns a copy of its plan, or nothing when `requested`
  // names nothing (a running switch stays current) or is what is already active (a running switch
  // is cancelled).
  std::optional<SwitchPlan> begin(const ClientTarget& requested, bool keep_active_visible);
  // Completes the current show_requested switch: the fields `resolved` sets win over the request.
  bool accept(std::uint64_t id, const ClientTarget& resolved);
  // Ends the current switch without changing what is active.
  bool fail(std::uint64_t id);
  // Re-bases on `target`, killing every id handed out before.
  void reset_active(const ClientTarget& target);

  bool is_current(std::uint64_t id) const;
  // The requested target while a show_requested switch runs, the active one otherwise.
  const ClientTarget& visible_target() const;

 private:
  void advance_generation();
};

}  // namespace orvan::client
