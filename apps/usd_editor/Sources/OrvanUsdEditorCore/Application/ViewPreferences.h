#pragma once

#include <vector>

#include "Foundation/Observable.h"
#include "Presentation/ProjectAssetBrowser.h"

namespace orvan::editor {

class PreferencesStore;

enum class HierarchyOrder { alphabetical, scene };

// The pane and view preferences. Those marked "kept" are read from the preferences at start and
// written back at each change; the others start as shown and last one run.
class ViewPreferences {
 public:
  explicit ViewPreferences(PreferencesStore& preferences);
  ViewPreferences(const ViewPreferences&) = delete;
  ViewPreferences& operator=(const ViewPreferences&) = delete;

  Observable<HierarchyOrder> hierarchyOrder{HierarchyOrder::alphabetical};  // kept
  Observable<bool> showHierarchyStatus{false};                              // kept
  Observable<bool> showFakeAssetSettings{false};                            // kept
  Observable<ProjectAssetBrowserOrganization> projectAssetBrowserOrganization{
      ProjectAssetBrowserOrganization::typeAndClass};  // kept
  Observable<bool> snapEnabled{false};                 // kept
  Observable<bool> snapSurfaceMode{false};             // kept
  Observable<bool> snapBoundsPlacement{false};         // kept
  Observable<bool> snapAlignToSurface{false};          // kept
  Observable<bool> showHierarchyPane{true};
  Observable<bool> showInspectorPane{true};
  Observable<bool> showProjectPane{true};
  Observable<bool> showLayerPane{false};
  Observable<bool> viewportFocusMode{false};
  Observable<bool> showRigidBodyShapes{false};
  Observable<bool> showViewportGrid{false};

 private:
  void readViewPreferences(PreferencesStore& preferences);
  void bindViewPreferences(PreferencesStore& preferences);

  std::vector<Subscription> preferenceBindings_;
};

}  // namespace orvan::editor
