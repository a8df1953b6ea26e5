#include <gtest/gtest.h>

#include <QAbstractItemModelTester>

#include "OrvanUsdEditorUI/Hierarchy/HierarchyTreeModel.h"
#include "QtApplicationEnvironment.h"
#include "Support/StageBuilders.h"

namespace orvan::ui {
namespace {

using editor::HierarchyIndex;
using editor::StageInspection;

std::shared_ptr<const HierarchyIndex> indexOf(StageInspection stage) {
  return HierarchyIndex::build(std::make_shared<const StageInspection>(std::move(stage)));
}

TEST(HierarchyTreeModelTest, HonoursTheItemModelContractAcrossStageSwaps) {
  testing::testApplication();
  HierarchyTreeModel model;
  // The tester checks parent/index/rowCount consistency and reset signalling as the model changes.
  QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Warning);
  model.setIndex(indexOf(editor::testing::makeTreeStage(3, 3, 2)));
  model.setIndex(indexOf(editor::testing::makeTreeStage(1, 0, 0)));
  model.setIndex(nullptr);
  EXPECT_EQ(model.rowCount(), 0);
}

TEST(HierarchyTreeModelTest, RowsShowNameAndTypeAndMapBackToPaths) {
  testing::testApplication();
  HierarchyTreeModel model;
  model.setIndex(indexOf(editor::testing::makeTreeStage(2, 3, 1)));
  ASSERT_EQ(model.rowCount(), 2);
  const QModelIndex root1 = model.index(1, HierarchyTreeModel::kNameColumn);
  EXPECT_EQ(model.data(root1).toString(), "Root1");
  EXPECT_EQ(model.rowCount(root1), 3);
  const QModelIndex child2 = model.index(2, 0, root1);
  EXPECT_EQ(model.data(child2.siblingAtColumn(HierarchyTreeModel::kTypeColumn)).toString(), "Cube");
  EXPECT_EQ(model.pathForIndex(child2), "/Root1/Child2");
  EXPECT_EQ(model.parent(child2), root1);
  EXPECT_EQ(model.indexForPath("/Root1/Child2"), child2);
  EXPECT_FALSE(model.indexForPath("/Nope").isValid());
  EXPECT_FALSE(model.index(3, 0, root1).isValid()) << "rows past the end are invalid";
}

}  // namespace
}  // namespace orvan::ui
