// The inspector on a 110,101-prim stage with 100 selected entities: a scrub drag of 1,000 updates
// on one number property through the pane's own label (the pane's refreshes, the drafts, the
// previews and the debounce on the main thread; time moves 8 ms per update, with a 50 ms pause
// after every 100 updates), and the main thread's work for a change of the 100-entity selection
// (the snapshot and laying out the pane). The edit helper's exchange never runs; what the queue
// receives is counted and taken away as if the helper had sent it.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include <QApplication>
#include <QLabel>
#include <QMouseEvent>

#include <spdlog/spdlog.h>

#include "Application/EditorModel.h"
#include "Inspector/InspectorPane.h"
#include "Inspector/PropertyEditors.h"
#include "Platform/CurlHttpClient.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "Presentation/PreparedStage.h"

namespace orvan::editor::benchmarks {
namespace {

using namespace std::chrono_literals;

// The main thread and the background on one thread, with a clock that moves only when told.
class VirtualExecutor final : public MainExecutor, public BackgroundExecutor {
 public:
  void post(Closure closure) override { ready_.push_back(std::move(closure)); }
  TaskHandle postAfter(Duration delay, Closure closure) override {
    TaskHandle handle = TaskHandle::make();
    timers_.push_back({now_ + std::max(delay, Duration::zero()), handle, std::move(closure)});
    return handle;
  }
  TimePoint now() const override { return now_; }
  bool isMainThread() const override { return true; }

  void runReady() {
    while (!ready_.empty()) {
      Closure next = std::move(ready_.front());
      ready_.pop_front();
      next();
    }
  }
  // Moves the clock on, running every timer that comes due on the way, in order.
  void advance(Duration by) {
    const TimePoint until = now_ + by;
    for (;;) {
      runReady();
      auto due = std::min_element(timers_.begin(), timers_.end(),
                                  [](const Timer& a, const Timer& b) { return a.due < b.due; });
      if (due == timers_.end() || due->due > until)
        break;
      Timer timer = std::move(*due);
      timers_.erase(due);
      now_ = std::max(now_, timer.due);
      if (!timer.handle.isCancelled())
        timer.closure();
    }
    now_ = until;
    runReady();
  }

