#include "OrvanUsdEditorUI/Inspector/InspectorPane.h"

#include <QCheckBox>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QScrollArea>
#include <QStackedLayout>
#include <QVBoxLayout>

#include "Application/EditorModel.h"
#include "OrvanUsdEditorUI/Inspector/PropertyValueDisplay.h"

namespace orvan::ui {

namespace {

constexpr int kNameColumnWidth = 112;

QString qs(const std::string& text) {
  return QString::fromStdString(text);
}

QLabel* label(const QString& text, const char* objectName, QWidget* parent) {
  auto* result = new QLabel(text, parent);
  result->setObjectName(objectName);
  return result;
}

// A value cell shaped by its kind: fields for a vector, a swatch for a colour, a check for a flag.
QWidget* makeValueCell(const PropertyValueDisplay& display, QWidget* parent) {
  using Style = PropertyValueDisplay::Style;
  auto* cell = new QWidget(parent);
  auto* row = new QHBoxLayout(cell);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(4);
  switch (display.style) {
    case Style::vector: {
      static const char* axes[] = {"X", "Y", "Z", "W"};
      for (qsizetype i = 0; i < display.components.size(); ++i) {
        auto* field = label(QString(), "VectorField", cell);
        field->setText(QStringLiteral("<span style='color:%1'>%2</span>&nbsp;%3")
                           .arg(i == 0   ? "#e06c6c"
                                : i == 1 ? "#7fc77f"
                                : i == 2 ? "#6ea8fe"
                                         : "#a8adb5",
                                axes[i], display.components[i].toHtmlEscaped()));
        field->setProperty("plainValue", display.components[i]);
        row->addWidget(field, 1);
      }
      break;
    }
    case Style::color: {
      auto* swatch = label(QString(), "ColorSwatch", cell);
      swatch->setFixedSize(28, 14);
      swatch->setStyleSheet(QStringLiteral("background: %1; border: 1px solid #15171a;"
                                           "border-radius: 2px;")
                                .arg(display.color.name(QColor::HexRgb)));
      swatch->setProperty("plainValue", display.color.name(QColor::HexRgb));
      row->addWidget(swatch);
      row->addWidget(label(display.text, "ValueText", cell), 1);
      break;
    }
    case Style::boolean: {
      auto* check = new QCheckBox(display.text, cell);
      check->setObjectName("ValueCheck");
      check->setChecked(display.checked);
      // Read-only, but drawn like the control it will become.
      check->setAttribute(Qt::WA_TransparentForMouseEvents);
      check->setFocusPolicy(Qt::NoFocus);
      row->addWidget(check, 1);
      break;
    }
    case Style::asset:
      row->addWidget(label(display.text, "AssetValue", cell), 1);
      break;
    case Style::number:
      row->addWidget(label(display.text, "NumberValue", cell), 1);
      break;
    case Style::text:
    case Style::choice:
      row->addWidget(label(display.text, "ValueText", cell), 1);
      break;
  }
  cell->setToolTip(display.toolTip);
  return cell;
}

// Name and value columns aligned across every row of a section.
class PropertyGrid {
 public:
  explicit PropertyGrid(QWidget* parent) : layout_(new QGridLayout(parent)) {
    layout_->setContentsMargins(12, 4, 10, 8);
    layout_->setHorizontalSpacing(10);
    layout_->setVerticalSpacing(3);
    layout_->setColumnMinimumWidth(0, kNameColumnWidth);
    layout_->setColumnStretch(1, 1);
  }

