#pragma once

#include <optional>
#include <string>
#include <tuple>

#include "Foundation/JsonFields.h"

// Records of the project server's answers.
namespace orvan::editor {

// A person or agent as the workspace shows them.
struct UserProfileSummary {
  std::string id;
  std::optional<std::string> displayName;
  std::optional<std::string> name;
  std::string color;

  bool operator==(const UserProfileSummary&) const = default;
  static auto jsonFields() {
    using T = UserProfileSummary;
    return std::tuple{json::required("id", &T::id), json::optional("displayName", &T::displayName),
                      json::optional("name", &T::name), json::required("color", &T::color)};
  }
};

}  // namespace orvan::editor
