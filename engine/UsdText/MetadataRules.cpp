#include "UsdText/MetadataRules.h"

#include <array>

#include "UsdText/ListEdits.h"
#include "UsdText/Tokenizer.h"

namespace orvan::engine {
namespace {

bool isNumeric(const Value& value) {
  return value.kind == ValueKind::Number ||
         (value.kind == ValueKind::Identifier && value.toNumber().has_value());
}

// A name quoted for a message, made only when the message is.
struct Quoted {
  std::string_view name;
};
std::string operator+(const std::string& text, Quoted quoted) {
  return text + "'" + std::string(quoted.name) + "'";
}

// Metadata whose value the format fixes, and whether it takes list edits.
enum class MetadataShape : std::uint8_t {
  Bool,
  Text,
  Number,
  Dictionary,
  LayerList,  // subLayers: a list of asset paths
  ArcList,    // references, payload: assets, asset + path, or internal paths
  PathList,   // inherits, specializes: prim paths
  TextList,   // apiSchemas, variantSets: strings
  PathMap,    // relocates
};

std::optional<MetadataShape> metadataShape(std::string_view key) {
  static constexpr std::array<std::pair<std::string_view, MetadataShape>, 33> kKnown{{
      {"active", MetadataShape::Bool},
      {"instanceable", MetadataShape::Bool},
      {"hidden", MetadataShape::Bool},
      {"kind", MetadataShape::Text},
      {"doc", MetadataShape::Text},
      {"documentation", MetadataShape::Text},
      {"comment", MetadataShape::Text},
      {"defaultPrim", MetadataShape::Text},
      {"upAxis", MetadataShape::Text},
      {"displayName", MetadataShape::Text},
      {"displayGroup", MetadataShape::Text},
      {"metersPerUnit", MetadataShape::Number},
      {"kilogramsPerUnit", MetadataShape::Number},
      {"startTimeCode", MetadataShape::Number},
      {"endTimeCode", MetadataShape::Number},
      {"timeCodesPerSecond", MetadataShape::Number},
      {"framesPerSecond", MetadataShape::Number},
      {"startFrame", MetadataShape::Number},
      {"endFrame", MetadataShape::Number},
      {"customData", MetadataShape::Dictionary},
      {"customLayerData", MetadataShape::Dictionary},
      {"assetInfo", MetadataShape::Dictionary},
      {"variants", MetadataShape::Dictionary},
      {"expressionVariables", MetadataShape::Dictionary},
      {"sdrMetadata", MetadataShape::Dictionary},
      {"subLayers", MetadataShape::LayerList},
      {"references", MetadataShape::ArcList},
      {"payload", MetadataShape::ArcList},
      {"inherits", MetadataShape::PathList},
      {"specializes", MetadataShape::PathList},
      {"apiSchemas", MetadataShape::TextList},
      {"variantSets", MetadataShape::TextList},
      {"relocates", MetadataShape::PathMap},
  }};
  for (const auto& [name, shape] : kKnown) {
    if (key == name)
      return shape;
  }
  return std::nullopt;
}

bool takesListEdits(MetadataShape shape) {
  return shape == MetadataShape::ArcList || shape == MetadataShape::PathList ||
         shape == MetadataShape::TextList;
}

}  // namespace

bool isPrimPath(std::string_view path) {
  if (path.empty())
    return false;
  if (path == "/")
    return false;
  const bool absolute = path.front() == '/';
  if (absolute)
    path.remove_prefix(1);
  bool leading = !absolute;
  while (true) {
    const std::size_t slash = path.find('/');
    const std::string_view part = path.substr(0, slash);
    if (leading && (part == ".." || part == ".")) {
      // relative steps come first
    } else {
      leading = false;
      if (!isIdentifier(part))
        return false;
    }
    if (slash == std::string_view::npos)
      return true;
    path.remove_prefix(slash + 1);
  }
}

namespace {

std::optional<MetadataBreach> checkListItem(MetadataShape shape, const Value& item, Quoted key) {
  if (shape == MetadataShape::TextList) {
    if (item.kind != ValueKind::String)
      return MetadataBreach{MetadataBreach::At::Item, &item,
                            "a quoted string or a list of them for " + key};
    return std::nullopt;
  }
  if (shape == MetadataShape::PathList) {
    if (item.kind != ValueKind::Path || !isPrimPath(item.decoded()))
      return MetadataBreach{MetadataBreach::At::Item, &item, "prim paths </...> for " + key};
    return std::nullopt;
  }
  if (item.kind == ValueKind::Asset)
    return std::nullopt;
  const auto target = item.targetPath();
  const bool external = item.kind == ValueKind::Reference && !item.text.empty();
  const bool named = target && (isPrimPath(*target) || (external && target->empty()));
  if ((item.kind != ValueKind::Path && item.kind != ValueKind::Reference) || (target && !named) ||
      (!external && !target)) {
    const Value* shown = &item;
    if (item.kind == ValueKind::Reference && target && !named) {
      for (const Value& part : item.items())
        shown = part.kind == ValueKind::Path ? &part : shown;
    }
    return MetadataBreach{
        MetadataBreach::At::Item, shown,
        "an asset @...@ followed by an optional prim path, or a prim path, for " + key};
  }
  return std::nullopt;
}

}  // namespace

std::optional<MetadataBreach> checkMetadataEntry(const MetadataEntry& entry) {
  const auto shape = metadataShape(entry.key);
  if (!shape)
    return std::nullopt;
  const auto key = Quoted{entry.key};
  if (entry.op != ListOp::Explicit && !takesListEdits(*shape))
    return MetadataBreach{MetadataBreach::At::ListOp, nullptr, "no list edit on " + key};
  const Value& value = entry.value;
  if (value.isNone() && *shape != MetadataShape::LayerList)
    return std::nullopt;
  switch (*shape) {
    case MetadataShape::Bool:
      if (!value.toBool())
        return MetadataBreach{MetadataBreach::At::Value, nullptr, "true or false for " + key};
      return std::nullopt;
    case MetadataShape::Text:
      if (value.kind != ValueKind::String)
        return MetadataBreach{MetadataBreach::At::Value, nullptr, "a quoted string for " + key};
      return std::nullopt;
    case MetadataShape::Number:
      if (!isNumeric(value))
        return MetadataBreach{MetadataBreach::At::Value, nullptr, "a number for " + key};
      return std::nullopt;
    case MetadataShape::Dictionary:
      if (value.kind != ValueKind::Dictionary)
        return MetadataBreach{MetadataBreach::At::Value, nullptr,
                              "a dictionary { ... } for " + key};
      return std::nullopt;
    case MetadataShape::PathMap:
      if (value.kind != ValueKind::PathMap &&
          !(value.kind == ValueKind::Dictionary && value.itemCount == 0)) {
        return MetadataBreach{MetadataBreach::At::Value, nullptr,
                              "a path mapping { <from>: <to> } for " + key};
      }
      return std::nullopt;
    case MetadataShape::LayerList:
      if (value.kind != ValueKind::List)
        return MetadataBreach{MetadataBreach::At::Value, nullptr,
                              "a list of asset paths for " + key};
      for (const Value& item : value.items()) {
        const bool asset = item.kind == ValueKind::Asset ||
                           (item.kind == ValueKind::Reference && !item.targetPath());
        if (!asset)
          return MetadataBreach{MetadataBreach::At::Item, &item,
                                "an asset path @...@ in every element of " + key};
      }
      return std::nullopt;
    case MetadataShape::ArcList:
    case MetadataShape::PathList:
    case MetadataShape::TextList:
      for (const Value* item : listItems(value)) {
        if (auto breach = checkListItem(*shape, *item, key))
          return breach;
      }
      return std::nullopt;
  }
  return std::nullopt;
}

}  // namespace orvan::engine