  // The name is made before the value, so the widgets read in row order.
  template <class MakeValue>
  QWidget* addRow(const QString& name, MakeValue makeValue, const QString& nameToolTip = {}) {
    QWidget* parent = layout_->parentWidget();
    auto* nameLabel = label(name, "PropertyName", parent);
    nameLabel->setFixedWidth(kNameColumnWidth);
    nameLabel->setToolTip(nameToolTip.isEmpty() ? name : nameToolTip);
    // Long names keep their start and their end ("orvan:amb…Strength"), which is where
    // namespaced attribute names differ; the whole name stays in the tool tip.
    nameLabel->setProperty("plainName", name);
    nameLabel->setText(
        nameLabel->fontMetrics().elidedText(name, Qt::ElideMiddle, kNameColumnWidth - 4));
    QWidget* value = makeValue(parent);
    layout_->addWidget(nameLabel, rows_, 0, Qt::AlignLeft | Qt::AlignVCenter);
    layout_->addWidget(value, rows_, 1);
    ++rows_;
    return value;
  }
  // A note across both columns, for a section with nothing to list.
  void addNote(const QString& text) {
    layout_->addWidget(label(text, "SectionNote", layout_->parentWidget()), rows_, 0, 1, 2);
    ++rows_;
  }
  int rows() const { return rows_; }

