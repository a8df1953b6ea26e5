#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QItemSelectionModel>
#include <QSignalSpy>
#include <QTreeView>

#include <algorithm>
#include <functional>
#include <random>

#include "Hierarchy/HierarchyTreeModel.h"
#include "QtApplicationEnvironment.h"
#include "Support/StageBuilders.h"

namespace orvan::ui {
namespace {

using editor::HierarchyIndex;
using editor::StageInspection;
using editor::UsdPrimNode;
using Tester = QAbstractItemModelTester;

std::shared_ptr<const HierarchyIndex> indexOf(StageInspection stage) {
  return HierarchyIndex::build(std::make_shared<const StageInspection>(std::move(stage)));
}

// Gives every node of `nodes` the path and parent its place in the tree implies.
void repath(std::vector<UsdPrimNode>& nodes, const std::string& parent) {
  for (UsdPrimNode& node : nodes) {
    node.parent = parent;
    node.path = (parent == "/" ? "" : parent) + "/" + node.name;
    repath(node.children, node.path);
  }
}

UsdPrimNode makeNode(const std::string& name, const std::string& type) {
  UsdPrimNode node;
  node.name = name;
  node.typeName = type;
  return node;
}

// Every row of `model` with what it shows, one line each, in tree order; fetches all rows.
void dumpRows(HierarchyTreeModel& model, const QModelIndex& parent, QStringList& lines) {
  if (model.canFetchMore(parent))
    model.fetchMore(parent);
  for (int row = 0; row < model.rowCount(parent); ++row) {
    const QModelIndex index = model.index(row, 0, parent);
    lines << QStringLiteral("%1 %2 %3 [%4]")
                 .arg(index.data(HierarchyTreeModel::kPathRole).toString(),
                      model.index(row, 1, parent).data().toString(),
                      index.data(HierarchyTreeModel::kActiveRole).toBool() ? "on" : "off",
                      index.data(HierarchyTreeModel::kBadgesRole).toStringList().join(','));
    dumpRows(model, index, lines);
  }
}

QStringList allRows(HierarchyTreeModel& model) {
  QStringList lines;
  dumpRows(model, {}, lines);
  return lines;
}

// The rows of a model that saw `stage` first and nothing else.
QStringList freshRows(const StageInspection& stage) {
  HierarchyTreeModel fresh;
  fresh.setIndex(indexOf(stage));
  return allRows(fresh);
}

// Counts the row signals a model sends, and fails on a reset.
struct SignalCounts {
  explicit SignalCounts(HierarchyTreeModel& model)
      : inserted(&model, &QAbstractItemModel::rowsInserted),
        removed(&model, &QAbstractItemModel::rowsRemoved),
        moved(&model, &QAbstractItemModel::rowsMoved),
        changed(&model, &QAbstractItemModel::dataChanged),
        reset(&model, &QAbstractItemModel::modelReset),
        layout(&model, &QAbstractItemModel::layoutChanged) {}
  void clear() {
    for (QSignalSpy* spy : {&inserted, &removed, &moved, &changed, &reset, &layout})
      spy->clear();
  }
  QSignalSpy inserted, removed, moved, changed, reset, layout;
};

TEST(HierarchyTreeModelTest, HonoursTheItemModelContractAndFindsRowsByPath) {
  testing::testApplication();
  HierarchyTreeModel model;
  Tester tester(&model, Tester::FailureReportingMode::Fatal);
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

TEST(HierarchyTreeModelTest, BuildsRowsOnlyWhereAViewLooksAndLeavesUnchangedSubtreesAlone) {
  testing::testApplication();
  HierarchyTreeModel model;
  SignalCounts spies(model);
  const StageInspection before = editor::testing::makeTreeStage(40, 50, 5);
  model.setIndex(indexOf(before));
  EXPECT_EQ(model.rowCount(), 40);
  EXPECT_EQ(model.builtRowCount(), 40u) << "the roots only, until a view opens one";
  EXPECT_TRUE(model.hasChildren(model.index(3, 0)));
  EXPECT_EQ(model.rowCount(model.index(3, 0)), 0) << "not fetched yet";
  ASSERT_TRUE(model.canFetchMore(model.index(3, 0)));
  model.fetchMore(model.index(3, 0));
  EXPECT_EQ(model.rowCount(model.index(3, 0)), 50);
  const QPersistentModelIndex child7 = model.indexForPath("/Root3/Child7");
  EXPECT_EQ(model.builtRowCount(), 90u);

  // One prim deep below an open row changes; another under a closed root is added.
  StageInspection after = before;
  after.rootPrims[3].children[7].typeName = "Scope";
  after.rootPrims[3].children[8].children[2].typeName = "Capsule";
  after.rootPrims[30].children[1].children.push_back(makeNode("Extra", "Cone"));
  repath(after.rootPrims, "/");
  spies.clear();
  model.setIndex(indexOf(after));
  EXPECT_EQ(spies.reset.count(), 0);
  EXPECT_EQ(spies.layout.count(), 0);
  EXPECT_EQ(spies.inserted.count() + spies.removed.count() + spies.moved.count(), 0)
      << "no fetched list changed its rows";
  ASSERT_EQ(spies.changed.count(), 1) << "only the changed row that a view has seen";
  EXPECT_EQ(spies.changed.front().at(0).toModelIndex(), QModelIndex(child7));
  EXPECT_EQ(model.builtRowCount(), 90u) << "a patch builds no rows of its own";
  EXPECT_EQ(child7.data(Qt::DisplayRole).toString(), "Child7");
  EXPECT_EQ(child7.sibling(child7.row(), 1).data().toString(), "Scope");
  EXPECT_EQ(allRows(model), freshRows(after));
}

TEST(HierarchyTreeModelTest, StructuralEditsArriveAsRowSignalsThatKeepPersistentRows) {
  testing::testApplication();
  HierarchyTreeModel model;
  Tester tester(&model, Tester::FailureReportingMode::Fatal);
  SignalCounts spies(model);
  StageInspection stage = editor::testing::makeTreeStage(3, 4, 2);
  model.setIndex(indexOf(stage));
  const QPersistentModelIndex leaf = model.indexForPath("/Root1/Child2/Leaf1");
  const QPersistentModelIndex child3 = model.indexForPath("/Root1/Child3");
  ASSERT_TRUE(leaf.isValid() && child3.isValid());

  // The row signals of the patch alone; comparing the rows afterwards fetches more.
  struct {
    qsizetype inserted = 0, removed = 0, moved = 0;
  } patched;
  auto apply = [&] {
    repath(stage.rootPrims, "/");
    spies.clear();
    model.setIndex(indexOf(stage));
    EXPECT_EQ(spies.reset.count(), 0);
    patched = {spies.inserted.count(), spies.removed.count(), spies.moved.count()};
    EXPECT_EQ(allRows(model), freshRows(stage));
  };

  // A sibling moves to the front: one move, the rows stay what they were.
  auto& children = stage.rootPrims[1].children;
  std::rotate(children.begin(), children.begin() + 3, children.end());
  apply();
  EXPECT_EQ(patched.moved, 1);
  EXPECT_EQ(child3.row(), 0);
  EXPECT_EQ(model.pathForIndex(leaf), "/Root1/Child2/Leaf1");

  // A rename keeps the row and what hangs on it; the paths below follow.
  stage.rootPrims[1].children[3].name = "Renamed";  // Child2, now last
  apply();
  EXPECT_EQ(patched.inserted + patched.removed, 0);
  ASSERT_TRUE(leaf.isValid());
  EXPECT_EQ(model.pathForIndex(leaf), "/Root1/Renamed/Leaf1");
  EXPECT_EQ(leaf.data(Qt::ToolTipRole).toString(), "/Root1/Renamed/Leaf1");

  // A rename that also turns the type is a different prim: the old row goes.
  stage.rootPrims[1].children[3].name = "Other";
  stage.rootPrims[1].children[3].typeName = "Capsule";
  apply();
  EXPECT_EQ(patched.removed, 1);
  EXPECT_EQ(patched.inserted, 1);
  EXPECT_FALSE(leaf.isValid());

  // A long list turned around is one layout change, not a move per row.
  QItemSelectionModel selection(&model);
  auto& roots = stage.rootPrims;
  for (int extra = 0; extra < 60; ++extra)
    roots.push_back(makeNode("Extra" + std::to_string(extra), "Xform"));
  apply();
  const QPersistentModelIndex extra7 = model.indexForPath("/Extra7");
  selection.select(extra7, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
  std::reverse(roots.begin(), roots.end());
  apply();
  EXPECT_EQ(patched.moved, 0);
  EXPECT_EQ(spies.layout.count(), 1);
  EXPECT_EQ(model.pathForIndex(extra7), "/Extra7");
  EXPECT_EQ(extra7.row(), 52);
  EXPECT_TRUE(selection.isRowSelected(extra7.row(), {}));
  EXPECT_EQ(model.pathForIndex(child3), "/Root1/Child3") << "rows below follow their parent";
  roots.erase(roots.begin(), roots.begin() + 60);
  std::reverse(roots.begin(), roots.end());

  // Removing and adding whole branches, and a new stage that shares nothing.
  stage.rootPrims.erase(stage.rootPrims.begin());
  stage.rootPrims.push_back(makeNode("Late", "Xform"));
  stage.rootPrims.back().children.push_back(makeNode("Kid", "Cube"));
  apply();
  EXPECT_TRUE(child3.isValid());
  EXPECT_EQ(model.pathForIndex(child3), "/Root1/Child3");
  stage = editor::testing::makeTreeStage(2, 1, 1);
  stage.rootPrims[0].name = "Fresh";
  apply();
  EXPECT_FALSE(child3.isValid());
  model.setIndex(nullptr);
  EXPECT_EQ(model.rowCount(), 0);
  EXPECT_EQ(model.builtRowCount(), 0u);
}

// Random structural and data edits of a stage, each batch applied to the model.
class RandomStageEdits {
 public:
  explicit RandomStageEdits(unsigned seed) : random_(seed) {}

  void editOnce(StageInspection& stage) {
    std::vector<std::vector<UsdPrimNode>*> lists{&stage.rootPrims};
    collectLists(stage.rootPrims, lists);
    auto& list = *lists[pick(lists.size())];
    switch (pick(7)) {
      case 0:
      case 1: {  // insert, sometimes with a child
        UsdPrimNode added = makeNode("N" + std::to_string(next_++), pick(2) ? "Xform" : "Cube");
        if (pick(2))
          added.children.push_back(makeNode("N" + std::to_string(next_++), "Sphere"));
        list.insert(list.begin() + static_cast<long>(pick(list.size() + 1)), std::move(added));
        // Now and then a long list, so that shuffling it is one reorder rather than single moves.
        for (int more = pick(8) == 0 ? 40 : 0; more > 0; --more)
          list.push_back(makeNode("N" + std::to_string(next_++), "Cube"));
        break;
      }
      case 2:  // remove
        if (!list.empty())
          list.erase(list.begin() + static_cast<long>(pick(list.size())));
        break;
      case 3: {  // move a branch under another parent (or the same one)
        if (list.empty())
          break;
        const std::size_t from = pick(list.size());
        UsdPrimNode moved = std::move(list[from]);
        list.erase(list.begin() + static_cast<long>(from));
        std::vector<std::vector<UsdPrimNode>*> targets{&stage.rootPrims};
        collectLists(stage.rootPrims, targets);
        auto& target = *targets[pick(targets.size())];
        const bool taken = std::any_of(target.begin(), target.end(),
                                       [&](const UsdPrimNode& n) { return n.name == moved.name; });
        if (taken)
          moved.name = "N" + std::to_string(next_++);
        target.insert(target.begin() + static_cast<long>(pick(target.size() + 1)),
                      std::move(moved));
        break;
      }
      case 4:  // rename
        if (!list.empty())
          list[pick(list.size())].name = "N" + std::to_string(next_++);
        break;
      case 5: {  // reorder, the longest list every other time
        auto* longest = *std::max_element(lists.begin(), lists.end(), [](auto* left, auto* right) {
          return left->size() < right->size();
        });
        auto& shuffled = pick(2) ? list : *longest;
        std::shuffle(shuffled.begin(), shuffled.end(), random_);
        break;
      }
      case 6:  // what a row shows
        if (list.empty())
          break;
        UsdPrimNode& node = list[pick(list.size())];
        switch (pick(3)) {
          case 0:
            node.typeName = node.typeName == "Cube" ? "Mesh" : "Cube";
            break;
          case 1:
            node.active = !node.active;
            break;
          default:
            node.badges = node.badges.empty() ? std::vector<std::string>{"entity"}
                                              : std::vector<std::string>{};
        }
        break;
    }
    repath(stage.rootPrims, "/");
  }

  std::size_t pick(std::size_t count) {
    return count == 0 ? 0 : std::uniform_int_distribution<std::size_t>(0, count - 1)(random_);
  }

 private:
  static void collectLists(std::vector<UsdPrimNode>& nodes,
                           std::vector<std::vector<UsdPrimNode>*>& lists) {
    for (UsdPrimNode& node : nodes) {
      lists.push_back(&node.children);
      collectLists(node.children, lists);
    }
  }

  std::mt19937 random_;
  int next_ = 0;
};

bool stageHas(const std::vector<UsdPrimNode>& nodes, const std::string& path) {
  return std::any_of(nodes.begin(), nodes.end(), [&](const UsdPrimNode& node) {
    return node.path == path || stageHas(node.children, path);
  });
}

void collectPaths(const std::vector<UsdPrimNode>& nodes, std::vector<std::string>& paths) {
  for (const UsdPrimNode& node : nodes) {
    paths.push_back(node.path);
    collectPaths(node.children, paths);
  }
}

// A view on the model opens and selects rows at random; after each batch of edits the model must
// equal a freshly built one, and every row the view held whose prim is still there must still be
// open, selected or current as it was. Once with the contract checker (which fetches every row),
// once with rows fetched only where the view opened them.
// Adds to `reorders` how many long lists were reordered in one step.
void runRandomEdits(unsigned seed, bool checkContract, qsizetype& reorders) {
  testing::testApplication();
  RandomStageEdits edits(seed);
  StageInspection stage = editor::testing::makeTreeStage(3, 3, 2);
  HierarchyTreeModel model;
  std::unique_ptr<Tester> tester;
  if (checkContract)
    tester = std::make_unique<Tester>(&model, Tester::FailureReportingMode::Fatal);
  QTreeView view;
  view.setModel(&model);
  view.setSelectionMode(QAbstractItemView::ExtendedSelection);
  SignalCounts spies(model);
  model.setIndex(indexOf(stage));

  for (int step = 0; step < 60; ++step) {
    SCOPED_TRACE("seed " + std::to_string(seed) + " step " + std::to_string(step));
    // The user opens a few rows and selects a few.
    std::vector<std::string> paths;
    collectPaths(stage.rootPrims, paths);
    std::vector<std::string> opened;
    std::vector<std::string> selected;
    view.selectionModel()->clear();
    for (int pick = 0; pick < 3 && !paths.empty(); ++pick) {
      const std::string& path = paths[edits.pick(paths.size())];
      const QModelIndex row = model.indexForPath(path);
      ASSERT_TRUE(row.isValid()) << path;
      if (model.hasChildren(row)) {
        view.setExpanded(row, true);
        opened.push_back(path);
      }
      const std::string& chosen = paths[edits.pick(paths.size())];
      const QModelIndex chosenRow = model.indexForPath(chosen);
      view.selectionModel()->select(chosenRow,
                                    QItemSelectionModel::Select | QItemSelectionModel::Rows);
      view.selectionModel()->setCurrentIndex(chosenRow, QItemSelectionModel::NoUpdate);
      selected.push_back(chosen);
    }
    const std::string current = selected.empty() ? std::string() : selected.back();
    std::erase_if(opened, [&](const std::string& path) {
      return !view.isExpanded(model.indexForPath(path));
    });

    const std::size_t batch = 1 + edits.pick(3);
    for (std::size_t edit = 0; edit < batch; ++edit)
      edits.editOnce(stage);
    model.setIndex(indexOf(stage));
    ASSERT_EQ(spies.reset.count(), 0);

    for (const std::string& path : opened) {
      if (!stageHas(stage.rootPrims, path))
        continue;
      EXPECT_TRUE(view.isExpanded(model.indexForPath(path))) << path << " closed";
    }
    for (const std::string& path : selected) {
      if (!stageHas(stage.rootPrims, path))
        continue;
      const QModelIndex row = model.indexForPath(path);
      EXPECT_TRUE(view.selectionModel()->isRowSelected(row.row(), row.parent()))
          << path << " lost its selection";
    }
    if (!current.empty() && stageHas(stage.rootPrims, current)) {
      EXPECT_EQ(model.pathForIndex(view.selectionModel()->currentIndex()), current);
    }
    if (checkContract) {
      ASSERT_EQ(allRows(model), freshRows(stage));
    }
  }
  EXPECT_EQ(allRows(model), freshRows(stage));
  reorders += spies.layout.count();
}

TEST(HierarchyTreeModelTest, RandomEditsPatchToTheFreshTreeAndKeepTheViewsRows) {
  qsizetype reorders = 0;
  for (unsigned seed = 1; seed <= 6; ++seed)
    runRandomEdits(seed, true, reorders);
  EXPECT_GT(reorders, 0) << "the edits include reorders of long lists";
}

TEST(HierarchyTreeModelTest, RandomEditsOnPartlyFetchedRowsPatchToTheFreshTree) {
  qsizetype reorders = 0;
  for (unsigned seed = 11; seed <= 30; ++seed)
    runRandomEdits(seed, false, reorders);
  EXPECT_GT(reorders, 0) << "the edits include reorders of long lists";
}

}  // namespace
}  // namespace orvan::ui
