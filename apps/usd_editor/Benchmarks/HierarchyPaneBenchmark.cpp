// The main thread's part of showing a new 100,000-prim stage in the hierarchy pane: the index is
// built beforehand (as the refresh does off the main thread), so what is measured is bringing the
// tree model up to date, keeping the expanded rows and the selection, and the view's next layout.
// Each run alternates between two stages, so every iteration is one real change.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <string>

#include <QApplication>
#include <QTreeView>

#include "Application/EditorModel.h"
#include "Foundation/EventLoop.h"
#include "Foundation/ThreadPool.h"
#include "Hierarchy/HierarchyPane.h"
#include "Platform/CurlHttpClient.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "Presentation/PreparedStage.h"

namespace orvan::editor::benchmarks {
namespace {

UsdPrimNode node(const std::string& parent, const std::string& name, const char* type) {
  UsdPrimNode result;
  result.parent = parent;
  result.path = (parent == "/" ? "" : parent) + "/" + name;
  result.name = name;
  result.typeName = type;
  return result;
}

// `roots` roots of `children` children of `grandchildren` prims each.
StageInspection makeTreeStage(int roots, int children, int grandchildren, const std::string& tag) {
  StageInspection stage;
  stage.sceneUri = "/bench/" + tag + ".usda";
  for (int r = 0; r < roots; ++r) {
    UsdPrimNode root = node("/", "Root" + std::to_string(r), "Xform");
    for (int c = 0; c < children; ++c) {
      UsdPrimNode child = node(root.path, "Child" + std::to_string(c), "Xform");
      for (int g = 0; g < grandchildren; ++g) {
        child.children.push_back(node(child.path, "Mesh" + std::to_string(g), "Mesh"));
      }
      root.children.push_back(std::move(child));
    }
    stage.rootPrims.push_back(std::move(root));
  }
  return stage;
}

std::shared_ptr<const PreparedStage> makeStage(int roots, int children, int grandchildren,
                                               const std::string& tag) {
  return PreparedStage::prepare(makeTreeStage(roots, children, grandchildren, tag));
}

QApplication& application() {
  static int argc = 1;
  static char name[] = "HierarchyPaneBenchmark";
  static char* argv[] = {name, nullptr};
  static QApplication* instance = [] {
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    return new QApplication(argc, argv);
  }();
  return *instance;
}

// The editor with a hierarchy pane on screen, its 100 roots open and two rows selected.
class PaneFixture {
 public:
  PaneFixture()
      : http_(main_),
        model_(configuration(), {main_, background_, preferences_, secrets_, processes_, http_}),
        pane_(model_) {
    pane_.resize(260, 900);
    pane_.show();
  }

  void show(const std::shared_ptr<const PreparedStage>& stage) {
    model_.clientDocument.publish(EditorClientDocumentState::makeSnapshot(stage, {}), true, false);
    QCoreApplication::processEvents();
  }

  void openRootsAndSelect() {
    pane_.expandToDepth(0);  // the 100 roots open
    model_.documents.selectPrims("/Root3/Child7/Mesh2", {"/Root3/Child7/Mesh2", "/Root50/Child1"});
    QCoreApplication::processEvents();
  }

  // Alternates between the documents of `first` and `second`, one publish per iteration.
  void alternate(benchmark::State& state, const std::shared_ptr<const PreparedStage>& first,
                 const std::shared_ptr<const PreparedStage>& second) {
    const auto firstDocument = EditorClientDocumentState::makeSnapshot(first, {});
    const auto secondDocument = EditorClientDocumentState::makeSnapshot(second, {});
    model_.clientDocument.publish(firstDocument, true, false);
    openRootsAndSelect();
    bool useSecond = true;
    for (auto _ : state) {
      model_.clientDocument.publish(useSecond ? secondDocument : firstDocument, true, false);
      QCoreApplication::processEvents();  // the view's relayout belongs to the change
      useSecond = !useSecond;
    }
    state.counters["prims"] = static_cast<double>(first->hierarchy->entryCount() - 1);
    state.counters["expandedRows"] = 100;
  }

