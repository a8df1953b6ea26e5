#include "Inspector/PropertyEditors.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QStyle>
#include <QToolButton>

#include <algorithm>
#include <map>

#include "Application/EditorModel.h"
#include "Authoring/PropertyDrafts.h"
#include "Inspector/PropertyValueDisplay.h"
#include "Inspector/Scrubber.h"

namespace orvan::ui {

namespace {

constexpr const char* kPropertyEditLabel = "property edit";
constexpr const char* kMixed = "Mixed";
constexpr std::string_view kProjectAssetRoot = "/World/OrvanAssets/";

QString qs(const std::string& text) {
  return QString::fromStdString(text);
}

QHBoxLayout* rowLayout(QWidget* owner) {
  auto* row = new QHBoxLayout(owner);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(4);
  return row;
}

ScrubRange rangeOf(const editor::ComponentProperty& property) {
  ScrubRange range;
  if (property.step && *property.step > 0)
    range.step = *property.step;
  range.minimum = property.min;
  range.maximum = property.max;
  return range;
}

// A typed number out of the record's range is held at its bound.
std::string clampedNumberText(const std::string& text, const editor::ComponentProperty& property) {
  const std::optional<std::vector<double>> numbers = editor::parseNumberList(text);
  if (!numbers || numbers->size() != 1)
    return text;
  double value = numbers->front();
  if (property.min)
    value = std::max(value, *property.min);
  if (property.max)
    value = std::min(value, *property.max);
  return value == numbers->front() ? text : editor::formatNumber(value);
}

// A field the user is typing in keeps its text through refreshes.
bool isBeingTyped(const QLineEdit* field) {
  return field->hasFocus() && field->isModified();
}

void showText(QLineEdit* field, const QString& text) {
  if (isBeingTyped(field) || field->text() == text)
    return;
  field->setText(text);
  field->setModified(false);
}

// One field's value, or "Mixed" as its placeholder when the entities differ. Whether the text
// shown does not parse for `kind`.
bool showFieldValue(QLineEdit* field, const ShownPropertyValue& value, std::string_view kind) {
  if (value.mixed()) {
    showText(field, QString());
    field->setPlaceholderText(kMixed);
    return false;
  }
  field->setPlaceholderText(QString());
  showText(field, qs(value.first()));
  return !editor::valueIsValid(value.first(), kind);
}

// ---- Numbers

class NumberEditor final : public PropertyEditor {
 public:
  NumberEditor(editor::EditorModel& model, editor::UsdComponent component,
               editor::ComponentProperty property, QWidget* parent)
      : PropertyEditor(model, std::move(component), std::move(property), parent) {
    auto* row = rowLayout(this);
    field_ = new QLineEdit(this);
    field_->setObjectName("NumberField");
    row->addWidget(field_, 1);
    if (property_.unit && !property_.unit->empty()) {
      auto* unit = new QLabel(qs(*property_.unit), this);
      unit->setObjectName("UnitLabel");
      row->addWidget(unit);
    }
    QObject::connect(field_, &QLineEdit::textEdited, this, [this](const QString& text) {
      setInvalid(!editor::valueIsValid(text.toStdString(), "number"));
      model_.propertyDrafts.updateDraft(component_, property_, text.toStdString(), false);
    });
    QObject::connect(field_, &QLineEdit::editingFinished, this, [this] {
      if (!field_->isModified())
        return;
      field_->setModified(false);
      model_.propertyDrafts.commitRetainedNumericControl(
          component_, property_, clampedNumberText(field_->text().toStdString(), property_));
    });
  }

  void attachNameLabel(QLabel* name) override {
    auto* scrubber = new Scrubber(name, rangeOf(property_));
    scrubber->begin = [this]() -> std::optional<double> {
      if (last_.entityValues.empty())
        return std::nullopt;
      return numberIn(qs(last_.first())).value_or(property_.min.value_or(0.0));
    };
    scrubber->moved = [this](double value) {
      const std::string text = editor::formatNumber(value);
      field_->setText(qs(text));
      field_->setModified(false);
      model_.propertyDrafts.updateDraft(component_, property_, text, true);
    };
    scrubber->ended = [this](double value) {
      model_.propertyDrafts.commitRetainedNumericControl(component_, property_,
                                                         editor::formatNumber(value));
    };
  }

  void showValue(const ShownPropertyValue& value) override {
    last_ = value;
    if (isBeingTyped(field_))
      return;
    setInvalid(showFieldValue(field_, value, "number"));
  }

