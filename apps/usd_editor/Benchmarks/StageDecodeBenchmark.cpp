// Decoding a stage response into records, against simdjson parsing the same bytes without
// building records: a DOM parse, and an on-demand walk that reads every key and value.

#include <benchmark/benchmark.h>

#include <malloc.h>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include <simdjson.h>
#include <spdlog/spdlog.h>

#include "Application/EditorModel.h"
#include "Foundation/EventLoop.h"
#include "Foundation/ThreadPool.h"
#include "Platform/CurlHttpClient.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "Presentation/PreparedStage.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonEncoder.h"
#include "orvan/wire/records/StageInspection.h"
#include "orvan/wire/records/StageNormalization.h"

namespace orvan::editor::benchmarks {
namespace {

using Component = UsdComponent;
using PrimDetail = UsdPrimDetail;
using PrimNode = UsdPrimNode;
using Asset = UsdAsset;

Component makeTransform(int index) {
  Component component{"Transform", std::nullopt, true, {}};
  for (const char* axis : {"position", "rotation", "scale"}) {
    ComponentProperty property;
    property.name = axis;
    property.kind = "vector3";
    property.value = std::to_string(index % 97) + " " + std::to_string(index % 13) + " 0.5";
    property.step = 0.1;
    property.unit = "m";
    component.properties.push_back(property);
  }
  return component;
}

Component makeScript(int index) {
  Component component{"Script", "Behaviour", index % 3 != 0, {}};
  ComponentProperty mode;
  mode.name = "mode";
  mode.kind = "enum";
  mode.value = "loop";
  mode.control = "picker";
  mode.options = {{"loop", "Loop"}, {"once", "Once"}, {"pingPong", "Ping pong"}};
  ComponentProperty speed;
  speed.name = "speed";
  speed.kind = "float";
  speed.value = "1.25";
  speed.min = 0.0;
  speed.max = 10.0;
  speed.overridden = index % 5 == 0;
  speed.overrideLayer = speed.overridden ? "layers/session.usda" : "";
  component.properties = {mode, speed};
  return component;
}

PrimDetail makeDetail(const std::string& path, const std::string& name, const std::string& parent,
                      const char* typeName, int index) {
  PrimDetail detail;
  detail.path = path;
  detail.name = name;
  detail.typeName = typeName;
  detail.parent = parent;
  detail.active = index % 17 != 0;
  detail.defined = true;
  detail.badges =
      index % 7 == 0 ? std::vector<std::string>{"entity", "payload"} : std::vector<std::string>{};
  detail.entityPath = path;
  detail.entityId = 0x8000000000000000ull + static_cast<std::uint64_t>(index);
  detail.components = {makeTransform(index), makeScript(index)};
  detail.attributes = {
      {"xformOp:translate", "double3", "(1.5, 2, -3.25)", false, false, "", ""},
      {"visibility", "token", "inherited", false, false, "", ""},
      {"purpose", "token", "default", index % 4 == 0, false, "", ""},
      {"extent", "float3[]", "[(-1, -1, -1), (1, 1, 1)]", false, false, "", ""},
  };
  // Every hundredth prim is engine bookkeeping that normalisation removes.
  if (index % 100 == 99)
    detail.path += "/OrvanComponents";
  return detail;
}

PrimNode makeNode(const PrimDetail& detail) {
  PrimNode node;
  node.path = detail.path;
  node.name = detail.name;
  node.typeName = detail.typeName;
  node.parent = detail.parent;
  node.active = detail.active;
  node.defined = detail.defined;
  node.badges = detail.badges;
  return node;
}

// A stage of `primCount` prims: /World holding groups of 50 meshes each.
std::string makeStageDocument(int primCount) {
  constexpr int kGroupSize = 50;
  RemoteStageResponse response;
  response.revision = 18446744073709551615ull;
  StageInspection& stage = response.stage;
  stage.sceneUri = "projects/demo/scenes/main.usda";
  for (int layer = 0; layer < 4; ++layer) {
    stage.layers.push_back({"layers/layer" + std::to_string(layer) + ".usda",
                            "layer" + std::to_string(layer), "/srv/layers/layer.usda", layer,
                            layer == 0, false, true, std::nullopt});
  }
  int index = 0;
  stage.prims.push_back(makeDetail("/World", "World", "/", "Xform", index++));
  PrimNode world = makeNode(stage.prims.back());
  PrimNode* group = nullptr;
  std::string groupPath;
  while (index < primCount) {
    if (group == nullptr || static_cast<int>(group->children.size()) == kGroupSize) {
      const std::string name = "Group_" + std::to_string(index);
      groupPath = "/World/" + name;
      stage.prims.push_back(makeDetail(groupPath, name, "/World", "Xform", index++));
      world.children.push_back(makeNode(stage.prims.back()));
      group = &world.children.back();
      continue;
    }
    const std::string name = "Mesh_" + std::to_string(index);
    stage.prims.push_back(makeDetail(groupPath + "/" + name, name, groupPath, "Mesh", index++));
    group->children.push_back(makeNode(stage.prims.back()));
  }
  stage.rootPrims.push_back(std::move(world));
  stage.catalog = {makeTransform(0), makeScript(1)};
  for (int asset = 0; asset < 20; ++asset) {
    Asset item;
    item.id = static_cast<std::uint64_t>(asset) + 1;
    item.name = "Material_" + std::to_string(asset);
    item.kind = "material";
    item.source = "scene";
    item.baseColor = {0.2, 0.4, 0.6, 1.0};
    item.roughness = 0.35;
    item.boundsCenter = {0, 0.5, 0};
    item.boundsDimensions = {1, 1, 1};
    stage.assets.push_back(item);
  }
  return encodeJson(response);
}

const simdjson::padded_string& stageDocument(int primCount) {
  static std::map<int, std::unique_ptr<simdjson::padded_string>> documents;
  auto& slot = documents[primCount];
  if (!slot) {
    slot = std::make_unique<simdjson::padded_string>(makeStageDocument(primCount));
  }
  return *slot;
}

// Bytes handed out by malloc and not yet freed, in every arena and in mapped blocks.
double heapInUseMB() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd) / 1e6;
}

