#include "Hierarchy/HierarchyTreeModel.h"

#include <QBrush>
#include <QColor>
#include <QStringList>

namespace orvan::ui {

using editor::HierarchyIndex;

HierarchyTreeModel::HierarchyTreeModel(QObject* parent) : QAbstractItemModel(parent) {}

void HierarchyTreeModel::setIndex(std::shared_ptr<const HierarchyIndex> index) {
  beginResetModel();
  index_ = std::move(index);
  endResetModel();
}

std::uint32_t HierarchyTreeModel::entryOf(const QModelIndex& index) const {
  return index.isValid() ? static_cast<std::uint32_t>(index.internalId()) : HierarchyIndex::kRoot;
}

QModelIndex HierarchyTreeModel::index(int row, int column, const QModelIndex& parent) const {
  if (!index_ || row < 0 || column < 0 || column >= kColumnCount) return {};
  const std::uint32_t parentEntry = entryOf(parent);
  if (static_cast<std::size_t>(row) >= index_->childCount(parentEntry)) return {};
  return createIndex(row, column, static_cast<quintptr>(index_->child(parentEntry, static_cast<std::size_t>(row))));
}

QModelIndex HierarchyTreeModel::parent(const QModelIndex& child) const {
  if (!index_ || !child.isValid()) return {};
  const std::uint32_t parentEntry = index_->entry(entryOf(child)).parent;
  if (parentEntry == HierarchyIndex::kRoot) return {};
  return createIndex(static_cast<int>(index_->entry(parentEntry).row), 0,
                     static_cast<quintptr>(parentEntry));
}

int HierarchyTreeModel::rowCount(const QModelIndex& parent) const {
  if (!index_ || (parent.isValid() && parent.column() != 0)) return 0;
  return static_cast<int>(index_->childCount(entryOf(parent)));
}

int HierarchyTreeModel::columnCount(const QModelIndex&) const { return kColumnCount; }

bool HierarchyTreeModel::hasChildren(const QModelIndex& parent) const {
  return rowCount(parent) > 0;
}

QVariant HierarchyTreeModel::data(const QModelIndex& index, int role) const {
  if (!index_ || !index.isValid()) return {};
  const editor::UsdPrimNode& node = *index_->entry(entryOf(index)).node;
  switch (role) {
    case Qt::DisplayRole:
      if (index.column() == kNameColumn) return QString::fromStdString(node.name);
      return QString::fromStdString(node.typeName);
    case Qt::ToolTipRole:
      return QString::fromStdString(node.path);
    case Qt::ForegroundRole:
      if (!node.active) return QBrush(QColor(0x6c, 0x72, 0x7b));
      if (index.column() == kTypeColumn) return QBrush(QColor(0x8a, 0x90, 0x99));
      return {};
    case kPathRole:
      return QString::fromStdString(node.path);
    case kActiveRole:
      return node.active;
    case kBadgesRole: {
      QStringList badges;
      for (const auto& badge : node.badges) badges.push_back(QString::fromStdString(badge));
      return badges;
    }
    default:
      return {};
  }
}

QVariant HierarchyTreeModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
  return section == kNameColumn ? QStringLiteral("Name") : QStringLiteral("Type");
}

Qt::ItemFlags HierarchyTreeModel::flags(const QModelIndex& index) const {
  if (!index.isValid()) return Qt::NoItemFlags;
  return Qt::ItemIsEnabled | Qt::ItemIsSelectable;
}

QModelIndex HierarchyTreeModel::indexForPath(std::string_view path) const {
  if (!index_) return {};
  const auto entry = index_->entryForPath(path);
  if (!entry) return {};
  return createIndex(static_cast<int>(index_->entry(*entry).row), 0, static_cast<quintptr>(*entry));
}

std::string HierarchyTreeModel::pathForIndex(const QModelIndex& index) const {
  if (!index_ || !index.isValid()) return {};
  return index_->entry(entryOf(index)).node->path;
}

}  // namespace orvan::ui
