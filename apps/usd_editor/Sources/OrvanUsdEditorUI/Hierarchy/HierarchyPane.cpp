#include "Hierarchy/HierarchyPane.h"

#include <QAction>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QMenu>
#include <QScopedValueRollback>
#include <QStackedLayout>
#include <QTreeView>

#include "Application/EditorModel.h"
#include "Hierarchy/HierarchyTreeModel.h"
#include "MainWindow.h"
#include "Presentation/EditorClientDocument.h"

namespace orvan::ui {

namespace {

constexpr int kTypeColumnWidth = 88;

}  // namespace

HierarchyPane::HierarchyPane(editor::EditorModel& model, QWidget* parent)
    : QWidget(parent), model_(model) {
  setObjectName("HierarchyPane");
  stack_ = new QStackedLayout(this);
  emptyState_ = makeEmptyState("No stage loaded", this);

  treeModel_ = new HierarchyTreeModel(this);
  view_ = new QTreeView(this);
  view_->setObjectName("HierarchyTree");
  view_->setModel(treeModel_);
  view_->setUniformRowHeights(true);  // keeps 100,000 rows cheap to lay out
  view_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  view_->setSelectionBehavior(QAbstractItemView::SelectRows);
  // Renaming starts only through the rename command (F2), which checks the prim first.
  view_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  view_->setDragEnabled(true);
  view_->setAcceptDrops(true);
  view_->setDropIndicatorShown(true);
  view_->setDragDropMode(QAbstractItemView::DragDrop);
  view_->setDefaultDropAction(Qt::MoveAction);
  view_->setContextMenuPolicy(Qt::CustomContextMenu);
  view_->setFrameShape(QFrame::NoFrame);
  view_->setIndentation(14);
  view_->setAllColumnsShowFocus(true);
  view_->header()->setStretchLastSection(false);
  view_->header()->setSectionResizeMode(HierarchyTreeModel::kNameColumn, QHeaderView::Stretch);
  view_->header()->setSectionResizeMode(HierarchyTreeModel::kTypeColumn, QHeaderView::Fixed);
  view_->header()->resizeSection(HierarchyTreeModel::kTypeColumn, kTypeColumnWidth);
  // The view changes the selection and then the current row; both are read once they settled.
  connect(view_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
          [this] { scheduleSelectionSync(); });
  connect(view_->selectionModel(), &QItemSelectionModel::currentChanged, this,
          [this] { scheduleSelectionSync(); });

  stack_->addWidget(emptyState_);
  stack_->addWidget(view_);
  createCommands();

  // The tree redraws for a new stage of the document only, never for a new project asset list.
  stageSubscription_ = model_.clientDocument.hierarchyProjection.revision.subscribe(
      [this](const auto&) { applyDocument(*model_.clientDocument.hierarchyProjection.snapshot); });
  selectionSubscription_ =
      model_.session.sceneSelection.subscribe([this](const auto&) { showSelection(Reveal::yes); });
  applyDocument(*model_.clientDocument.hierarchyProjection.snapshot);
}

HierarchyPane::~HierarchyPane() = default;

void HierarchyPane::createCommands() {
  editor::StructuralEditing& structure = model_.structure;
  deleteAction_ = new QAction(tr("Delete"), this);
  deleteAction_->setShortcut(QKeySequence::Delete);
  deleteAction_->setShortcutContext(Qt::WidgetWithChildrenShortcut);
  connect(deleteAction_, &QAction::triggered, this,
          [this] { model_.structure.deleteSelectedPrims(); });
  duplicateAction_ = new QAction(tr("Duplicate"), this);
  duplicateAction_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_D));
  duplicateAction_->setShortcutContext(Qt::WidgetWithChildrenShortcut);
  connect(duplicateAction_, &QAction::triggered, this, [this] {
    if (const std::string path = commandPath(); !path.empty())
      model_.structure.duplicatePrim(path);
  });
  renameAction_ = new QAction(tr("Rename"), this);
  renameAction_->setShortcut(QKeySequence(Qt::Key_F2));
  renameAction_->setShortcutContext(Qt::WidgetWithChildrenShortcut);
  connect(renameAction_, &QAction::triggered, this, [this] { startRename(commandPath()); });
  addActions({deleteAction_, duplicateAction_, renameAction_});

  connect(treeModel_, &HierarchyTreeModel::renameRequested, this,
          [&structure](const QString& path, const QString& name) {
            structure.renamePrim(path.toStdString(), name.toStdString());
          });
  connect(treeModel_, &HierarchyTreeModel::reparentRequested, this,
          [&structure](const QStringList& sources, const QString& target) {
            std::vector<std::string> paths;
            for (const QString& source : sources)
              paths.push_back(source.toStdString());
            structure.reparentPrims(paths, target.toStdString());
          });
  connect(view_, &QWidget::customContextMenuRequested, this, [this](const QPoint& at) {
    const QModelIndex index = view_->indexAt(at);
    const std::string path =
        treeModel_->pathForIndex(index.siblingAtColumn(HierarchyTreeModel::kNameColumn));
    std::unique_ptr<QMenu> menu = contextMenuFor(path);
    menu->exec(view_->viewport()->mapToGlobal(at));
  });
}

