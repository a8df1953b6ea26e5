#include "EditClient/EditCommands.h"

#include <charconv>

#include "orvan/wire/JsonEncoder.h"

namespace orvan::engine {

std::string encodeEditBody(const EditScope& scope, const EditCommand& command) {
  std::string out = "{";
  if (!scope.scene.empty()) {
    out += "\"scene\":";
    editor::appendJson(out, scope.scene);
    out += ',';
  }
  out += "\"workspace\":";
  editor::appendJson(out, scope.workspace);
  out += ",\"activeLayer\":";
  editor::appendJson(out, scope.activeLayer);
  out += ",\"author\":";
  editor::appendJson(out, scope.author);
  out += ",\"clientId\":";
  editor::appendJson(out, scope.clientId);
  out += ",\"baseRevision\":";
  editor::appendJson(out, command.baseRevision);
  out += ",\"operations\":[";
  for (std::size_t index = 0; index < command.operations.size(); ++index) {
    if (index != 0)
      out += ',';
    std::visit([&out](const auto& op) { editor::appendJson(out, op); }, command.operations[index]);
  }
  out += "]}";
  return out;
}

std::optional<std::uint64_t> parseDecimal(std::string_view text) {
  std::uint64_t value = 0;
  if (text.empty() || text.front() < '0' || text.front() > '9')
    return std::nullopt;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size())
    return std::nullopt;
  return value;
}

}  // namespace orvan::engine
