#include "Hierarchy/HierarchyTreeModel.h"

#include <QBrush>
#include <QColor>
#include <QMimeData>
#include <QScopedValueRollback>
#include <QStringList>

#include <algorithm>
#include <cassert>

namespace orvan::ui {

using editor::HierarchyIndex;
using editor::SiblingEdit;

// One row: a copy of what it shows, so that it needs no older stage to stay alive, and the digest
// of its subtree in the stage it was last brought up to. What a view asks of every open row
// (parent, row, children) comes first, so that laying out many rows touches one cache line each.
struct HierarchyTreeModel::Node {
  Node* parent = nullptr;
  int row = 0;
  bool fetched = false;
  std::size_t childCount = 0;  // in the stage; the rows below exist once fetched
  std::vector<std::unique_ptr<Node>> children;
  std::uint64_t subtreeDigest = 0;
  std::string name;
  std::string typeName;
  bool active = true;
  std::vector<std::string> badges;

  bool showsSameAs(const editor::UsdPrimNode& prim) const {
    return name == prim.name && typeName == prim.typeName && active == prim.active &&
           badges == prim.badges;
  }
  void copyShown(const editor::UsdPrimNode& prim) {
    name = prim.name;
    typeName = prim.typeName;
    active = prim.active;
    badges = prim.badges;
  }
};

namespace {

std::string pathOf(const auto& node) {
  std::vector<const std::string*> names;
  for (const auto* at = &node; at->parent; at = at->parent)
    names.push_back(&at->name);
  std::string path;
  for (auto name = names.rbegin(); name != names.rend(); ++name) {
    path += '/';
    path += **name;
  }
  return path;
}

}  // namespace

HierarchyTreeModel::HierarchyTreeModel(QObject* parent)
    : QAbstractItemModel(parent), root_(std::make_unique<Node>()) {
  root_->fetched = true;  // the root rows are always there, so that a view needs no fetch for them
}

HierarchyTreeModel::~HierarchyTreeModel() = default;

std::unique_ptr<HierarchyTreeModel::Node> HierarchyTreeModel::makeNode(Node* parent, int row,
                                                                       std::uint32_t entry) const {
  auto node = std::make_unique<Node>();
  node->parent = parent;
  node->row = row;
  node->copyShown(*index_->entry(entry).node);
  node->subtreeDigest = index_->subtreeDigest(entry);
  node->childCount = index_->childCount(entry);
  node->fetched = node->childCount == 0;
  return node;
}

void HierarchyTreeModel::setIndex(std::shared_ptr<const HierarchyIndex> index) {
  const QScopedValueRollback busy(busy_, true);
  index_ = std::move(index);
  if (index_) {
    patchChildren(*root_, HierarchyIndex::kRoot);
    root_->subtreeDigest = index_->subtreeDigest(HierarchyIndex::kRoot);
  } else if (!root_->children.empty()) {
    beginRemoveRows({}, 0, static_cast<int>(root_->children.size()) - 1);
    countRemoved(*root_);
    root_->children.clear();
    root_->childCount = 0;
    root_->subtreeDigest = 0;
    endRemoveRows();
  }
}

void HierarchyTreeModel::patchNode(Node& node, std::uint32_t entry) {
  const std::uint64_t digest = index_->subtreeDigest(entry);
  if (node.subtreeDigest == digest)
    return;
  node.subtreeDigest = digest;
  const editor::UsdPrimNode& prim = *index_->entry(entry).node;
  if (!node.showsSameAs(prim)) {
    const bool renamed = node.name != prim.name;
    node.copyShown(prim);
    const QModelIndex first = indexOf(node);
    emit dataChanged(first, first.siblingAtColumn(kTypeColumn));
    if (renamed)
      announcePathsBelow(node);
  }
  patchChildren(node, entry);
}

void HierarchyTreeModel::patchChildren(Node& node, std::uint32_t entry) {
  const std::size_t count = index_->childCount(entry);
  if (!node.fetched) {
    // No view has seen these rows: they are built from the new stage when one asks.
    node.childCount = count;
    node.fetched = count == 0;
    return;
  }
  const auto childName = [this, entry](std::size_t row) -> std::string_view {
    return index_->entry(index_->child(entry, row)).node->name;
  };
  bool sameKeys = node.children.size() == count;
  for (std::size_t row = 0; sameKeys && row < count; ++row) {
    sameKeys = node.children[row]->name == childName(row);
  }
  if (!sameKeys) {
    std::vector<std::string_view> before;
    before.reserve(node.children.size());
    for (const auto& child : node.children)
      before.push_back(child->name);
    std::vector<std::string_view> after;
    after.reserve(count);
    for (std::size_t row = 0; row < count; ++row)
      after.push_back(childName(row));
    // A renamed prim keeps its row (and with it the open rows and selection below it) when its
    // type and number of children stayed.
    const auto renamed = [this, &node, entry](std::size_t oldRow, std::size_t newRow) {
      const Node& old = *node.children[oldRow];
      const std::uint32_t now = index_->child(entry, newRow);
      return old.typeName == index_->entry(now).node->typeName &&
             old.childCount == index_->childCount(now);
    };
    applyEdits(node, entry, editor::diffSiblings(before, after, renamed));
  }
  node.childCount = count;
  for (std::size_t row = 0; row < count; ++row) {
    patchNode(*node.children[row], index_->child(entry, row));
  }
}

void HierarchyTreeModel::applyEdits(Node& node, std::uint32_t entry,
                                    const std::vector<SiblingEdit>& edits) {
  const QModelIndex parent = indexOf(node);
  auto& children = node.children;
  for (const SiblingEdit& edit : edits) {
    const auto first = static_cast<int>(edit.row);
    const auto at = children.begin() + static_cast<std::ptrdiff_t>(edit.row);
    switch (edit.kind) {
      case SiblingEdit::Kind::remove:
        beginRemoveRows(parent, first, first + static_cast<int>(edit.count) - 1);
        for (auto gone = at; gone != at + static_cast<std::ptrdiff_t>(edit.count); ++gone) {
          countRemoved(**gone);
        }
        children.erase(at, at + static_cast<std::ptrdiff_t>(edit.count));
        renumber(node, edit.row, children.size());
        endRemoveRows();
        break;
      case SiblingEdit::Kind::move: {
        // The view's destination is the row it goes before, counted before the move.
        const int destination = static_cast<int>(edit.to > edit.row ? edit.to + 1 : edit.to);
        const bool moving = beginMoveRows(parent, first, first, parent, destination);
        assert(moving);
        (void)moving;
        auto moved = std::move(children[edit.row]);
        children.erase(at);
        children.insert(children.begin() + static_cast<std::ptrdiff_t>(edit.to), std::move(moved));
        renumber(node, std::min(edit.row, edit.to), std::max(edit.row, edit.to) + 1);
        endMoveRows();
        break;
      }
      case SiblingEdit::Kind::reorder:
        reorder(node, edit.order);
        break;
      case SiblingEdit::Kind::insert: {
        beginInsertRows(parent, first, first + static_cast<int>(edit.count) - 1);
        std::vector<std::unique_ptr<Node>> added;
        added.reserve(edit.count);
        for (std::size_t row = edit.row; row < edit.row + edit.count; ++row) {
          added.push_back(makeNode(&node, static_cast<int>(row), index_->child(entry, row)));
        }
        children.insert(at, std::make_move_iterator(added.begin()),
                        std::make_move_iterator(added.end()));
        builtRows_ += edit.count;
        renumber(node, edit.row + edit.count, children.size());
        endInsertRows();
        break;
      }
    }
  }
}

void HierarchyTreeModel::reorder(Node& node, const std::vector<std::size_t>& order) {
  // One layout change for the whole list: the views' rows follow through their persistent
  // indexes, which point at the same rows in their new places.
  const QList<QPersistentModelIndex> parents{QPersistentModelIndex(indexOf(node))};
  emit layoutAboutToBeChanged(parents, QAbstractItemModel::VerticalSortHint);
  std::vector<std::unique_ptr<Node>> reordered;
  reordered.reserve(order.size());
  for (const std::size_t from : order)
    reordered.push_back(std::move(node.children[from]));
  node.children = std::move(reordered);
  renumber(node, 0, node.children.size());
  const QModelIndexList persistent = persistentIndexList();
  for (const QModelIndex& index : persistent) {
    Node* row = nodeOf(index);
    if (row->parent != &node)
      continue;
    changePersistentIndex(index, createIndex(row->row, index.column(), row));
  }
  emit layoutChanged(parents, QAbstractItemModel::VerticalSortHint);
}

void HierarchyTreeModel::announcePathsBelow(Node& node) {
  if (node.children.empty())
    return;
  const QModelIndex parent = indexOf(node);
  emit dataChanged(index(0, 0, parent),
                   index(static_cast<int>(node.children.size()) - 1, kTypeColumn, parent),
                   {Qt::ToolTipRole, kPathRole});
  for (const auto& child : node.children)
    announcePathsBelow(*child);
}

void HierarchyTreeModel::renumber(Node& node, std::size_t from, std::size_t to) {
  for (std::size_t row = from; row < to; ++row)
    node.children[row]->row = static_cast<int>(row);
}

void HierarchyTreeModel::countRemoved(const Node& node) {
  if (&node != root_.get())
    --builtRows_;
  for (const auto& child : node.children)
    countRemoved(*child);
}

HierarchyTreeModel::Node* HierarchyTreeModel::nodeOf(const QModelIndex& index) const {
  return index.isValid() ? static_cast<Node*>(index.internalPointer()) : root_.get();
}

QModelIndex HierarchyTreeModel::indexOf(Node& node) const {
  return &node == root_.get() ? QModelIndex() : createIndex(node.row, 0, &node);
}

QModelIndex HierarchyTreeModel::index(int row, int column, const QModelIndex& parent) const {
  if (row < 0 || column < 0 || column >= kColumnCount)
    return {};
  if (parent.isValid() && parent.column() != 0)
    return {};
  Node& node = *nodeOf(parent);
  if (static_cast<std::size_t>(row) >= node.children.size())
    return {};
  return createIndex(row, column, node.children[static_cast<std::size_t>(row)].get());
}

QModelIndex HierarchyTreeModel::parent(const QModelIndex& child) const {
  if (!child.isValid())
    return {};
  Node* parentNode = nodeOf(child)->parent;
  if (parentNode == root_.get())
    return {};
  return createIndex(parentNode->row, 0, parentNode);
}

int HierarchyTreeModel::rowCount(const QModelIndex& parent) const {
  if (parent.isValid() && parent.column() != 0)
    return 0;
  return static_cast<int>(nodeOf(parent)->children.size());
}

int HierarchyTreeModel::columnCount(const QModelIndex&) const {
  return kColumnCount;
}

bool HierarchyTreeModel::hasChildren(const QModelIndex& parent) const {
  if (parent.isValid() && parent.column() != 0)
    return false;
  const Node& node = *nodeOf(parent);
  return node.fetched ? !node.children.empty() : node.childCount > 0;
}

bool HierarchyTreeModel::canFetchMore(const QModelIndex& parent) const {
  if (busy_ || !index_ || (parent.isValid() && parent.column() != 0))
    return false;
  return !nodeOf(parent)->fetched;
}

void HierarchyTreeModel::fetchMore(const QModelIndex& parent) {
  if (!canFetchMore(parent))
    return;
  // A view that reacts to these rows by fetching others would nest one insertion in another.
  const QScopedValueRollback busy(busy_, true);
  Node& node = *nodeOf(parent);
  const auto entry = index_->entryForPath(pathOf(node));
  node.fetched = true;
  const std::size_t count = entry ? index_->childCount(*entry) : 0;
  if (count == 0)
    return;
  beginInsertRows(parent, 0, static_cast<int>(count) - 1);
  node.children.reserve(count);
  for (std::size_t row = 0; row < count; ++row) {
    node.children.push_back(makeNode(&node, static_cast<int>(row), index_->child(*entry, row)));
  }
  builtRows_ += count;
  endInsertRows();
}

QVariant HierarchyTreeModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid())
    return {};
  const Node& node = *nodeOf(index);
  switch (role) {
    case Qt::DisplayRole:
      return QString::fromStdString(index.column() == kNameColumn ? node.name : node.typeName);
    case Qt::EditRole:
      return QString::fromStdString(node.name);
    case Qt::ToolTipRole:
    case kPathRole:
      return QString::fromStdString(pathOf(node));
    case Qt::ForegroundRole:
      if (!node.active)
        return QBrush(QColor(0x6c, 0x72, 0x7b));
      if (index.column() == kTypeColumn)
        return QBrush(QColor(0x8a, 0x90, 0x99));
      return {};
    case kActiveRole:
      return node.active;
    case kBadgesRole: {
      QStringList badges;
      for (const auto& badge : node.badges)
        badges.push_back(QString::fromStdString(badge));
      return badges;
    }
    default:
      return {};
  }
}

