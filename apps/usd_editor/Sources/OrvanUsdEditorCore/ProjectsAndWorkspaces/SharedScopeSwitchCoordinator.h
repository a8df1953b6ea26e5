#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "Launch/SharedClientScope.h"
#include "velk_client_state_bridge.h"

namespace orvan::editor {

// Owns one client-core switch coordinator. Each switch is re-based on what the editor really
// shows, so that a switch still running elsewhere is superseded the moment a new one begins and
// its late result is refused.
class SharedScopeSwitchCoordinator {
 public:
  SharedScopeSwitchCoordinator();

  // The coordinator itself, for the calls the editor makes on it directly (is-current, fail,
  // reset after a scope was taken over by other means). Null only when it couldn't be allocated,
  // in which case every call refuses.
  VelkClientSwitch* handle() const { return handle_.get(); }

  // Re-bases on `active`, then starts a switch to `requested` that shows the destination while it
  // runs. Returns the switch's id, or 0 when there is nothing to switch to.
  std::uint64_t begin(const SharedClientScope& active, const SharedClientScope& requested);
  // Completes switch `id` with the scope the server resolved; false for a stale id. Server and
  // workspace always override the request, so pass the real ones.
  bool accept(std::uint64_t id, const SharedClientScope& scope);
  // What the client presents: the destination while a switch runs, else the active scope.
  std::optional<SharedClientScope> visibleScope() const;

  static bool hasRenderScope(const SharedClientScope& scope);

 private:
  struct HandleDeleter {
    void operator()(VelkClientSwitch* handle) const { velk_client_switch_destroy(handle); }
  };
  std::unique_ptr<VelkClientSwitch, HandleDeleter> handle_;
};

}  // namespace orvan::editor
