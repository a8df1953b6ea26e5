#include "EditClient/EditCommandLine.h"

#include <charconv>
#include <cmath>
#include <utility>

namespace orvan::engine {

const std::string_view kEditClientUsage =
    "usage: orvan_edit_client --stdio --author A --client-id C --scene S --workspace W\n"
    "                         [--active-layer L] ADDRESS\n"
    "       orvan_edit_client --json --author A --workspace W [--client-id C] [--scene S]\n"
    "                         [--active-layer L] ADDRESS REVISION OPERATION\n"
    "OPERATION is one of:\n"
    "  --prim-op add PARENT NAME PRIMITIVE [ASSET] [--initial-translation X Y Z]\n"
    "  --prim-op reference PARENT NAME URI [--initial-translation X Y Z]\n"
    "  --prim-op payload PARENT NAME URI ASSET [--initial-translation X Y Z]\n"
    "  --prim-op delete|reset SOURCE\n"
    "  --prim-op duplicate|reparent|rename SOURCE PARENT NAME\n"
    "  --prim-op set-instanceable SOURCE true|false\n"
    "  --component-op add|remove ENTITY TYPE\n"
    "  --component-op enable|reorder ENTITY TYPE VALUE\n"
    "  --component-op set ENTITY TYPE PROPERTY VALUE\n"
    "  --component-op reset ENTITY TYPE PROPERTY\n"
    "  --usd-property-op set PRIM PROPERTY [VALUE]...   (values are joined with \",\")\n"
    "  --usd-property-op reset PRIM PROPERTY\n"
    "  --layer-op add NAME [--move-root-content-to-base-layer]\n"
    "  --layer-op remove|active|clear|merge-down IDENTIFIER\n"
    "  --layer-op move IDENTIFIER up|down\n"
    "  --layer-op mute IDENTIFIER true|false\n"
    "  --asset-op replace NAME KIND SOURCE [STORE]\n"
    "  --asset-op remove NAME\n"
    "  --undo | --redo\n"
    "ADDRESS is grpc://HOST:PORT, grpcs://HOST:PORT, http://... or https://...; the bearer token\n"
    "comes from ORVAN_AUTH_TOKEN.\n";

namespace {

constexpr std::string_view kTranslationFlag = "--initial-translation";
constexpr std::string_view kMoveRootFlag = "--move-root-content-to-base-layer";

EditCommandLineResult refuse(std::string why) {
  return EditCommandLineResult{std::nullopt, std::move(why)};
}

// The arguments of one operation: its words up to the trailing flags, and the flags.
struct OperationArguments {
  std::vector<std::string_view> words;
  std::optional<std::vector<double>> translation;
  bool moveRootContent = false;
};

std::optional<double> parseFinite(std::string_view text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size() ||
      !std::isfinite(value))
    return std::nullopt;
  return value;
}

// Splits the arguments after the operation flag into its words and the trailing flags.
std::string splitOperation(std::vector<std::string_view> rest, OperationArguments& out) {
  std::size_t index = 0;
  while (index < rest.size() && rest[index] != kTranslationFlag && rest[index] != kMoveRootFlag)
    out.words.push_back(rest[index++]);
  while (index < rest.size()) {
    const std::string_view flag = rest[index++];
    if (flag == kMoveRootFlag && !out.moveRootContent) {
      out.moveRootContent = true;
      continue;
    }
    if (flag != kTranslationFlag || out.translation)
      return "unexpected argument '" + std::string(flag) + "' after the operation";
    if (index + 3 > rest.size())
      return "--initial-translation takes three numbers";
    std::vector<double> values;
    for (int axis = 0; axis < 3; ++axis) {
      const auto value = parseFinite(rest[index++]);
      if (!value)
        return "--initial-translation takes three numbers, not '" + std::string(rest[index - 1]) +
               "'";
      values.push_back(*value);
    }
    out.translation = std::move(values);
  }
  return {};
}

std::string wrongCount(std::string_view what) {
  return "wrong arguments for " + std::string(what) + " (see the usage)";
}

bool parseFlag(std::string_view text, bool& out) {
  if (text != "true" && text != "false")
    return false;
  out = text == "true";
  return true;
}

std::string primOperation(const OperationArguments& args, OperationFields& out) {
  if (args.words.empty())
    return "--prim-op needs a kind";
  PrimOperationFields op;
  op.kind.assign(args.words[0]);
  const std::size_t count = args.words.size() - 1;
  const auto word = [&](std::size_t index) { return std::string(args.words[index]); };
  if (op.kind == "add" && (count == 3 || count == 4)) {
    op.parentPath = word(1), op.primName = word(2), op.primitiveKind = word(3);
    op.assetName = count == 4 ? word(4) : std::string();
  } else if (op.kind == "reference" && count == 3) {
    op.parentPath = word(1), op.primName = word(2), op.referenceURI = word(3);
  } else if (op.kind == "payload" && count == 4) {
    op.parentPath = word(1), op.primName = word(2), op.payloadURI = word(3), op.assetName = word(4);
  } else if ((op.kind == "delete" || op.kind == "reset") && count == 1) {
    op.sourcePath = word(1);
  } else if ((op.kind == "duplicate" || op.kind == "reparent" || op.kind == "rename") &&
             count == 3) {
    op.sourcePath = word(1), op.parentPath = word(2), op.primName = word(3);
  } else if (op.kind == "set-instanceable" && count == 2) {
    op.sourcePath = word(1);
    if (!parseFlag(args.words[2], op.instanceable))
      return "set-instanceable takes true or false";
  } else {
    return wrongCount("--prim-op " + op.kind);
  }
  const bool takesTranslation = op.kind == "add" || op.kind == "reference" || op.kind == "payload";
  if (args.translation && !takesTranslation)
    return "--initial-translation belongs to add, reference and payload";
  if (args.moveRootContent)
    return "--move-root-content-to-base-layer belongs to --layer-op add";
  op.initialTranslation = args.translation;
  out = std::move(op);
  return {};
}

std::string componentOperation(const OperationArguments& args, OperationFields& out) {
  if (args.words.size() < 3)
    return wrongCount("--component-op");
  ComponentOperationFields op;
  op.kind.assign(args.words[0]);
  op.entityPath.assign(args.words[1]);
  op.componentType.assign(args.words[2]);
  const std::size_t tail = args.words.size() - 3;
  if ((op.kind == "add" || op.kind == "remove") && tail == 0) {
  } else if ((op.kind == "enable" || op.kind == "reorder") && tail == 1) {
    op.value.assign(args.words[3]);
  } else if (op.kind == "set" && tail == 2) {
    op.propertyName.assign(args.words[3]);
    op.value.assign(args.words[4]);
  } else if (op.kind == "reset" && tail == 1) {
    op.propertyName.assign(args.words[3]);
  } else {
    return wrongCount("--component-op " + op.kind);
  }
  out = std::move(op);
  return {};
}

std::string usdPropertyOperation(const OperationArguments& args, OperationFields& out) {
  if (args.words.size() < 3)
    return wrongCount("--usd-property-op");
  UsdPropertyOperationFields op;
  op.kind.assign(args.words[0]);
  op.primPath.assign(args.words[1]);
  op.propertyName.assign(args.words[2]);
  if (op.kind == "reset" && args.words.size() != 3)
    return wrongCount("--usd-property-op reset");
  if (op.kind != "set" && op.kind != "reset")
    return "--usd-property-op takes set or reset";
  // A vector travels as one argument per component; the endpoint takes them comma-joined.
  for (std::size_t index = 3; index < args.words.size(); ++index) {
    if (index != 3)
      op.value += ',';
    op.value.append(args.words[index]);
  }
  out = std::move(op);
  return {};
}

std::string layerOperation(const OperationArguments& args, OperationFields& out) {
  if (args.words.size() < 2)
    return wrongCount("--layer-op");
  LayerOperationFields op;
  op.kind.assign(args.words[0]);
  const std::size_t count = args.words.size() - 1;
  if (op.kind == "add" && count == 1) {
    op.name.assign(args.words[1]);
    op.moveRootContentToBaseLayer = args.moveRootContent;
  } else if ((op.kind == "remove" || op.kind == "active" || op.kind == "clear" ||
              op.kind == "merge-down") &&
             count == 1) {
    op.identifier.assign(args.words[1]);
  } else if (op.kind == "move" && count == 2) {
    op.identifier.assign(args.words[1]);
    op.direction.assign(args.words[2]);
    if (op.direction != "up" && op.direction != "down")
      return "--layer-op move takes up or down";
  } else if (op.kind == "mute" && count == 2) {
    op.identifier.assign(args.words[1]);
    if (!parseFlag(args.words[2], op.muted))
      return "--layer-op mute takes true or false";
  } else {
    return wrongCount("--layer-op " + op.kind);
  }
  if (args.moveRootContent && op.kind != "add")
    return "--move-root-content-to-base-layer belongs to --layer-op add";
  out = std::move(op);
  return {};
}

std::string assetOperation(const OperationArguments& args, OperationFields& out) {
  if (args.words.size() < 2)
    return wrongCount("--asset-op");
  AssetOperationFields op;
  op.kind.assign(args.words[0]);
  op.name.assign(args.words[1]);
  const std::size_t count = args.words.size() - 1;
  if (op.kind == "replace" && (count == 3 || count == 4)) {
    op.assetKind.assign(args.words[2]);
    op.sourceURI.assign(args.words[3]);
    if (count == 4)
      op.storeURI.assign(args.words[4]);
  } else if (op.kind != "remove" || count != 1) {
    return wrongCount("--asset-op " + op.kind);
  }
  out = std::move(op);
  return {};
}

std::string historyOperation(std::string_view flag, const OperationArguments& args,
                             OperationFields& out) {
  if (!args.words.empty())
    return std::string(flag) + " takes no arguments";
  out = HistoryOperationFields{"history", flag == "--undo" ? "undo" : "redo"};
  return {};
}

std::string parseOperation(const std::vector<std::string_view>& rest, OperationFields& out) {
  if (rest.empty())
    return "an operation is missing";
  const std::string_view flag = rest.front();
  OperationArguments args;
  if (auto failed = splitOperation({rest.begin() + 1, rest.end()}, args); !failed.empty())
    return failed;
  const bool plainOperation = flag != "--prim-op" && flag != "--layer-op";
  if (plainOperation && (args.translation || args.moveRootContent))
    return "unexpected flag after " + std::string(flag);
  if (flag == "--prim-op")
    return primOperation(args, out);
  if (flag == "--component-op")
    return componentOperation(args, out);
  if (flag == "--usd-property-op")
    return usdPropertyOperation(args, out);
  if (flag == "--layer-op")
    return layerOperation(args, out);
  if (flag == "--asset-op")
    return assetOperation(args, out);
  if (flag == "--undo" || flag == "--redo")
    return historyOperation(flag, args, out);
  return "unknown operation '" + std::string(flag) + "'";
}

}  // namespace

