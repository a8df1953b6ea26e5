#include "Project/ProjectAssetTreeModel.h"

#include <QColor>
#include <QFont>

namespace orvan::ui {

using editor::SiblingEdit;

struct ProjectAssetTreeModel::Row {
  Row* parent = nullptr;
  int row = 0;
  std::string key;
  std::string name;
  std::string detail;
  std::vector<std::unique_ptr<Row>> children;

  bool isGroup() const { return parent != nullptr && parent->parent == nullptr; }
};

ProjectAssetTreeModel::ProjectAssetTreeModel(QObject* parent)
    : QAbstractItemModel(parent), root_(std::make_unique<Row>()) {}

ProjectAssetTreeModel::~ProjectAssetTreeModel() = default;

void ProjectAssetTreeModel::setGroups(const std::vector<editor::ProjectAssetBrowserGroup>& groups) {
  std::vector<Shown> headers;
  headers.reserve(groups.size());
  for (const auto& group : groups) {
    headers.push_back({group.title, group.title, std::to_string(group.assets.size())});
  }
  patchRows(*root_, headers);
  for (std::size_t at = 0; at < groups.size(); ++at) {
    std::vector<Shown> assets;
    assets.reserve(groups[at].assets.size());
    for (const auto* asset : groups[at].assets) {
      assets.push_back({asset->path, asset->name, asset->kind});
    }
    patchRows(*root_->children[at], assets);
  }
}

void ProjectAssetTreeModel::patchRows(Row& parent, const std::vector<Shown>& shown) {
  bool sameKeys = parent.children.size() == shown.size();
  for (std::size_t at = 0; sameKeys && at < shown.size(); ++at) {
    sameKeys = parent.children[at]->key == shown[at].key;
  }
  if (!sameKeys) {
    std::vector<std::string_view> before;
    for (const auto& child : parent.children)
      before.push_back(child->key);
    std::vector<std::string_view> after;
    for (const Shown& row : shown)
      after.push_back(row.key);
    applyEdits(parent, shown, editor::diffSiblings(before, after));
  }
  for (std::size_t at = 0; at < shown.size(); ++at) {
    Row& row = *parent.children[at];
    if (row.name == shown[at].name && row.detail == shown[at].detail)
      continue;
    row.name = shown[at].name;
    row.detail = shown[at].detail;
    emit dataChanged(indexOf(row, kNameColumn), indexOf(row, kKindColumn));
  }
}

void ProjectAssetTreeModel::applyEdits(Row& parent, const std::vector<Shown>& shown,
                                       const std::vector<SiblingEdit>& edits) {
  const QModelIndex parentIndex = parent.parent ? indexOf(parent) : QModelIndex();
  auto& children = parent.children;
  for (const SiblingEdit& edit : edits) {
    const auto first = static_cast<int>(edit.row);
    const auto at = children.begin() + static_cast<std::ptrdiff_t>(edit.row);
    switch (edit.kind) {
      case SiblingEdit::Kind::remove:
        beginRemoveRows(parentIndex, first, first + static_cast<int>(edit.count) - 1);
        children.erase(at, at + static_cast<std::ptrdiff_t>(edit.count));
        renumber(parent);
        endRemoveRows();
        break;
      case SiblingEdit::Kind::move: {
        const int destination = static_cast<int>(edit.to > edit.row ? edit.to + 1 : edit.to);
        beginMoveRows(parentIndex, first, first, parentIndex, destination);
        auto moved = std::move(children[edit.row]);
        children.erase(at);
        children.insert(children.begin() + static_cast<std::ptrdiff_t>(edit.to), std::move(moved));
        renumber(parent);
        endMoveRows();
        break;
      }
      case SiblingEdit::Kind::reorder: {
        const QList<QPersistentModelIndex> parents{QPersistentModelIndex(parentIndex)};
        emit layoutAboutToBeChanged(parents, QAbstractItemModel::VerticalSortHint);
        std::vector<std::unique_ptr<Row>> reordered;
        for (const std::size_t from : edit.order)
          reordered.push_back(std::move(children[from]));
        children = std::move(reordered);
        renumber(parent);
        const QModelIndexList persistent = persistentIndexList();
        for (const QModelIndex& index : persistent) {
          Row* row = rowOf(index);
          if (row->parent == &parent)
            changePersistentIndex(index, createIndex(row->row, index.column(), row));
        }
        emit layoutChanged(parents, QAbstractItemModel::VerticalSortHint);
        break;
      }
      case SiblingEdit::Kind::insert: {
        beginInsertRows(parentIndex, first, first + static_cast<int>(edit.count) - 1);
        for (std::size_t row = edit.row; row < edit.row + edit.count; ++row) {
          auto added = std::make_unique<Row>();
          added->parent = &parent;
          added->key = shown[row].key;
          added->name = shown[row].name;
          added->detail = shown[row].detail;
          children.insert(children.begin() + static_cast<std::ptrdiff_t>(row), std::move(added));
        }
        renumber(parent);
        endInsertRows();
        break;
      }
    }
  }
}

void ProjectAssetTreeModel::renumber(Row& parent) {
  for (std::size_t at = 0; at < parent.children.size(); ++at) {
    parent.children[at]->row = static_cast<int>(at);
  }
}

QModelIndex ProjectAssetTreeModel::indexForPath(std::string_view path) const {
  for (const auto& group : root_->children) {
    for (const auto& asset : group->children) {
      if (asset->key == path)
        return indexOf(*asset);
    }
  }
  return {};
}

ProjectAssetTreeModel::Row* ProjectAssetTreeModel::rowOf(const QModelIndex& index) const {
  return index.isValid() ? static_cast<Row*>(index.internalPointer()) : root_.get();
}

QModelIndex ProjectAssetTreeModel::indexOf(Row& row, int column) const {
  return createIndex(row.row, column, &row);
}

QModelIndex ProjectAssetTreeModel::index(int row, int column, const QModelIndex& parent) const {
  if (row < 0 || column < 0 || column >= kColumnCount)
    return {};
  if (parent.isValid() && parent.column() != 0)
    return {};
  Row& owner = *rowOf(parent);
  if (static_cast<std::size_t>(row) >= owner.children.size())
    return {};
  return createIndex(row, column, owner.children[static_cast<std::size_t>(row)].get());
}

QModelIndex ProjectAssetTreeModel::parent(const QModelIndex& child) const {
  if (!child.isValid())
    return {};
  Row* owner = rowOf(child)->parent;
  if (owner == root_.get())
    return {};
  return indexOf(*owner);
}

int ProjectAssetTreeModel::rowCount(const QModelIndex& parent) const {
  if (parent.isValid() && parent.column() != 0)
    return 0;
  return static_cast<int>(rowOf(parent)->children.size());
}

int ProjectAssetTreeModel::columnCount(const QModelIndex&) const {
  return kColumnCount;
}

QVariant ProjectAssetTreeModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid())
    return {};
  const Row& row = *rowOf(index);
  switch (role) {
    case Qt::DisplayRole:
      return QString::fromStdString(index.column() == kNameColumn ? row.name : row.detail);
    case Qt::ToolTipRole:
    case kPathRole:
      if (row.isGroup())
        return {};
      return QString::fromStdString(row.key);
    case Qt::FontRole: {
      if (!row.isGroup() || index.column() != kNameColumn)
        return {};
      QFont font;
      font.setBold(true);
      return font;
    }
    case Qt::ForegroundRole:
      if (!row.isGroup() || index.column() != kKindColumn)
        return {};
      return QColor(0x6c, 0x72, 0x7b);  // the muted detail colour of the theme
    default:
      return {};
  }
}

QVariant ProjectAssetTreeModel::headerData(int section, Qt::Orientation orientation,
                                           int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
    return {};
  return section == kNameColumn ? QStringLiteral("Name") : QStringLiteral("Kind");
}

Qt::ItemFlags ProjectAssetTreeModel::flags(const QModelIndex& index) const {
  if (!index.isValid())
    return Qt::NoItemFlags;
  if (rowOf(index)->isGroup())
    return Qt::ItemIsEnabled;
  return Qt::ItemIsEnabled | Qt::ItemIsSelectable;
}

}  // namespace orvan::ui
