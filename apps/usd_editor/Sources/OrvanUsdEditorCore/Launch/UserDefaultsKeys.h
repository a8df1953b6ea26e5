#pragma once

#include <string_view>

// The names under which the editor keeps its preferences between runs.
namespace orvan::editor::defaults {

inline constexpr std::string_view kHierarchyOrder = "VelkEditor.hierarchyOrder";
inline constexpr std::string_view kShowHierarchyStatus = "VelkEditor.showHierarchyStatus";
inline constexpr std::string_view kShowFakeAssetSettings = "VelkEditor.showFakeAssetSettings.v2";
inline constexpr std::string_view kProjectAssetBrowserOrganization =
    "VelkEditor.projectAssetBrowserOrganization";
inline constexpr std::string_view kSnapEnabled = "velkSnapEnabled";
inline constexpr std::string_view kSnapSurfaceMode = "velkSnapSurfaceMode";
inline constexpr std::string_view kSnapBoundsPlacement = "velkSnapBoundsPlacement";
inline constexpr std::string_view kSnapAlignToSurface = "velkSnapAlignToSurface";
inline constexpr std::string_view kHostedLaunchScopes = "velk.editor.hostedLaunchScopes";
inline constexpr std::string_view kActiveLayerPrefix = "VelkEditor.activeLayer";

inline constexpr std::string_view kUserName = "orvan.editor.userName";
inline constexpr std::string_view kUserId = "orvan.editor.userId";
inline constexpr std::string_view kUserColor = "orvan.editor.userColor";
inline constexpr std::string_view kUserProfiles = "orvan.editor.userProfiles";

}  // namespace orvan::editor::defaults