 private:
  struct Timer {
    TimePoint due;
    TaskHandle handle;
    Closure closure;
  };
  std::deque<Closure> ready_;
  std::vector<Timer> timers_;
  TimePoint now_ = Clock::now();
};

// Never runs what it is given: the edit helper's exchange stays out of the measurement.
class Discarding final : public BackgroundExecutor {
 public:
  void post(Closure) override {}
};

ComponentProperty numberProperty(const std::string& name, const std::string& value) {
  ComponentProperty property;
  property.name = name;
  property.kind = "number";
  property.value = value;
  property.min = 0;
  property.max = 1000;
  property.step = 0.01;
  property.unit = "m";
  return property;
}

ComponentProperty vectorProperty(const std::string& name) {
  ComponentProperty property;
  property.name = name;
  property.kind = "vector3";
  property.value = "0,0,0";
  return property;
}

UsdComponent transform() {
  UsdComponent component;
  component.type = "Transform";
  component.properties = {vectorProperty("translation"), vectorProperty("rotation"),
                          vectorProperty("scale")};
  return component;
}

UsdComponent renderShape(int index) {
  UsdComponent component;
  component.type = "RenderShape";
  ComponentProperty color;
  color.name = "color";
  color.kind = "color";
  color.value = index % 2 ? "1,0,0" : "0,1,0";
  ComponentProperty shadows;
  shadows.name = "castShadows";
  shadows.kind = "bool";
  shadows.value = "true";
  ComponentProperty mode;
  mode.name = "mode";
  mode.kind = "string";
  mode.value = "solid";
  mode.options = {{"solid", "Solid"}, {"wire", "Wireframe"}};
  component.properties = {color, vectorProperty("dimensions"), numberProperty("radius", "0.5"),
                          shadows, mode};
  return component;
}

void addPrim(StageInspection& stage, UsdPrimNode& node, const std::string& parent,
             const std::string& name, std::vector<UsdComponent> components) {
  node.parent = parent;
  node.path = (parent == "/" ? "" : parent) + "/" + name;
  node.name = name;
  node.typeName = "Xform";
  UsdPrimDetail prim;
  prim.path = node.path;
  prim.name = name;
  prim.parent = parent;
  prim.typeName = "Xform";
  prim.entityPath = node.path;
  prim.components = std::move(components);
  stage.prims.push_back(std::move(prim));
}

// /World with 100 groups of 100 children (each a shape) of 10 leaves: 110,101 prims.
StageInspection largeStage() {
  StageInspection stage;
  stage.sceneUri = "/bench/inspector.usda";
  stage.catalog = {transform(), renderShape(0)};
  UsdComponent light;
  light.type = "Light";
  light.properties = {numberProperty("intensity", "1")};
  stage.catalog.push_back(light);
  UsdPrimNode world;
  addPrim(stage, world, "/", "World", {transform()});
  for (int g = 0; g < 100; ++g) {
    UsdPrimNode group;
    addPrim(stage, group, world.path, "Group" + std::to_string(g), {transform()});
    for (int c = 0; c < 100; ++c) {
      UsdPrimNode child;
      addPrim(stage, child, group.path, "Child" + std::to_string(c), {transform(), renderShape(c)});
      for (int l = 0; l < 10; ++l) {
        UsdPrimNode leaf;
        addPrim(stage, leaf, child.path, "Leaf" + std::to_string(l), {transform()});
        child.children.push_back(std::move(leaf));
      }
      group.children.push_back(std::move(child));
    }
    world.children.push_back(std::move(group));
  }
  stage.rootPrims.push_back(std::move(world));
  return stage;
}

std::vector<std::string> hundredChildren(int group) {
  std::vector<std::string> paths;
  for (int c = 0; c < 100; ++c)
    paths.push_back("/World/Group" + std::to_string(group) + "/Child" + std::to_string(c));
  return paths;
}

QApplication& application() {
  static int argc = 1;
  static char name[] = "InspectorPaneBenchmark";
  static char* argv[] = {name, nullptr};
  static QApplication* instance = [] {
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    return new QApplication(argc, argv);
  }();
  return *instance;
}

const std::shared_ptr<const PreparedStage>& sharedStage() {
  static const std::shared_ptr<const PreparedStage> stage = PreparedStage::prepare(largeStage());
  return stage;
}

class InspectorFixture {
 public:
  InspectorFixture()
      : http_(executor_),
        model_(configuration(), ports()),
        pane_((model_.stageRefresher.storeStage(sharedStage()), model_)) {
    executor_.advance(0ms);
    pane_.resize(360, 900);
    pane_.show();
    settle();
  }

  void settle() {
    for (int round = 0; round < 3; ++round) {
      executor_.advance(0ms);
      QCoreApplication::processEvents();
    }
  }
  void select(const std::vector<std::string>& paths) {
    model_.documents.selectPrims(paths.front(), paths);
    settle();
  }
  // What the queue took since the last call; the queue is emptied as if the helper had sent it.
  std::size_t takeOperations() {
    OperationQueueState& queue = model_.operations.state;
    std::size_t count = queue.pendingOperations.size() + (queue.inFlightOperation ? 1 : 0);
    queue.pendingOperations.clear();
    queue.inFlightOperation.reset();
    queue.submitInFlight = false;
    return count;
  }
  QLabel* nameLabel(const QString& name) {
    for (QLabel* label : pane_.findChildren<QLabel*>("PropertyName")) {
      if (label->property("plainName") == name)
        return label;
    }
    return nullptr;
  }
  static void mouse(QWidget* target, QEvent::Type kind, double x) {
    const QPointF local(x, 4);
    const Qt::MouseButton button = kind == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    const Qt::MouseButtons held =
        kind == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::MouseButtons(Qt::LeftButton);
    QMouseEvent event(kind, local, target->mapToGlobal(local), button, held, Qt::NoModifier);
    QCoreApplication::sendEvent(target, &event);
  }

  VirtualExecutor executor_;
  ui::InspectorPane& pane() { return pane_; }
  EditorModel& model() { return model_; }

