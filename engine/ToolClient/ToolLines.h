#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "orvan/wire/JsonFields.h"

// What the tool client prints: one JSON object a line, with the keys the editor reads from the
// watcher, and the presence it publishes.
namespace orvan::engine {

namespace json = editor::json;

struct ToolClientPrimOperation {
  std::string kind;
  std::optional<std::string> parentPath;
  std::optional<std::string> primName;
  std::optional<std::string> primitiveKind;
  std::optional<std::string> sourcePath;

  bool operator==(const ToolClientPrimOperation&) const = default;
  static auto jsonFields() {
    using T = ToolClientPrimOperation;
    return std::tuple{json::required("kind", &T::kind),
                      json::optional("parentPath", &T::parentPath),
                      json::optional("primName", &T::primName),
                      json::optional("primitiveKind", &T::primitiveKind),
                      json::optional("sourcePath", &T::sourcePath)};
  }
};

struct ToolClientLine {
  std::string type;
  std::optional<std::string> entityPath;
  std::optional<std::uint64_t> entityId;
  std::optional<std::uint64_t> revision;
  std::optional<std::string> sourceClientId;
  std::optional<std::vector<std::string>> entityPaths;
  std::optional<std::string> displayName;
  std::optional<std::string> color;
  std::optional<std::string> scene;
  std::optional<std::string> workspace;
  std::optional<std::string> activeLayer;
  std::optional<std::vector<std::string>> domains;
  std::optional<std::vector<ToolClientPrimOperation>> primOperations;

  bool operator==(const ToolClientLine&) const = default;
  static auto jsonFields() {
    using T = ToolClientLine;
    return std::tuple{json::required("type", &T::type),
                      json::optional("entityPath", &T::entityPath),
                      json::optional("entityId", &T::entityId),
                      json::optional("revision", &T::revision),
                      json::optional("sourceClientId", &T::sourceClientId),
                      json::optional("entityPaths", &T::entityPaths),
                      json::optional("displayName", &T::displayName),
                      json::optional("color", &T::color),
                      json::optional("scene", &T::scene),
                      json::optional("workspace", &T::workspace),
                      json::optional("activeLayer", &T::activeLayer),
                      json::optional("domains", &T::domains),
                      json::optional("primOperations", &T::primOperations)};
  }
};

// What becomes of one line of the watch stream.
struct WatchLineResult {
  // The line to print (compact JSON, no line feed); empty when nothing is printed.
  std::string printed;
  // Why a line was dropped although it is no hello or heartbeat; empty otherwise.
  std::string problem;
};

// Re-encodes one line of the watch stream in the tool client's line shape. "hello" and
// "heartbeat" lines, and blank lines, print nothing; a line that does not decode prints nothing
// and says why. A "rename" in the prim operations goes out as "reparent", the one word the editor
// knows for a move under a new name.
WatchLineResult watchLineToPrint(std::string_view line);

// The body of POST /api/presence.
struct PresenceBody {
  std::string clientId;
  std::string displayName;
  std::string color;
  std::string scene;
  std::string workspace;
  std::string activeLayer;
  std::vector<std::string> selectedPaths;

  bool operator==(const PresenceBody&) const = default;
  static auto jsonFields() {
    using T = PresenceBody;
    return std::tuple{json::required("clientId", &T::clientId),
                      json::required("displayName", &T::displayName),
                      json::required("color", &T::color),
                      json::required("scene", &T::scene),
                      json::required("workspace", &T::workspace),
                      json::required("activeLayer", &T::activeLayer),
                      json::required("selectedPaths", &T::selectedPaths)};
  }
};

}  // namespace orvan::engine
