// Any byte string as a stdio line of the edit helper: parsing never crashes, a refusal says what
// kind it is, and an edit line written back in the editor's encoding parses to the same command,
// so no optional token can be mistaken for a field or the start of the next operation. The body
// made of it is JSON that carries every operation.

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <variant>

#include "EditClient/EditCommands.h"
#include "EditClient/StdioCommands.h"
#include "FuzzCheck.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonValue.h"
#include "orvan/wire/Numbers.h"

namespace {

using namespace orvan::engine;

void add(std::string& line, std::string_view field) {
  line += '\t';
  line += field;
}

// The editor's encoding of one prim operation inside a batch.
void writePrim(std::string& line, const PrimOperationFields& op) {
  add(line, op.kind);
  if (op.kind == "add") {
    add(line, op.parentPath), add(line, op.primName), add(line, op.primitiveKind);
    if (!op.assetName.empty())
      add(line, "asset=" + op.assetName);
  } else if (op.kind == "reference") {
    add(line, op.parentPath), add(line, op.primName), add(line, op.referenceURI);
  } else if (op.kind == "payload") {
    add(line, op.parentPath), add(line, op.primName), add(line, op.payloadURI),
        add(line, op.assetName);
  } else if (op.kind == "delete" || op.kind == "reset") {
    add(line, op.sourcePath);
  } else if (op.kind == "set-instanceable") {
    add(line, op.sourcePath), add(line, op.instanceable ? "true" : "false");
  } else {
    add(line, op.sourcePath), add(line, op.parentPath), add(line, op.primName);
  }
  if (op.initialTranslation) {
    const auto& t = *op.initialTranslation;
    add(line, "translation=" + orvan::editor::formatShortestDouble(t[0]) + "," +
                  orvan::editor::formatShortestDouble(t[1]) + "," +
                  orvan::editor::formatShortestDouble(t[2]));
  }
}

void writeComponentTail(std::string& line, const ComponentOperationFields& op) {
  add(line, op.kind), add(line, op.entityPath), add(line, op.componentType);
  if (op.kind == "enable" || op.kind == "reorder")
    add(line, op.value);
  else if (op.kind == "set")
    add(line, op.propertyName), add(line, op.value);
  else if (op.kind == "reset")
    add(line, op.propertyName);
}

// The command as the editor would write it, with the command word the parser saw.
std::string writeLine(std::string_view word, const EditCommand& command) {
  std::string line(word);
  add(line, std::to_string(command.baseRevision));
  if (word == "prims" || word == "components")
    add(line, std::to_string(command.operations.size()));
  for (const OperationFields& fields : command.operations) {
    std::visit(
        [&line](const auto& op) {
          using T = std::decay_t<decltype(op)>;
          if constexpr (std::is_same_v<T, PrimOperationFields>) {
            writePrim(line, op);
          } else if constexpr (std::is_same_v<T, ComponentOperationFields>) {
            writeComponentTail(line, op);
          } else if constexpr (std::is_same_v<T, UsdPropertyOperationFields>) {
            add(line, op.kind), add(line, op.primPath), add(line, op.propertyName);
            if (op.kind == "set")
              add(line, op.value);
          } else if constexpr (std::is_same_v<T, AssetOperationFields>) {
            add(line, op.kind), add(line, op.name);
            if (op.kind == "replace") {
              add(line, op.assetKind), add(line, op.sourceURI);
              if (!op.storeURI.empty())
                add(line, op.storeURI);
            }
          } else if constexpr (std::is_same_v<T, HistoryOperationFields>) {
            add(line, op.kind);
          } else {
            FUZZ_CHECK(!"layer operations have no stdio form");
          }
        },
        fields);
  }
  return line;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const StdioLine parsed = parseStdioLine(text);
  switch (parsed.kind) {
    case StdioLineKind::kPing:
    case StdioLineKind::kQuit:
      return 0;
    case StdioLineKind::kUnknown:
      FUZZ_CHECK(parsed.problem.starts_with("unknown stdio command"));
      return 0;
    case StdioLineKind::kMalformed:
      FUZZ_CHECK(parsed.problem.starts_with("malformed stdio command"));
      return 0;
    case StdioLineKind::kEdit:
      break;
  }
  const auto& operations = parsed.command.operations;
  FUZZ_CHECK(!operations.empty() && operations.size() <= kMaxOperationsPerCommand);
  const std::string_view word = std::string_view(text).substr(0, text.find('\t'));
  const StdioLine again = parseStdioLine(writeLine(word, parsed.command));
  FUZZ_CHECK(again.kind == StdioLineKind::kEdit);
  FUZZ_CHECK(again.command == parsed.command);

  const std::string body = encodeEditBody(EditScope{"a", "c", "s", "w", ""}, parsed.command);
  const auto decoded = orvan::editor::decodeJson<orvan::editor::JsonValue>(body);
  FUZZ_CHECK(decoded.ok());
  const orvan::editor::JsonValue* list = decoded->find("operations");
  FUZZ_CHECK(list != nullptr && list->asArray() != nullptr);
  FUZZ_CHECK(list->asArray()->size() == operations.size());
  return 0;
}
