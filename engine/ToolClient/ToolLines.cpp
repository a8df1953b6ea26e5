#include "ToolClient/ToolLines.h"

#include <utility>

#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonEncoder.h"
#include "orvan/wire/Text.h"

namespace orvan::engine {

WatchLineResult watchLineToPrint(std::string_view line) {
  if (editor::isBlank(line))
    return {};
  auto decoded = editor::decodeJson<ToolClientLine>(line, "line");
  if (!decoded.ok())
    return WatchLineResult{{}, decoded.error().description};
  ToolClientLine record = std::move(decoded).value();
  if (record.type == "hello" || record.type == "heartbeat")
    return {};
  if (record.primOperations) {
    for (ToolClientPrimOperation& operation : *record.primOperations) {
      if (operation.kind == "rename")
        operation.kind = "reparent";
    }
  }
  return WatchLineResult{editor::encodeJson(record), {}};
}

}  // namespace orvan::engine
