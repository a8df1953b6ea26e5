#include "Authoring/ValueText.h"

#include <array>
#include <charconv>
#include <cmath>

#include "UsdText/Value.h"

namespace orvan::engine {
namespace {

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t' || text.front() == '\n' ||
                           text.front() == '\r')) {
    text.remove_prefix(1);
  }
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\n' ||
                           text.back() == '\r')) {
    text.remove_suffix(1);
  }
  return text;
}

std::vector<std::string_view> splitCommas(std::string_view text) {
  std::vector<std::string_view> pieces;
  std::size_t start = 0;
  while (true) {
    const std::size_t comma = text.find(',', start);
    pieces.push_back(trimmed(text.substr(start, comma - start)));
    if (comma == std::string_view::npos)
      break;
    start = comma + 1;
  }
  return pieces;
}

// The number as the layer writes it: the author's own text when it is a plain finite decimal.
std::optional<std::string> numberText(std::string_view piece, bool integer, bool isUnsigned) {
  piece = trimmed(piece);
  if (piece.empty())
    return std::nullopt;
  if (integer) {
    std::string_view digits = piece;
    if (!digits.empty() && digits.front() == '+')
      digits.remove_prefix(1);
    if (isUnsigned) {
      std::uint64_t value = 0;
      const auto [end, error] =
          std::from_chars(digits.data(), digits.data() + digits.size(), value);
      if (error != std::errc() || end != digits.data() + digits.size())
        return std::nullopt;
      return std::to_string(value);
    }
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error != std::errc() || end != digits.data() + digits.size())
      return std::nullopt;
    return std::to_string(value);
  }
  double value = 0;
  std::string_view digits = piece;
  if (digits.front() == '+')
    digits.remove_prefix(1);
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error != std::errc() || end != digits.data() + digits.size() || !std::isfinite(value))
    return std::nullopt;
  return formatNumber(value);
}

struct TypeShape {
  std::string_view name;
  int count;  // numbers per value: 1 for scalars, 2..16 for tuples and matrices
  bool integer;
  bool isUnsigned;
  int rows = 0;  // matrices: the tuple of tuples
};

constexpr std::array<TypeShape, 44> kNumericTypes{{
    {"bool", 1, false, false},        {"int", 1, true, false},
    {"uint", 1, true, true},          {"int64", 1, true, false},
    {"uint64", 1, true, true},        {"uchar", 1, true, true},
    {"half", 1, false, false},        {"float", 1, false, false},
    {"double", 1, false, false},      {"timecode", 1, false, false},
    {"int2", 2, true, false},         {"int3", 3, true, false},
    {"int4", 4, true, false},         {"half2", 2, false, false},
    {"half3", 3, false, false},       {"half4", 4, false, false},
    {"float2", 2, false, false},      {"float3", 3, false, false},
    {"float4", 4, false, false},      {"double2", 2, false, false},
    {"double3", 3, false, false},     {"double4", 4, false, false},
    {"point3h", 3, false, false},     {"point3f", 3, false, false},
    {"point3d", 3, false, false},     {"vector3h", 3, false, false},
    {"vector3f", 3, false, false},    {"vector3d", 3, false, false},
    {"normal3h", 3, false, false},    {"normal3f", 3, false, false},
    {"normal3d", 3, false, false},    {"color3h", 3, false, false},
    {"color3f", 3, false, false},     {"color3d", 3, false, false},
    {"color4h", 4, false, false},     {"color4f", 4, false, false},
    {"color4d", 4, false, false},     {"quath", 4, false, false},
    {"quatf", 4, false, false},       {"quatd", 4, false, false},
    {"texCoord2f", 2, false, false},  {"texCoord2d", 2, false, false},
    {"matrix2d", 4, false, false, 2}, {"matrix3d", 9, false, false, 3},
}};

const TypeShape* shapeOf(std::string_view type) {
  static constexpr TypeShape kMatrix4{"matrix4d", 16, false, false, 4};
  if (type == kMatrix4.name)
    return &kMatrix4;
  for (const TypeShape& shape : kNumericTypes) {
    if (shape.name == type)
      return &shape;
  }
  return nullptr;
}

std::optional<std::string> boolText(std::string_view piece) {
  piece = trimmed(piece);
  if (piece == "true" || piece == "1" || piece == "True")
    return "true";
  if (piece == "false" || piece == "0" || piece == "False")
    return "false";
  return std::nullopt;
}