QVariant HierarchyTreeModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
    return {};
  return section == kNameColumn ? QStringLiteral("Name") : QStringLiteral("Type");
}

Qt::ItemFlags HierarchyTreeModel::flags(const QModelIndex& index) const {
  if (!index.isValid())
    return Qt::NoItemFlags;
  Qt::ItemFlags flags =
      Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled | Qt::ItemIsDropEnabled;
  if (index.column() == kNameColumn)
    flags |= Qt::ItemIsEditable;
  return flags;
}

bool HierarchyTreeModel::setData(const QModelIndex& index, const QVariant& value, int role) {
  if (!index.isValid() || role != Qt::EditRole || index.column() != kNameColumn)
    return false;
  const QString name = value.toString();
  if (name == QString::fromStdString(nodeOf(index)->name))
    return false;
  emit renameRequested(QString::fromStdString(pathOf(*nodeOf(index))), name);
  return false;  // the row shows the new name once the stage has it
}

QStringList HierarchyTreeModel::mimeTypes() const {
  return {QString::fromLatin1(kPrimPathsMimeType)};
}

QMimeData* HierarchyTreeModel::mimeData(const QModelIndexList& indexes) const {
  QStringList paths;
  for (const QModelIndex& index : indexes) {
    if (index.isValid() && index.column() == kNameColumn)
      paths.push_back(QString::fromStdString(pathOf(*nodeOf(index))));
  }
  auto* data = new QMimeData();
  data->setData(QString::fromLatin1(kPrimPathsMimeType), paths.join('\n').toUtf8());
  return data;
}