  QString shownText() const override {
    if (field_->text().isEmpty() && !field_->placeholderText().isEmpty())
      return field_->placeholderText();
    const QString unit = property_.unit ? qs(*property_.unit) : QString();
    return unit.isEmpty() ? field_->text() : field_->text() + ' ' + unit;
  }

 private:
  QLineEdit* field_ = nullptr;
};

// ---- Vectors: one field per axis, each axis letter scrubs its axis

// The scene writes tuples as "(0, 1.5, -2)"; the fields take the numbers inside.
std::string vectorText(const std::string& value) {
  std::string plain;
  plain.reserve(value.size());
  for (const char each : value) {
    if (each != '(' && each != ')' && each != '[' && each != ']')
      plain += each;
  }
  return plain;
}

std::vector<std::string> axisTexts(const std::string& value, std::size_t axes) {
  return editor::splitVectorDraft(vectorText(value), axes);
}

class VectorEditor final : public PropertyEditor {
 public:
  VectorEditor(editor::EditorModel& model, editor::UsdComponent component,
               editor::ComponentProperty property, std::size_t axes, QWidget* parent)
      : PropertyEditor(model, std::move(component), std::move(property), parent) {
    static const char* names[] = {"X", "Y", "Z"};
    static const char* colours[] = {"#e06c6c", "#7fc77f", "#6ea8fe"};
    auto* row = rowLayout(this);
    for (std::size_t axis = 0; axis < axes; ++axis) {
      auto* letter = new QLabel(names[axis], this);
      letter->setObjectName("AxisLabel");
      letter->setStyleSheet(QStringLiteral("color: %1;").arg(colours[axis]));
      auto* field = new QLineEdit(this);
      field->setObjectName("VectorField");
      field->setProperty("axis", static_cast<int>(axis));
      field->setMinimumWidth(36);
      row->addWidget(letter);
      row->addWidget(field, 1);
      fields_.push_back(field);
      letters_.push_back(letter);
      QObject::connect(field, &QLineEdit::textEdited, this, [this, axis](const QString& text) {
        const std::string value = joined();
        setInvalid(!editor::valueIsValid(value, property_.kind));
        if (othersMixed(axis)) {
          if (editor::valueIsValid(text.toStdString(), "number"))
            draftEachEntity(axis, text.trimmed().toStdString(), false);
          return;
        }
        model_.propertyDrafts.updateDraft(component_, property_, value, false);
      });
      QObject::connect(field, &QLineEdit::editingFinished, this, [this, field, axis] {
        if (!field->isModified())
          return;
        field->setModified(false);
        commitAxis(axis, field->text().toStdString());
      });
      auto* scrubber = new Scrubber(letter, rangeOf(property_));
      scrubber->begin = [this, axis]() -> std::optional<double> {
        if (last_.entityValues.empty())
          return std::nullopt;
        const auto values = axisTexts(last_.first(), fields_.size());
        return numberIn(qs(values[axis])).value_or(0.0);
      };
      scrubber->moved = [this, axis](double value) {
        fields_[axis]->setText(qs(editor::formatNumber(value)));
        fields_[axis]->setModified(false);
        if (othersMixed(axis)) {
          draftEachEntity(axis, editor::formatNumber(value), false);
          return;
        }
        model_.propertyDrafts.updateDraft(component_, property_, joined(), true);
      };
      scrubber->ended = [this, axis](double value) {
        commitAxis(axis, editor::formatNumber(value));
      };
    }
  }

  void showValue(const ShownPropertyValue& value) override {
    last_ = value;
    findMixedAxes();
    const bool typing = std::any_of(fields_.begin(), fields_.end(), isBeingTyped);
    if (typing)
      return;
    const auto first = axisTexts(value.first(), fields_.size());
    bool invalid = !editor::valueIsValid(vectorText(value.first()), property_.kind);
    for (std::size_t axis = 0; axis < fields_.size(); ++axis) {
      if (axisMixed(axis)) {
        showText(fields_[axis], QString());
        fields_[axis]->setPlaceholderText(kMixed);
        continue;
      }
      fields_[axis]->setPlaceholderText(QString());
      showText(fields_[axis], qs(first[axis]));
    }
    if (value.mixed())
      invalid = false;
    setInvalid(invalid);
  }

  QString shownText() const override {
    QStringList parts;
    for (const QLineEdit* field : fields_)
      parts.push_back(field->text().isEmpty() ? field->placeholderText() : field->text());
    return parts.join(' ');
  }

