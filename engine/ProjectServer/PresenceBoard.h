#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "ProjectServer/ChangeFeed.h"
#include "orvan/wire/JsonFields.h"

namespace orvan::engine {

// The body of POST /api/presence: one client's selection and active layer.
struct PresenceRequest {
  std::string clientId;
  std::optional<std::string> displayName = {};
  std::optional<std::string> color = {};
  std::optional<std::string> project = {};
  std::optional<std::string> scene = {};
  std::optional<std::string> workspace = {};
  std::optional<std::string> activeLayer = {};
  std::optional<std::vector<std::string>> selectedPaths = {};

  static auto jsonFields() {
    using T = PresenceRequest;
    namespace json = editor::json;
    return std::tuple{json::required("clientId", &T::clientId),
                      json::optional("displayName", &T::displayName),
                      json::optional("color", &T::color),
                      json::optional("project", &T::project),
                      json::optional("scene", &T::scene),
                      json::optional("workspace", &T::workspace),
                      json::optional("activeLayer", &T::activeLayer),
                      json::optional("selectedPaths", &T::selectedPaths)};
  }
};

struct Presence {
  FeedScope scope = {};
  std::string clientId = {};
  std::string displayName = {};
  std::string color = {};
  std::string activeLayer = {};
  std::vector<std::string> selectedPaths = {};
};

// The "selection" line watchers of the presence's scope get.
std::string selectionLine(const Presence& presence);

// Who is looking at what. An entry lives `lifetime` from its client's last publication; there is
// no goodbye, a client that stops publishing fades out.
class PresenceBoard {
 public:
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  explicit PresenceBoard(
      std::chrono::milliseconds lifetime = std::chrono::seconds(10),
      Clock clock = [] { return std::chrono::steady_clock::now(); });

  // Replaces the client's entry (a client is in one scope at a time).
  void publish(Presence presence);
  // The live entries of a scope, oldest publication first.
  std::vector<Presence> live(const FeedScope& scope);

 private:
  struct Entry {
    Presence presence;
    std::chrono::steady_clock::time_point at;
  };
  void prune(std::chrono::steady_clock::time_point now);

  const std::chrono::milliseconds lifetime_;
  const Clock clock_;
  std::mutex mutex_;
  std::vector<Entry> entries_;
};

}  // namespace orvan::engine
