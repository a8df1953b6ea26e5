#include <gtest/gtest.h>

#include <QAbstractItemModelTester>

#include "Hierarchy/HierarchyTreeModel.h"
#include "QtApplicationEnvironment.h"
#include "Support/StageBuilders.h"

namespace orvan::ui {
namespace {

using editor::HierarchyIndex;
using editor::StageInspection;

std::shared_ptr<const HierarchyIndex> indexOf(StageInspection stage) {
  return HierarchyIndex::build(std::make_shared<const StageInspection>(std::move(stage)));
}

// Rows as the editor window shows them are covered by its tests; this one holds the model to the
// item model contract (parent/index/rowCount consistency, reset signalling) as stages are swapped,
// and checks the lookups the window does not reach.
TEST(HierarchyTreeModelTest, HonoursTheItemModelContractAndFindsRowsByPath) {
  testing::testApplication();
  HierarchyTreeModel model;
  QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
  model.setIndex(indexOf(editor::testing::makeTreeStage(3, 3, 2)));
  const QModelIndex child = model.indexForPath("/Root1/Child2");
  EXPECT_EQ(model.pathForIndex(child), "/Root1/Child2");
  EXPECT_EQ(model.parent(child), model.indexForPath("/Root1"));
  EXPECT_FALSE(model.indexForPath("/Nope").isValid());
  EXPECT_FALSE(model.index(3, 0, model.parent(child)).isValid()) << "rows past the end are invalid";
  model.setIndex(indexOf(editor::testing::makeTreeStage(1, 0, 0)));
  model.setIndex(nullptr);
  EXPECT_EQ(model.rowCount(), 0);
}

}  // namespace
}  // namespace orvan::ui
