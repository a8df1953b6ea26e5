#pragma once

#include <QWidget>

#include <vector>

#include "Foundation/Observable.h"

class QComboBox;
class QLabel;
class QStackedLayout;
class QTreeView;

namespace orvan::editor {
class EditorModel;
}  // namespace orvan::editor

namespace orvan::ui {

class ProjectAssetTreeModel;

// The project pane: the project's assets in groups, by kind or by folder as the user chose. It
// redraws for a new asset list or a new grouping only, as the rows that changed, so a selection and
// the groups the user closed stay; a row the user picks becomes the project asset selection, and
// the inspector follows it.
class ProjectPane final : public QWidget {
  Q_OBJECT
 public:
  explicit ProjectPane(editor::EditorModel& model, QWidget* parent = nullptr);
  ~ProjectPane() override;

  QTreeView& tree() const { return *tree_; }
  ProjectAssetTreeModel& treeModel() const { return *treeModel_; }
  QComboBox& organizationPicker() const { return *organization_; }
  // The empty-state sentence while the pane shows no rows; empty otherwise.
  QString emptyStateText() const;

 private:
  void rebuild();
  void showSelection();
  void selectionChangedInView();

  editor::EditorModel& model_;
  QComboBox* organization_ = nullptr;
  ProjectAssetTreeModel* treeModel_ = nullptr;
  QTreeView* tree_ = nullptr;
  QLabel* emptyState_ = nullptr;
  QStackedLayout* stack_ = nullptr;
  // True while the pane itself writes the view's selection, so that it is not sent back.
  bool showingModelSelection_ = false;
  std::vector<editor::Subscription> subscriptions_;
};

}  // namespace orvan::ui
