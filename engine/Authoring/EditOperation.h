#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace orvan::engine {

enum class OperationType : std::uint8_t { Prim, Component, UsdProperty, Layer, Asset, History };

enum class PrimOperationKind : std::uint8_t {
  Add,
  Reference,
  Payload,
  Delete,
  Reset,
  Duplicate,
  Reparent,
  Rename,
  SetInstanceable,
};
enum class ComponentOperationKind : std::uint8_t { Add, Remove, Enable, Set, Reset, Reorder };
enum class UsdPropertyOperationKind : std::uint8_t { Set, Reset };
enum class LayerOperationKind : std::uint8_t { Add, Remove, Move, Mute, Active, Clear, MergeDown };
enum class AssetOperationKind : std::uint8_t { Replace, Remove };
enum class HistoryOperationKind : std::uint8_t { Undo, Redo };

using OperationKind =
    std::variant<PrimOperationKind, ComponentOperationKind, UsdPropertyOperationKind,
                 LayerOperationKind, AssetOperationKind, HistoryOperationKind>;

// The raw words of the edit requests ("set-instanceable", "merge-down", ...).
std::string_view operationTypeWord(OperationType type);
std::string_view operationKindWord(const OperationKind& kind);

// One operation of an edit request. Every payload's fields sit side by side; an operation uses
// those of its type (absent strings are "", absent bools false).
struct EditOperation {
  OperationType type = OperationType::Prim;
  OperationKind kind = PrimOperationKind::Add;

  // prim
  std::string parentPath;
  std::string primName;
  std::string primitiveKind;
  std::string referenceURI;
  std::string payloadURI;
  std::string assetName;
  std::string sourcePath;
  std::optional<std::vector<double>> initialTranslation;
  bool instanceable = false;
  // component
  std::string entityPath;
  std::string componentType;
  std::string propertyName;
  std::string value;  // also usdProperty's value
  // usdProperty
  std::string primPath;
  // layer
  std::string identifier;
  std::string name;  // also asset's name
  std::string direction;
  bool muted = false;
  bool moveRootContentToBaseLayer = false;
  // asset
  std::string assetKind;
  std::string sourceURI;
  std::string storeURI;

  bool operator==(const EditOperation&) const = default;

  template <class Kind>
  Kind kindAs() const {
    return std::get<Kind>(kind);
  }
};

struct EditRequest {
  std::string project;
  std::string scene;
  std::string workspace;  // "" means "main"
  std::string activeLayer;
  std::string author;
  std::string clientId;
  std::uint64_t baseRevision = 0;
  std::string label;
  std::vector<EditOperation> operations;

  bool operator==(const EditRequest&) const = default;
};

// What a request may hold at most; a body beyond them is refused before anything is planned.
struct EditRequestLimits {
  std::size_t maxBodyBytes = 256u << 20;
  std::size_t maxOperations = 10'000;
  std::size_t maxFieldBytes = 16u << 20;  // one string field, a value included
};

// The request body of an edit, or why it is malformed (one sentence naming the field).
std::variant<EditRequest, std::string> decodeEditRequest(std::string_view json,
                                                         const EditRequestLimits& limits = {});

}  // namespace orvan::engine
