#include "Project/ProjectPane.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QStackedLayout>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "Application/EditorModel.h"
#include "Presentation/ProjectAssetBrowser.h"
#include "MainWindow.h"

namespace orvan::ui {

namespace {

constexpr int kPathRole = Qt::UserRole + 1;
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
  organization_->addItem("Type", static_cast<int>(editor::ProjectAssetBrowserOrganization::typeAndClass));
  organization_->addItem("Folder", static_cast<int>(editor::ProjectAssetBrowserOrganization::folders));
  barLayout->addWidget(organization_);
  barLayout->addStretch(1);
  layout->addWidget(bar);

  auto* body = new QWidget(this);
  stack_ = new QStackedLayout(body);
  emptyState_ = makeEmptyState("No project assets", body);
  tree_ = new QTreeWidget(body);
  tree_->setObjectName("ProjectAssetTree");
  tree_->setColumnCount(2);
  tree_->setHeaderLabels({"Name", "Kind"});
  tree_->setUniformRowHeights(true);
  tree_->setFrameShape(QFrame::NoFrame);
  tree_->setIndentation(14);
  tree_->setSelectionMode(QAbstractItemView::SingleSelection);
  tree_->header()->setStretchLastSection(false);
  tree_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
  tree_->header()->setSectionResizeMode(1, QHeaderView::Fixed);
  tree_->header()->resizeSection(1, kKindColumnWidth);
  stack_->addWidget(emptyState_);
  stack_->addWidget(tree_);
  layout->addWidget(body, 1);

  connect(organization_, &QComboBox::currentIndexChanged, this, [this](int index) {
    model_.viewPreferences.projectAssetBrowserOrganization.set(
        static_cast<editor::ProjectAssetBrowserOrganization>(organization_->itemData(index).toInt()));
  });
  connect(tree_, &QTreeWidget::itemSelectionChanged, this, [this] { selectionChangedInView(); });

  subscriptions_.push_back(
      model_.clientDocument.projectProjection.revision.subscribe([this](const auto&) { rebuild(); }));
  subscriptions_.push_back(
      model_.viewPreferences.projectAssetBrowserOrganization.subscribe([this](const auto&) { rebuild(); }));
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
  const QSignalBlocker quiet(tree_);
  tree_->clear();
  for (const auto& group : groups) {
    auto* header = new QTreeWidgetItem(tree_, {QString::fromStdString(group.title),
                                               QString::number(group.assets.size())});
    header->setFlags(Qt::ItemIsEnabled);
    QFont font = header->font(0);
    font.setBold(true);
    header->setFont(0, font);
    header->setForeground(1, QColor(0x6c, 0x72, 0x7b));  // the muted detail colour of the theme
    for (const auto* asset : group.assets) {
      auto* item = new QTreeWidgetItem(header, {QString::fromStdString(asset->name),
                                                QString::fromStdString(asset->kind)});
      item->setData(0, kPathRole, QString::fromStdString(asset->path));
      item->setToolTip(0, QString::fromStdString(asset->path));
    }
    header->setExpanded(true);
  }
  stack_->setCurrentWidget(groups.empty() ? static_cast<QWidget*>(emptyState_) : tree_);
  showSelection();
}

void ProjectPane::showSelection() {
  const auto& selection = model_.session.projectAssetSelection.get().selection;
  const QString path = selection ? QString::fromStdString(selection->path) : QString();
  showingModelSelection_ = true;
  tree_->clearSelection();
  for (int group = 0; group < tree_->topLevelItemCount() && !path.isEmpty(); ++group) {
    QTreeWidgetItem* header = tree_->topLevelItem(group);
    for (int row = 0; row < header->childCount(); ++row) {
      QTreeWidgetItem* item = header->child(row);
      if (item->data(0, kPathRole).toString() != path) continue;
      item->setSelected(true);
      tree_->scrollToItem(item);
      group = tree_->topLevelItemCount();
      break;
    }
  }
  showingModelSelection_ = false;
}

void ProjectPane::selectionChangedInView() {
  if (showingModelSelection_) return;
  const auto selected = tree_->selectedItems();
  if (selected.isEmpty()) return;
  const QString path = selected.front()->data(0, kPathRole).toString();
  if (!path.isEmpty()) model_.documents.selectProjectAsset(path.toStdString());
}

}  // namespace orvan::ui
