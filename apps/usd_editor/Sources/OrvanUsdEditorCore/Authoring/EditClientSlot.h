#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Authoring/PersistentEditClient.h"
#include "Foundation/Executors.h"
#include "Foundation/Observable.h"
#include "Launch/EditorConfiguration.h"
#include "Launch/EditorScope.h"
#include "Platform/ProcessLauncher.h"
#include "ServerClient/ServerSession.h"

namespace orvan::editor {

// The one long-lived edit helper of the session, held on the main thread. A helper started for
// other values (another user, scene, workspace, layer, token, address) is retired in the
// background and replaced; retiring never blocks the main thread.
class EditClientSlot {
 public:
  struct Context {
    MainExecutor& main;
    // Where a helper is prewarmed and retired; both may wait on a helper's lock.
    BackgroundExecutor& background;
    ProcessLauncher& processes;
    const EditorConfiguration& configuration;
    const EditorScope& scope;
    const ServerSession& server;
    // The user's display name, the author of every edit.
    const Observable<std::string>& userName;
  };

  explicit EditClientSlot(Context context) : context_(context) {}
  // Ends every helper it made, so that no exchange keeps the editor from closing.
  ~EditClientSlot();
  EditClientSlot(const EditClientSlot&) = delete;
  EditClientSlot& operator=(const EditClientSlot&) = delete;

  // The helper for the current session: the held one while every value matches, else a new one,
  // prewarmed. Main thread only.
  std::shared_ptr<PersistentEditClient> persistentEditClient(const std::string& executablePath);
  void retirePersistentEditClient();
  // Warms a helper for the scope as it stands, so that the first edit finds one; nothing while
  // a hosted project has no scene yet.
  void prewarmPersistentEditClient();
  // The edit helper: `editClientPath` as an absolute path, else under the workspace root.
  std::string editClientExecutablePath() const;
  // What a helper would be started with now.
  PersistentEditClientSettings wantedSettings(const std::string& executablePath) const;

  const std::shared_ptr<PersistentEditClient>& held() const { return client_; }

 private:
  Context context_;
  std::shared_ptr<PersistentEditClient> client_;
  // Every helper this slot made that may still be working, so that shutdown can end them all.
  std::vector<std::weak_ptr<PersistentEditClient>> made_;
};

}  // namespace orvan::editor
