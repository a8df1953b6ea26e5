#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "orvan/wire/JsonFields.h"
#include "orvan/wire/records/ToolClientLine.h"

// What the tool client prints: one JSON object a line, with the keys the editor reads from the
// watcher, and the presence it publishes.
namespace orvan::engine {

namespace json = editor::json;

// The line shape is the editor's own record, shared through the wire library.
using editor::ToolClientLine;
using editor::ToolClientPrimOperation;

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
