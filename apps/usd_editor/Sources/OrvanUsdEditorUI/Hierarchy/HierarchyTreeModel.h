#pragma once

#include <QAbstractItemModel>

#include <memory>

#include "Presentation/HierarchyIndex.h"

namespace orvan::ui {

// The hierarchy pane's tree, over a prebuilt `HierarchyIndex`: every question a view asks is a
// constant-time lookup, and rows exist only as indexes into the stage, so a 100,000-prim stage
// costs no per-row objects.
class HierarchyTreeModel final : public QAbstractItemModel {
  Q_OBJECT
 public:
  enum Column { kNameColumn = 0, kTypeColumn = 1, kColumnCount = 2 };
  enum Role { kPathRole = Qt::UserRole + 1, kActiveRole, kBadgesRole };

  explicit HierarchyTreeModel(QObject* parent = nullptr);

  // Swaps in the index of a new stage.
  void setIndex(std::shared_ptr<const editor::HierarchyIndex> index);
  const editor::HierarchyIndex* hierarchyIndex() const { return index_.get(); }

  QModelIndex indexForPath(std::string_view path) const;
  std::string pathForIndex(const QModelIndex& index) const;

  QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
  QModelIndex parent(const QModelIndex& child) const override;
  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  bool hasChildren(const QModelIndex& parent = {}) const override;

 private:
  std::uint32_t entryOf(const QModelIndex& index) const;

  std::shared_ptr<const editor::HierarchyIndex> index_;
};

}  // namespace orvan::ui
