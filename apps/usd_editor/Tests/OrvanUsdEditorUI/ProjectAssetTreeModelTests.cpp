#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QItemSelectionModel>
#include <QSignalSpy>

#include <deque>
#include <random>

#include "Project/ProjectAssetTreeModel.h"
#include "QtApplicationEnvironment.h"

namespace orvan::ui {
namespace {

using editor::ProjectAssetBrowserGroup;
using editor::ProjectAssetItem;
using Tester = QAbstractItemModelTester;

// Assets live in a deque so that groups can point at them while more are added.
struct Listing {
  std::deque<ProjectAssetItem> assets;
  std::vector<ProjectAssetBrowserGroup> groups;

  const ProjectAssetItem* asset(const std::string& path, const std::string& kind) {
    assets.push_back({.path = path, .name = path.substr(path.rfind('/') + 1), .kind = kind});
    return &assets.back();
  }
};

QStringList rowsOf(const ProjectAssetTreeModel& model) {
  QStringList lines;
  for (int group = 0; group < model.rowCount(); ++group) {
    const QModelIndex header = model.index(group, 0);
    lines << header.data().toString() + " " + model.index(group, 1).data().toString();
    for (int row = 0; row < model.rowCount(header); ++row) {
      lines << "  " +
                   model.index(row, 0, header).data(ProjectAssetTreeModel::kPathRole).toString() +
                   " " + model.index(row, 0, header).data().toString() + " " +
                   model.index(row, 1, header).data().toString();
    }
  }
  return lines;
}

TEST(ProjectAssetTreeModelTest, ARefreshChangesOnlyTheRowsThatChangedAndKeepsTheSelection) {
  testing::testApplication();
  ProjectAssetTreeModel model;
  Tester tester(&model, Tester::FailureReportingMode::Fatal);
  QItemSelectionModel selection(&model);
  QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
  QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
  QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
  QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);

  Listing first;
  first.groups = {{"USD", {first.asset("scene.usda", "USD")}},
                  {"Image", {first.asset("a.png", "Image"), first.asset("t/b.png", "Image")}}};
  model.setGroups(first.groups);
  EXPECT_EQ(rowsOf(model), (QStringList{"USD 1", "  scene.usda scene.usda USD", "Image 2",
                                        "  a.png a.png Image", "  t/b.png b.png Image"}));
  const QModelIndex picked = model.indexForPath("t/b.png");
  selection.select(picked, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
  inserted.clear();

  // One image more: one row in, one count changed, the selection stays.
  Listing second;
  second.groups = {{"USD", {second.asset("scene.usda", "USD")}},
                   {"Image",
                    {second.asset("a.png", "Image"), second.asset("c.png", "Image"),
                     second.asset("t/b.png", "Image")}}};
  model.setGroups(second.groups);
  EXPECT_EQ(inserted.count(), 1);
  EXPECT_EQ(removed.count(), 0);
  EXPECT_EQ(changed.count(), 1) << "the Image group's count";
  EXPECT_EQ(model.index(1, 1).data().toString(), "3");
  const QModelIndex stillPicked = model.indexForPath("t/b.png");
  EXPECT_TRUE(selection.isRowSelected(stillPicked.row(), stillPicked.parent()));

  // The selected asset goes, and a group with it.
  Listing third;
  third.groups = {{"Image", {third.asset("a.png", "Image")}}};
  model.setGroups(third.groups);
  EXPECT_FALSE(selection.hasSelection());
  EXPECT_EQ(rowsOf(model), (QStringList{"Image 1", "  a.png a.png Image"}));
  model.setGroups({});
  EXPECT_EQ(model.rowCount(), 0);
  EXPECT_EQ(resets.count(), 0);
  EXPECT_FALSE(model.indexForPath("a.png").isValid());
}

TEST(ProjectAssetTreeModelTest, RandomListingsPatchToTheFreshRows) {
  testing::testApplication();
  std::mt19937 random(7);
  auto pick = [&random](std::size_t count) {
    return std::uniform_int_distribution<std::size_t>(0, count - 1)(random);
  };
  const std::vector<std::string> kinds{"USD", "Image", "Mesh", "File"};
  ProjectAssetTreeModel model;
  Tester tester(&model, Tester::FailureReportingMode::Fatal);
  for (int step = 0; step < 200; ++step) {
    Listing listing;
    std::vector<std::string> titles = kinds;
    std::shuffle(titles.begin(), titles.end(), random);
    titles.resize(pick(titles.size() + 1));
    for (const std::string& title : titles) {
      ProjectAssetBrowserGroup group{title, {}};
      std::vector<int> names{0, 1, 2, 3, 4, 5};
      std::shuffle(names.begin(), names.end(), random);
      names.resize(pick(names.size() + 1));
      for (int name : names) {
        const std::string kind = kinds[pick(kinds.size())];
        group.assets.push_back(listing.asset(title + "/f" + std::to_string(name), kind));
      }
      listing.groups.push_back(std::move(group));
    }
    model.setGroups(listing.groups);
    ProjectAssetTreeModel fresh;
    fresh.setGroups(listing.groups);
    ASSERT_EQ(rowsOf(model), rowsOf(fresh)) << "step " << step;
  }
}

}  // namespace
}  // namespace orvan::ui