 private:
  std::string joined() const {
    std::string text;
    for (std::size_t axis = 0; axis < fields_.size(); ++axis) {
      if (axis > 0)
        text += ',';
      text += fields_[axis]->text().trimmed().toStdString();
    }
    return text;
  }

  bool axisMixed(std::size_t axis) const { return axis < mixedAxes_.size() && mixedAxes_[axis]; }

  // Which axes differ between the entities; each value is split once.
  void findMixedAxes() {
    mixedAxes_.assign(fields_.size(), false);
    if (!last_.mixed())
      return;
    const auto first = axisTexts(last_.first(), fields_.size());
    for (std::size_t index = 1; index < last_.entityValues.size(); ++index) {
      const auto each = axisTexts(last_.entityValues[index], fields_.size());
      for (std::size_t axis = 0; axis < fields_.size(); ++axis)
        mixedAxes_[axis] = mixedAxes_[axis] || each[axis] != first[axis];
    }
  }

  bool othersMixed(std::size_t axis) const {
    for (std::size_t other = 0; other < fields_.size(); ++other) {
      if (other != axis && axisMixed(other))
        return true;
    }
    return false;
  }

  void commitAxis(std::size_t axis, const std::string& text) {
    if (othersMixed(axis) && editor::valueIsValid(text, "number")) {
      draftEachEntity(axis, text, true);
      return;
    }
    model_.propertyDrafts.commitRetainedNumericControl(component_, property_, joined());
  }

  // An axis set on entities that differ in the other axes: each keeps its own other axes. The
  // entities that end up with the same value share one draft and one commit.
  void draftEachEntity(std::size_t axis, const std::string& text, bool commit) {
    const std::vector<std::string> targets =
        model_.propertyDrafts.targetEntityPaths(component_.type, property_.name);
    std::map<std::string, std::vector<std::string>> groups;
    for (std::size_t index = 0; index < last_.entityPaths.size(); ++index) {
      const std::string& path = last_.entityPaths[index];
      if (std::find(targets.begin(), targets.end(), path) == targets.end())
        continue;
      auto values = axisTexts(last_.entityValues[index], fields_.size());
      values[axis] = text;
      std::string value;
      for (std::size_t each = 0; each < values.size(); ++each)
        value += (each > 0 ? "," : "") + values[each];
      if (!editor::valueIsValid(value, property_.kind))
        continue;  // that entity's own value does not parse; it is left as it is
      groups[editor::normalizedValue(value, property_.kind)].push_back(path);
    }
    for (const auto& [value, paths] : groups) {
      model_.propertyDrafts.updateDraftSnapshot(paths, component_.type, property_.name, value);
      if (commit) {
        model_.propertyDrafts.updateOptimisticProperty(paths, component_.type, property_.name,
                                                       value, kPropertyEditLabel);
      } else {
        model_.propertyDrafts.publishViewportPropertyPreview(paths, component_.type, property_.name,
                                                             value);
      }
    }
  }

  std::vector<QLineEdit*> fields_;
  std::vector<QLabel*> letters_;
  std::vector<bool> mixedAxes_;
};

// ---- Colours: a swatch that opens a colour dialog

QColor colourOf(const std::string& value) {
  const PropertyValueDisplay display = displayForValue("color", value);
  return display.style == PropertyValueDisplay::Style::color ? display.color : QColor();
}

std::string colourText(const QColor& colour) {
  return editor::formatNumber(colour.redF()) + "," + editor::formatNumber(colour.greenF()) + "," +
         editor::formatNumber(colour.blueF());
}

class ColorEditor final : public PropertyEditor {
 public:
  ColorEditor(editor::EditorModel& model, editor::UsdComponent component,
              editor::ComponentProperty property, QWidget* parent)
      : PropertyEditor(model, std::move(component), std::move(property), parent) {
    auto* row = rowLayout(this);
    swatch_ = new QToolButton(this);
    swatch_->setObjectName("ColorSwatch");
    swatch_->setFixedSize(32, 16);
    swatch_->setToolTip("Choose a colour");
    text_ = new QLabel(this);
    text_->setObjectName("ValueText");
    row->addWidget(swatch_);
    row->addWidget(text_, 1);
    QObject::connect(swatch_, &QToolButton::clicked, this, [this] { openDialog(); });
  }