void reportBytes(benchmark::State& state, const simdjson::padded_string& document) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(document.size()));
  state.counters["documentMB"] = static_cast<double>(document.size()) / 1e6;
}

void BM_DecodeStageIntoRecords(benchmark::State& state) {
  const simdjson::padded_string& document = stageDocument(static_cast<int>(state.range(0)));
  JsonDecoder decoder;
  if (!decoder.decode<RemoteStageResponse>(document).ok()) {  // sizes the parser's buffers
    state.SkipWithError("decode failed");
    return;
  }
  double heldMB = 0;
  for (auto _ : state) {
    const double before = heapInUseMB();
    Result<RemoteStageResponse> response = decoder.decode<RemoteStageResponse>(document);
    if (!response.ok()) {
      state.SkipWithError(response.error().description.c_str());
      return;
    }
    benchmark::DoNotOptimize(response);
    // The records are freed outside the measurement: the DOM parse reuses its buffers, and the
    // editor frees a stage only when the next one has replaced it.
    state.PauseTiming();
    heldMB = heapInUseMB() - before;
    response = Error{};
    state.ResumeTiming();
  }
  reportBytes(state, document);
  state.counters["heldMB"] = heldMB;
}

// The same, with the records freed inside the measurement.
void BM_DecodeAndFreeStageRecords(benchmark::State& state) {
  const simdjson::padded_string& document = stageDocument(static_cast<int>(state.range(0)));
  JsonDecoder decoder;
  if (!decoder.decode<RemoteStageResponse>(document).ok()) {
    state.SkipWithError("decode failed");
    return;
  }
  for (auto _ : state) {
    Result<RemoteStageResponse> response = decoder.decode<RemoteStageResponse>(document);
    if (!response.ok()) {
      state.SkipWithError(response.error().description.c_str());
      return;
    }
    benchmark::DoNotOptimize(response);
  }
  reportBytes(state, document);
}

// Building the same records by copying decoded ones: the allocations and stores that any decoder
// into these records makes, without reading JSON. Freeing is left out, as in the decode above.
void BM_CopyStageRecords(benchmark::State& state) {
  const simdjson::padded_string& document = stageDocument(static_cast<int>(state.range(0)));
  const RemoteStageResponse decoded = JsonDecoder().decode<RemoteStageResponse>(document).value();
  for (auto _ : state) {
    auto copy = std::make_unique<RemoteStageResponse>(decoded);
    benchmark::DoNotOptimize(copy);
    state.PauseTiming();
    copy.reset();
    state.ResumeTiming();
  }
  reportBytes(state, document);
}

void BM_SimdjsonDomParse(benchmark::State& state) {
  const simdjson::padded_string& document = stageDocument(static_cast<int>(state.range(0)));
  simdjson::dom::parser parser;
  simdjson::dom::element warmUp;
  if (parser.parse(document).get(warmUp) != simdjson::SUCCESS) {  // touches the parser's buffers
    state.SkipWithError("parse failed");
    return;
  }
  for (auto _ : state) {
    simdjson::dom::element root;
    if (parser.parse(document).get(root) != simdjson::SUCCESS) {
      state.SkipWithError("parse failed");
      return;
    }
    benchmark::DoNotOptimize(root);
  }
  reportBytes(state, document);
}

