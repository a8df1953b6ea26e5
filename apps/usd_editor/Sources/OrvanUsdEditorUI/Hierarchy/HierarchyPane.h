#pragma once

#include <QWidget>

#include <string>
#include <vector>

#include "Foundation/Observable.h"

class QLabel;
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

  editor::EditorModel& model_;
  HierarchyTreeModel* treeModel_ = nullptr;
  QTreeView* view_ = nullptr;
  QLabel* emptyState_ = nullptr;
  QStackedLayout* stack_ = nullptr;
  // True while the pane itself writes the view's selection, so that it is not sent back.
  bool showingModelSelection_ = false;
  bool selectionSyncPending_ = false;
  bool hadStage_ = false;
  editor::Subscription stageSubscription_;
  editor::Subscription selectionSubscription_;
};

}  // namespace orvan::ui
