#include "Authoring/EditOperation.h"

#include <array>
#include <tuple>
#include <utility>

#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonFields.h"

namespace orvan::engine {
namespace {

namespace json = editor::json;

// The operation as it arrives: kinds as words, every field optional.
struct OperationRecord {
  std::string type;
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
  std::string entityPath;
  std::string componentType;
  std::string propertyName;
  std::string value;
  std::string primPath;
  std::string identifier;
  std::string name;
  std::string direction;
  bool muted = false;
  bool moveRootContentToBaseLayer = false;
  std::string assetKind;
  std::string sourceURI;
  std::string storeURI;

  bool operator==(const OperationRecord&) const = default;
  static auto jsonFields() {
    using T = OperationRecord;
    return std::tuple{
        json::required("type", &T::type),
        json::required("kind", &T::kind),
        json::defaulted("parentPath", &T::parentPath, ""),
        json::defaulted("primName", &T::primName, ""),
        json::defaulted("primitiveKind", &T::primitiveKind, ""),
        json::defaulted("referenceURI", &T::referenceURI, ""),
        json::defaulted("payloadURI", &T::payloadURI, ""),
        json::defaulted("assetName", &T::assetName, ""),
        json::defaulted("sourcePath", &T::sourcePath, ""),
        json::optional("initialTranslation", &T::initialTranslation),
        json::defaulted("instanceable", &T::instanceable, false),
        json::defaulted("entityPath", &T::entityPath, ""),
        json::defaulted("componentType", &T::componentType, ""),
        json::defaulted("propertyName", &T::propertyName, ""),
        json::defaulted("value", &T::value, ""),
        json::defaulted("primPath", &T::primPath, ""),
        json::defaulted("identifier", &T::identifier, ""),
        json::defaulted("name", &T::name, ""),
        json::defaulted("direction", &T::direction, ""),
        json::defaulted("muted", &T::muted, false),
        json::defaulted("moveRootContentToBaseLayer", &T::moveRootContentToBaseLayer, false),
        json::defaulted("assetKind", &T::assetKind, ""),
        json::defaulted("sourceURI", &T::sourceURI, ""),
        json::defaulted("storeURI", &T::storeURI, "")};
  }
};

struct RequestRecord {
  std::string project;
  std::string scene;
  std::string workspace;
  std::string activeLayer;
  std::string author;
  std::string clientId;
  std::uint64_t baseRevision = 0;
  std::string label;
  std::vector<OperationRecord> operations;