std::string HierarchyPane::commandPath() const {
  const QModelIndex current = view_->selectionModel()->currentIndex();
  if (current.isValid())
    return treeModel_->pathForIndex(current.siblingAtColumn(HierarchyTreeModel::kNameColumn));
  return model_.session.sceneSelection.get().primaryPath;
}

void HierarchyPane::startRename(const std::string& path) {
  if (path.empty() || !model_.structure.beginRenamePrim(path))
    return;
  const QModelIndex index = treeModel_->indexForPath(path);
  if (!index.isValid())
    return;
  view_->scrollTo(index);
  view_->edit(index);
}

std::unique_ptr<QMenu> HierarchyPane::contextMenuFor(const std::string& path) {
  auto menu = std::make_unique<QMenu>(this);
  QMenu* add = menu->addMenu(tr("Add"));
  for (const editor::PrimitiveKindChoice& choice : editor::primitiveKindChoices()) {
    const std::string kind = choice.kind;
    add->addAction(QString::fromStdString(choice.title), this,
                   [this, kind] { model_.structure.addPrim(kind); });
  }
  if (path.empty())
    return menu;
  menu->addSeparator();
  // The menu's entries name the row they were opened on; the shortcuts act on the current row.
  menu->addAction(deleteAction_->text(), deleteAction_->shortcut(), this,
                  [this, path] { model_.structure.deletePrim(path); });
  menu->addAction(duplicateAction_->text(), duplicateAction_->shortcut(), this,
                  [this, path] { model_.structure.duplicatePrim(path); });
  menu->addAction(renameAction_->text(), renameAction_->shortcut(), this,
                  [this, path] { startRename(path); });
  const editor::UsdPrimDetail* prim = model_.stage.get()->prim(path);
  const bool instanceable = prim && prim->instanceable.value_or(false);
  menu->addAction(instanceable ? tr("Remove Instance") : tr("Make Instance"), this,
                  [this, path, instanceable] {
                    for (const std::string& each : model_.structure.hierarchyActionPaths(path))
                      model_.structure.setPrimInstanceable(each, !instanceable);
                  });
  return menu;
}

QString HierarchyPane::emptyStateText() const {
  return stack_->currentWidget() == emptyState_ ? emptyState_->text() : QString();
}

void HierarchyPane::applyDocument(const editor::EditorClientDocumentSnapshot& document) {
  // A selection the tree could not show yet (a prim just created, say) is revealed once its rows
  // arrive; one it already showed leaves the view where the user left it.
  const bool selectionWasShown = hadStage_ && showsWholeSelection();
  {
    // The model patches its rows, so the view keeps its open rows, selection and scroll position.
    // A removed row leaves the view's selection; what the scene selection becomes is the model's
    // reconcile to decide, so that is not sent back.
    const QScopedValueRollback quiet(showingModelSelection_, true);
    treeModel_->setIndex(document.preparedStage->hierarchy);
  }
  const bool hasRows = treeModel_->rowCount() > 0;
  stack_->setCurrentWidget(hasRows ? static_cast<QWidget*>(view_) : emptyState_);
  if (!hasRows) {
    hadStage_ = false;
    return;
  }
  if (hadStage_) {
    showSelection(selectionWasShown ? Reveal::no : Reveal::yes);
    return;
  }
  // A first stage opens the way the document suggests: its roots open, large groups closed.
  expandByDefault(document);
  hadStage_ = true;
  showSelection(Reveal::yes);
}

