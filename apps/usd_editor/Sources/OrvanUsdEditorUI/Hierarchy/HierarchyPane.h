#pragma once

#include <QWidget>

#include <memory>
#include <string>
#include <vector>

#include "Foundation/Observable.h"

class QAction;
class QLabel;
class QMenu;
class QStackedLayout;
class QTreeView;

namespace orvan::editor {
class EditorModel;
struct EditorClientDocumentSnapshot;
}  // namespace orvan::editor

namespace orvan::ui {

class HierarchyTreeModel;

// The hierarchy pane: the document's prim tree (name and type). A new stage is applied to the tree
// as the rows that changed, so open rows, selection and scroll position stay; rows a user selects
// become the scene selection, and a selection made elsewhere (a reconcile after a refresh, the
// viewport) is shown here.
class HierarchyPane final : public QWidget {
  Q_OBJECT
 public:
  explicit HierarchyPane(editor::EditorModel& model, QWidget* parent = nullptr);
  ~HierarchyPane() override;

  HierarchyTreeModel& treeModel() const { return *treeModel_; }
  QTreeView& view() const { return *view_; }
  QString emptyStateText() const;
  // Expands every row down to `depth` levels below the roots (0: the roots' children show).
  void expandToDepth(int depth);

  // The commands of the pane, also in its context menu. Delete acts on the selected rows;
  // duplicate, rename and the instance flag on the current row, and on every selected row when it
  // is one of them.
  QAction& deleteAction() const { return *deleteAction_; }
  QAction& duplicateAction() const { return *duplicateAction_; }
  QAction& renameAction() const { return *renameAction_; }
  // The context menu for the row under `path` ("" for none), as it would open there.
  std::unique_ptr<QMenu> contextMenuFor(const std::string& path);

 private:
  void applyDocument(const editor::EditorClientDocumentSnapshot& document);
  // Opens the root rows the document does not mark as starting collapsed.
  void expandByDefault(const editor::EditorClientDocumentSnapshot& document);
  enum class Reveal { no, yes };
  // Shows the scene selection; `yes` opens the rows above it and scrolls to its primary row.
  void showSelection(Reveal reveal);
  // Whether every path of the scene selection has a row, and it is selected.
  bool showsWholeSelection();
  void scheduleSelectionSync();
  void selectionChangedInView();
  void createCommands();
  // The row the keyboard commands act on: the current row, else the primary selection.
  std::string commandPath() const;
  void startRename(const std::string& path);

  editor::EditorModel& model_;
  HierarchyTreeModel* treeModel_ = nullptr;
  QTreeView* view_ = nullptr;
  QLabel* emptyState_ = nullptr;
  QStackedLayout* stack_ = nullptr;
  // True while the pane itself writes the view's selection, so that it is not sent back.
  bool showingModelSelection_ = false;
  bool selectionSyncPending_ = false;
  bool hadStage_ = false;
  QAction* deleteAction_ = nullptr;
  QAction* duplicateAction_ = nullptr;
  QAction* renameAction_ = nullptr;
  editor::Subscription stageSubscription_;
  editor::Subscription selectionSubscription_;
};

}  // namespace orvan::ui
