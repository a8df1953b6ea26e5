#include "ViewportLink/SceneFeed.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <optional>

#include "ClientLink/HttpLink.h"
#include "ClientLink/LineSplitter.h"
#include "ClientLink/ServiceAddress.h"
#include "UsdText/LayerReader.h"
#include "UsdText/StageComposer.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/records/SceneLayers.h"
#include "orvan/wire/records/ToolClientLine.h"

namespace orvan::engine {
namespace {

using Clock = std::chrono::steady_clock;

LoadedScene failed(std::string reason) {
  LoadedScene loaded;
  loaded.error = std::move(reason);
  return loaded;
}

std::optional<std::pair<std::int64_t, std::int64_t>> fileStamp(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0)
    return std::nullopt;
  return std::pair{
      static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec,
      static_cast<std::int64_t>(status.st_size)};
}

// The query naming the scene's scope on the server.
std::string scopeQuery(const HttpLink& link, const SceneSource& source) {
  std::string query = "scene=" + link.escapeQueryValue(source.scene);
  if (!source.projectId.empty())
    query += "&projectId=" + link.escapeQueryValue(source.projectId);
  if (!source.workspace.empty())
    query += "&workspace=" + link.escapeQueryValue(source.workspace);
  return query;
}

std::unique_ptr<HttpLink> openLink(const SceneSource& source, std::string& error) {
  const ServiceAddressResult base = httpBaseForAddress(source.address);
  if (!base.ok()) {
    error = base.error;
    return nullptr;
  }
  return HttpLink::open(base.baseUrl, source.authToken, HttpLinkOptions{}, error);
}

}  // namespace

LoadedScene sceneFromStage(std::shared_ptr<const Stage> stage, std::uint64_t revision) {
  LoadedScene loaded;
  loaded.scene =
      std::make_shared<Scene>(buildScene(*stage, tessellationForPrimCount(stage->prims.size())));
  loaded.stage = std::move(stage);
  loaded.revision = revision;
  return loaded;
}

SceneFeed::SceneFeed(SceneSource source, std::function<void(LoadedScene)> deliver)
    : source_(std::move(source)), deliver_(std::move(deliver)) {
  loader_ = std::thread([this] { loadLoop(); });
  if (!source_.address.empty())
    watcher_ = std::thread([this] { watchLoop(); });
}

SceneFeed::~SceneFeed() {
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
  }
  wake_.notify_all();
  loader_.join();
  if (watcher_.joinable())
    watcher_.join();
}

void SceneFeed::setAuthToken(std::string token) {
  const std::lock_guard lock(mutex_);
  source_.authToken = std::move(token);
}

void SceneFeed::reload() {
  {
    const std::lock_guard lock(mutex_);
    reloadWanted_ = true;
  }
  wake_.notify_all();
}

void SceneFeed::stopDelivering() {
  const std::lock_guard delivering(deliverMutex_);
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
  }
  wake_.notify_all();
}

void SceneFeed::loadLoop() {
  std::unique_lock lock(mutex_);
  while (!stop_) {
    if (reloadWanted_) {
      reloadWanted_ = false;
      lock.unlock();
      const Clock::time_point start = Clock::now();
      LoadedScene loaded = load();
      loaded.loadSeconds = std::chrono::duration<double>(Clock::now() - start).count();
      {
        const std::lock_guard delivering(deliverMutex_);
        lock.lock();
        if (stop_)
          return;
        lock.unlock();
        deliver_(std::move(loaded));
      }
      lock.lock();
      continue;
    }
    wake_.wait_for(lock, std::chrono::milliseconds(500));
    if (!stop_ && source_.address.empty() && !reloadWanted_) {
      lock.unlock();
      const bool changed = filesChanged();
      lock.lock();
      reloadWanted_ = reloadWanted_ || changed;
    }
  }
}

LoadedScene SceneFeed::load() {
  return source_.address.empty() ? loadFromDisk() : loadFromServer();
}

LoadedScene SceneFeed::loadFromDisk() {
  StageOpenResult opened = openStage(source_.scene);
  std::map<std::string, std::pair<std::int64_t, std::int64_t>> stamps;
  if (const auto stamp = fileStamp(source_.scene))
    stamps[source_.scene] = *stamp;
  if (opened.ok()) {
    for (const StageLayer& layer : opened.stage->layers) {
      if (const auto stamp = fileStamp(layer.identifier))
        stamps[layer.identifier] = *stamp;
    }
  }
  {
    const std::lock_guard lock(mutex_);
    stamps_ = std::move(stamps);
  }
  if (!opened.ok())
    return failed(opened.error ? opened.error->describe() : "the scene could not be read");
  return sceneFromStage(std::move(opened.stage), 0);
}

