// A hosted launch end to end: the real reference project server serves the demo project on a free
// loopback port, and the model talks to it through the real HTTP client on a real event loop.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>

#include <httplib.h>
#include <stdlib.h>

#include "Application/EditorModel.h"
#include "Foundation/EventLoop.h"
#include "Foundation/ThreadPool.h"
#include "Platform/CurlHttpClient.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "Platform/Subprocess.h"
#include "ProjectsAndWorkspaces/VelkSessionTokenStore.h"
#include "orvan/wire/URLComponents.h"

namespace orvan::editor {
namespace {

using namespace std::chrono_literals;

// The server as a child process; it is stopped when the value goes.
class RunningProjectServer {
 public:
  explicit RunningProjectServer(std::vector<std::string> extraArguments = {},
                                std::vector<std::pair<std::string, std::string>> environment = {},
                                std::string project = std::string(ORVAN_SOURCE_DIR) + "/demo") {
    ProcessLaunchOptions options;
    options.executablePath = std::string(ORVAN_ENGINE_BIN_DIR) + "/orvan_project_server";
    options.arguments = {"--project", project, "--port", "0"};
    options.arguments.insert(options.arguments.end(), extraArguments.begin(), extraArguments.end());
    options.environment = std::move(environment);
    auto address = std::make_shared<std::promise<std::string>>();
    auto told = std::make_shared<std::once_flag>();
    options.standardOutput = OutputStreamOptions::inLines([address, told](OutputLine line) {
      constexpr std::string_view kPrefix = "listening on ";
      if (line.text.starts_with(kPrefix))
        std::call_once(*told, [&] { address->set_value(line.text.substr(kPrefix.size())); });
    });
    options.onExit = [address, told](ExitStatus) {
      std::call_once(*told, [&] { address->set_value(""); });
    };
    auto future = address->get_future();
    auto launched = Subprocess::launch(std::move(options));
    if (!launched.ok()) {
      error_ = launched.error().description;
      return;
    }
    process_ = std::move(*launched);
    if (future.wait_for(20s) == std::future_status::ready)
      url_ = future.get();
    if (url_.empty())
      error_ = "the server did not say where it listens: " + process_->capturedStderr();
  }
  // Returns once the server has ended, so that its port refuses connections from then on.
  ~RunningProjectServer() {
    if (!process_)
      return;
    process_->terminate();
    process_->waitForExit();
  }

  const std::string& url() const { return url_; }
  const std::string& error() const { return error_; }

 private:
  std::unique_ptr<Subprocess> process_;
  std::string url_;
  std::string error_;
};

// A copy of the demo project in a folder of the test's own: the tests that edit work on it, never
// on the repository's demo.
class EditableDemo {
 public:
  EditableDemo() {
    folder_ = (std::filesystem::temp_directory_path() / "orvan_editor_demo_XXXXXX").string();
    if (::mkdtemp(folder_.data()) == nullptr)
      return;
    std::filesystem::copy(std::string(ORVAN_SOURCE_DIR) + "/demo", folder_,
                          std::filesystem::copy_options::recursive);
    std::filesystem::remove_all(folder_ + "/.orvan");
  }
  ~EditableDemo() { std::filesystem::remove_all(folder_); }
  EditableDemo(const EditableDemo&) = delete;
  EditableDemo& operator=(const EditableDemo&) = delete;

  const std::string& folder() const { return folder_; }

 private:
  std::string folder_;
};

class EditorModelHostedServerTest : public ::testing::Test {
 protected:
  // The model on a running server, editing through the engine's real edit helper.
  EditorModel& startEditing(const RunningProjectServer& server) {
    configuration_.editClientPath = std::string(ORVAN_ENGINE_BIN_DIR) + "/orvan_edit_client";
    return startModel(server.url());
  }

  EditorModel& startModel(const std::string& serverURL) {
    configuration_.projectServerURL = serverURL;
    configuration_.localMode = false;
    EditorModelPorts ports{loop_, pool_, preferences_, secrets_, launcher_, http_};
    ports.openURL = [this](const std::string& url) {
      opened_.push_back(url);
      return true;
    };
    model_ = std::make_unique<EditorModel>(configuration_, std::move(ports));
    model_->startInitialRefresh();
    return *model_;
  }