  bool operator==(const RequestRecord&) const = default;
  static auto jsonFields() {
    using T = RequestRecord;
    return std::tuple{json::defaulted("project", &T::project, ""),
                      json::defaulted("scene", &T::scene, ""),
                      json::defaulted("workspace", &T::workspace, ""),
                      json::defaulted("activeLayer", &T::activeLayer, ""),
                      json::defaulted("author", &T::author, ""),
                      json::defaulted("clientId", &T::clientId, ""),
                      json::defaulted("baseRevision", &T::baseRevision, std::uint64_t{0}),
                      json::defaulted("label", &T::label, ""),
                      json::required("operations", &T::operations)};
  }
};

template <class Kind, std::size_t N>
std::optional<Kind> kindOf(std::string_view word,
                           const std::array<std::pair<std::string_view, Kind>, N>& words) {
  for (const auto& [text, kind] : words) {
    if (text == word)
      return kind;
  }
  return std::nullopt;
}

constexpr std::array<std::pair<std::string_view, PrimOperationKind>, 9> kPrimWords{{
    {"add", PrimOperationKind::Add},
    {"reference", PrimOperationKind::Reference},
    {"payload", PrimOperationKind::Payload},
    {"delete", PrimOperationKind::Delete},
    {"reset", PrimOperationKind::Reset},
    {"duplicate", PrimOperationKind::Duplicate},
    {"reparent", PrimOperationKind::Reparent},
    {"rename", PrimOperationKind::Rename},
    {"set-instanceable", PrimOperationKind::SetInstanceable},
}};
constexpr std::array<std::pair<std::string_view, ComponentOperationKind>, 6> kComponentWords{{
    {"add", ComponentOperationKind::Add},
    {"remove", ComponentOperationKind::Remove},
    {"enable", ComponentOperationKind::Enable},
    {"set", ComponentOperationKind::Set},
    {"reset", ComponentOperationKind::Reset},
    {"reorder", ComponentOperationKind::Reorder},
}};
constexpr std::array<std::pair<std::string_view, UsdPropertyOperationKind>, 2> kPropertyWords{{
    {"set", UsdPropertyOperationKind::Set},
    {"reset", UsdPropertyOperationKind::Reset},
}};
constexpr std::array<std::pair<std::string_view, LayerOperationKind>, 7> kLayerWords{{
    {"add", LayerOperationKind::Add},
    {"remove", LayerOperationKind::Remove},
    {"move", LayerOperationKind::Move},
    {"mute", LayerOperationKind::Mute},
    {"active", LayerOperationKind::Active},
    {"clear", LayerOperationKind::Clear},
    {"merge-down", LayerOperationKind::MergeDown},
}};
constexpr std::array<std::pair<std::string_view, AssetOperationKind>, 2> kAssetWords{{
    {"replace", AssetOperationKind::Replace},
    {"remove", AssetOperationKind::Remove},
}};
constexpr std::array<std::pair<std::string_view, HistoryOperationKind>, 2> kHistoryWords{{
    {"undo", HistoryOperationKind::Undo},
    {"redo", HistoryOperationKind::Redo},
}};
constexpr std::array<std::pair<std::string_view, OperationType>, 6> kTypeWords{{
    {"prim", OperationType::Prim},
    {"component", OperationType::Component},
    {"usdProperty", OperationType::UsdProperty},
    {"layer", OperationType::Layer},
    {"asset", OperationType::Asset},
    {"history", OperationType::History},
}};

template <class Kind, std::size_t N>
std::string_view wordOf(Kind kind, const std::array<std::pair<std::string_view, Kind>, N>& words) {
  for (const auto& [text, candidate] : words) {
    if (candidate == kind)
      return text;
  }
  return {};
}

std::optional<OperationKind> decodeKind(OperationType type, std::string_view word) {
  const auto wrap = [](auto kind) -> std::optional<OperationKind> {
    if (!kind)
      return std::nullopt;
    return OperationKind(*kind);
  };
  switch (type) {
    case OperationType::Prim:
      return wrap(kindOf(word, kPrimWords));
    case OperationType::Component:
      return wrap(kindOf(word, kComponentWords));
    case OperationType::UsdProperty:
      return wrap(kindOf(word, kPropertyWords));
    case OperationType::Layer:
      return wrap(kindOf(word, kLayerWords));
    case OperationType::Asset:
      return wrap(kindOf(word, kAssetWords));
    case OperationType::History:
      return wrap(kindOf(word, kHistoryWords));
  }
  return std::nullopt;
}

std::size_t longestField(const OperationRecord& record) {
  std::size_t longest = 0;
  for (const std::string* field :
       {&record.parentPath, &record.primName, &record.primitiveKind, &record.referenceURI,
        &record.payloadURI, &record.assetName, &record.sourcePath, &record.entityPath,
        &record.componentType, &record.propertyName, &record.value, &record.primPath,
        &record.identifier, &record.name, &record.direction, &record.assetKind, &record.sourceURI,
        &record.storeURI}) {
    longest = std::max(longest, field->size());
  }
  return longest;
}

std::variant<EditOperation, std::string> convert(OperationRecord&& record, std::size_t index,
                                                 const EditRequestLimits& limits) {
  const std::string where = "operations[" + std::to_string(index) + "]";
  const auto type = kindOf(std::string_view(record.type), kTypeWords);
  if (!type)
    return "Unknown operation type '" + record.type + "' at " + where;
  auto kind = decodeKind(*type, record.kind);
  if (!kind)
    return "Unknown " + record.type + " operation kind '" + record.kind + "' at " + where;
  if (longestField(record) > limits.maxFieldBytes) {
    return "A field of " + where + " is longer than " + std::to_string(limits.maxFieldBytes) +
           " bytes";
  }
  if (record.initialTranslation && record.initialTranslation->size() > 64)
    return "initialTranslation of " + where + " holds more than 64 numbers";
  EditOperation operation;
  operation.type = *type;
  operation.kind = *kind;
  operation.parentPath = std::move(record.parentPath);
  operation.primName = std::move(record.primName);
  operation.primitiveKind = std::move(record.primitiveKind);
  operation.referenceURI = std::move(record.referenceURI);
  operation.payloadURI = std::move(record.payloadURI);
  operation.assetName = std::move(record.assetName);
  operation.sourcePath = std::move(record.sourcePath);
  operation.initialTranslation = std::move(record.initialTranslation);
  operation.instanceable = record.instanceable;
  operation.entityPath = std::move(record.entityPath);
  operation.componentType = std::move(record.componentType);
  operation.propertyName = std::move(record.propertyName);
  operation.value = std::move(record.value);
  operation.primPath = std::move(record.primPath);
  operation.identifier = std::move(record.identifier);
  operation.name = std::move(record.name);
  operation.direction = std::move(record.direction);
  operation.muted = record.muted;
  operation.moveRootContentToBaseLayer = record.moveRootContentToBaseLayer;
  operation.assetKind = std::move(record.assetKind);
  operation.sourceURI = std::move(record.sourceURI);
  operation.storeURI = std::move(record.storeURI);
  return operation;
}

}  // namespace

std::string_view operationTypeWord(OperationType type) {
  return wordOf(type, kTypeWords);
}

std::string_view operationKindWord(const OperationKind& kind) {
  return std::visit(
      [](auto value) -> std::string_view {
        using Kind = decltype(value);
        if constexpr (std::is_same_v<Kind, PrimOperationKind>)
          return wordOf(value, kPrimWords);
        else if constexpr (std::is_same_v<Kind, ComponentOperationKind>)
          return wordOf(value, kComponentWords);
        else if constexpr (std::is_same_v<Kind, UsdPropertyOperationKind>)
          return wordOf(value, kPropertyWords);
        else if constexpr (std::is_same_v<Kind, LayerOperationKind>)
          return wordOf(value, kLayerWords);
        else if constexpr (std::is_same_v<Kind, AssetOperationKind>)
          return wordOf(value, kAssetWords);
        else
          return wordOf(value, kHistoryWords);
      },
      kind);
}

std::variant<EditRequest, std::string> decodeEditRequest(std::string_view json,
                                                         const EditRequestLimits& limits) {
  if (json.size() > limits.maxBodyBytes) {
    return "The edit request is larger than the limit of " + std::to_string(limits.maxBodyBytes) +
           " bytes";
  }
  editor::Result<RequestRecord> decoded = editor::decodeJson<RequestRecord>(json, "edit");
  if (!decoded.ok())
    return "The edit request does not decode: " + decoded.error().description;
  RequestRecord& record = *decoded;
  if (record.operations.empty())
    return "The edit request holds no operations";
  if (record.operations.size() > limits.maxOperations) {
    return "The edit request holds more than " + std::to_string(limits.maxOperations) +
           " operations";
  }
  for (const std::string* field :
       {&record.project, &record.scene, &record.workspace, &record.activeLayer, &record.author,
        &record.clientId, &record.label}) {
    if (field->size() > limits.maxFieldBytes)
      return "A field of the edit request is longer than " + std::to_string(limits.maxFieldBytes) +
             " bytes";
  }
  EditRequest request;
  request.project = std::move(record.project);
  request.scene = std::move(record.scene);
  request.workspace = std::move(record.workspace);
  request.activeLayer = std::move(record.activeLayer);
  request.author = std::move(record.author);
  request.clientId = std::move(record.clientId);
  request.baseRevision = record.baseRevision;
  request.label = std::move(record.label);
  request.operations.reserve(record.operations.size());
  for (std::size_t i = 0; i < record.operations.size(); ++i) {
    auto converted = convert(std::move(record.operations[i]), i, limits);
    if (auto* error = std::get_if<std::string>(&converted))
      return std::move(*error);
    request.operations.push_back(std::move(std::get<EditOperation>(converted)));
  }
  return request;
}

}  // namespace orvan::engine
