#include "EditClient/StdioCommands.h"

#include <charconv>
#include <cmath>
#include <optional>
#include <utility>
#include <vector>

#include "orvan/wire/Text.h"

namespace orvan::engine {
namespace {

constexpr std::string_view kAssetToken = "asset=";
constexpr std::string_view kTranslationToken = "translation=";

// The fields of one line, read front to back.
class FieldCursor {
 public:
  explicit FieldCursor(std::string_view line) {
    std::size_t start = 0;
    for (;;) {
      const std::size_t tab = line.find('\t', start);
      fields_.push_back(line.substr(start, tab == std::string_view::npos ? tab : tab - start));
      if (tab == std::string_view::npos)
        break;
      start = tab + 1;
    }
  }

  bool atEnd() const { return next_ == fields_.size(); }
  std::size_t remaining() const { return fields_.size() - next_; }
  std::optional<std::string_view> peek() const {
    return atEnd() ? std::nullopt : std::optional(fields_[next_]);
  }
  std::optional<std::string_view> take() {
    return atEnd() ? std::nullopt : std::optional(fields_[next_++]);
  }
  // The next field as an owned string, or nothing when the line is used up.
  bool takeInto(std::string& out) {
    const auto field = take();
    if (!field)
      return false;
    out.assign(*field);
    return true;
  }

