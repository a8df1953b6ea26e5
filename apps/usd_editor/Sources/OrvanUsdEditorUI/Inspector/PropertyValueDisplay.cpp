#include "Inspector/PropertyValueDisplay.h"

#include <QRegularExpression>

#include <algorithm>
#include <optional>
#include <vector>

namespace orvan::ui {

namespace {

using Style = PropertyValueDisplay::Style;

QString lower(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())).toLower();
}

std::vector<double> numbersIn(const QString& text) {
  static const QRegularExpression number(
      QStringLiteral(R"([-+]?(?:\d+\.?\d*|\.\d+)(?:[eE][-+]?\d+)?|[-+]?(?:inf|nan)\b)"),
      QRegularExpression::CaseInsensitiveOption);
  std::vector<double> values;
  for (auto match = number.globalMatch(text); match.hasNext();) {
    bool ok = false;
    const double value = match.next().captured(0).toDouble(&ok);
    if (ok)
      values.push_back(value);
  }
  return values;
}

QString numberText(double value) {
  return QString::number(value, 'g', 6);
}

std::optional<Style> styleOfKind(const QString& kind) {
  static const QStringList numbers = {"number", "float", "double", "int",   "integer",
                                      "half",   "uint",  "int64",  "uint64"};
  static const QStringList vectors = {"vector2", "vector3", "vector4", "vec2",     "vec3",
                                      "vec4",    "float2",  "float3",  "float4",   "double2",
                                      "double3", "double4", "point3f", "vector3f", "normal3f",
                                      "int2",    "int3",    "quatf",   "quatd"};
  static const QStringList colors = {"color",   "color3",  "color4", "color3f",
                                     "color4f", "color3d", "color4d"};
  static const QStringList booleans = {"bool", "boolean", "toggle"};
  static const QStringList assets = {"asset", "path", "texture", "file"};
  if (numbers.contains(kind))
    return Style::number;
  if (vectors.contains(kind))
    return Style::vector;
  if (colors.contains(kind))
    return Style::color;
  if (booleans.contains(kind))
    return Style::boolean;
  if (assets.contains(kind))
    return Style::asset;
  return std::nullopt;
}

PropertyValueDisplay plain(const QString& raw) {
  PropertyValueDisplay display;
  display.text = raw;
  return display;
}

PropertyValueDisplay readNumber(const QString& raw) {
  const auto values = numbersIn(raw);
  if (values.size() != 1)
    return plain(raw);
  PropertyValueDisplay display;
  display.style = Style::number;
  display.text = numberText(values.front());
  if (display.text != raw.trimmed())
    display.toolTip = raw;
  return display;
}

PropertyValueDisplay readVector(const QString& raw) {
  const auto values = numbersIn(raw);
  if (values.empty() || values.size() > 4)
    return plain(raw);
  PropertyValueDisplay display;
  display.style = Style::vector;
  for (const double value : values)
    display.components.push_back(numberText(value));
  display.text = display.components.join(", ");
  display.toolTip = raw;
  return display;
}

PropertyValueDisplay readColor(const QString& raw) {
  const auto values = numbersIn(raw);
  if (values.size() < 3 || values.size() > 4)
    return plain(raw);
  // Colours arrive as 0-1 channels; anything above 1 is taken for 0-255.
  const bool bytes = std::any_of(values.begin(), values.end(), [](double v) { return v > 1.0; });
  auto channel = [bytes](double v) { return std::clamp(bytes ? v / 255.0 : v, 0.0, 1.0); };
  PropertyValueDisplay display;
  display.style = Style::color;
  display.color = QColor::fromRgbF(
      static_cast<float>(channel(values[0])), static_cast<float>(channel(values[1])),
      static_cast<float>(channel(values[2])),
      static_cast<float>(values.size() == 4 ? channel(values[3]) : 1.0));
  QStringList parts;
  for (const double value : values)
    parts.push_back(numberText(value));
  display.text = parts.join(", ");
  display.toolTip = raw;
  return display;
}

PropertyValueDisplay readBoolean(const QString& raw) {
  const QString value = raw.trimmed().toLower();
  const bool on = value == "true" || value == "1" || value == "yes" || value == "on";
  const bool off = value == "false" || value == "0" || value == "no" || value == "off";
  if (!on && !off)
    return plain(raw);
  PropertyValueDisplay display;
  display.style = Style::boolean;
  display.checked = on;
  display.text = on ? QStringLiteral("On") : QStringLiteral("Off");
  return display;
}

PropertyValueDisplay readAsset(const QString& raw) {
  QString path = raw.trimmed();
  // Scene files quote asset paths as @path@.
  if (path.size() >= 2 && path.startsWith('@') && path.endsWith('@')) {
    path = path.mid(1, path.size() - 2);
  }
  PropertyValueDisplay display;
  display.style = Style::asset;
  if (path.isEmpty()) {
    display.text = QStringLiteral("None");
    return display;
  }
  const qsizetype slash = path.lastIndexOf('/');
  display.text = slash >= 0 && slash + 1 < path.size() ? path.mid(slash + 1) : path;
  display.toolTip = path;
  return display;
}

}  // namespace

PropertyValueDisplay displayForValue(std::string_view kind, std::string_view value) {
  const QString raw = QString::fromUtf8(value.data(), static_cast<qsizetype>(value.size()));
  const auto style = styleOfKind(lower(kind));
  if (!style)
    return plain(raw);
  switch (*style) {
    case Style::number:
      return readNumber(raw);
    case Style::vector:
      return readVector(raw);
    case Style::color:
      return readColor(raw);
    case Style::boolean:
      return readBoolean(raw);
    case Style::asset:
      return readAsset(raw);
    case Style::text:
    case Style::choice:
      return plain(raw);
  }
  return plain(raw);
}

PropertyValueDisplay displayForProperty(const editor::ComponentProperty& property) {
  // A value with named options shows its option's label.
  for (const auto& option : property.options) {
    if (option.value != property.value)
      continue;
    PropertyValueDisplay display;
    display.style = Style::choice;
    display.text = QString::fromStdString(option.label.empty() ? option.value : option.label);
    return display;
  }
  PropertyValueDisplay display = displayForValue(property.kind, property.value);
  if (property.unit && !property.unit->empty() && display.style == Style::number) {
    display.text += ' ' + QString::fromStdString(*property.unit);
  }
  return display;
}

PropertyValueDisplay displayForAttribute(const editor::UsdAttribute& attribute) {
  QString type = QString::fromStdString(attribute.type);
  // Arrays are shown as they came: one line of text is all a read-only row can hold.
  if (type.endsWith("[]"))
    return plain(QString::fromStdString(attribute.value));
  static const QStringList scalars = {"float", "double", "half",  "int",     "uint",
                                      "int64", "uint64", "uchar", "timecode"};
  if (scalars.contains(type))
    type = QStringLiteral("number");
  return displayForValue(type.toStdString(), attribute.value);
}

}  // namespace orvan::ui
