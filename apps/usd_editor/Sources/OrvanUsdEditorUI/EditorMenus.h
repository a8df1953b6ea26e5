#pragma once

#include <QObject>
#include <QString>

#include <vector>

#include "Foundation/Observable.h"

class QAction;
class QActionGroup;
class QMenu;

namespace orvan::editor {
class EditorModel;
}  // namespace orvan::editor

namespace orvan::ui {

class MainWindow;

// The window's menu bar: each command a call on the model or a toggle of one of its preferences
// or viewport controls. Checkable items follow their store whoever changes it. It also shows and
// hides the panes as the pane preferences and Full 3D View say.
class EditorMenus final : public QObject {
  Q_OBJECT
 public:
  EditorMenus(editor::EditorModel& model, MainWindow& window);
  ~EditorMenus() override;

  // The item of that title in any of the menus, or null.
  QAction* action(const QString& title) const;

 private:
  void buildEditMenu(QMenu& menu);
  void buildViewMenu(QMenu& menu);
  void buildViewportMenu(QMenu& menu);
  QAction* addPreferenceToggle(QMenu& menu, const QString& title, editor::Observable<bool>& store);
  void followViewportControls();
  void updateDeleteEnabled();
  void applyPaneVisibility();

  editor::EditorModel& model_;
  MainWindow& window_;
  std::vector<QAction*> actions_;
  std::vector<QAction*> paneToggles_;
  QActionGroup* organization_ = nullptr;
  QActionGroup* cameraModes_ = nullptr;
  QActionGroup* spaces_ = nullptr;
  QAction* delete_ = nullptr;
  std::vector<editor::Subscription> subscriptions_;
};

}  // namespace orvan::ui