std::vector<std::string> HierarchyTreeModel::draggedPaths(const QMimeData* data) {
  std::vector<std::string> paths;
  if (!data || !data->hasFormat(QString::fromLatin1(kPrimPathsMimeType)))
    return paths;
  const QString text = QString::fromUtf8(data->data(QString::fromLatin1(kPrimPathsMimeType)));
  for (const QString& path : text.split('\n', Qt::SkipEmptyParts))
    paths.push_back(path.toStdString());
  return paths;
}

bool HierarchyTreeModel::canDropMimeData(const QMimeData* data, Qt::DropAction action, int, int,
                                         const QModelIndex& parent) const {
  return action == Qt::MoveAction && parent.isValid() && !draggedPaths(data).empty();
}

bool HierarchyTreeModel::dropMimeData(const QMimeData* data, Qt::DropAction action, int row,
                                      int column, const QModelIndex& parent) {
  if (!canDropMimeData(data, action, row, column, parent))
    return false;
  QStringList sources;
  for (const std::string& path : draggedPaths(data))
    sources.push_back(QString::fromStdString(path));
  emit reparentRequested(sources, QString::fromStdString(pathOf(*nodeOf(parent))));
  // Nothing moved here: the view must not remove the dragged rows; the stage moves them.
  return false;
}

Qt::DropActions HierarchyTreeModel::supportedDropActions() const {
  return Qt::MoveAction;
}

Qt::DropActions HierarchyTreeModel::supportedDragActions() const {
  return Qt::MoveAction;
}

QModelIndex HierarchyTreeModel::indexForPath(std::string_view path) {
  if (!index_ || busy_)
    return {};
  const auto entry = index_->entryForPath(path);
  if (!entry)
    return {};
  Node* node = root_.get();
  for (const std::uint32_t step : index_->ancestry(*entry)) {
    fetchMore(indexOf(*node));
    const std::size_t row = index_->entry(step).row;
    if (row >= node->children.size())
      return {};
    node = node->children[row].get();
  }
  return indexOf(*node);
}

std::string HierarchyTreeModel::pathForIndex(const QModelIndex& index) const {
  if (!index.isValid())
    return {};
  return pathOf(*nodeOf(index));
}

}  // namespace orvan::ui
