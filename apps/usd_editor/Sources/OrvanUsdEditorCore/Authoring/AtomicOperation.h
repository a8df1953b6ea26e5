#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "orvan/wire/Error.h"
#include "orvan/wire/records/EditClientResponse.h"

namespace orvan::editor {

// Every change the editor makes to the scene on the server is one `AtomicOperation`. Each payload
// knows its two wire forms: the single line that goes to the long-lived edit helper over standard
// input (no trailing line feed; the client adds it), and the argument vector of a one-shot run of
// the same helper. Free text on the line is cleaned of tabs and line breaks; the argument vector
// carries every field untouched.

enum class PrimOperationKind {
  add,
  reference,
  payload,
  deletePrim,
  reset,
  duplicate,
  reparent,
  rename,
  setInstanceable
};
enum class ComponentOperationKind { add, remove, enable, set, reset, reorder };
enum class LayerOperationKind { add, remove, move, mute, active, clear, mergeDown };
enum class UsdPropertyOperationKind { set, reset };
enum class AssetOperationKind { replace, remove };
enum class HistoryOperationKind { undo, redo };

// The raw words of each kind, as they appear in keys, lines and arguments.
std::string_view rawWord(PrimOperationKind kind);
std::string_view rawWord(ComponentOperationKind kind);
std::string_view rawWord(LayerOperationKind kind);
std::string_view rawWord(UsdPropertyOperationKind kind);
std::string_view rawWord(AssetOperationKind kind);
std::string_view rawWord(HistoryOperationKind kind);

struct PrimAtomicOperation {
  PrimOperationKind kind = PrimOperationKind::add;
  // The parent that receives the prim; for a delete, the path to select afterwards.
  std::string parentPath;
  std::string primName;
  std::string primitiveKind;
  std::string referenceURI;
  std::string payloadURI;
  std::string assetName;
  // The existing prim of a delete, reset, duplicate, reparent, rename or setInstanceable.
  std::string sourcePath;
  // Counted only with three values or more, and then only the first three.
  std::optional<std::vector<double>> initialTranslation;
  bool instanceable = false;

  bool operator==(const PrimAtomicOperation&) const = default;

  // There is no single-prim line: one prim operation travels as a batch of one.
  static std::string stdioBatchCommand(std::uint64_t revision,
                                       std::span<const PrimAtomicOperation> operations);
  std::vector<std::string> arguments(const std::string& address, std::uint64_t revision,
                                     const std::string& author, const std::string& workspace) const;
  // `parentPath` + "/" + `primName`, with no doubled slash under "/".
  std::string createdPath() const;
  std::optional<std::string> selectedPathAfterAccept() const;
  std::string replacementKey() const;
  std::string label() const;
  // The translation when it counts: the first three of three or more values.
  std::optional<std::array<double, 3>> effectiveTranslation() const;
};

struct ComponentAtomicOperation {
  ComponentOperationKind kind = ComponentOperationKind::add;
  std::string entityPath;
  std::string componentType;
  std::string propertyName;
  std::string value;

  bool operator==(const ComponentAtomicOperation&) const = default;

  std::string stdioCommand(std::uint64_t revision) const;
  static std::string stdioBatchCommand(std::uint64_t revision,
                                       std::span<const ComponentAtomicOperation> operations);
  std::vector<std::string> arguments(const std::string& address, std::uint64_t revision,
                                     const std::string& author, const std::string& workspace) const;
  // Whether the stage's shape may change: a refresh follows such a write.
  bool changesStageStructure() const;
  std::string replacementKey() const;
  std::string label() const;
};

// Layer operations have no line form: they always run as a one-shot helper.
struct LayerAtomicOperation {
  LayerOperationKind kind = LayerOperationKind::add;
  std::string identifier;
  std::string name;
  std::string direction;
  bool muted = false;
  bool moveRootContentToBaseLayer = false;

  bool operator==(const LayerAtomicOperation&) const = default;

  std::vector<std::string> arguments(const std::string& address, std::uint64_t revision,
                                     const std::string& author, const std::string& workspace) const;
  std::string replacementKey() const;
  std::string label() const;
};

struct UsdPropertyAtomicOperation {
  UsdPropertyOperationKind kind = UsdPropertyOperationKind::set;
  std::string primPath;
  std::string propertyName;
  // For a vector, a comma-joined list.
  std::string value;

  bool operator==(const UsdPropertyAtomicOperation&) const = default;

  std::string stdioCommand(std::uint64_t revision) const;
  std::vector<std::string> arguments(const std::string& address, std::uint64_t revision,
                                     const std::string& author, const std::string& workspace) const;
  std::string replacementKey() const;
  std::string label() const;
};

struct AssetAtomicOperation {
  AssetOperationKind kind = AssetOperationKind::replace;
  std::string name;
  std::string assetKind;
  std::string sourceURI;
  std::string storeURI;  // may be empty

  bool operator==(const AssetAtomicOperation&) const = default;

  std::string stdioCommand(std::uint64_t revision) const;
  std::vector<std::string> arguments(const std::string& address, std::uint64_t revision,
                                     const std::string& author, const std::string& workspace) const;
  std::string replacementKey() const;
  std::string label() const;
};

struct HistoryAtomicOperation {
  HistoryOperationKind kind = HistoryOperationKind::undo;

  bool operator==(const HistoryAtomicOperation&) const = default;

  std::string stdioCommand(std::uint64_t revision) const;
  std::vector<std::string> arguments(const std::string& address, std::uint64_t revision,
                                     const std::string& author, const std::string& workspace) const;
  std::string replacementKey() const;
  std::string label() const;
};

// The tagged union of every authoring operation.
struct AtomicOperation {
  std::variant<AssetAtomicOperation, ComponentAtomicOperation, LayerAtomicOperation,
               PrimAtomicOperation, UsdPropertyAtomicOperation, HistoryAtomicOperation>
      value;

  // Equal keys address the same thing: a newer queued operation replaces an older one.
  std::string replacementKey() const;
  // Short lower-case text for the status line ("Publishing " + label).
  std::string label() const;
  std::optional<std::string> selectedPathAfterAccept() const;
  // The one-shot argument vector of whichever payload this is.
  std::vector<std::string> arguments(const std::string& address, std::uint64_t revision,
                                     const std::string& author, const std::string& workspace) const;

  const PrimAtomicOperation* prim() const { return std::get_if<PrimAtomicOperation>(&value); }
  const ComponentAtomicOperation* component() const {
    return std::get_if<ComponentAtomicOperation>(&value);
  }
  const LayerAtomicOperation* layer() const { return std::get_if<LayerAtomicOperation>(&value); }
  const UsdPropertyAtomicOperation* usdProperty() const {
    return std::get_if<UsdPropertyAtomicOperation>(&value);
  }
  const AssetAtomicOperation* asset() const { return std::get_if<AssetAtomicOperation>(&value); }
  const HistoryAtomicOperation* history() const {
    return std::get_if<HistoryAtomicOperation>(&value);
  }

  bool operator==(const AtomicOperation&) const = default;
};

// "--json", "--author", author, "--workspace", workspace ("main" when empty), address, revision.
std::vector<std::string> editClientBaseArguments(const std::string& author,
                                                 const std::string& workspace,
                                                 const std::string& address,
                                                 std::uint64_t revision);

// A free-text field as it goes on the line: each tab, line feed and carriage return a blank.
std::string cleanedStdioField(std::string_view text);

// The helper's reply line. Missing required keys fail the whole reply; unknown keys are skipped.
Result<EditClientResponse> decodeEditClientResponse(std::string_view line);

}  // namespace orvan::editor
