#pragma once

#include <string>

namespace orvan::editor {

// A project asset picked in the project pane.
struct ProjectAssetSelection {
  std::string path;
  std::string kind;

  bool operator==(const ProjectAssetSelection&) const = default;
};

}  // namespace orvan::editor