  // No change at all: the view lays out its open rows again, as it does after rows arrive under an
  // open row. This is the floor of that case; the model has no part in it beyond answering.
  void relayout(benchmark::State& state, const std::shared_ptr<const PreparedStage>& stage) {
    model_.clientDocument.publish(EditorClientDocumentState::makeSnapshot(stage, {}), true, false);
    openRootsAndSelect();
    for (auto _ : state) {
      pane_.view().doItemsLayout();
      QCoreApplication::processEvents();
    }
    state.counters["prims"] = static_cast<double>(stage->hierarchy->entryCount() - 1);
    state.counters["expandedRows"] = 100;
  }

 private:
  static EditorConfiguration configuration() {
    EditorConfiguration result;
    result.projectServerURL = "";
    return result;
  }

  EventLoop main_;
  ThreadPool background_{1};
  InMemoryPreferencesStore preferences_;
  InMemorySecretStore secrets_;
  PosixProcessLauncher processes_;
  CurlHttpClient http_;
  EditorModel model_;
  ui::HierarchyPane pane_;
};

// Two stages of 100,100 prims with the same paths and contents (a refresh that changed nothing the
// tree shows).
void BM_ApplyStageToHierarchyPane(benchmark::State& state) {
  application();
  PaneFixture fixture;
  fixture.alternate(state, makeStage(100, 100, 9, "first"), makeStage(100, 100, 9, "second"));
}
BENCHMARK(BM_ApplyStageToHierarchyPane)->Unit(benchmark::kMillisecond);

// One prim of a visible row changes its type: one row's data.
void BM_HierarchyPaneOnePrimDataChange(benchmark::State& state) {
  application();
  PaneFixture fixture;
  StageInspection changed = makeTreeStage(100, 100, 9, "changed");
  changed.rootPrims[3].children[7].typeName = "Scope";
  fixture.alternate(state, makeStage(100, 100, 9, "first"),
                    PreparedStage::prepare(std::move(changed)));
}
BENCHMARK(BM_HierarchyPaneOnePrimDataChange)->Unit(benchmark::kMillisecond);

// One prim is added among the visible children of an open root (and taken away again): the view
// lays out its open rows again.
void BM_HierarchyPaneOnePrimInsertInOpenRow(benchmark::State& state) {
  application();
  PaneFixture fixture;
  StageInspection added = makeTreeStage(100, 100, 9, "added");
  auto& siblings = added.rootPrims[3].children;
  siblings.insert(siblings.begin() + 50, node("/Root3", "Child49b", "Xform"));
  fixture.alternate(state, makeStage(100, 100, 9, "first"),
                    PreparedStage::prepare(std::move(added)));
}
BENCHMARK(BM_HierarchyPaneOnePrimInsertInOpenRow)->Unit(benchmark::kMillisecond);

// One prim is added under a closed row.
void BM_HierarchyPaneOnePrimInsertInClosedRow(benchmark::State& state) {
  application();
  PaneFixture fixture;
  StageInspection added = makeTreeStage(100, 100, 9, "added");
  auto& siblings = added.rootPrims[3].children[8].children;
  siblings.insert(siblings.begin() + 4, node("/Root3/Child8", "Mesh3b", "Mesh"));
  fixture.alternate(state, makeStage(100, 100, 9, "first"),
                    PreparedStage::prepare(std::move(added)));
}
BENCHMARK(BM_HierarchyPaneOnePrimInsertInClosedRow)->Unit(benchmark::kMillisecond);

void BM_HierarchyViewRelayoutOfOpenRows(benchmark::State& state) {
  application();
  PaneFixture fixture;
  fixture.relayout(state, makeStage(100, 100, 9, "first"));
}
BENCHMARK(BM_HierarchyViewRelayoutOfOpenRows)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace orvan::editor::benchmarks

BENCHMARK_MAIN();