bool SceneFeed::filesChanged() {
  std::map<std::string, std::pair<std::int64_t, std::int64_t>> stamps;
  {
    const std::lock_guard lock(mutex_);
    stamps = stamps_;
  }
  if (stamps.empty())
    return fileStamp(source_.scene).has_value();  // a scene that was missing has come
  for (const auto& [path, stamp] : stamps) {
    const auto now = fileStamp(path);
    if (!now || *now != stamp)
      return true;
  }
  return false;
}

LoadedScene SceneFeed::loadFromServer() {
  SceneSource source;
  {
    const std::lock_guard lock(mutex_);
    source = source_;
  }
  std::string error;
  std::unique_ptr<HttpLink> link = openLink(source, error);
  if (!link)
    return failed(error);
  std::string body;
  const StreamOutcome outcome = link->streamGet(
      "/api/layers?" + scopeQuery(*link, source),
      [&body](std::string_view chunk) {
        body.append(chunk);
        return true;
      },
      std::chrono::seconds(60));
  if (outcome.end != StreamEnd::kEnded)
    return failed(outcome.message.empty() ? "the layers of the scene could not be fetched"
                                          : outcome.message);
  auto decoded = editor::decodeJson<editor::SceneLayersResponse>(body);
  if (!decoded.ok())
    return failed("the server's layers answer does not decode: " + decoded.error().description);
  editor::SceneLayersResponse& answer = decoded.value();
  std::map<std::string, std::shared_ptr<const Layer>, std::less<>> layers;
  for (editor::SceneLayerText& text : answer.layers) {
    LayerReadResult read = readLayerText(text.identifier, std::move(text.text));
    if (!read.ok())
      return failed(read.error ? read.error->describe() : "a layer could not be read");
    layers[text.identifier] = std::move(read.layer);
  }
  const auto root = layers.find(answer.root);
  if (root == layers.end())
    return failed("the server's answer holds no root layer '" + answer.root + "'");
  ComposeOptions options;
  options.mutedLayers = answer.mutedLayers;
  options.layerProvider = [&layers](const std::string& identifier) -> std::shared_ptr<const Layer> {
    const auto found = layers.find(identifier);
    return found == layers.end() ? nullptr : found->second;
  };
  StageOpenResult composed = composeStage(root->second, options);
  if (!composed.ok())
    return failed(composed.error ? composed.error->describe() : "the scene could not be composed");
  {
    const std::lock_guard lock(mutex_);
    revision_ = answer.revision;
    // The stream spoke of a newer revision while this one was read: read again.
    if (newestRevision_ > answer.revision)
      reloadWanted_ = true;
  }
  return sceneFromStage(std::move(composed.stage), answer.revision);
}

void SceneFeed::watchLoop() {
  while (true) {
    SceneSource source;
    {
      const std::lock_guard lock(mutex_);
      if (stop_)
        return;
      source = source_;
    }
    std::string error;
    std::unique_ptr<HttpLink> link = openLink(source, error);
    if (link) {
      LineSplitter splitter(std::size_t{16} << 20);
      std::string query = scopeQuery(*link, source);
      query += "&clientId=" + link->escapeQueryValue(source.clientId + "-watch");
      link->streamGet(
          "/api/watch?" + query,
          [&](std::string_view chunk) {
            splitter.feed(chunk, [&](std::string_view line, bool overlong) {
              if (overlong)
                return true;
              auto decoded = editor::decodeJson<editor::ToolClientLine>(line);
              if (!decoded.ok())
                return true;
              const editor::ToolClientLine& said = decoded.value();
              if (said.type == "stageChanged") {
                reload();
              } else if (said.type == "hello" && said.revision) {
                // Changes may have come while the stream was down: read again unless the
                // revision is the one on screen (or being read).
                const std::lock_guard lock(mutex_);
                newestRevision_ = std::max(newestRevision_, *said.revision);
                if (revision_ && *revision_ < *said.revision)
                  reloadWanted_ = true;
                wake_.notify_all();
              }
              return true;
            });
            const std::lock_guard lock(mutex_);
            return !stop_;
          },
          std::chrono::seconds(10));
    }
    std::unique_lock lock(mutex_);
    wake_.wait_for(lock, std::chrono::seconds(1), [this] { return stop_; });
  }
}

}  // namespace orvan::engine