  void showValue(const ShownPropertyValue& value) override {
    last_ = value;
    if (value.mixed()) {
      swatch_->setStyleSheet(
          "background: qlineargradient(x1:0, y1:0, x2:1, y2:1, stop:0 #555, stop:0.5 #555,"
          " stop:0.51 #999, stop:1 #999); border: 1px solid #15171a;");
      text_->setText(kMixed);
      setInvalid(false);
      return;
    }
    const QColor colour = colourOf(value.first());
    setInvalid(!colour.isValid());
    swatch_->setStyleSheet(
        QStringLiteral("background: %1; border: 1px solid #15171a; border-radius: 2px;")
            .arg(colour.isValid() ? colour.name(QColor::HexRgb) : QStringLiteral("transparent")));
    text_->setText(colour.isValid() ? displayForValue("color", value.first()).text
                                    : qs(value.first()));
  }

  QString shownText() const override { return text_->text(); }

 private:
  void openDialog() {
    if (!dialog_) {
      dialog_ = new QColorDialog(this);
      dialog_->setObjectName("ColorDialog");
      QObject::connect(dialog_, &QColorDialog::currentColorChanged, this,
                       [this](const QColor& colour) {
                         if (!following_)
                           apply(colourText(colour));
                       });
      QObject::connect(dialog_, &QColorDialog::rejected, this, [this] {
        if (!original_.empty())
          apply(original_);
      });
    }
    original_ = last_.entityValues.empty() || last_.mixed() ? std::string() : last_.first();
    const QColor colour = last_.entityValues.empty() ? QColor() : colourOf(last_.first());
    following_ = true;
    dialog_->setCurrentColor(colour.isValid() ? colour : QColor(Qt::white));
    following_ = false;
    dialog_->open();
  }

  void apply(const std::string& value) {
    const std::vector<std::string> targets =
        model_.propertyDrafts.targetEntityPaths(component_.type, property_.name);
    model_.propertyDrafts.scheduleColorCommit(component_, property_, targets, value);
  }

  QToolButton* swatch_ = nullptr;
  QLabel* text_ = nullptr;
  QColorDialog* dialog_ = nullptr;
  std::string original_;
  bool following_ = false;
};

// ---- Flags

bool isTrue(const std::string& value) {
  const QString text = qs(value).trimmed().toLower();
  return text == "true" || text == "1" || text == "yes" || text == "on";
}

class BoolEditor final : public PropertyEditor {
 public:
  BoolEditor(editor::EditorModel& model, editor::UsdComponent component,
             editor::ComponentProperty property, QWidget* parent)
      : PropertyEditor(model, std::move(component), std::move(property), parent) {
    auto* row = rowLayout(this);
    check_ = new QCheckBox(this);
    check_->setObjectName("ValueCheck");
    row->addWidget(check_, 1);
    // A click always sets one value for every entity: a mixed box becomes checked.
    QObject::connect(check_, &QCheckBox::clicked, this, [this] {
      const bool value = stateBefore_ != Qt::Checked;
      check_->setTristate(false);
      check_->setChecked(value);
      stateBefore_ = value ? Qt::Checked : Qt::Unchecked;
      model_.propertyDrafts.updateDraft(component_, property_, value ? "true" : "false", true);
    });
  }

  void showValue(const ShownPropertyValue& value) override {
    last_ = value;
    const QSignalBlocker quiet(check_);
    if (value.mixed()) {
      check_->setTristate(true);
      check_->setCheckState(Qt::PartiallyChecked);
      check_->setText(kMixed);
      stateBefore_ = Qt::PartiallyChecked;
      return;
    }
    check_->setTristate(false);
    const bool on = isTrue(value.first());
    check_->setChecked(on);
    check_->setText(on ? "On" : "Off");
    stateBefore_ = on ? Qt::Checked : Qt::Unchecked;
  }

  QString shownText() const override { return check_->text(); }

 private:
  QCheckBox* check_ = nullptr;
  Qt::CheckState stateBefore_ = Qt::Unchecked;
};

// ---- Option menus

class OptionEditor final : public PropertyEditor {
 public:
  OptionEditor(editor::EditorModel& model, editor::UsdComponent component,
               editor::ComponentProperty property, QWidget* parent)
      : PropertyEditor(model, std::move(component), std::move(property), parent) {
    auto* row = rowLayout(this);
    menu_ = new QComboBox(this);
    menu_->setObjectName("OptionMenu");
    for (const editor::ComponentPropertyOption& option : property_.options)
      menu_->addItem(qs(option.label.empty() ? option.value : option.label), qs(option.value));
    row->addWidget(menu_, 1);
    QObject::connect(menu_, &QComboBox::activated, this, [this](int index) {
      const std::string value = menu_->itemData(index).toString().toStdString();
      model_.propertyDrafts.updateDraft(component_, property_, value, true);
    });
  }