 private:
  std::vector<std::string_view> fields_;
  std::size_t next_ = 0;
};

// A parse failure carries the reason; a success carries nothing.
using Problem = std::optional<std::string>;

Problem problem(std::string reason) {
  return Problem(std::move(reason));
}

Problem missingField(std::string_view what) {
  return problem("missing " + std::string(what));
}

Problem takeFields(FieldCursor& cursor,
                   std::initializer_list<std::pair<std::string_view, std::string*>> fields) {
  for (const auto& [name, out] : fields) {
    if (!cursor.takeInto(*out))
      return missingField(name);
  }
  return std::nullopt;
}

std::string quoted(std::string_view text) {
  constexpr std::size_t kShown = 40;
  std::string shown(text.substr(0, kShown));
  if (text.size() > kShown)
    shown += "...";
  return "'" + shown + "'";
}

Problem readRevision(FieldCursor& cursor, std::uint64_t& revision) {
  const auto field = cursor.take();
  if (!field)
    return missingField("revision");
  const auto value = parseDecimal(*field);
  if (!value)
    return problem("bad revision " + quoted(*field));
  revision = *value;
  return std::nullopt;
}

Problem readCount(FieldCursor& cursor, std::size_t& count) {
  const auto field = cursor.take();
  if (!field)
    return missingField("operation count");
  const auto value = parseDecimal(*field);
  if (!value || *value == 0 || *value > kMaxOperationsPerCommand)
    return problem("bad operation count " + quoted(*field) + " (1 to " +
                   std::to_string(kMaxOperationsPerCommand) + ")");
  // Every operation takes at least two fields, so a count the line cannot hold is refused before
  // anything is reserved for it.
  if (*value > cursor.remaining())
    return problem("the line holds fewer operations than its count " + quoted(*field));
  count = static_cast<std::size_t>(*value);
  return std::nullopt;
}

std::optional<double> parseFiniteDouble(std::string_view text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size() ||
      !std::isfinite(value))
    return std::nullopt;
  return value;
}

// "X,Y,Z": exactly three finite numbers.
std::optional<std::vector<double>> parseTranslation(std::string_view text) {
  std::vector<double> values;
  for (;;) {
    const std::size_t comma = text.find(',');
    const auto value = parseFiniteDouble(text.substr(0, comma));
    if (!value)
      return std::nullopt;
    values.push_back(*value);
    if (comma == std::string_view::npos)
      break;
    text.remove_prefix(comma + 1);
  }
  if (values.size() != 3)
    return std::nullopt;
  return values;
}

Problem readPrimFields(FieldCursor& cursor, std::string_view word, PrimOperationFields& op) {
  if (word == "add") {
    if (auto failed = takeFields(cursor, {{"parent path", &op.parentPath},
                                          {"prim name", &op.primName},
                                          {"primitive kind", &op.primitiveKind}}))
      return failed;
    const auto next = cursor.peek();
    if (next && next->starts_with(kAssetToken)) {
      op.assetName.assign(next->substr(kAssetToken.size()));
      cursor.take();
    }
    return std::nullopt;
  }
  if (word == "reference")
    return takeFields(cursor, {{"parent path", &op.parentPath},
                               {"prim name", &op.primName},
                               {"reference URI", &op.referenceURI}});
  if (word == "payload")
    return takeFields(cursor, {{"parent path", &op.parentPath},
                               {"prim name", &op.primName},
                               {"payload URI", &op.payloadURI},
                               {"asset name", &op.assetName}});
  if (word == "delete" || word == "reset")
    return takeFields(cursor, {{"source path", &op.sourcePath}});
  if (word == "duplicate" || word == "reparent" || word == "rename")
    return takeFields(cursor, {{"source path", &op.sourcePath},
                               {"parent path", &op.parentPath},
                               {"prim name", &op.primName}});
  if (word == "set-instanceable") {
    std::string flag;
    if (auto failed =
            takeFields(cursor, {{"source path", &op.sourcePath}, {"instanceable flag", &flag}}))
      return failed;
    if (flag != "true" && flag != "false")
      return problem("instanceable must be true or false, not " + quoted(flag));
    op.instanceable = flag == "true";
    return std::nullopt;
  }
  return problem("unknown prim operation " + quoted(word));
}

Problem readPrimOperation(FieldCursor& cursor, PrimOperationFields& op) {
  const auto word = cursor.take();
  if (!word)
    return missingField("prim operation");
  op.kind.assign(*word);
  if (auto failed = readPrimFields(cursor, *word, op))
    return failed;
  const auto next = cursor.peek();
  if (next && next->starts_with(kTranslationToken)) {
    op.initialTranslation = parseTranslation(next->substr(kTranslationToken.size()));
    if (!op.initialTranslation)
      return problem("bad translation " + quoted(*next) + " (three numbers)");
    cursor.take();
  }
  return std::nullopt;
}

// The fields after a component operation's kind, entity and type, by kind.
Problem readComponentOperation(FieldCursor& cursor, ComponentOperationFields& op) {
  const auto word = cursor.take();
  if (!word)
    return missingField("component operation");
  op.kind.assign(*word);
  if (auto failed = takeFields(
          cursor, {{"entity path", &op.entityPath}, {"component type", &op.componentType}}))
    return failed;
  if (op.kind == "add" || op.kind == "remove")
    return std::nullopt;
  if (op.kind == "enable" || op.kind == "reorder")
    return takeFields(cursor, {{"value", &op.value}});
  if (op.kind == "set")
    return takeFields(cursor, {{"property name", &op.propertyName}, {"value", &op.value}});
  if (op.kind == "reset")
    return takeFields(cursor, {{"property name", &op.propertyName}});
  return problem("unknown component operation " + quoted(op.kind));
}

Problem readUsdPropertyOperation(FieldCursor& cursor, UsdPropertyOperationFields& op) {
  if (!cursor.takeInto(op.kind))
    return missingField("property operation");
  if (op.kind != "set" && op.kind != "reset")
    return problem("unknown property operation " + quoted(op.kind));
  if (auto failed =
          takeFields(cursor, {{"prim path", &op.primPath}, {"property name", &op.propertyName}}))
    return failed;
  return op.kind == "set" ? takeFields(cursor, {{"value", &op.value}}) : std::nullopt;
}

Problem readAssetOperation(FieldCursor& cursor, AssetOperationFields& op) {
  if (!cursor.takeInto(op.kind))
    return missingField("asset operation");
  if (op.kind != "replace" && op.kind != "remove")
    return problem("unknown asset operation " + quoted(op.kind));
  if (auto failed = takeFields(cursor, {{"asset name", &op.name}}))
    return failed;
  if (op.kind == "remove")
    return std::nullopt;
  if (auto failed =
          takeFields(cursor, {{"asset kind", &op.assetKind}, {"source URI", &op.sourceURI}}))
    return failed;
  // The store URI is written only when there is one.
  if (!cursor.atEnd())
    cursor.takeInto(op.storeURI);
  return std::nullopt;
}

Problem readHistoryOperation(FieldCursor& cursor, HistoryOperationFields& op) {
  if (!cursor.takeInto(op.kind))
    return missingField("history operation");
  if (op.kind != "undo" && op.kind != "redo")
    return problem("unknown history operation " + quoted(op.kind));
  return std::nullopt;
}

template <class Fields, class Reader>
Problem readSingle(FieldCursor& cursor, EditCommand& command, Reader read) {
  Fields op;
  if (auto failed = read(cursor, op))
    return failed;
  command.operations.emplace_back(std::move(op));
  return std::nullopt;
}

template <class Fields, class Reader>
Problem readBatch(FieldCursor& cursor, EditCommand& command, Reader read) {
  std::size_t count = 0;
  if (auto failed = readCount(cursor, count))
    return failed;
  command.operations.reserve(count);
  for (std::size_t index = 0; index < count; ++index) {
    Fields op;
    if (auto failed = read(cursor, op))
      return problem("operation " + std::to_string(index + 1) + ": " + *failed);
    command.operations.emplace_back(std::move(op));
  }
  return std::nullopt;
}

StdioLine malformed(std::string_view reason) {
  return StdioLine{
      StdioLineKind::kMalformed, {}, "malformed stdio command: " + std::string(reason)};
}

// The command words that carry edits, with what follows the revision.
Problem readEdit(std::string_view word, FieldCursor& cursor, EditCommand& command) {
  if (word == "prims")
    return readBatch<PrimOperationFields>(cursor, command, readPrimOperation);
  if (word == "components")
    return readBatch<ComponentOperationFields>(cursor, command, readComponentOperation);
  if (word == "component")
    return readSingle<ComponentOperationFields>(cursor, command, readComponentOperation);
  if (word == "usd-property")
    return readSingle<UsdPropertyOperationFields>(cursor, command, readUsdPropertyOperation);
  if (word == "asset")
    return readSingle<AssetOperationFields>(cursor, command, readAssetOperation);
  return readSingle<HistoryOperationFields>(cursor, command, readHistoryOperation);
}

bool isEditWord(std::string_view word) {
  return word == "prims" || word == "components" || word == "component" || word == "usd-property" ||
         word == "asset" || word == "history";
}

}  // namespace

