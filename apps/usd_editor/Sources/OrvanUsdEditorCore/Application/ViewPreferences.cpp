#include "Application/ViewPreferences.h"

#include <string_view>

#include "Launch/UserDefaultsKeys.h"
#include "Platform/PreferencesStore.h"

namespace orvan::editor {

namespace {

// Writes an observable preference back at each change.
template <class T, class Write>
Subscription bindPreference(Observable<T>& value, Write write) {
  return value.subscribe([write](const T& current) { write(current); });
}

}  // namespace

ViewPreferences::ViewPreferences(PreferencesStore& preferences) {
  readViewPreferences(preferences);
  bindViewPreferences(preferences);
}

void ViewPreferences::readViewPreferences(PreferencesStore& preferences) {
  hierarchyOrder.set(preferences.string(defaults::kHierarchyOrder) == "scene"
                         ? HierarchyOrder::scene
                         : HierarchyOrder::alphabetical);
  showHierarchyStatus.set(preferences.boolean(defaults::kShowHierarchyStatus).value_or(false));
  showFakeAssetSettings.set(preferences.boolean(defaults::kShowFakeAssetSettings).value_or(false));
  projectAssetBrowserOrganization.set(
      preferences.string(defaults::kProjectAssetBrowserOrganization) == "folders"
          ? ProjectAssetBrowserOrganization::folders
          : ProjectAssetBrowserOrganization::typeAndClass);
  snapEnabled.set(preferences.boolean(defaults::kSnapEnabled).value_or(false));
  snapSurfaceMode.set(preferences.boolean(defaults::kSnapSurfaceMode).value_or(false));
  snapBoundsPlacement.set(preferences.boolean(defaults::kSnapBoundsPlacement).value_or(false));
  snapAlignToSurface.set(preferences.boolean(defaults::kSnapAlignToSurface).value_or(false));
}

void ViewPreferences::bindViewPreferences(PreferencesStore& preferences) {
  auto keepBool = [&](Observable<bool>& value, std::string_view key) {
    preferenceBindings_.push_back(bindPreference(
        value, [&preferences, key](bool current) { (void)preferences.setBoolean(key, current); }));
  };
  keepBool(showHierarchyStatus, defaults::kShowHierarchyStatus);
  keepBool(showFakeAssetSettings, defaults::kShowFakeAssetSettings);
  keepBool(snapEnabled, defaults::kSnapEnabled);
  keepBool(snapSurfaceMode, defaults::kSnapSurfaceMode);
  keepBool(snapBoundsPlacement, defaults::kSnapBoundsPlacement);
  keepBool(snapAlignToSurface, defaults::kSnapAlignToSurface);
  preferenceBindings_.push_back(
      bindPreference(hierarchyOrder, [&preferences](HierarchyOrder order) {
        (void)preferences.setString(defaults::kHierarchyOrder,
                                    order == HierarchyOrder::scene ? "scene" : "alphabetical");
      }));
  preferenceBindings_.push_back(bindPreference(
      projectAssetBrowserOrganization,
      [&preferences](ProjectAssetBrowserOrganization organization) {
        (void)preferences.setString(
            defaults::kProjectAssetBrowserOrganization,
            organization == ProjectAssetBrowserOrganization::folders ? "folders" : "typeAndClass");
      }));
}

}  // namespace orvan::editor
