#pragma once

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "orvan/wire/JsonFields.h"

// Records of the project server's answers.
namespace orvan::editor {

// A person or agent as the workspace shows them.
struct UserProfileSummary {
  std::string id = {};
  std::optional<std::string> displayName = {};
  std::optional<std::string> name = {};
  std::string color = {};

  bool operator==(const UserProfileSummary&) const = default;
  static auto jsonFields() {
    using T = UserProfileSummary;
    return std::tuple{json::required("id", &T::id), json::optional("displayName", &T::displayName),
                      json::optional("name", &T::name), json::required("color", &T::color)};
  }
};

// A client with a scene open: a person's editor or an agent.
struct SceneClientSummary {
  std::string id = {};
  std::string name = {};
  std::optional<std::string> color = {};
  std::optional<std::string> kind = {};
  std::optional<std::string> status = {};
  std::optional<std::string> activeLayer = {};
  std::optional<std::string> model = {};
  std::optional<std::string> prompt = {};
  std::optional<std::string> validationStatus = {};

  bool operator==(const SceneClientSummary&) const = default;
  static auto jsonFields() {
    using T = SceneClientSummary;
    return std::tuple{json::required("id", &T::id),
                      json::required("name", &T::name),
                      json::optional("color", &T::color),
                      json::optional("kind", &T::kind),
                      json::optional("status", &T::status),
                      json::optional("activeLayer", &T::activeLayer),
                      json::optional("model", &T::model),
                      json::optional("prompt", &T::prompt),
                      json::optional("validationStatus", &T::validationStatus)};
  }
};

}  // namespace orvan::editor
