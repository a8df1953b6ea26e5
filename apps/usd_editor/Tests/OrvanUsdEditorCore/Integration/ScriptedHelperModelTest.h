#pragma once

// A model on a local scene that the scripted inspector serves, editing through the scripted edit
// helper, on a manual scheduler: what the authoring tests drive.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "Application/EditorModel.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "Support/FakeHttpClient.h"
#include "Support/ManualScheduler.h"
#include "Support/TemporaryFolder.h"
#include "orvan/wire/JsonEncoder.h"

namespace orvan::editor {

class ScriptedHelperModelTest : public ::testing::Test {
 protected:
  // Builds the model on `stage` and loads it; the helper's answers are scripted through the
  // journal file the client id names.
  void startModel(const StageInspection& stage) {
    configuration_.projectServerURL = "";
    configuration_.inspectorPath = ORVAN_FAKE_INSPECTOR_PATH;
    configuration_.editClientPath = ORVAN_FAKE_EDIT_CLIENT_PATH;
    configuration_.clientId = journal_.string();
    configuration_.scenePath = folder_.write("scene.usda", encodeJson(stage)).string();
    model_ = std::make_unique<EditorModel>(
        configuration_, EditorModelPorts{.main = scheduler_,
                                         .background = scheduler_.background(),
                                         .preferences = preferences_,
                                         .secrets = secrets_,
                                         .processes = launcher_,
                                         .http = http_,
                                         .helperExchanges = &scheduler_.background()});
    model_->stageRefresher.refresh();
    scheduler_.runUntilQuiet();
  }
  // The stage the inspector gives from now on.
  void serve(const StageInspection& stage) { folder_.write("scene.usda", encodeJson(stage)); }

  testing::TemporaryFolder folder_;
  std::filesystem::path journal_ = folder_ / "journal";
  EditorConfiguration configuration_;
  testing::ManualScheduler scheduler_;
  InMemoryPreferencesStore preferences_;
  InMemorySecretStore secrets_;
  PosixProcessLauncher launcher_;
  testing::FakeHttpClient http_{scheduler_};
  std::unique_ptr<EditorModel> model_;
};

}  // namespace orvan::editor