StdioLine parseStdioLine(std::string_view line) {
  if (!editor::isValidUtf8(line))
    return malformed("the line is not valid UTF-8");
  if (line.empty())
    return malformed("the line is empty");
  FieldCursor cursor(line);
  const std::string_view word = *cursor.take();
  if (word == "ping" || word == "quit") {
    if (!cursor.atEnd())
      return malformed(std::string(word) + " takes no fields");
    return StdioLine{word == "ping" ? StdioLineKind::kPing : StdioLineKind::kQuit, {}, {}};
  }
  if (!isEditWord(word))
    return StdioLine{StdioLineKind::kUnknown, {}, "unknown stdio command " + quoted(word)};
  StdioLine parsed{StdioLineKind::kEdit, {}, {}};
  if (auto failed = readRevision(cursor, parsed.command.baseRevision))
    return malformed(std::string(word) + ": " + *failed);
  if (auto failed = readEdit(word, cursor, parsed.command))
    return malformed(std::string(word) + ": " + *failed);
  if (!cursor.atEnd())
    return malformed(std::string(word) + ": unexpected field " + quoted(*cursor.peek()) +
                     " after the operations");
  return parsed;
}

std::string overlongLineProblem(std::size_t limit) {
  return "malformed stdio command: the line is longer than " + std::to_string(limit) +
         " bytes and was skipped";
}

}  // namespace orvan::engine
