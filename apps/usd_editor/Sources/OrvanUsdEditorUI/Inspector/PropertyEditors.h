#pragma once

#include <QWidget>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orvan/wire/records/StageInspection.h"

class QLabel;

namespace orvan::editor {
class EditorModel;
}

namespace orvan::ui {

// What one property's editor shows: the value of every entity it edits (draft, preview or the
// stage's value), in selection order.
struct ShownPropertyValue {
  std::vector<std::string> entityPaths;
  std::vector<std::string> entityValues;  // never empty
  bool resolving = false;                 // an asset pointer the server has not resolved yet

  const std::string& first() const { return entityValues.front(); }
  bool mixed() const;
};

// The control of one component property. It is built once per inspector layout and kept while the
// user edits: refreshes hand it new values through `showValue`, which leaves a field the user is
// typing in alone. Edits go to the model's property drafts, never to the scene directly.
class PropertyEditor : public QWidget {
 public:
  PropertyEditor(editor::EditorModel& model, editor::UsdComponent component,
                 editor::ComponentProperty property, QWidget* parent);

  virtual void showValue(const ShownPropertyValue& value) = 0;
  // The row's name label; number editors scrub when it is dragged.
  virtual void attachNameLabel(QLabel* name) { (void)name; }
  // What the row says, for tests and accessibility ("0 1.5 -2", "On", "Mixed").
  virtual QString shownText() const = 0;

  bool isInvalid() const { return invalid_; }
  const editor::UsdComponent& component() const { return component_; }
  const editor::ComponentProperty& property() const { return property_; }

 protected:
  // A value that does not parse for the kind is kept and marked, never sent.
  void setInvalid(bool invalid);
  editor::EditorModel& model_;
  editor::UsdComponent component_;
  editor::ComponentProperty property_;
  ShownPropertyValue last_;

 private:
  bool invalid_ = false;
};

// The control that suits the property: an option menu for a property with options, then by kind a
// number field, one field per axis, a colour swatch, a check box, an asset picker or a text field.
PropertyEditor* makePropertyEditor(editor::EditorModel& model,
                                   const editor::UsdComponent& component,
                                   const editor::ComponentProperty& property, QWidget* parent);

// The number the text of a vector's axis or a number field stands for; none when it does not parse.
std::optional<double> numberIn(const QString& text);

}  // namespace orvan::ui
