#pragma once

#include <QAbstractItemModel>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Presentation/ProjectAssetBrowser.h"
#include "Presentation/SiblingDiff.h"

namespace orvan::ui {

// The project pane's rows: a header row per asset group (its title and number of assets), the
// group's assets below it (name and kind). A new list of groups is applied as the difference,
// groups known by their title and assets by their path, so that a view keeps its selection, open
// groups and scroll position across refreshes.
class ProjectAssetTreeModel final : public QAbstractItemModel {
  Q_OBJECT
 public:
  enum Column { kNameColumn = 0, kKindColumn = 1, kColumnCount = 2 };
  enum Role { kPathRole = Qt::UserRole + 1 };

  explicit ProjectAssetTreeModel(QObject* parent = nullptr);
  ~ProjectAssetTreeModel() override;

  void setGroups(const std::vector<editor::ProjectAssetBrowserGroup>& groups);
  // The asset row of a project path; invalid when no group lists it.
  QModelIndex indexForPath(std::string_view path) const;

  QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
  QModelIndex parent(const QModelIndex& child) const override;
  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;

 private:
  struct Row;
  // What one row shows, read from the new groups.
  struct Shown {
    std::string key;  // a group's title, an asset's path
    std::string name;
    std::string detail;
  };

  Row* rowOf(const QModelIndex& index) const;
  QModelIndex indexOf(Row& row, int column = 0) const;
  void patchRows(Row& parent, const std::vector<Shown>& shown);
  void applyEdits(Row& parent, const std::vector<Shown>& shown,
                  const std::vector<editor::SiblingEdit>& edits);
  void renumber(Row& parent);

  std::unique_ptr<Row> root_;
};

}  // namespace orvan::ui
