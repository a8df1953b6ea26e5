#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "orvan/wire/JsonFields.h"

// The change stream as the tool client prints it, one object a line: what the server says after
// each revision, and the selections other clients publish. The project server writes these keys
// and the editor reads them, so both use this one definition.
namespace orvan::editor {

// One structural change of a revision, as far as another client needs it to show the change
// before its next refresh. A rename travels as "reparent".
struct ToolClientPrimOperation {
  std::string kind;
  std::optional<std::string> parentPath = {};
  std::optional<std::string> primName = {};
  std::optional<std::string> primitiveKind = {};
  std::optional<std::string> sourcePath = {};

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
  std::optional<std::string> entityPath = {};
  std::optional<std::uint64_t> entityId = {};
  std::optional<std::uint64_t> revision = {};
  std::optional<std::string> sourceClientId = {};
  std::optional<std::vector<std::string>> entityPaths = {};
  std::optional<std::string> displayName = {};
  std::optional<std::string> color = {};
  std::optional<std::string> scene = {};
  std::optional<std::string> workspace = {};
  std::optional<std::string> activeLayer = {};
  std::optional<std::vector<std::string>> domains = {};
  std::optional<std::vector<ToolClientPrimOperation>> primOperations = {};

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

}  // namespace orvan::editor
