#include "Authoring/AtomicOperation.h"

#include <array>

#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/Numbers.h"

namespace orvan::editor {

namespace {

constexpr char kTab = '\t';

// Builds one tab-joined line. Free text goes through `text` (cleaned); fixed words and numbers
// through `word`.
class StdioLine {
 public:
  explicit StdioLine(std::string_view command) : line_(command) {}

  StdioLine& word(std::string_view word) {
    line_ += kTab;
    line_ += word;
    return *this;
  }
  StdioLine& number(std::uint64_t value) { return word(std::to_string(value)); }
  StdioLine& text(std::string_view text) {
    line_ += kTab;
    appendCleaned(text);
    return *this;
  }
  // A token whose prefix is fixed and whose rest is free text ("asset=Chair").
  StdioLine& token(std::string_view prefix, std::string_view text) {
    line_ += kTab;
    line_ += prefix;
    appendCleaned(text);
    return *this;
  }
  std::string take() { return std::move(line_); }

 private:
  void appendCleaned(std::string_view text) {
    for (const char c : text)
      line_ += (c == '\t' || c == '\n' || c == '\r') ? ' ' : c;
  }

  std::string line_;
};

std::string_view trueOrFalse(bool value) {
  return value ? "true" : "false";
}

std::string translationKeyText(const std::optional<std::vector<double>>& translation) {
  if (!translation)
    return "[]";
  std::string text = "[";
  for (std::size_t i = 0; i < translation->size(); ++i) {
    if (i > 0)
      text += ", ";
    appendShortestDouble(text, (*translation)[i]);
  }
  text += "]";
  return text;
}

// The wire word of a prim kind: a rename is a reparent to the same parent with a new name.
std::string_view primWireWord(PrimOperationKind kind) {
  return kind == PrimOperationKind::rename ? rawWord(PrimOperationKind::reparent) : rawWord(kind);
}

void appendPrimBatchFields(StdioLine& line, const PrimAtomicOperation& operation) {
  line.word(primWireWord(operation.kind));
  switch (operation.kind) {
    case PrimOperationKind::add:
      line.text(operation.parentPath).text(operation.primName).text(operation.primitiveKind);
      if (!operation.assetName.empty())
        line.token("asset=", operation.assetName);
      break;
    case PrimOperationKind::reference:
      line.text(operation.parentPath).text(operation.primName).text(operation.referenceURI);
      break;
    case PrimOperationKind::payload:
      line.text(operation.parentPath)
          .text(operation.primName)
          .text(operation.payloadURI)
          .text(operation.assetName);
      break;
    case PrimOperationKind::deletePrim:
    case PrimOperationKind::reset:
      line.text(operation.sourcePath);
      break;
    case PrimOperationKind::duplicate:
    case PrimOperationKind::reparent:
    case PrimOperationKind::rename:
      line.text(operation.sourcePath).text(operation.parentPath).text(operation.primName);
      break;
    case PrimOperationKind::setInstanceable:
      line.text(operation.sourcePath).word(trueOrFalse(operation.instanceable));
      break;
  }
  if (const auto translation = operation.effectiveTranslation()) {
    std::string joined;
    for (std::size_t i = 0; i < translation->size(); ++i) {
      if (i > 0)
        joined += ',';
      appendShortestDouble(joined, (*translation)[i]);
    }
    line.word("translation=" + joined);
  }
}

// The per-kind tail of a component operation, shared by the line and the argument vector.
std::vector<std::string_view> componentTail(const ComponentAtomicOperation& operation) {
  switch (operation.kind) {
    case ComponentOperationKind::add:
    case ComponentOperationKind::remove:
      return {};
    case ComponentOperationKind::enable:
    case ComponentOperationKind::reorder:
      return {operation.value};
    case ComponentOperationKind::set:
      return {operation.propertyName, operation.value};
    case ComponentOperationKind::reset:
      return {operation.propertyName};
  }
  return {};
}

void appendComponentFields(StdioLine& line, const ComponentAtomicOperation& operation) {
  line.word(rawWord(operation.kind)).text(operation.entityPath).text(operation.componentType);
  for (const std::string_view field : componentTail(operation))
    line.text(field);
}

template <class... Pieces>
void append(std::vector<std::string>& list, Pieces&&... pieces) {
  (list.emplace_back(std::forward<Pieces>(pieces)), ...);
}

}  // namespace

// ---- Raw words

std::string_view rawWord(PrimOperationKind kind) {
  switch (kind) {
    case PrimOperationKind::add:
      return "add";
    case PrimOperationKind::reference:
      return "reference";
    case PrimOperationKind::payload:
      return "payload";
    case PrimOperationKind::deletePrim:
      return "delete";
    case PrimOperationKind::reset:
      return "reset";
    case PrimOperationKind::duplicate:
      return "duplicate";
    case PrimOperationKind::reparent:
      return "reparent";
    case PrimOperationKind::rename:
      return "rename";
    case PrimOperationKind::setInstanceable:
      return "set-instanceable";
  }
  return "";
}

std::string_view rawWord(ComponentOperationKind kind) {
  switch (kind) {
    case ComponentOperationKind::add:
      return "add";
    case ComponentOperationKind::remove:
      return "remove";
    case ComponentOperationKind::enable:
      return "enable";
    case ComponentOperationKind::set:
      return "set";
    case ComponentOperationKind::reset:
      return "reset";
    case ComponentOperationKind::reorder:
      return "reorder";
  }
  return "";
}

std::string_view rawWord(LayerOperationKind kind) {
  switch (kind) {
    case LayerOperationKind::add:
      return "add";
    case LayerOperationKind::remove:
      return "remove";
    case LayerOperationKind::move:
      return "move";
    case LayerOperationKind::mute:
      return "mute";
    case LayerOperationKind::active:
      return "active";
    case LayerOperationKind::clear:
      return "clear";
    case LayerOperationKind::mergeDown:
      return "merge-down";
  }
  return "";
}

std::string_view rawWord(UsdPropertyOperationKind kind) {
  switch (kind) {
    case UsdPropertyOperationKind::set:
      return "set";
    case UsdPropertyOperationKind::reset:
      return "reset";
  }
  return "";
}

std::string_view rawWord(AssetOperationKind kind) {
  switch (kind) {
    case AssetOperationKind::replace:
      return "replace";
    case AssetOperationKind::remove:
      return "remove";
  }
  return "";
}

std::string_view rawWord(HistoryOperationKind kind) {
  switch (kind) {
    case HistoryOperationKind::undo:
      return "undo";
    case HistoryOperationKind::redo:
      return "redo";
  }
  return "";
}

// ---- Shared helpers

std::string cleanedStdioField(std::string_view text) {
  std::string cleaned(text);
  for (char& c : cleaned) {
    if (c == '\t' || c == '\n' || c == '\r')
      c = ' ';
  }
  return cleaned;
}

std::vector<std::string> editClientBaseArguments(const std::string& author,
                                                 const std::string& workspace,
                                                 const std::string& address,
                                                 std::uint64_t revision) {
  return {"--json",
          "--author",
          author,
          "--workspace",
          workspace.empty() ? "main" : workspace,
          address,
          std::to_string(revision)};
}

Result<EditClientResponse> decodeEditClientResponse(std::string_view line) {
  return decodeJson<EditClientResponse>(line, "response");
}

// ---- Prim

std::optional<std::array<double, 3>> PrimAtomicOperation::effectiveTranslation() const {
  if (!initialTranslation || initialTranslation->size() < 3)
    return std::nullopt;
  return std::array<double, 3>{(*initialTranslation)[0], (*initialTranslation)[1],
                               (*initialTranslation)[2]};
}

std::string PrimAtomicOperation::createdPath() const {
  if (parentPath == "/")
    return "/" + primName;
  return parentPath + "/" + primName;
}

std::optional<std::string> PrimAtomicOperation::selectedPathAfterAccept() const {
  switch (kind) {
    case PrimOperationKind::setInstanceable:
      return std::nullopt;
    case PrimOperationKind::deletePrim:
      return parentPath;
    case PrimOperationKind::add:
    case PrimOperationKind::reference:
    case PrimOperationKind::payload:
    case PrimOperationKind::reset:
    case PrimOperationKind::duplicate:
    case PrimOperationKind::reparent:
    case PrimOperationKind::rename:
      return createdPath();
  }
  return std::nullopt;
}

std::string PrimAtomicOperation::stdioBatchCommand(
    std::uint64_t revision, std::span<const PrimAtomicOperation> operations) {
  StdioLine line("prims");
  line.number(revision).number(operations.size());
  for (const PrimAtomicOperation& operation : operations)
    appendPrimBatchFields(line, operation);
  return line.take();
}

std::vector<std::string> PrimAtomicOperation::arguments(const std::string& address,
                                                        std::uint64_t revision,
                                                        const std::string& author,
                                                        const std::string& workspace) const {
  std::vector<std::string> list = editClientBaseArguments(author, workspace, address, revision);
  list.emplace_back("--prim-op");
  list.emplace_back(primWireWord(kind));
  bool inserts = false;
  switch (kind) {
    case PrimOperationKind::add:
      append(list, parentPath, primName, primitiveKind);
      if (!assetName.empty())
        list.push_back(assetName);
      inserts = true;
      break;
    case PrimOperationKind::reference:
      append(list, parentPath, primName, referenceURI);
      inserts = true;
      break;
    case PrimOperationKind::payload:
      append(list, parentPath, primName, payloadURI, assetName);
      inserts = true;
      break;
    case PrimOperationKind::deletePrim:
    case PrimOperationKind::reset:
      list.push_back(sourcePath);
      break;
    case PrimOperationKind::duplicate:
    case PrimOperationKind::reparent:
    case PrimOperationKind::rename:
      append(list, sourcePath, parentPath, primName);
      break;
    case PrimOperationKind::setInstanceable:
      append(list, sourcePath, std::string(trueOrFalse(instanceable)));
      break;
  }
  if (const auto translation = effectiveTranslation(); inserts && translation) {
    list.emplace_back("--initial-translation");
    for (const double component : *translation)
      list.push_back(formatShortestDouble(component));
  }
  return list;
}

std::string PrimAtomicOperation::replacementKey() const {
  std::string key = "prim:";
  key += rawWord(kind);
  for (const std::string* field : {&parentPath, &primName, &primitiveKind, &referenceURI,
                                   &payloadURI, &assetName, &sourcePath}) {
    key += ':';
    key += *field;
  }
  key += ':';
  key += translationKeyText(initialTranslation);
  return key;
}

std::string PrimAtomicOperation::label() const {
  switch (kind) {
    case PrimOperationKind::add:
      return primitiveKind + " " + primName;
    case PrimOperationKind::reference:
      return "reference " + primName;
    case PrimOperationKind::payload:
      return "payload " + primName;
    case PrimOperationKind::deletePrim:
      return "delete " + sourcePath;
    case PrimOperationKind::reset:
      return "reset " + sourcePath;
    case PrimOperationKind::duplicate:
      return "duplicate " + sourcePath;
    case PrimOperationKind::reparent:
      return "move " + sourcePath;
    case PrimOperationKind::rename:
      return "rename " + sourcePath;
    case PrimOperationKind::setInstanceable:
      return (instanceable ? "instance " : "de-instance ") + sourcePath;
  }
  return {};
}

// ---- Component

std::string ComponentAtomicOperation::stdioCommand(std::uint64_t revision) const {
  StdioLine line("component");
  line.number(revision);
  appendComponentFields(line, *this);
  return line.take();
}

std::string ComponentAtomicOperation::stdioBatchCommand(
    std::uint64_t revision, std::span<const ComponentAtomicOperation> operations) {
  StdioLine line("components");
  line.number(revision).number(operations.size());
  for (const ComponentAtomicOperation& operation : operations)
    appendComponentFields(line, operation);
  return line.take();
}

std::vector<std::string> ComponentAtomicOperation::arguments(const std::string& address,
                                                             std::uint64_t revision,
                                                             const std::string& author,
                                                             const std::string& workspace) const {
  std::vector<std::string> list = editClientBaseArguments(author, workspace, address, revision);
  append(list, "--component-op", std::string(rawWord(kind)), entityPath, componentType);
  for (const std::string_view field : componentTail(*this))
    list.emplace_back(field);
  return list;
}

bool ComponentAtomicOperation::changesStageStructure() const {
  switch (kind) {
    case ComponentOperationKind::add:
    case ComponentOperationKind::remove:
    case ComponentOperationKind::reset:
    case ComponentOperationKind::reorder:
      return true;
    case ComponentOperationKind::enable:
      return false;
    case ComponentOperationKind::set:
      return componentType == "Script" ||
             (componentType == "MeshAsset" && propertyName == "asset") ||
             (componentType == "MaterialBinding" && propertyName == "material");
  }
  return false;
}

std::string ComponentAtomicOperation::replacementKey() const {
  const std::string prefix = "component:" + entityPath + ":";
  switch (kind) {
    case ComponentOperationKind::add:
    case ComponentOperationKind::remove:
      return prefix + componentType + ":lifecycle";
    case ComponentOperationKind::enable:
      return prefix + componentType + ":enabled";
    case ComponentOperationKind::set:
    case ComponentOperationKind::reset:
      return prefix + componentType + ":" + propertyName;
    case ComponentOperationKind::reorder:
      return prefix + "order";
  }
  return prefix;
}

std::string ComponentAtomicOperation::label() const {
  return componentType;
}

// ---- Layer

std::vector<std::string> LayerAtomicOperation::arguments(const std::string& address,
                                                         std::uint64_t revision,
                                                         const std::string& author,
                                                         const std::string& workspace) const {
  std::vector<std::string> list = editClientBaseArguments(author, workspace, address, revision);
  append(list, "--layer-op", std::string(rawWord(kind)));
  switch (kind) {
    case LayerOperationKind::add:
      list.push_back(name);
      if (moveRootContentToBaseLayer)
        list.emplace_back("--move-root-content-to-base-layer");
      break;
    case LayerOperationKind::remove:
    case LayerOperationKind::active:
    case LayerOperationKind::clear:
    case LayerOperationKind::mergeDown:
      list.push_back(identifier);
      break;
    case LayerOperationKind::move:
      append(list, identifier, direction);
      break;
    case LayerOperationKind::mute:
      append(list, identifier, std::string(trueOrFalse(muted)));
      break;
  }
  return list;
}

std::string LayerAtomicOperation::replacementKey() const {
  switch (kind) {
    case LayerOperationKind::add:
      return "layer:add:" + name;
    case LayerOperationKind::remove:
      return "layer:remove:" + identifier;
    case LayerOperationKind::move:
      return "layer:move:" + identifier + ":" + direction;
    case LayerOperationKind::mute:
      return "layer:mute:" + identifier;
    case LayerOperationKind::active:
      return "layer:active";
    case LayerOperationKind::clear:
      return "layer:clear:" + identifier;
    case LayerOperationKind::mergeDown:
      return "layer:merge-down:" + identifier;
  }
  return "layer:";
}

std::string LayerAtomicOperation::label() const {
  switch (kind) {
    case LayerOperationKind::add:
      return "add layer";
    case LayerOperationKind::remove:
      return "remove layer";
    case LayerOperationKind::move:
      return "move layer";
    case LayerOperationKind::mute:
      return muted ? "disable layer" : "enable layer";
    case LayerOperationKind::active:
      return "set active layer";
    case LayerOperationKind::clear:
      return "clear layer";
    case LayerOperationKind::mergeDown:
      return "merge layer down";
  }
  return {};
}

// ---- USD property

std::string UsdPropertyAtomicOperation::stdioCommand(std::uint64_t revision) const {
  StdioLine line("usd-property");
  line.number(revision).word(rawWord(kind)).text(primPath).text(propertyName);
  if (kind == UsdPropertyOperationKind::set)
    line.text(value);
  return line.take();
}

std::vector<std::string> UsdPropertyAtomicOperation::arguments(const std::string& address,
                                                               std::uint64_t revision,
                                                               const std::string& author,
                                                               const std::string& workspace) const {
  std::vector<std::string> list = editClientBaseArguments(author, workspace, address, revision);
  append(list, "--usd-property-op", std::string(rawWord(kind)), primPath, propertyName);
  if (kind != UsdPropertyOperationKind::set)
    return list;
  std::string_view rest = value;
  while (true) {
    const std::size_t comma = rest.find(',');
    const std::string_view piece = rest.substr(0, comma);
    if (!piece.empty())
      list.emplace_back(piece);
    if (comma == std::string_view::npos)
      break;
    rest.remove_prefix(comma + 1);
  }
  return list;
}

std::string UsdPropertyAtomicOperation::replacementKey() const {
  return "usd-property:" + primPath + ":" + propertyName;
}

std::string UsdPropertyAtomicOperation::label() const {
  return std::string(rawWord(kind)) + " " + propertyName;
}

// ---- Asset

std::string AssetAtomicOperation::stdioCommand(std::uint64_t revision) const {
  StdioLine line("asset");
  line.number(revision).word(rawWord(kind)).text(name);
  if (kind == AssetOperationKind::replace) {
    line.text(assetKind).text(sourceURI);
    if (!storeURI.empty())
      line.text(storeURI);
  }
  return line.take();
}

std::vector<std::string> AssetAtomicOperation::arguments(const std::string& address,
                                                         std::uint64_t revision,
                                                         const std::string& author,
                                                         const std::string& workspace) const {
  std::vector<std::string> list = editClientBaseArguments(author, workspace, address, revision);
  append(list, "--asset-op", std::string(rawWord(kind)), name);
  if (kind == AssetOperationKind::replace) {
    append(list, assetKind, sourceURI);
    if (!storeURI.empty())
      list.push_back(storeURI);
  }
  return list;
}

std::string AssetAtomicOperation::replacementKey() const {
  return "asset:" + std::string(rawWord(kind)) + ":" + name + ":" + storeURI;
}

std::string AssetAtomicOperation::label() const {
  return std::string(rawWord(kind)) + " " + name;
}

// ---- History

std::string HistoryAtomicOperation::stdioCommand(std::uint64_t revision) const {
  StdioLine line("history");
  line.number(revision).word(rawWord(kind));
  return line.take();
}

std::vector<std::string> HistoryAtomicOperation::arguments(const std::string& address,
                                                           std::uint64_t revision,
                                                           const std::string& author,
                                                           const std::string& workspace) const {
  std::vector<std::string> list = editClientBaseArguments(author, workspace, address, revision);
  list.emplace_back(kind == HistoryOperationKind::undo ? "--undo" : "--redo");
  return list;
}

std::string HistoryAtomicOperation::replacementKey() const {
  return "history:" + std::string(rawWord(kind));
}

std::string HistoryAtomicOperation::label() const {
  return kind == HistoryOperationKind::undo ? "Undo" : "Redo";
}

// ---- The union

std::string AtomicOperation::replacementKey() const {
  return std::visit([](const auto& payload) { return payload.replacementKey(); }, value);
}

std::string AtomicOperation::label() const {
  return std::visit([](const auto& payload) { return payload.label(); }, value);
}

std::optional<std::string> AtomicOperation::selectedPathAfterAccept() const {
  if (const PrimAtomicOperation* operation = prim())
    return operation->selectedPathAfterAccept();
  return std::nullopt;
}

std::vector<std::string> AtomicOperation::arguments(const std::string& address,
                                                    std::uint64_t revision,
                                                    const std::string& author,
                                                    const std::string& workspace) const {
  return std::visit(
      [&](const auto& payload) { return payload.arguments(address, revision, author, workspace); },
      value);
}

}  // namespace orvan::editor
