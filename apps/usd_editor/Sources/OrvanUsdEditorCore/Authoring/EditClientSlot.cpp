#include "Authoring/EditClientSlot.h"

#include "orvan/wire/Text.h"

namespace orvan::editor {

EditClientSlot::~EditClientSlot() {
  for (const std::weak_ptr<PersistentEditClient>& weak : made_) {
    if (const std::shared_ptr<PersistentEditClient> client = weak.lock())
      client->terminateForShutdown();
  }
  retirePersistentEditClient();
}

std::string EditClientSlot::editClientExecutablePath() const {
  return standardizePath(
      context_.configuration.resolvedPath(context_.configuration.editClientPath));
}

PersistentEditClientSettings EditClientSlot::wantedSettings(
    const std::string& executablePath) const {
  const std::string& workspace = context_.scope.currentWorkspace();
  return {.executablePath = standardizePath(executablePath),
          .address = context_.server.addresses.authoringAddress,
          .author = context_.userName.get(),
          .clientId = context_.configuration.clientId,
          .scene = context_.scope.scenePath(),
          .workspace = workspace.empty() ? "main" : workspace,
          .activeLayer = context_.scope.activeLayerIdentifier(),
          .authorizationToken = context_.server.velkSessionToken};
}

std::shared_ptr<PersistentEditClient> EditClientSlot::persistentEditClient(
    const std::string& executablePath) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  PersistentEditClientSettings wanted = wantedSettings(executablePath);
  if (client_ && client_->settings == wanted)
    return client_;
  retirePersistentEditClient();
  client_ = std::make_shared<PersistentEditClient>(context_.processes, std::move(wanted));
  std::erase_if(made_, [](const auto& weak) { return weak.expired(); });
  made_.push_back(client_);
  client_->prewarm(context_.background);
  return client_;
}

void EditClientSlot::retirePersistentEditClient() {
  PersistentEditClient::retire(std::move(client_), context_.background);
  client_.reset();
}

void EditClientSlot::prewarmPersistentEditClient() {
  const EditorScope& scope = context_.scope;
  if (!isBlank(scope.projectId()) && isBlank(scope.projectPath()) &&
      !hasPrefix(scope.scenePath(), "/")) {
    return;  // no scene to connect to yet
  }
  persistentEditClient(editClientExecutablePath());
}

}  // namespace orvan::editor