// One value of a numeric shape from `count` pieces.
std::optional<std::string> numericValue(const TypeShape& shape,
                                        const std::vector<std::string_view>& pieces,
                                        std::size_t first) {
  if (shape.name == "bool")
    return boolText(pieces[first]);
  std::vector<std::string> numbers;
  for (int i = 0; i < shape.count; ++i) {
    auto text =
        numberText(pieces[first + static_cast<std::size_t>(i)], shape.integer, shape.isUnsigned);
    if (!text)
      return std::nullopt;
    numbers.push_back(std::move(*text));
  }
  if (shape.count == 1)
    return numbers[0];
  std::string out = "(";
  if (shape.rows > 0) {
    for (int row = 0; row < shape.rows; ++row) {
      out += row > 0 ? ", (" : "(";
      for (int column = 0; column < shape.rows; ++column) {
        if (column > 0)
          out += ", ";
        out += numbers[static_cast<std::size_t>(row * shape.rows + column)];
      }
      out += ')';
    }
  } else {
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      if (i > 0)
        out += ", ";
      out += numbers[i];
    }
  }
  out += ')';
  return out;
}

std::optional<std::string> scalarText(std::string_view type, std::string_view text) {
  if (type == "string" || type == "token")
    return encodeStringLiteral(text);
  if (type == "asset") {
    std::string_view path = trimmed(text);
    if (path.size() >= 2 && path.front() == '@' && path.back() == '@')
      path = path.substr(1, path.size() - 2);
    return encodeAssetLiteral(path);
  }
  const TypeShape* shape = shapeOf(type);
  if (!shape)
    return std::nullopt;
  const std::vector<std::string_view> pieces = splitCommas(text);
  if (pieces.size() != static_cast<std::size_t>(shape->count))
    return std::nullopt;
  return numericValue(*shape, pieces, 0);
}

std::optional<std::string> pathText(std::string_view piece) {
  piece = trimmed(piece);
  if (piece.size() >= 2 && piece.front() == '<' && piece.back() == '>')
    piece = piece.substr(1, piece.size() - 2);
  if (piece.empty() || piece.front() != '/' ||
      piece.find_first_of("<>\"' \t\n") != std::string_view::npos) {
    return std::nullopt;
  }
  return "<" + std::string(piece) + ">";
}

}  // namespace

std::optional<std::vector<double>> parseNumberList(std::string_view text) {
  std::vector<double> numbers;
  for (const std::string_view piece : splitCommas(text)) {
    std::string_view digits = piece;
    if (!digits.empty() && digits.front() == '+')
      digits.remove_prefix(1);
    double value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size() ||
        !std::isfinite(value)) {
      return std::nullopt;
    }
    numbers.push_back(value);
  }
  return numbers;
}

std::string formatNumber(double value) {
  if (value == 0)
    value = 0;  // no "-0"
  char buffer[32];
  const auto written = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, written.ptr);
}

std::string formatTuple(const std::vector<double>& numbers) {
  std::string out = "(";
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (i > 0)
      out += ", ";
    out += formatNumber(numbers[i]);
  }
  out += ')';
  return out;
}

std::optional<std::string> layerValueText(std::string_view typeName, std::string_view text) {
  if (typeName == "rel") {
    std::vector<std::string> targets;
    for (const std::string_view piece : splitCommas(text)) {
      if (piece.empty())
        continue;
      auto target = pathText(piece);
      if (!target)
        return std::nullopt;
      targets.push_back(std::move(*target));
    }
    if (targets.size() == 1)
      return targets[0];
    std::string out = "[";
    for (std::size_t i = 0; i < targets.size(); ++i)
      out += (i > 0 ? ", " : "") + targets[i];
    return out + "]";
  }
  if (!typeName.ends_with("[]"))
    return scalarText(typeName, text);
  const std::string_view element = typeName.substr(0, typeName.size() - 2);
  std::string out = "[";
  const auto append = [&](const std::string& item) {
    if (out.size() > 1)
      out += ", ";
    out += item;
  };
  if (trimmed(text).empty())
    return "[]";
  if (const TypeShape* shape = shapeOf(element)) {
    const std::vector<std::string_view> pieces = splitCommas(text);
    const auto count = static_cast<std::size_t>(shape->count);
    if (pieces.size() % count != 0)
      return std::nullopt;
    for (std::size_t first = 0; first < pieces.size(); first += count) {
      auto item = numericValue(*shape, pieces, first);
      if (!item)
        return std::nullopt;
      append(*item);
    }
    return out + "]";
  }
  if (element != "string" && element != "token" && element != "asset")
    return std::nullopt;
  for (const std::string_view piece : splitCommas(text)) {
    auto item = scalarText(element, piece);
    if (!item)
      return std::nullopt;
    append(*item);
  }
  return out + "]";
}

bool isValidPrimName(std::string_view name) {
  if (name.empty() || name.size() > 1024)
    return false;
  const auto letter = [](unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c >= 0x80;
  };
  if (!letter(static_cast<unsigned char>(name.front())))
    return false;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (!letter(byte) && !(byte >= '0' && byte <= '9'))
      return false;
  }
  return true;
}

}  // namespace orvan::engine
