#include "Project/ProjectPane.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QScopedValueRollback>
#include <QStackedLayout>
#include <QTreeView>
#include <QVBoxLayout>

#include "Application/EditorModel.h"
#include "MainWindow.h"
#include "Presentation/ProjectAssetBrowser.h"
#include "Project/ProjectAssetTreeModel.h"

namespace orvan::ui {

namespace {

constexpr int kKindColumnWidth = 96;

}  // namespace

ProjectPane::ProjectPane(editor::EditorModel& model, QWidget* parent)
    : QWidget(parent), model_(model) {
  setObjectName("ProjectPane");
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);

  auto* bar = new QWidget(this);
  bar->setObjectName("PaneToolbar");
  auto* barLayout = new QHBoxLayout(bar);
  barLayout->setContentsMargins(8, 4, 8, 4);
  barLayout->addWidget(new QLabel("Group by", bar));
  organization_ = new QComboBox(bar);
  organization_->addItem("Type",
                         static_cast<int>(editor::ProjectAssetBrowserOrganization::typeAndClass));
  organization_->addItem("Folder",
                         static_cast<int>(editor::ProjectAssetBrowserOrganization::folders));
  barLayout->addWidget(organization_);
  barLayout->addStretch(1);
  layout->addWidget(bar);

  auto* body = new QWidget(this);
  stack_ = new QStackedLayout(body);
  emptyState_ = makeEmptyState("No project assets", body);
  treeModel_ = new ProjectAssetTreeModel(this);
  tree_ = new QTreeView(body);
  tree_->setObjectName("ProjectAssetTree");
  tree_->setModel(treeModel_);
  tree_->setUniformRowHeights(true);
  tree_->setFrameShape(QFrame::NoFrame);
  tree_->setIndentation(14);
  tree_->setSelectionMode(QAbstractItemView::SingleSelection);
  tree_->setSelectionBehavior(QAbstractItemView::SelectRows);
  tree_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  tree_->header()->setStretchLastSection(false);
  tree_->header()->setSectionResizeMode(ProjectAssetTreeModel::kNameColumn, QHeaderView::Stretch);
  tree_->header()->setSectionResizeMode(ProjectAssetTreeModel::kKindColumn, QHeaderView::Fixed);
  tree_->header()->resizeSection(ProjectAssetTreeModel::kKindColumn, kKindColumnWidth);
  // A group opens when it appears; one the user closed stays closed across refreshes.
  connect(treeModel_, &QAbstractItemModel::rowsInserted, this,
          [this](const QModelIndex& parent, int first, int last) {
            if (parent.isValid())
              return;
            for (int row = first; row <= last; ++row)
              tree_->setExpanded(treeModel_->index(row, 0), true);
          });
  stack_->addWidget(emptyState_);
  stack_->addWidget(tree_);
  layout->addWidget(body, 1);

  connect(organization_, &QComboBox::currentIndexChanged, this, [this](int index) {
    model_.viewPreferences.projectAssetBrowserOrganization.set(
        static_cast<editor::ProjectAssetBrowserOrganization>(
            organization_->itemData(index).toInt()));
  });
  connect(tree_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
          [this] { selectionChangedInView(); });

  subscriptions_.push_back(model_.clientDocument.projectProjection.revision.subscribe(
      [this](const auto&) { rebuild(); }));
  subscriptions_.push_back(model_.viewPreferences.projectAssetBrowserOrganization.subscribe(
      [this](const auto&) { rebuild(); }));
  subscriptions_.push_back(
      model_.session.projectAssetSelection.subscribe([this](const auto&) { showSelection(); }));
  rebuild();
}

ProjectPane::~ProjectPane() = default;

QString ProjectPane::emptyStateText() const {
  return stack_->currentWidget() == emptyState_ ? emptyState_->text() : QString();
}

void ProjectPane::rebuild() {
  const auto organization = model_.viewPreferences.projectAssetBrowserOrganization.get();
  const int pickerIndex = organization_->findData(static_cast<int>(organization));
  if (pickerIndex != organization_->currentIndex()) {
    const QSignalBlocker quiet(organization_);
    organization_->setCurrentIndex(pickerIndex);
  }

  const auto& document = *model_.clientDocument.projectProjection.snapshot;
  const auto groups = editor::projectAssetBrowserGroups(document, organization);
  {
    // Rows that go take their selection with them; the model's reconcile owns the selection.
    const QScopedValueRollback quiet(showingModelSelection_, true);
    treeModel_->setGroups(groups);
  }
  stack_->setCurrentWidget(groups.empty() ? static_cast<QWidget*>(emptyState_) : tree_);
  showSelection();
}

void ProjectPane::showSelection() {
  const auto& selection = model_.session.projectAssetSelection.get().selection;
  const QModelIndex row = selection ? treeModel_->indexForPath(selection->path) : QModelIndex();
  QItemSelectionModel* selectionModel = tree_->selectionModel();
  if (row.isValid() && selectionModel->isRowSelected(row.row(), row.parent()))
    return;
  const QScopedValueRollback quiet(showingModelSelection_, true);
  if (!row.isValid()) {
    selectionModel->clearSelection();
    return;
  }
  selectionModel->select(row, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
  tree_->scrollTo(row);
}

void ProjectPane::selectionChangedInView() {
  if (showingModelSelection_)
    return;
  const QModelIndexList selected = tree_->selectionModel()->selectedRows();
  if (selected.isEmpty())
    return;
  const QString path = selected.front().data(ProjectAssetTreeModel::kPathRole).toString();
  if (!path.isEmpty())
    model_.documents.selectProjectAsset(path.toStdString());
}

}  // namespace orvan::ui
