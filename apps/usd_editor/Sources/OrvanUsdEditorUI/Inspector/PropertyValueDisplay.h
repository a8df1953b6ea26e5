#pragma once

#include <QColor>
#include <QString>
#include <QStringList>

#include <string_view>

#include "orvan/wire/records/StageInspection.h"

namespace orvan::ui {

// How the inspector shows one value. Values travel as text in every kind; this reads the text
// for its kind so that a vector shows as fields, a colour as a swatch, a flag as a check.
struct PropertyValueDisplay {
  enum class Style { text, number, vector, color, boolean, asset, choice };

  Style style = Style::text;
  QString text;            // what the value column says
  QStringList components;  // vector fields, in order
  QColor color;            // valid for `color`
  bool checked = false;    // for `boolean`
  QString toolTip;         // the raw value when the shown text shortens it
};

PropertyValueDisplay displayForProperty(const editor::ComponentProperty& property);
// Raw attributes carry a scene type name ("float3", "color3f", "asset") instead of a kind.
PropertyValueDisplay displayForAttribute(const editor::UsdAttribute& attribute);
// The same reading from a kind name and a value, for both.
PropertyValueDisplay displayForValue(std::string_view kind, std::string_view value);

}  // namespace orvan::ui
