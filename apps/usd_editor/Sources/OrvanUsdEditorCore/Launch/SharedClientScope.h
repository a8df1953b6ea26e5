#pragma once

#include <string>

namespace orvan::editor {

// The editor's scope as it crosses into the client core: exactly the six fields the switch
// coordinator compares. An empty field means "not set".
struct SharedClientScope {
  std::string server;
  std::string project;
  std::string projectRoot;
  std::string scene;
  std::string workspace;
  std::string activeLayer;

  bool operator==(const SharedClientScope&) const = default;
};

}  // namespace orvan::editor
