#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <glm/glm.hpp>

#include "UsdText/Stage.h"
#include "Viewport/SceneModel.h"

namespace orvan::engine {

// Where a scene comes from: with an address, the project server's layers of the scene (and its
// change stream); without one, the files on the disk.
struct SceneSource {
  std::string scene;
  std::string address;
  std::string authToken;
  std::string projectId;
  std::string workspace;
  std::string clientId;
};

// One composed state of the scene, ready to draw.
struct LoadedScene {
  std::shared_ptr<const Stage> stage;  // null when the scene could not be read
  std::shared_ptr<Scene> scene;        // what is drawn; the receiver may change it
  std::uint64_t revision = 0;
  std::string error;  // why there is no stage, empty when there is one
  double loadSeconds = 0.0;
};

// Reads a scene and keeps reading it when it changes, on threads of its own: composing a large
// scene never holds up the thread that draws. Each state goes to `deliver` (called on the feed's
// thread). The server form refetches when the change stream says the stage changed and after a
// reconnection; the disk form looks at its layer files twice a second.
class SceneFeed {
 public:
  SceneFeed(SceneSource source, std::function<void(LoadedScene)> deliver);
  ~SceneFeed();
  SceneFeed(const SceneFeed&) = delete;
  SceneFeed& operator=(const SceneFeed&) = delete;

  void setAuthToken(std::string token);
  // Reads the scene again now.
  void reload();
  // No state goes to `deliver` after this returns (the feed may still be ending a read).
  void stopDelivering();

 private:
  void loadLoop();
  void watchLoop();
  LoadedScene load();
  LoadedScene loadFromServer();
  LoadedScene loadFromDisk();
  bool filesChanged();

  SceneSource source_;
  std::function<void(LoadedScene)> deliver_;
  std::mutex mutex_;
  std::mutex deliverMutex_;  // held while `deliver_` runs
  std::condition_variable wake_;
  bool stop_ = false;
  bool reloadWanted_ = true;
  std::optional<std::uint64_t> revision_;  // of the last state read from the server
  std::uint64_t newestRevision_ = 0;       // the newest the change stream spoke of
  std::map<std::string, std::pair<std::int64_t, std::int64_t>> stamps_;  // file → (mtime, size)
  std::thread loader_;
  std::thread watcher_;
};

// The scene's layers composed into a stage and what is drawn of it.
LoadedScene sceneFromStage(std::shared_ptr<const Stage> stage, std::uint64_t revision);

}  // namespace orvan::engine
