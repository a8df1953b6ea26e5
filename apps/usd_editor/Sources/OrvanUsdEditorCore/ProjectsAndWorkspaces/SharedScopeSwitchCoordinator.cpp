#include "ProjectsAndWorkspaces/SharedScopeSwitchCoordinator.h"

namespace orvan::editor {
namespace {

struct TargetDeleter {
  void operator()(VelkClientTarget* target) const { velk_client_target_destroy(target); }
};

}  // namespace

SharedScopeSwitchCoordinator::SharedScopeSwitchCoordinator()
    : handle_(velk_client_switch_create()) {}

std::uint64_t SharedScopeSwitchCoordinator::begin(const SharedClientScope& active,
                                                  const SharedClientScope& requested) {
  velk_client_switch_reset_active(handle(), active.server.c_str(), active.project.c_str(),
                                  active.projectRoot.c_str(), active.scene.c_str(),
                                  active.workspace.c_str(), active.activeLayer.c_str());
  return velk_client_switch_begin_target(handle(), requested.server.c_str(),
                                         requested.project.c_str(), requested.projectRoot.c_str(),
                                         requested.scene.c_str(), requested.workspace.c_str(),
                                         requested.activeLayer.c_str(), /*keep_active_visible=*/0);
}

bool SharedScopeSwitchCoordinator::accept(std::uint64_t id, const SharedClientScope& scope) {
  return velk_client_switch_accept_target(handle(), id, scope.server.c_str(), scope.project.c_str(),
                                          scope.projectRoot.c_str(), scope.scene.c_str(),
                                          scope.workspace.c_str(), scope.activeLayer.c_str()) != 0;
}

std::optional<SharedClientScope> SharedScopeSwitchCoordinator::visibleScope() const {
  const std::unique_ptr<VelkClientTarget, TargetDeleter> target(
      velk_client_switch_visible_target_copy(handle()));
  if (!target)
    return std::nullopt;
  return SharedClientScope{
      .server = velk_client_target_server_url(target.get()),
      .project = velk_client_target_project_id(target.get()),
      .projectRoot = velk_client_target_project_root(target.get()),
      .scene = velk_client_target_scene_uri(target.get()),
      .workspace = velk_client_target_workspace(target.get()),
      .activeLayer = velk_client_target_active_layer(target.get()),
  };
}

bool SharedScopeSwitchCoordinator::hasRenderScope(const SharedClientScope& scope) {
  return velk_client_target_has_render_scope_fields(
             scope.server.c_str(), scope.project.c_str(), scope.projectRoot.c_str(),
             scope.scene.c_str(), scope.workspace.c_str(), scope.activeLayer.c_str()) != 0;
}

}  // namespace orvan::editor