  void showValue(const ShownPropertyValue& value) override {
    last_ = value;
    const QSignalBlocker quiet(menu_);
    if (value.mixed()) {
      menu_->setCurrentIndex(-1);
      menu_->setPlaceholderText(kMixed);
      setInvalid(false);
      return;
    }
    const int index = menu_->findData(qs(value.first()));
    menu_->setCurrentIndex(index);
    // A value the record does not offer is shown as it is and marked; it cannot be chosen.
    menu_->setPlaceholderText(index < 0 ? qs(value.first()) : QString());
    setInvalid(index < 0);
  }

  QString shownText() const override {
    return menu_->currentIndex() < 0 ? menu_->placeholderText() : menu_->currentText();
  }

 private:
  QComboBox* menu_ = nullptr;
};

// ---- Asset and material pickers, fed by the assets the stage holds of the project

std::string assetPathOf(const std::string& value) {
  static constexpr std::string_view kPointer = "asset:";
  return value.rfind(kPointer, 0) == 0 ? value.substr(kPointer.size()) : value;
}

class AssetPickerEditor final : public PropertyEditor {
 public:
  AssetPickerEditor(editor::EditorModel& model, editor::UsdComponent component,
                    editor::ComponentProperty property, QWidget* parent)
      : PropertyEditor(model, std::move(component), std::move(property), parent) {
    auto* row = rowLayout(this);
    menu_ = new QComboBox(this);
    menu_->setObjectName("AssetPicker");
    resolving_ = new QLabel(QString::fromUtf8("\u2026"), this);
    resolving_->setObjectName("ResolvingMark");
    resolving_->setToolTip("Waiting for the server to resolve the asset");
    resolving_->hide();
    row->addWidget(menu_, 1);
    row->addWidget(resolving_);
    QObject::connect(menu_, &QComboBox::activated, this, [this](int index) {
      const std::string path = menu_->itemData(index).toString().toStdString();
      model_.propertyDrafts.assignProjectAssetPointer(component_, property_, path);
    });
  }

  void showValue(const ShownPropertyValue& value) override {
    last_ = value;
    const QSignalBlocker quiet(menu_);
    fillChoices();
    resolving_->setVisible(value.resolving);
    if (value.mixed()) {
      menu_->setCurrentIndex(-1);
      menu_->setPlaceholderText(kMixed);
      return;
    }
    const std::string path = assetPathOf(value.first());
    const int index = menu_->findData(qs(path));
    menu_->setCurrentIndex(index);
    if (index < 0) {
      const qsizetype slash = qs(path).lastIndexOf('/');
      menu_->setPlaceholderText(path.empty() ? QStringLiteral("None") : qs(path).mid(slash + 1));
    }
  }

  QString shownText() const override {
    return menu_->currentIndex() < 0 ? menu_->placeholderText() : menu_->currentText();
  }

 private:
  // The project's assets of the property's kind; a font must be an OpenType file.
  void fillChoices() {
    std::vector<std::pair<std::string, std::string>> choices;
    for (const editor::UsdAsset& asset : model_.currentStage().assets) {
      if (asset.path.rfind(kProjectAssetRoot, 0) != 0)
        continue;
      const bool fits = property_.kind == "font"
                            ? asset.path.size() > 4 && asset.path.ends_with(".otf")
                            : asset.kind == property_.kind;
      if (fits)
        choices.emplace_back(asset.name.empty() ? asset.path : asset.name, asset.path);
    }
    if (choices == choices_)
      return;
    choices_ = choices;
    menu_->clear();
    for (const auto& [name, path] : choices_)
      menu_->addItem(qs(name), qs(path));
  }