// Reads every key and scalar, so that nothing is skipped unparsed.
bool walk(simdjson::ondemand::value value, std::uint64_t& checksum) {
  simdjson::ondemand::json_type type;
  if (value.type().get(type) != simdjson::SUCCESS) {
    return false;
  }
  switch (type) {
    case simdjson::ondemand::json_type::object: {
      simdjson::ondemand::object object;
      if (value.get_object().get(object) != simdjson::SUCCESS) {
        return false;
      }
      for (auto field : object) {
        std::string_view key;
        if (field.unescaped_key().get(key) != simdjson::SUCCESS) {
          return false;
        }
        checksum += key.size();
        if (!walk(field.value(), checksum)) {
          return false;
        }
      }
      return true;
    }
    case simdjson::ondemand::json_type::array: {
      simdjson::ondemand::array array;
      if (value.get_array().get(array) != simdjson::SUCCESS) {
        return false;
      }
      for (auto element : array) {
        simdjson::ondemand::value child;
        if (element.get(child) != simdjson::SUCCESS || !walk(child, checksum)) {
          return false;
        }
      }
      return true;
    }
    case simdjson::ondemand::json_type::string: {
      std::string_view text;
      if (value.get_string().get(text) != simdjson::SUCCESS) {
        return false;
      }
      checksum += text.size();
      return true;
    }
    case simdjson::ondemand::json_type::number: {
      simdjson::ondemand::number number;
      if (value.get_number().get(number) != simdjson::SUCCESS) {
        return false;
      }
      checksum += static_cast<std::uint64_t>(number.get_number_type());
      return true;
    }
    case simdjson::ondemand::json_type::boolean: {
      bool flag = false;
      if (value.get_bool().get(flag) != simdjson::SUCCESS) {
        return false;
      }
      checksum += flag;
      return true;
    }
    case simdjson::ondemand::json_type::null:
      return value.is_null().value_unsafe();
  }
  return false;
}

bool walkDocument(simdjson::ondemand::parser& parser, const simdjson::padded_string& document,
                  std::uint64_t& checksum) {
  simdjson::ondemand::document root;
  simdjson::ondemand::value value;
  return parser.iterate(document).get(root) == simdjson::SUCCESS &&
         root.get_value().get(value) == simdjson::SUCCESS && walk(value, checksum);
}

void BM_SimdjsonOnDemandFullWalk(benchmark::State& state) {
  const simdjson::padded_string& document = stageDocument(static_cast<int>(state.range(0)));
  simdjson::ondemand::parser parser;
  std::uint64_t warmUp = 0;
  if (!walkDocument(parser, document, warmUp)) {  // touches the parser's buffers
    state.SkipWithError("walk failed");
    return;
  }
  for (auto _ : state) {
    std::uint64_t checksum = 0;
    if (!walkDocument(parser, document, checksum)) {
      state.SkipWithError("walk failed");
      return;
    }
    benchmark::DoNotOptimize(checksum);
  }
  reportBytes(state, document);
}

void BM_EncodeStageRecords(benchmark::State& state) {
  const simdjson::padded_string& document = stageDocument(static_cast<int>(state.range(0)));
  const RemoteStageResponse response = JsonDecoder().decode<RemoteStageResponse>(document).value();
  for (auto _ : state) {
    std::string encoded = encodeJson(response);
    benchmark::DoNotOptimize(encoded);
  }
  reportBytes(state, document);
}

// What a refresh does off the main thread: decode, normalise, and build the indexes that the
// hierarchy and the inspector read. Warm: each pass reuses the memory the last one freed. Cold:
// the freed memory goes back to the system between passes, so every page is touched afresh, as
// when the allocator has returned the previous stage's memory.
void decodeNormaliseAndPrepare(benchmark::State& state, bool cold) {
  const simdjson::padded_string& document = stageDocument(static_cast<int>(state.range(0)));
  JsonDecoder decoder;
  auto prepare = [&]() -> std::shared_ptr<const PreparedStage> {
    Result<RemoteStageResponse> response = decoder.decode<RemoteStageResponse>(document);
    if (!response.ok())
      return nullptr;
    return PreparedStage::prepare(normalizedAuthoringStage(std::move(response->stage)));
  };
  if (!prepare()) {  // sizes the parser's buffers and leaves freed memory for warm passes
    state.SkipWithError("decode failed");
    return;
  }
  if (cold)
    malloc_trim(0);
  double heldMB = 0;
  for (auto _ : state) {
    const double before = heapInUseMB();
    std::shared_ptr<const PreparedStage> prepared = prepare();
    if (!prepared) {
      state.SkipWithError("decode failed");
      return;
    }
    state.PauseTiming();
    heldMB = heapInUseMB() - before;
    prepared.reset();
    if (cold)
      malloc_trim(0);
    state.ResumeTiming();
  }
  reportBytes(state, document);
  state.counters["heldMB"] = heldMB;  // what the prepared stage keeps while it is shown
}