 private:
  QGridLayout* layout_;
  int rows_ = 0;
};

QWidget* makeSectionHeader(const QString& title, const QString& detail, std::optional<bool> enabled,
                           QWidget* parent) {
  auto* header = new QFrame(parent);
  header->setObjectName("SectionHeader");
  auto* row = new QHBoxLayout(header);
  row->setContentsMargins(10, 5, 10, 5);
  row->setSpacing(6);
  if (enabled) {
    auto* check = new QCheckBox(header);
    check->setObjectName("SectionEnabled");
    check->setChecked(*enabled);
    check->setToolTip(*enabled ? "Enabled" : "Disabled");
    check->setAttribute(Qt::WA_TransparentForMouseEvents);
    check->setFocusPolicy(Qt::NoFocus);
    row->addWidget(check);
  }
  row->addWidget(label(title, "SectionTitle", header));
  if (!detail.isEmpty())
    row->addWidget(label(detail, "SectionDetail", header));
  row->addStretch(1);
  return header;
}

}  // namespace

InspectorPane::InspectorPane(editor::EditorModel& model, QWidget* parent)
    : QWidget(parent), model_(model) {
  setObjectName("InspectorPane");
  stack_ = new QStackedLayout(this);
  emptyState_ = new QLabel(this);
  emptyState_->setObjectName("EmptyState");
  emptyState_->setAlignment(Qt::AlignCenter);
  emptyState_->setWordWrap(true);
  scroll_ = new QScrollArea(this);
  scroll_->setObjectName("InspectorScroll");
  scroll_->setWidgetResizable(true);
  scroll_->setFrameShape(QFrame::NoFrame);
  scroll_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  stack_->addWidget(emptyState_);
  stack_->addWidget(scroll_);

  inspectorSubscription_ = model_.session.inspector.subscribe([this](const auto&) { render(); });
  // The stage alone only changes the empty state's words; a shown prim is redrawn when the
  // reconciled snapshot arrives, not once more for the stage before it.
  stageSubscription_ = model_.clientDocument.hierarchyProjection.revision.subscribe([this](const auto&) {
    if (!model_.session.inspector.get().sceneSnapshot.prim)
      render();
  });
  render();
}

QString InspectorPane::emptyStateText() const {
  return stack_->currentWidget() == emptyState_ ? emptyState_->text() : QString();
}

void InspectorPane::showEmptyState(const QString& text) {
  emptyState_->setText(text);
  stack_->setCurrentWidget(emptyState_);
}

void InspectorPane::render() {
  const auto& snapshot = model_.session.inspector.get().sceneSnapshot;
  if (snapshot.prim) {
    renderSnapshot(snapshot);
    return;
  }
  const bool noStage = model_.clientDocument.current().stage().rootPrims.empty();
  showEmptyState(noStage ? "No stage loaded" : "Nothing selected");
}

void InspectorPane::renderSnapshot(const editor::EditorSelectionSnapshot& snapshot) {
  const editor::UsdPrimDetail& prim = *snapshot.prim;
  auto* content = new QWidget;
  content->setObjectName("InspectorContent");
  auto* column = new QVBoxLayout(content);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(0);

  // Header: what is selected.
  auto* header = new QFrame(content);
  header->setObjectName("InspectorHeader");
  auto* headerLayout = new QVBoxLayout(header);
  headerLayout->setContentsMargins(12, 10, 12, 10);
  headerLayout->setSpacing(2);
  auto* titleRow = new QHBoxLayout;
  titleRow->setSpacing(8);
  titleRow->addWidget(label(qs(prim.name), "PrimName", header));
  if (!prim.typeName.empty())
    titleRow->addWidget(label(qs(prim.typeName), "PrimType", header));
  if (!prim.active)
    titleRow->addWidget(label("Inactive", "PrimType", header));
  titleRow->addStretch(1);
  const auto selected = model_.session.sceneSelection.get().paths.size();
  if (selected > 1) {
    titleRow->addWidget(
        label(QStringLiteral("+%1 more").arg(selected - 1), "SectionDetail", header));
  }
  headerLayout->addLayout(titleRow);
  auto* path = label(qs(prim.path), "PrimPath", header);
  path->setTextInteractionFlags(Qt::TextSelectableByMouse);
  headerLayout->addWidget(path);
  column->addWidget(header);

  for (const editor::UsdComponent& component : snapshot.components) {
    const QString type = qs(component.type);
    const QString title =
        component.label && !component.label->empty() ? qs(*component.label) : type;
    column->addWidget(
        makeSectionHeader(title, title == type ? QString() : type, component.enabled, content));
    auto* body = new QWidget(content);
    body->setObjectName("SectionBody");
    // A disabled component keeps its values readable but steps back.
    body->setProperty("componentDisabled", !component.enabled);
    PropertyGrid grid(body);
    for (const editor::ComponentProperty& property : component.properties) {
      grid.addRow(qs(property.name), [&](QWidget* parent) {
        return makeValueCell(displayForProperty(property), parent);
      });
    }
    if (grid.rows() == 0)
      grid.addNote("No properties");
    column->addWidget(body);
  }

  column->addWidget(makeSectionHeader("Attributes", QString::number(snapshot.attributes.size()),
                                      std::nullopt, content));
  auto* attributes = new QWidget(content);
  attributes->setObjectName("SectionBody");
  PropertyGrid grid(attributes);
  for (const editor::UsdAttribute& attribute : snapshot.attributes) {
    const QString type = qs(attribute.type);
    QWidget* value = grid.addRow(
        qs(attribute.name),
        [&](QWidget* parent) { return makeValueCell(displayForAttribute(attribute), parent); },
        QStringLiteral("%1 (%2)").arg(qs(attribute.name), type));
    if (value->toolTip().isEmpty())
      value->setToolTip(qs(attribute.value));
    value->setToolTip(type + ": " + value->toolTip());
  }
  if (grid.rows() == 0)
    grid.addNote("No attributes");
  column->addWidget(attributes);
  column->addStretch(1);

  scroll_->setWidget(content);  // deletes the previous content
  content_ = content;
  stack_->setCurrentWidget(scroll_);
}

QStringList InspectorPane::contentLines() const {
  QStringList lines;
  if (stack_->currentWidget() != scroll_ || !content_)
    return lines;
  // Walk the labels in layout order: a section title starts a section, then name/value pairs.
  for (QWidget* child : content_->findChildren<QWidget*>(Qt::FindChildrenRecursively)) {
    const QString name = child->objectName();
    if (name == "PrimName" || name == "PrimType" || name == "PrimPath" || name == "SectionTitle") {
      lines.push_back(static_cast<QLabel*>(child)->text());
    } else if (name == "PropertyName") {
      lines.push_back(child->property("plainName").toString() + ":");
    } else if (name == "ValueText" || name == "NumberValue" || name == "AssetValue") {
      lines.back() += " " + static_cast<QLabel*>(child)->text();
    } else if (name == "VectorField" || name == "ColorSwatch") {
      lines.back() += " " + child->property("plainValue").toString();
    } else if (name == "ValueCheck") {
      lines.back() += " " + static_cast<QCheckBox*>(child)->text();
    }
  }
  return lines;
}

}  // namespace orvan::ui