  QComboBox* menu_ = nullptr;
  QLabel* resolving_ = nullptr;
  std::vector<std::pair<std::string, std::string>> choices_;
};

// ---- Text

class TextEditor final : public PropertyEditor {
 public:
  TextEditor(editor::EditorModel& model, editor::UsdComponent component,
             editor::ComponentProperty property, QWidget* parent)
      : PropertyEditor(model, std::move(component), std::move(property), parent) {
    auto* row = rowLayout(this);
    field_ = new QLineEdit(this);
    field_->setObjectName("TextField");
    row->addWidget(field_, 1);
    QObject::connect(field_, &QLineEdit::textEdited, this, [this](const QString& text) {
      setInvalid(!editor::valueIsValid(text.toStdString(), property_.kind));
      model_.propertyDrafts.updateDraft(component_, property_, text.toStdString(), false);
    });
    QObject::connect(field_, &QLineEdit::editingFinished, this, [this] {
      if (!field_->isModified())
        return;
      field_->setModified(false);
      model_.propertyDrafts.updateDraft(component_, property_, field_->text().toStdString(), true);
    });
  }

  void showValue(const ShownPropertyValue& value) override {
    last_ = value;
    if (isBeingTyped(field_))
      return;
    setInvalid(showFieldValue(field_, value, property_.kind));
  }

  QString shownText() const override {
    return field_->text().isEmpty() ? field_->placeholderText() : field_->text();
  }

 private:
  QLineEdit* field_ = nullptr;
};

// ---- Read-only

class ReadOnlyEditor final : public PropertyEditor {
 public:
  ReadOnlyEditor(editor::EditorModel& model, editor::UsdComponent component,
                 editor::ComponentProperty property, QWidget* parent)
      : PropertyEditor(model, std::move(component), std::move(property), parent) {
    auto* row = rowLayout(this);
    text_ = new QLabel(this);
    text_->setObjectName("ValueText");
    text_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    row->addWidget(text_, 1);
  }

  void showValue(const ShownPropertyValue& value) override {
    last_ = value;
    editor::ComponentProperty shown = property_;
    shown.value = value.first();
    text_->setText(value.mixed() ? QString(kMixed) : displayForProperty(shown).text);
  }
  QString shownText() const override { return text_->text(); }

 private:
  QLabel* text_ = nullptr;
};

std::size_t vectorAxes(const std::string& kind) {
  return kind == "vector2" ? 2 : 3;
}

}  // namespace

bool ShownPropertyValue::mixed() const {
  return std::any_of(entityValues.begin(), entityValues.end(),
                     [&](const std::string& each) { return each != entityValues.front(); });
}

std::optional<double> numberIn(const QString& text) {
  const std::optional<std::vector<double>> numbers =
      editor::parseNumberList(text.trimmed().toStdString());
  if (!numbers || numbers->size() != 1)
    return std::nullopt;
  return numbers->front();
}

PropertyEditor::PropertyEditor(editor::EditorModel& model, editor::UsdComponent component,
                               editor::ComponentProperty property, QWidget* parent)
    : QWidget(parent),
      model_(model),
      component_(std::move(component)),
      property_(std::move(property)) {
  setObjectName("PropertyEditor");
  setProperty("propertyName", qs(property_.name));
  setProperty("invalid", false);
}

void PropertyEditor::setInvalid(bool invalid) {
  if (invalid == invalid_)
    return;
  invalid_ = invalid;
  setProperty("invalid", invalid);
  setToolTip(invalid ? QStringLiteral("Not a valid %1 value; it is kept here and not sent")
                           .arg(qs(property_.kind))
                     : QString());
  // The theme draws the fields of an invalid editor with a red frame.
  for (QWidget* child : findChildren<QWidget*>()) {
    child->setProperty("invalid", invalid);
    child->style()->unpolish(child);
    child->style()->polish(child);
  }
}

PropertyEditor* makePropertyEditor(editor::EditorModel& model,
                                   const editor::UsdComponent& component,
                                   const editor::ComponentProperty& property, QWidget* parent) {
  const std::string& kind = property.kind;
  if (property.control && *property.control == "readonly")
    return new ReadOnlyEditor(model, component, property, parent);
  if (!property.options.empty())
    return new OptionEditor(model, component, property, parent);
  if (kind == "number")
    return new NumberEditor(model, component, property, parent);
  if (kind.rfind("vector", 0) == 0)
    return new VectorEditor(model, component, property, vectorAxes(kind), parent);
  if (kind == "color")
    return new ColorEditor(model, component, property, parent);
  if (kind == "bool" || kind == "boolean")
    return new BoolEditor(model, component, property, parent);
  if (kind == "material" || kind == "mesh" || kind == "sound" || kind == "font")
    return new AssetPickerEditor(model, component, property, parent);
  return new TextEditor(model, component, property, parent);
}

}  // namespace orvan::ui