EditCommandLineResult parseEditClientArguments(const std::vector<std::string_view>& arguments) {
  EditClientCommandLine line;
  std::optional<EditClientMode> mode;
  bool hasAuthor = false, hasWorkspace = false, hasClientId = false, hasScene = false;
  std::size_t index = 0;
  for (; index < arguments.size() && arguments[index].starts_with("--"); ++index) {
    const std::string_view option = arguments[index];
    if (option == "--stdio" || option == "--json") {
      const EditClientMode chosen =
          option == "--stdio" ? EditClientMode::kStdio : EditClientMode::kOneShot;
      if (mode && *mode != chosen)
        return refuse("--stdio and --json exclude each other");
      mode = chosen;
      continue;
    }
    std::string* target = nullptr;
    if (option == "--author")
      target = &line.scope.author, hasAuthor = true;
    else if (option == "--client-id")
      target = &line.scope.clientId, hasClientId = true;
    else if (option == "--scene")
      target = &line.scope.scene, hasScene = true;
    else if (option == "--workspace")
      target = &line.scope.workspace, hasWorkspace = true;
    else if (option == "--active-layer")
      target = &line.scope.activeLayer;
    else
      return refuse("unknown option '" + std::string(option) + "'");
    if (index + 1 == arguments.size())
      return refuse(std::string(option) + " needs a value");
    target->assign(arguments[++index]);
  }
  if (!mode)
    return refuse("either --stdio or --json is needed");
  if (!hasAuthor || !hasWorkspace)
    return refuse("--author and --workspace are needed");
  line.mode = *mode;
  if (index == arguments.size())
    return refuse("the address is missing");
  line.address.assign(arguments[index++]);
  if (line.mode == EditClientMode::kStdio) {
    if (!hasClientId || !hasScene)
      return refuse("--stdio needs --client-id and --scene");
    if (index != arguments.size())
      return refuse("unexpected argument '" + std::string(arguments[index]) +
                    "' after the address");
    return EditCommandLineResult{std::move(line), {}};
  }
  if (index == arguments.size())
    return refuse("the revision is missing");
  const auto revision = parseDecimal(arguments[index]);
  if (!revision)
    return refuse("bad revision '" + std::string(arguments[index]) + "'");
  line.command.baseRevision = *revision;
  OperationFields op;
  if (auto failed = parseOperation(
          {arguments.begin() + static_cast<std::ptrdiff_t>(index) + 1, arguments.end()}, op);
      !failed.empty())
    return refuse(failed);
  line.command.operations.push_back(std::move(op));
  return EditCommandLineResult{std::move(line), {}};
}

}  // namespace orvan::engine