 private:
  static EditorConfiguration configuration() {
    EditorConfiguration result;
    result.projectServerURL = "";
    return result;
  }
  EditorModelPorts ports() {
    EditorModelPorts result{executor_, executor_, preferences_, secrets_, processes_, http_};
    result.helperExchanges = &exchanges_;
    return result;
  }

  Discarding exchanges_;
  InMemoryPreferencesStore preferences_;
  InMemorySecretStore secrets_;
  PosixProcessLauncher processes_;
  CurlHttpClient http_;
  EditorModel model_;
  ui::InspectorPane pane_;
};

// One iteration is one update of the drag: a mouse move on the "radius" label, the pane's refresh
// and 8 ms of the clock; after every 100th update the hand rests 50 ms.
void BM_InspectorScrubDragOnHundredEntities(benchmark::State& state) {
  spdlog::set_level(spdlog::level::warn);
  application();
  InspectorFixture fixture;
  fixture.select(hundredChildren(3));
  QLabel* label = fixture.nameLabel("radius");
  if (!label || fixture.model().session.inspector.get().sceneSnapshot.entityPaths.size() != 100) {
    state.SkipWithError("the inspector does not show the 100 entities");
    return;
  }
  const int layouts = fixture.pane().layoutCount();
  InspectorFixture::mouse(label, QEvent::MouseButtonPress, 0);
  int update = 0;
  std::size_t operations = 0;
  std::size_t commitsAfterPauses = 0;
  std::size_t operationsBetweenPauses = 0;
  int pauses = 0;
  for (auto _ : state) {
    ++update;
    InspectorFixture::mouse(label, QEvent::MouseMove, update);
    QCoreApplication::processEvents();
    fixture.executor_.advance(8ms);
    state.PauseTiming();
    operationsBetweenPauses += fixture.takeOperations();
    state.ResumeTiming();
    if (update % 100 == 0) {
      fixture.executor_.advance(50ms);
      QCoreApplication::processEvents();
      state.PauseTiming();
      ++pauses;
      const std::size_t taken = fixture.takeOperations();
      operations += taken;
      commitsAfterPauses += taken > 0 ? 1 : 0;
      state.ResumeTiming();
    }
  }
  InspectorFixture::mouse(label, QEvent::MouseButtonRelease, update);
  fixture.settle();
  const std::size_t atRelease = fixture.takeOperations();
  operations += operationsBetweenPauses + atRelease;
  state.counters["entities"] = 100;
  state.counters["prims"] = static_cast<double>(sharedStage()->stage().prims.size());
  state.counters["pauses"] = pauses;
  state.counters["commitsAfterPauses"] = static_cast<double>(commitsAfterPauses);
  state.counters["opsBetweenPauses"] = static_cast<double>(operationsBetweenPauses);
  state.counters["opsAtRelease"] = static_cast<double>(atRelease);
  state.counters["opsSent"] = static_cast<double>(operations);
  state.counters["relayouts"] = fixture.pane().layoutCount() - layouts;
}
BENCHMARK(BM_InspectorScrubDragOnHundredEntities)->Unit(benchmark::kMillisecond)->Iterations(1000);

// A new selection of 100 entities, alternating between two groups: the snapshot and the pane's new
// layout, until the editors show the values.
void BM_InspectorSelectionChangeHundredEntities(benchmark::State& state) {
  spdlog::set_level(spdlog::level::warn);
  application();
  InspectorFixture fixture;
  const std::vector<std::string> first = hundredChildren(5);
  const std::vector<std::string> second = hundredChildren(6);
  fixture.select(first);
  bool useSecond = true;
  for (auto _ : state) {
    fixture.select(useSecond ? second : first);
    useSecond = !useSecond;
  }
  if (fixture.model().session.inspector.get().sceneSnapshot.entityPaths.size() != 100)
    state.SkipWithError("the inspector does not show the 100 entities");
  state.counters["entities"] = 100;
  state.counters["editors"] = static_cast<double>(
      fixture.pane().findChildren<ui::PropertyEditor*>("PropertyEditor").size());
}
BENCHMARK(BM_InspectorSelectionChangeHundredEntities)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace orvan::editor::benchmarks

BENCHMARK_MAIN();