void HierarchyPane::expandToDepth(int depth) {
  view_->expandToDepth(depth);
}

void HierarchyPane::expandByDefault(const editor::EditorClientDocumentSnapshot& document) {
  const auto& collapsed = document.preparedStage->defaultCollapsedHierarchyPaths;
  for (int row = 0; row < treeModel_->rowCount(); ++row) {
    const QModelIndex index = treeModel_->index(row, 0);
    if (!collapsed.contains(treeModel_->pathForIndex(index)))
      view_->setExpanded(index, true);
  }
}

void HierarchyPane::showSelection(Reveal reveal) {
  const editor::SceneSelectionState& selection = model_.session.sceneSelection.get();
  QItemSelection rows;
  QModelIndex current;
  for (const std::string& path : selection.paths) {
    const QModelIndex index = treeModel_->indexForPath(path);
    if (!index.isValid())
      continue;
    rows.select(index, index.siblingAtColumn(HierarchyTreeModel::kTypeColumn));
    if (path == selection.primaryPath)
      current = index;
    // Reveal it: a selection made elsewhere may sit in a collapsed branch.
    if (reveal == Reveal::no)
      continue;
    for (QModelIndex parent = index.parent(); parent.isValid(); parent = parent.parent()) {
      view_->setExpanded(parent, true);
    }
  }
  showingModelSelection_ = true;
  QItemSelectionModel* selectionModel = view_->selectionModel();
  selectionModel->select(rows, QItemSelectionModel::ClearAndSelect);
  if (current.isValid() && current != selectionModel->currentIndex()) {
    selectionModel->setCurrentIndex(current, QItemSelectionModel::NoUpdate);
    if (reveal == Reveal::yes)
      view_->scrollTo(current);
  }
  showingModelSelection_ = false;
}

bool HierarchyPane::showsWholeSelection() {
  const QItemSelectionModel& selectionModel = *view_->selectionModel();
  for (const std::string& path : model_.session.sceneSelection.get().paths) {
    const QModelIndex index = treeModel_->indexForPath(path);
    if (!index.isValid() || !selectionModel.isRowSelected(index.row(), index.parent()))
      return false;
  }
  return true;
}

void HierarchyPane::scheduleSelectionSync() {
  if (showingModelSelection_ || selectionSyncPending_)
    return;
  selectionSyncPending_ = true;
  QMetaObject::invokeMethod(
      this, [this] { selectionChangedInView(); }, Qt::QueuedConnection);
}

void HierarchyPane::selectionChangedInView() {
  selectionSyncPending_ = false;
  const QModelIndexList rows =
      view_->selectionModel()->selectedRows(HierarchyTreeModel::kNameColumn);
  std::vector<std::string> paths;
  paths.reserve(static_cast<std::size_t>(rows.size()));
  for (const QModelIndex& row : rows)
    paths.push_back(treeModel_->pathForIndex(row));
  std::string primary;
  const QModelIndex current = view_->selectionModel()->currentIndex();
  if (current.isValid() &&
      view_->selectionModel()->isRowSelected(current.row(), current.parent())) {
    primary = treeModel_->pathForIndex(current.siblingAtColumn(HierarchyTreeModel::kNameColumn));
  } else if (!paths.empty()) {
    primary = paths.front();
  }
  const editor::SceneSelectionState& shown = model_.session.sceneSelection.get();
  if (shown.primaryPath == primary && shown.paths == paths)
    return;
  model_.documents.selectPrims(std::move(primary), std::move(paths));
}

}  // namespace orvan::ui