void BM_DecodeNormaliseAndPrepareStage(benchmark::State& state) {
  decodeNormaliseAndPrepare(state, false);
}

void BM_DecodeNormaliseAndPrepareStageCold(benchmark::State& state) {
  decodeNormaliseAndPrepare(state, true);
}

void BM_NormaliseStage(benchmark::State& state) {
  const simdjson::padded_string& document = stageDocument(static_cast<int>(state.range(0)));
  const StageInspection stage = JsonDecoder().decode<RemoteStageResponse>(document).value().stage;
  for (auto _ : state) {
    state.PauseTiming();
    StageInspection copy = stage;
    state.ResumeTiming();
    StageInspection normalized = normalizedAuthoringStage(std::move(copy));
    benchmark::DoNotOptimize(normalized);
    state.PauseTiming();
    normalized = StageInspection();
    state.ResumeTiming();
  }
}

void BM_BuildHierarchyIndex(benchmark::State& state) {
  const simdjson::padded_string& document = stageDocument(static_cast<int>(state.range(0)));
  auto stage = std::make_shared<const StageInspection>(
      JsonDecoder().decode<RemoteStageResponse>(document).value().stage);
  for (auto _ : state) {
    auto index = HierarchyIndex::build(stage);
    benchmark::DoNotOptimize(index);
  }
  state.counters["prims"] = static_cast<double>(stage->prims.size());
}

// The main thread's share of a refresh: applying a prepared stage to the model (which hands the
// document build to a background thread), then publishing the built document: projections, the
// presentation records, the selection reconcile and the hand-over of replaced documents included.
// The document builds themselves are made beforehand, as the background would.
void BM_ApplyPreparedStageOnMainThread(benchmark::State& state) {
  const simdjson::padded_string& document = stageDocument(static_cast<int>(state.range(0)));
  const StageInspection stage =
      normalizedAuthoringStage(JsonDecoder().decode<RemoteStageResponse>(document).value().stage);
  EventLoop main;
  InMemoryPreferencesStore preferences;
  InMemorySecretStore secrets;
  PosixProcessLauncher launcher;
  CurlHttpClient http(main);
  ThreadPool background(2);
  EditorConfiguration configuration;
  configuration.projectServerURL = "";
  EditorModel model(configuration,
                    EditorModelPorts{main, background, preferences, secrets, launcher, http});
  model.documents.selectPrims("/World", {"/World"});
  // Two prepared stages applied in turn, so that every apply is a change; both stay alive here,
  // so the measurement leaves out freeing, which the model hands to a background thread anyway.
  const std::shared_ptr<const PreparedStage> prepared[2] = {PreparedStage::prepare(stage),
                                                            PreparedStage::prepare(stage)};
  const std::shared_ptr<const EditorClientDocumentSnapshot> documents[2] = {
      EditorClientDocumentState::makeSnapshot(prepared[0], {}),
      EditorClientDocumentState::makeSnapshot(prepared[1], {})};
  std::uint64_t generation = 0;
  for (auto _ : state) {
    model.stageRefresher.refreshGeneration = ++generation;
    model.stageRefresher.applyRefreshResultNow(prepared[generation % 2], std::nullopt, generation,
                                               false);
    model.documents.publishClientDocument(
        documents[generation % 2], model.documents.clientDocumentBuildGeneration, Duration::zero());
  }
  state.counters["prims"] = static_cast<double>(stage.prims.size());
}

BENCHMARK(BM_SimdjsonDomParse)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SimdjsonOnDemandFullWalk)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeStageIntoRecords)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CopyStageRecords)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeAndFreeStageRecords)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EncodeStageRecords)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeNormaliseAndPrepareStage)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeNormaliseAndPrepareStageCold)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NormaliseStage)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BuildHierarchyIndex)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ApplyPreparedStageOnMainThread)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace orvan::editor::benchmarks

int main(int argc, char** argv) {
  spdlog::set_level(spdlog::level::warn);  // the model logs every apply
  // Freed memory stays with the allocator, so that a warm pass reuses what the previous one
  // freed whatever ran before it; the cold benchmark hands it back on purpose.
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  mallopt(M_MMAP_THRESHOLD, 32 << 20);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