  bool runUntil(const std::function<bool()>& done) { return loop_.runUntil(done, 30s); }

  EventLoop loop_;
  ThreadPool pool_{2};
  InMemoryPreferencesStore preferences_;
  InMemorySecretStore secrets_;
  PosixProcessLauncher launcher_;
  CurlHttpClient http_{loop_};
  EditorConfiguration configuration_;
  std::vector<std::string> opened_;  // what the model asked the browser to open
  std::unique_ptr<EditorModel> model_;
};

// What a browser and its user do with the sign-in page: open it, fill in the password, send the
// form and hand over the link it redirects to.
std::string followSignInPage(const std::string& address, const std::string& password) {
  const auto url = URLComponents::parse(address);
  if (!url || !url->port)
    return "";
  httplib::Client client(url->host, *url->port);
  std::string path = url->path + "?";
  httplib::Params form{{"password", password}};
  for (const auto& item : url->queryItems) {
    path += httplib::detail::encode_query_param(item.name) + "=" +
            httplib::detail::encode_query_param(item.value.value_or("")) + "&";
    form.emplace(item.name, item.value.value_or(""));
  }
  const auto page = client.Get(path);
  if (!page || page->status != 200 || page->body.find("name=\"password\"") == std::string::npos)
    return "";
  const auto answer = client.Post(url->path, form);
  if (!answer || answer->status != 302)
    return "";
  return answer->get_header_value("Location");
}

// The value of `name` in a link's query, "" when it has none.
std::string queryValue(const std::string& link, const std::string& name) {
  const auto url = URLComponents::parse(link);
  if (!url)
    return "";
  for (const auto& item : url->queryItems)
    if (item.name == name)
      return item.value.value_or("");
  return "";
}

std::vector<std::string> rootNames(const EditorModel& model) {
  std::vector<std::string> names;
  for (const auto& node : model.currentStage().rootPrims)
    names.push_back(node.name);
  return names;
}

bool listsAsset(const EditorModel& model, const std::string& path) {
  for (const auto& asset : model.documents.projectAssets)
    if (asset.path == path)
      return true;
  return false;
}

TEST_F(EditorModelHostedServerTest, APlainHostedLaunchResolvesTheProjectAndLoadsStageAndAssets) {
  RunningProjectServer server;
  ASSERT_TRUE(server.error().empty()) << server.error();
  EditorModel& model = startModel(server.url());
  EXPECT_TRUE(model.isStartupBlocking()) << "the scope is incomplete until the catalogue answers";

  ASSERT_TRUE(runUntil([&] {
    return !model.currentStage().rootPrims.empty() && listsAsset(model, "hello_world.usda");
  })) << "status: "
      << model.status.get();
  EXPECT_TRUE(model.startup.initialProjectResolved.get());
  EXPECT_FALSE(model.isStartupBlocking());
  EXPECT_FALSE(model.startup.connectionIssue.get().has_value());
  EXPECT_EQ(rootNames(model), (std::vector<std::string>{"World"}));
  EXPECT_EQ(model.projectLabel(), "hello_world.usda") << "the window is titled by the scene";
  EXPECT_TRUE(listsAsset(model, "assets/lamp_post.usda"));
  EXPECT_FALSE(listsAsset(model, "project.json")) << "the project's own file is no asset";

  // A second stage refresh is answered from the server's cache with the same stage.
  const auto revision = model.revision.get();
  const auto generation = model.stageRefresher.refreshGeneration;
  model.stageRefresher.refresh();
  ASSERT_TRUE(runUntil([&] { return !model.stageRefresher.stageRefreshInFlight; }));
  EXPECT_EQ(model.stageRefresher.refreshGeneration, generation + 1);
  EXPECT_EQ(model.revision.get(), revision);
  EXPECT_EQ(rootNames(model), (std::vector<std::string>{"World"}));
}

TEST_F(EditorModelHostedServerTest, ARefusedSessionSignsInThroughTheBrowserAndTheTokenIsKept) {
  // The sessions are kept in a folder of the test's own.
  std::string state =
      (std::filesystem::temp_directory_path() / "orvan_editor_signin_XXXXXX").string();
  ASSERT_NE(::mkdtemp(state.data()), nullptr);
  const std::shared_ptr<void> removeState(nullptr,
                                          [&](void*) { std::filesystem::remove_all(state); });
  RunningProjectServer server({"--state-dir", state}, {{"ORVAN_SERVER_TOKEN", "s3cret"},
                                                       {"ORVAN_SERVER_PASSWORD", "letmein"}});
  ASSERT_TRUE(server.error().empty()) << server.error();

  EditorModel& refused = startModel(server.url());
  ASSERT_TRUE(runUntil([&] { return refused.startup.connectionIssue.get().has_value(); }));
  EXPECT_EQ(refused.status.get(), "Sign in to continue.");
  EXPECT_EQ(refused.startup.connectionIssue.get()->primaryAction, VelkConnectionAction::login);
  EXPECT_TRUE(refused.currentStage().rootPrims.empty()) << "nothing of the project was shown";

  // The sheet's button opens the server's sign-in page; the browser comes back with a link.
  refused.performConnectionAction(refused.startup.connectionIssue.get()->primaryAction);
  ASSERT_EQ(opened_.size(), 1u);
  const std::string callback = followSignInPage(opened_[0], "letmein");
  ASSERT_TRUE(callback.starts_with("velk://auth-callback")) << callback;
  const std::string session = queryValue(callback, "token");
  EXPECT_EQ(session.size(), 64u) << "a session of its own, not the server's static token";
  EXPECT_EQ(queryValue(callback, "server"), server.url());
  refused.handleIncomingURL(callback);
  ASSERT_TRUE(runUntil([&] { return !refused.currentStage().rootPrims.empty(); }))
      << "status: " << refused.status.get();
  EXPECT_TRUE(refused.account.isVelkSignedIn());
  EXPECT_FALSE(refused.startup.connectionIssue.get().has_value());
  model_.reset();

  // The next launch finds the token filed under the server and goes straight in.
  EXPECT_EQ(VelkSessionTokenStore::load(secrets_, server.url()), session);
  EditorModel& signedIn = startModel(server.url());
  ASSERT_TRUE(runUntil([&] { return !signedIn.currentStage().rootPrims.empty(); }))
      << "status: " << signedIn.status.get();
  EXPECT_FALSE(signedIn.startup.connectionIssue.get().has_value());
}

TEST_F(EditorModelHostedServerTest, AServerThatIsGoneEndsAsAClassifiedIssueNotAHang) {
  std::string url;
  {
    RunningProjectServer server;
    ASSERT_TRUE(server.error().empty()) << server.error();
    url = server.url();
  }  // stopped: the port now refuses connections
  EditorModel& model = startModel(url);
  ASSERT_TRUE(runUntil([&] { return model.startup.connectionIssue.get().has_value(); }))
      << "status: " << model.status.get();
  EXPECT_TRUE(model.isStartupBlocking());
  EXPECT_TRUE(model.currentStage().rootPrims.empty());
}

// The whole road of an edit: the model adds a prim through the real edit helper and the real
// server, shows it at once, and the next stage from the server holds it, as does the scene's file.
TEST_F(EditorModelHostedServerTest, APrimAddedThroughTheRealHelperIsInTheNextStageAndTheFile) {
  const EditableDemo demo;
  RunningProjectServer server({"--state-dir", demo.folder() + "/.state"}, {}, demo.folder());
  ASSERT_TRUE(server.error().empty()) << server.error();
  EditorModel& model = startEditing(server);
  ASSERT_TRUE(runUntil([&] { return !model.currentStage().prims.empty(); })) << model.status.get();
  const auto startRevision = model.revision.get();
  const auto holds = [&](std::string_view path) {
    for (const auto& prim : model.currentStage().prims)
      if (prim.path == path)
        return true;
    return false;
  };

  model.structure.addPrim("cube");
  // The optimistic overlay shows the new prim before any answer.
  std::string added;
  for (const auto& prim : model.currentStage().prims)
    if (prim.path.starts_with("/World/") && prim.path.find("Cube") != std::string::npos &&
        prim.path.find('/', 7) == std::string::npos)
      added = prim.path;
  ASSERT_FALSE(added.empty()) << "no optimistic prim; status: " << model.status.get();

  // The server accepts it: the revision moves on and the status says what the server said.
  ASSERT_TRUE(runUntil([&] { return model.revision.get() > startRevision; })) << model.status.get();
  // A refresh from the server holds the prim by itself, once the overlay has given way.
  model.stageRefresher.refresh();
  ASSERT_TRUE(runUntil([&] { return !model.stageRefresher.stageRefreshInFlight && holds(added); }))
      << model.status.get();
  EXPECT_EQ(model.revision.get(), startRevision + 1);

  // The scene's file holds it within a second or so of the edit.
  const std::string name = added.substr(added.rfind('/') + 1);
  bool written = false;
  for (int i = 0; i < 100 && !written; ++i) {
    std::ifstream in(demo.folder() + "/hello_world_base.usda");
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    written = text.find("\"" + name + "\"") != std::string::npos;
    if (!written)
      std::this_thread::sleep_for(50ms);
  }
  EXPECT_TRUE(written) << name;
}

// Rename, duplicate, reparent and delete through the real helper: each reaches the server in its
// wire form, and the file ends up holding exactly the result.
TEST_F(EditorModelHostedServerTest, StructuralEditsThroughTheRealHelperEndUpInTheFile) {
  const EditableDemo demo;
  RunningProjectServer server({"--state-dir", demo.folder() + "/.state"}, {}, demo.folder());
  ASSERT_TRUE(server.error().empty()) << server.error();
  EditorModel& model = startEditing(server);
  ASSERT_TRUE(runUntil([&] { return !model.currentStage().prims.empty(); })) << model.status.get();
  std::uint64_t expected = model.revision.get();
  const auto settle = [&] {
    ++expected;
    return runUntil([&] { return model.revision.get() >= expected; });
  };

  model.structure.renamePrim("/World/RedCube", "Crate");
  ASSERT_TRUE(settle()) << model.status.get();
  model.structure.duplicatePrim("/World/Crate");
  ASSERT_TRUE(settle()) << model.status.get();
  model.structure.reparentPrims({"/World/Crate_1"}, "/World/LampPost");
  ASSERT_TRUE(settle()) << model.status.get();
  model.structure.deletePrim("/World/YellowCone");
  ASSERT_TRUE(settle()) << model.status.get();

  model.stageRefresher.refresh();
  std::set<std::string> paths;
  ASSERT_TRUE(runUntil([&] {
    if (model.stageRefresher.stageRefreshInFlight)
      return false;
    paths.clear();
    for (const auto& prim : model.currentStage().prims)
      paths.insert(prim.path);
    return paths.contains("/World/LampPost/Crate_1");
  })) << model.status.get();
  EXPECT_TRUE(paths.contains("/World/Crate"));
  EXPECT_FALSE(paths.contains("/World/RedCube"));
  EXPECT_FALSE(paths.contains("/World/Crate_1"));
  EXPECT_FALSE(paths.contains("/World/YellowCone"));

  bool written = false;
  for (int i = 0; i < 100 && !written; ++i) {
    std::ifstream in(demo.folder() + "/hello_world_base.usda");
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    written = text.find("\"Crate_1\"") != std::string::npos &&
              text.find("\"YellowCone\"") == std::string::npos &&
              text.find("\"RedCube\"") == std::string::npos;
    if (!written)
      std::this_thread::sleep_for(50ms);
  }
  EXPECT_TRUE(written);
}

// A component added and a colour typed into the inspector, through the real helper: the next
// stage and the scene's file hold both.
TEST_F(EditorModelHostedServerTest, AComponentAndAColourThroughTheRealHelperEndUpInTheFile) {
  const EditableDemo demo;
  RunningProjectServer server({"--state-dir", demo.folder() + "/.state"}, {}, demo.folder());
  ASSERT_TRUE(server.error().empty()) << server.error();
  EditorModel& model = startEditing(server);
  ASSERT_TRUE(runUntil([&] { return !model.currentStage().prims.empty(); })) << model.status.get();
  const auto component = [&](std::string_view type) -> const UsdComponent* {
    const UsdPrimDetail* cube = model.stage.get()->prim("/World/RedCube");
    if (!cube)
      return nullptr;
    for (const UsdComponent& each : cube->components)
      if (each.type == type)
        return &each;
    return nullptr;
  };
  ASSERT_EQ(component("AudioSource"), nullptr);
  const UsdComponent* shape = component("RenderShape");
  ASSERT_NE(shape, nullptr);
  const UsdComponent shapeCopy = *shape;
  const ComponentProperty* color = nullptr;
  for (const ComponentProperty& each : shapeCopy.properties)
    if (each.name == "color")
      color = &each;
  ASSERT_NE(color, nullptr);

  model.documents.selectPrims("/World/RedCube", {"/World/RedCube"});
  ASSERT_TRUE(
      runUntil([&] { return !model.session.inspector.get().sceneSnapshot.entityPaths.empty(); }));
  std::uint64_t expected = model.revision.get() + 1;
  model.components.addComponent("AudioSource");
  EXPECT_NE(component("AudioSource"), nullptr) << "shown before the answer";
  ASSERT_TRUE(runUntil([&] { return model.revision.get() >= expected; })) << model.status.get();

  ++expected;
  model.propertyDrafts.updateDraft(shapeCopy, *color, "0.1, 0.2, 0.3", true);
  ASSERT_TRUE(runUntil([&] { return model.revision.get() >= expected; })) << model.status.get();

  model.stageRefresher.refresh();
  ASSERT_TRUE(runUntil([&] {
    return !model.stageRefresher.stageRefreshInFlight && component("AudioSource") != nullptr;
  })) << model.status.get();
  EXPECT_EQ(model.propertyDrafts.draftValue(shapeCopy, *color), "0.1,0.2,0.3");
  // The server's own stage shows it: the edit went to the layer that wins, not under the root.
  const UsdComponent* shown = component("RenderShape");
  ASSERT_NE(shown, nullptr);
  for (const ComponentProperty& each : shown->properties) {
    if (each.name == "color") {
      EXPECT_EQ(each.value, "0.1,0.2,0.3");
    }
  }

  bool written = false;
  std::string text;
  for (int i = 0; i < 100 && !written; ++i) {
    std::ifstream in(demo.folder() + "/hello_world_base.usda");
    text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    written = text.find("orvan:audio:") != std::string::npos &&
              text.find("(0.1, 0.2, 0.3)") != std::string::npos;
    if (!written)
      std::this_thread::sleep_for(50ms);
  }
  EXPECT_TRUE(written) << text;
}

std::string textOf(const std::string& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Whether the file comes to satisfy `holds` within a few seconds (the server writes behind).
bool fileComesTo(const std::string& path, const std::function<bool(const std::string&)>& holds) {
  for (int i = 0; i < 100; ++i) {
    if (holds(textOf(path)))
      return true;
    std::this_thread::sleep_for(50ms);
  }
  return false;
}

// The stage's layer whose file is `file`, if any.
std::optional<UsdLayerInfo> stageLayer(const EditorModel& model, std::string_view file) {
  for (const UsdLayerInfo& layer : model.currentStage().layers) {
    if (std::filesystem::path(layer.identifier).filename() == file)
      return layer;
  }
  return std::nullopt;
}

// The file names of the stage's layers, strongest first.
std::vector<std::string> stackFiles(const EditorModel& model) {
  std::vector<std::string> files;
  for (const UsdLayerInfo& layer : model.currentStage().layers)
    files.push_back(std::filesystem::path(layer.identifier).filename().string());
  return files;
}

// A gizmo drag as the viewport reports it: live values while dragging, a final one at the end.
// The final value reaches the file through the real helper; an Alt-drag moves a new copy and
// leaves the original where it was.
TEST_F(EditorModelHostedServerTest, GizmoDragsThroughTheRealHelperEndUpInTheFile) {
  const EditableDemo demo;
  RunningProjectServer server({"--state-dir", demo.folder() + "/.state"}, {}, demo.folder());
  ASSERT_TRUE(server.error().empty()) << server.error();
  EditorModel& model = startEditing(server);
  ASSERT_TRUE(runUntil([&] { return !model.currentStage().prims.empty(); })) << model.status.get();
  const std::string base = demo.folder() + "/hello_world_base.usda";

  std::uint64_t before = model.revision.get();
  for (int step = 1; step <= 5; ++step) {
    model.viewportGizmo.handleViewportTransformCommit("/World/RedCube", "translation",
                                                      {0.5 * step, 0.5, 0}, false, false, "drag-1");
  }
  model.viewportGizmo.handleViewportTransformCommit("/World/RedCube", "translation", {4, 0.5, 0},
                                                    true, false, "drag-1");
  ASSERT_TRUE(runUntil([&] {
    return model.revision.get() > before && !model.viewportGizmo.hasPendingChanges();
  })) << model.status.get();
  EXPECT_TRUE(fileComesTo(base, [](const std::string& text) {
    return text.find("double3 xformOp:translate = (4, 0.5, 0)") != std::string::npos;
  })) << textOf(base);

  const std::string originalSphere = [&] {
    for (const UsdComponent& component : model.stage.get()->prim("/World/BlueSphere")->components)
      if (component.type == "Transform")
        for (const ComponentProperty& property : component.properties)
          if (property.name == "translation")
            return property.value;
    return std::string();
  }();
  ASSERT_FALSE(originalSphere.empty());
  before = model.revision.get();
  model.viewportGizmo.handleViewportTransformCommit("/World/BlueSphere", "translation", {0, 1, 3},
                                                    false, true, "drag-2");
  model.viewportGizmo.handleViewportTransformCommit("/World/BlueSphere", "translation", {0, 1, 6},
                                                    true, true, "drag-2");
  ASSERT_TRUE(runUntil([&] {
    return model.revision.get() > before + 1 && !model.viewportGizmo.hasPendingChanges();
  })) << model.status.get();
  model.stageRefresher.refresh();
  ASSERT_TRUE(runUntil([&] { return !model.stageRefresher.stageRefreshInFlight; }));
  const std::vector<std::string> spheres = [&] {
    std::vector<std::string> paths;
    for (const auto& prim : model.currentStage().prims)
      if (prim.path.rfind("/World/BlueSphere", 0) == 0)
        paths.push_back(prim.path);
    return paths;
  }();
  EXPECT_EQ(spheres.size(), 2u) << "the original and its copy";
  const auto translation = [&](const std::string& path) -> std::string {
    const UsdPrimDetail* prim = model.stage.get()->prim(path);
    if (!prim)
      return "(no prim)";
    for (const UsdComponent& component : prim->components)
      if (component.type == "Transform")
        for (const ComponentProperty& property : component.properties)
          if (property.name == "translation")
            return property.value;
    return "(no translation)";
  };
  for (const std::string& path : spheres) {
    EXPECT_EQ(translation(path), path == "/World/BlueSphere" ? originalSphere : "0,1,6") << path;
  }
  EXPECT_TRUE(fileComesTo(base, [](const std::string& text) {
    return text.find("(0, 1, 6)") != std::string::npos;
  })) << textOf(base);
}

// The layer pane's commands through the real one-shot helper, one after another: a new layer
// becomes the one that receives edits, an edit lands in it, it is muted and enabled again, moved
// below the base and merged down into the lighting layer; the scene's files say so after each.
TEST_F(EditorModelHostedServerTest, LayerCommandsThroughTheRealHelperEndUpInTheScenesFiles) {
  const EditableDemo demo;
  RunningProjectServer server({"--state-dir", demo.folder() + "/.state"}, {}, demo.folder());
  ASSERT_TRUE(server.error().empty()) << server.error();
  EditorModel& model = startEditing(server);
  ASSERT_TRUE(runUntil([&] { return !model.currentStage().prims.empty(); })) << model.status.get();
  const std::string root = demo.folder() + "/hello_world.usda";
  const auto stageSays = [&](const std::function<bool()>& holds) {
    return runUntil([&] { return !model.stageRefresher.stageRefreshInFlight && holds(); });
  };
  const auto activeFile = [&] {
    return std::filesystem::path(model.scope.activeLayerIdentifier()).filename().string();
  };
  EXPECT_EQ(activeFile(), "hello_world_base.usda") << "the first editable layer below the root";

  model.layers.addLayer("props");
  const auto describe = [&] {
    std::string text =
        model.status.get() + "; active " + model.scope.activeLayerIdentifier() + "; stack";
    for (const UsdLayerInfo& layer : model.currentStage().layers)
      text += " " + layer.identifier + (layer.writable ? "" : " (read-only)") +
              (layer.muted ? " (muted)" : "") + (layer.system.value_or(false) ? " (system)" : "");
    return text;
  };
  ASSERT_TRUE(stageSays([&] { return activeFile() == "props.usda"; })) << describe();
  EXPECT_EQ(stackFiles(model),
            (std::vector<std::string>{"hello_world.usda", "props.usda", "hello_world_base.usda",
                                      "hello_world_lighting.usda"}));
  EXPECT_TRUE(fileComesTo(root, [](const std::string& text) {
    return text.find("@./props.usda@") < text.find("@./hello_world_base.usda@");
  })) << textOf(root);
  EXPECT_TRUE(fileComesTo(demo.folder() + "/props.usda",
                          [](const std::string& text) { return text.starts_with("#usda 1.0"); }));

  // An inspector edit goes to the new layer and shows.
  model.documents.selectPrims("/World/RedCube", {"/World/RedCube"});
  ASSERT_TRUE(
      runUntil([&] { return !model.session.inspector.get().sceneSnapshot.entityPaths.empty(); }));
  const auto translation = [&]() -> std::string {
    const UsdPrimDetail* cube = model.stage.get()->prim("/World/RedCube");
    for (const UsdComponent& component : cube ? cube->components : std::vector<UsdComponent>{})
      for (const ComponentProperty& property : component.properties)
        if (component.type == "Transform" && property.name == "translation")
          return property.value;
    return "";
  };
  const UsdPrimDetail* cube = model.stage.get()->prim("/World/RedCube");
  ASSERT_NE(cube, nullptr);
  const UsdComponent transform = cube->components.at(1);
  ASSERT_EQ(transform.type, "Transform");
  const ComponentProperty place = transform.properties.at(0);
  ASSERT_EQ(place.name, "translation");
  const std::string before = translation();
  model.propertyDrafts.commitRetainedNumericControl(transform, place, "1,2,3");
  ASSERT_TRUE(runUntil([&] {
    return model.operations.state.pendingOperations.empty() &&
           !model.operations.state.submitInFlight;
  }));
  model.stageRefresher.refresh();
  ASSERT_TRUE(stageSays([&] { return translation() == "1,2,3"; })) << model.status.get();
  EXPECT_TRUE(fileComesTo(demo.folder() + "/props.usda", [](const std::string& text) {
    return text.find("(1, 2, 3)") != std::string::npos;
  })) << textOf(demo.folder() + "/props.usda");

  // Muted, the layer's opinion goes from the stage, and edits go to the first editable layer of
  // the stack, the root.
  model.layers.setLayerMuted(*stageLayer(model, "props.usda"), true);
  EXPECT_EQ(activeFile(), "hello_world.usda");
  ASSERT_TRUE(stageSays([&] { return stageLayer(model, "props.usda")->muted; }))
      << model.status.get();
  EXPECT_EQ(translation(), before);
  model.layers.setLayerMuted(*stageLayer(model, "props.usda"), false);
  ASSERT_TRUE(stageSays([&] { return !stageLayer(model, "props.usda")->muted; }))
      << model.status.get();
  EXPECT_EQ(translation(), "1,2,3");

  model.layers.moveLayer(*stageLayer(model, "props.usda"), "down");
  ASSERT_TRUE(stageSays([&] { return stackFiles(model).at(2) == "props.usda"; }))
      << model.status.get();
  EXPECT_TRUE(fileComesTo(root, [](const std::string& text) {
    return text.find("@./hello_world_base.usda@") < text.find("@./props.usda@");
  })) << textOf(root);
  EXPECT_EQ(translation(), before) << "below the base, its opinion is the weaker one";

  model.layers.confirmMergeLayerDown(*stageLayer(model, "props.usda"));
  ASSERT_TRUE(model.layers.confirmation.get().has_value());
  model.layers.confirm();
  ASSERT_TRUE(stageSays([&] { return !stageLayer(model, "props.usda"); })) << model.status.get();
  EXPECT_TRUE(fileComesTo(root, [](const std::string& text) {
    return text.find("props.usda") == std::string::npos;
  })) << textOf(root);
  const std::string lighting = demo.folder() + "/hello_world_lighting.usda";
  EXPECT_TRUE(fileComesTo(lighting, [](const std::string& text) {
    return text.find("(1, 2, 3)") != std::string::npos;
  })) << textOf(lighting);
}

}  // namespace
}  // namespace orvan::editor
