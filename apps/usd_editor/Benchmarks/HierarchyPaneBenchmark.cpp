// The main thread's part of showing a new 100,000-prim stage in the hierarchy pane: the index is
// built beforehand (as the refresh does off the main thread), so what is measured is the swap into
// the tree model, restoring the expanded rows and the selection, and the view's next layout.

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
std::shared_ptr<const PreparedStage> makeStage(int roots, int children, int grandchildren,
                                               const std::string& tag) {
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
  return PreparedStage::prepare(std::move(stage));
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

void BM_ApplyStageToHierarchyPane(benchmark::State& state) {
  application();
  EventLoop main;
  ThreadPool background(1);
  InMemoryPreferencesStore preferences;
  InMemorySecretStore secrets;
  PosixProcessLauncher processes;
  CurlHttpClient http(main);
  EditorConfiguration configuration;
  configuration.projectServerURL = "";
  EditorModel model(configuration, {main, background, preferences, secrets, processes, http});
  ui::HierarchyPane pane(model);
  pane.resize(260, 900);
  pane.show();

  // Two stages of 100,100 prims that share their paths, so expansion and selection carry over.
  const auto first = makeStage(100, 100, 9, "first");
  const auto second = makeStage(100, 100, 9, "second");
  const auto firstDocument = EditorClientDocumentState::makeSnapshot(first, {});
  const auto secondDocument = EditorClientDocumentState::makeSnapshot(second, {});
  model.clientDocument.publish(firstDocument, true, false);
  pane.expandToDepth(0);  // the 100 roots open
  model.documents.selectPrims("/Root3/Child7/Mesh2", {"/Root3/Child7/Mesh2", "/Root50/Child1"});
  QCoreApplication::processEvents();

  bool useSecond = true;
  for (auto _ : state) {
    model.clientDocument.publish(useSecond ? secondDocument : firstDocument, true, false);
    QCoreApplication::processEvents();  // the view's relayout belongs to the swap
    useSecond = !useSecond;
  }
  state.counters["prims"] = static_cast<double>(first->hierarchy->entryCount() - 1);
  state.counters["expandedRows"] = 100;
}
BENCHMARK(BM_ApplyStageToHierarchyPane)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace orvan::editor::benchmarks

BENCHMARK_MAIN();
