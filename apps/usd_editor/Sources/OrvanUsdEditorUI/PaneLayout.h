#pragma once

namespace orvan::ui {

// Default pane sizes in points; the view holds the live sizes.
struct PaneSizes {
  static constexpr int kHierarchyWidth = 260;
  static constexpr int kInspectorWidth = 320;
  static constexpr int kProjectHeight = 220;
  static constexpr int kLayerPaneHeight = 156;
  static constexpr int kProjectSidebarWidth = 172;

  // Lower bounds that keep every pane legible and the viewport usable.
  static constexpr int kMinHierarchyWidth = 180;
  static constexpr int kMinInspectorWidth = 240;
  static constexpr int kMinViewportWidth = 320;
  static constexpr int kMinProjectHeight = 120;
  static constexpr int kMinLayerPaneHeight = 90;
};

}  // namespace orvan::ui
