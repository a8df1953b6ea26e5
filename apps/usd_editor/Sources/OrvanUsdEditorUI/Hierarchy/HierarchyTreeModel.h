#pragma once

#include <QAbstractItemModel>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Presentation/HierarchyIndex.h"
#include "Presentation/SiblingDiff.h"

namespace orvan::ui {

// The hierarchy pane's tree over the stage's prebuilt `HierarchyIndex`. Rows are built lazily: a
// row's children exist once a view fetches them (it does when it opens the row), so a large closed
// tree costs a handful of rows. A new stage is applied as the difference to the rows built so far:
// rows inserted, removed and moved under their parents, and changed data, so that a view keeps its
// selection, open rows and scroll position. Subtrees whose digest did not change are not visited.
class HierarchyTreeModel final : public QAbstractItemModel {
  Q_OBJECT
 public:
  enum Column { kNameColumn = 0, kTypeColumn = 1, kColumnCount = 2 };
  enum Role { kPathRole = Qt::UserRole + 1, kActiveRole, kBadgesRole };

  explicit HierarchyTreeModel(QObject* parent = nullptr);
  ~HierarchyTreeModel() override;

  // Brings the rows up to the stage of `index` (null: no stage).
  void setIndex(std::shared_ptr<const editor::HierarchyIndex> index);
  const editor::HierarchyIndex* hierarchyIndex() const { return index_.get(); }

  // The row of a prim, fetching the rows above it as needed; invalid when the stage has none.
  QModelIndex indexForPath(std::string_view path);
  std::string pathForIndex(const QModelIndex& index) const;
  // Rows built so far, the invisible root aside.
  std::size_t builtRowCount() const { return builtRows_; }

  QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
  QModelIndex parent(const QModelIndex& child) const override;
  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  bool hasChildren(const QModelIndex& parent = {}) const override;
  bool canFetchMore(const QModelIndex& parent) const override;
  void fetchMore(const QModelIndex& parent) override;

  // Editing asks, it does not change rows: a new name and a drop become requests to the editor,
  // and the rows follow the stage it then publishes.
  bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
  QStringList mimeTypes() const override;
  QMimeData* mimeData(const QModelIndexList& indexes) const override;
  bool canDropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                       const QModelIndex& parent) const override;
  bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                    const QModelIndex& parent) override;
  Qt::DropActions supportedDropActions() const override;
  Qt::DropActions supportedDragActions() const override;

  // The paths a drag of prim rows carries.
  static std::vector<std::string> draggedPaths(const QMimeData* data);
  static constexpr const char* kPrimPathsMimeType = "application/x-orvan-prim-paths";

 signals:
  void renameRequested(const QString& path, const QString& name);
  void reparentRequested(const QStringList& sourcePaths, const QString& targetPath);

 private:
  struct Node;

  Node* nodeOf(const QModelIndex& index) const;
  QModelIndex indexOf(Node& node) const;
  std::unique_ptr<Node> makeNode(Node* parent, int row, std::uint32_t entry) const;
  void patchNode(Node& node, std::uint32_t entry);
  void patchChildren(Node& node, std::uint32_t entry);
  void applyEdits(Node& node, std::uint32_t entry, const std::vector<editor::SiblingEdit>& edits);
  void reorder(Node& node, const std::vector<std::size_t>& order);
  void announcePathsBelow(Node& node);
  void renumber(Node& node, std::size_t from, std::size_t to);
  void countRemoved(const Node& node);

  std::shared_ptr<const editor::HierarchyIndex> index_;
  std::unique_ptr<Node> root_;
  std::size_t builtRows_ = 0;
  // While rows change (a new stage, a fetch), nothing else is fetched, so that no change nests in
  // another: views see the rows the model announced.
  bool busy_ = false;
};

}  // namespace orvan::ui
