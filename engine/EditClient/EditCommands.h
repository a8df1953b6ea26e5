#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>
#include <vector>

#include "orvan/wire/JsonFields.h"

// The edit helper's commands as the authoring endpoint takes them: one record per operation type,
// with the endpoint's key names (every field written, "" and false where the command gave
// nothing), and the request body around a batch of them.
namespace orvan::engine {

namespace json = editor::json;

struct PrimOperationFields {
  std::string type = "prim";
  std::string kind;
  std::string parentPath;
  std::string primName;
  std::string primitiveKind;
  std::string referenceURI;
  std::string payloadURI;
  std::string assetName;
  std::string sourcePath;
  std::optional<std::vector<double>> initialTranslation;
  bool instanceable = false;

  bool operator==(const PrimOperationFields&) const = default;
  static auto jsonFields() {
    using T = PrimOperationFields;
    return std::tuple{json::required("type", &T::type),
                      json::required("kind", &T::kind),
                      json::required("parentPath", &T::parentPath),
                      json::required("primName", &T::primName),
                      json::required("primitiveKind", &T::primitiveKind),
                      json::required("referenceURI", &T::referenceURI),
                      json::required("payloadURI", &T::payloadURI),
                      json::required("assetName", &T::assetName),
                      json::required("sourcePath", &T::sourcePath),
                      json::optional("initialTranslation", &T::initialTranslation),
                      json::required("instanceable", &T::instanceable)};
  }
};

struct ComponentOperationFields {
  std::string type = "component";
  std::string kind;
  std::string entityPath;
  std::string componentType;
  std::string propertyName;
  std::string value;

  bool operator==(const ComponentOperationFields&) const = default;
  static auto jsonFields() {
    using T = ComponentOperationFields;
    return std::tuple{json::required("type", &T::type),
                      json::required("kind", &T::kind),
                      json::required("entityPath", &T::entityPath),
                      json::required("componentType", &T::componentType),
                      json::required("propertyName", &T::propertyName),
                      json::required("value", &T::value)};
  }
};

struct UsdPropertyOperationFields {
  std::string type = "usdProperty";
  std::string kind;
  std::string primPath;
  std::string propertyName;
  std::string value;

  bool operator==(const UsdPropertyOperationFields&) const = default;
  static auto jsonFields() {
    using T = UsdPropertyOperationFields;
    return std::tuple{json::required("type", &T::type), json::required("kind", &T::kind),
                      json::required("primPath", &T::primPath),
                      json::required("propertyName", &T::propertyName),
                      json::required("value", &T::value)};
  }
};

struct LayerOperationFields {
  std::string type = "layer";
  std::string kind;
  std::string identifier;
  std::string name;
  std::string direction;
  bool muted = false;
  bool moveRootContentToBaseLayer = false;

  bool operator==(const LayerOperationFields&) const = default;
  static auto jsonFields() {
    using T = LayerOperationFields;
    return std::tuple{json::required("type", &T::type),
                      json::required("kind", &T::kind),
                      json::required("identifier", &T::identifier),
                      json::required("name", &T::name),
                      json::required("direction", &T::direction),
                      json::required("muted", &T::muted),
                      json::required("moveRootContentToBaseLayer", &T::moveRootContentToBaseLayer)};
  }
};

struct AssetOperationFields {
  std::string type = "asset";
  std::string kind;
  std::string name;
  std::string assetKind;
  std::string sourceURI;
  std::string storeURI;

  bool operator==(const AssetOperationFields&) const = default;
  static auto jsonFields() {
    using T = AssetOperationFields;
    return std::tuple{
        json::required("type", &T::type),           json::required("kind", &T::kind),
        json::required("name", &T::name),           json::required("assetKind", &T::assetKind),
        json::required("sourceURI", &T::sourceURI), json::required("storeURI", &T::storeURI)};
  }
};

struct HistoryOperationFields {
  std::string type = "history";
  std::string kind;

  bool operator==(const HistoryOperationFields&) const = default;
  static auto jsonFields() {
    using T = HistoryOperationFields;
    return std::tuple{json::required("type", &T::type), json::required("kind", &T::kind)};
  }
};

using OperationFields =
    std::variant<PrimOperationFields, ComponentOperationFields, UsdPropertyOperationFields,
                 LayerOperationFields, AssetOperationFields, HistoryOperationFields>;

// One request's operations and the revision the editor knew when it wrote them.
struct EditCommand {
  std::uint64_t baseRevision = 0;
  std::vector<OperationFields> operations;

  bool operator==(const EditCommand&) const = default;
};

// Who edits what, from the helper's command line; the same for every request of a run.
struct EditScope {
  std::string author;
  std::string clientId;
  std::string scene;
  std::string workspace;
  std::string activeLayer;

  bool operator==(const EditScope&) const = default;
};

// The body of POST /api/edit. The scene is left out when the command line named none (the
// server then takes the project's main scene); the other scope fields are always written.
std::string encodeEditBody(const EditScope& scope, const EditCommand& command);

// The most operations one request may carry.
inline constexpr std::size_t kMaxOperationsPerCommand = 10000;

// Checks a decimal revision or count: digits only, no sign, no blanks, within 64 bits.
std::optional<std::uint64_t> parseDecimal(std::string_view text);

}  // namespace orvan::engine
