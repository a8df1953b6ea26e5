#include "Inspector/InspectorPane.h"

#include <algorithm>

#include <QCheckBox>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QScrollArea>
#include <QStackedLayout>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

#include "Application/EditorModel.h"
#include "Authoring/PropertyDrafts.h"
#include "Inspector/PropertyEditors.h"
#include "Inspector/PropertyValueDisplay.h"
#include "MainWindow.h"
#include "Presentation/EditorPresentationStore.h"

namespace orvan::ui {

namespace {

constexpr int kNameColumnWidth = 112;  // at the least
constexpr int kMaxNameColumnWidth = 240;
constexpr int kGridLeftMargin = 12;
constexpr int kGridRightMargin = 10;
constexpr int kGridColumnSpacing = 10;

// The name column takes two fifths of the pane, so that widening the pane shows longer names.
int nameColumnWidth(int paneWidth) {
  const int columns = paneWidth - kGridLeftMargin - kGridRightMargin - kGridColumnSpacing;
  return std::clamp(columns * 2 / 5, kNameColumnWidth, kMaxNameColumnWidth);
}

// Long names keep their start and their end ("orvan:amb…Strength"), which is where namespaced
// attribute names differ; the whole name stays in the tool tip.
void fitName(QLabel* name, int width) {
  name->setFixedWidth(width);
  const QString plain = name->property("plainName").toString();
  name->setText(name->fontMetrics().elidedText(plain, Qt::ElideMiddle, width - 4));
}

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

// The dot of a value overridden in a layer; a click resets it to what the layers below say.
QToolButton* makeOverrideMark(const std::string& layerName, QWidget* parent) {
  auto* mark = new QToolButton(parent);
  mark->setObjectName("OverrideMark");
  mark->setText(QString::fromUtf8("\u25CF"));
  mark->setAutoRaise(true);
  mark->setFixedSize(16, 16);
  mark->setToolTip(layerName.empty()
                       ? QStringLiteral("Overridden; click to reset")
                       : QStringLiteral("Overridden in %1; click to reset").arg(qs(layerName)));
  return mark;
}

// Name and value columns aligned across every row of a section.
class PropertyGrid {
 public:
  explicit PropertyGrid(QWidget* parent) : layout_(new QGridLayout(parent)) {
    layout_->setContentsMargins(kGridLeftMargin, 4, kGridRightMargin, 8);
    layout_->setHorizontalSpacing(kGridColumnSpacing);
    layout_->setVerticalSpacing(3);
    layout_->setColumnMinimumWidth(0, kNameColumnWidth);
    layout_->setColumnStretch(1, 1);
  }

  // The name is made before the value, so the widgets read in row order.
  template <class MakeValue>
  QWidget* addRow(const QString& name, MakeValue makeValue, const QString& nameToolTip = {}) {
    QWidget* parent = layout_->parentWidget();
    auto* nameLabel = label(name, "PropertyName", parent);
    nameLabel->setToolTip(nameToolTip.isEmpty() ? name : nameToolTip);
    nameLabel->setProperty("plainName", name);
    fitName(nameLabel, kNameColumnWidth);  // until the pane fits the column to its width
    QWidget* value = makeValue(parent);
    layout_->addWidget(nameLabel, rows_, 0, Qt::AlignLeft | Qt::AlignVCenter);
    layout_->addWidget(value, rows_, 1);
    ++rows_;
    return value;
  }
  // A row with a live editor and its override mark; the name label is handed to the editor, which
  // may scrub with it. The label is made first, so the widgets read in row order.
  template <class MakeEditor>
  PropertyEditor* addEditorRow(const QString& name, MakeEditor makeEditor, QToolButton*& mark,
                               const std::string& overrideLayerName) {
    QWidget* parent = layout_->parentWidget();
    auto* nameLabel = label(name, "PropertyName", parent);
    nameLabel->setToolTip(name);
    nameLabel->setProperty("plainName", name);
    fitName(nameLabel, kNameColumnWidth);
    PropertyEditor* editor = makeEditor(parent);
    editor->attachNameLabel(nameLabel);
    mark = makeOverrideMark(overrideLayerName, parent);
    layout_->addWidget(nameLabel, rows_, 0, Qt::AlignLeft | Qt::AlignVCenter);
    layout_->addWidget(editor, rows_, 1);
    layout_->addWidget(mark, rows_, 2);
    ++rows_;
    return editor;
  }
  // A note across both columns, for a section with nothing to list.
  void addNote(const QString& text) {
    layout_->addWidget(label(text, "SectionNote", layout_->parentWidget()), rows_, 0, 1, 3);
    ++rows_;
  }
  // The override mark of the row added last.
  void placeMark(QToolButton* mark) { layout_->addWidget(mark, rows_ - 1, 2); }
  int rows() const { return rows_; }

 private:
  QGridLayout* layout_;
  int rows_ = 0;
};

// What decides the editors' layout: when it is unchanged a new snapshot only updates values.
std::string layoutKey(const editor::EditorSelectionSnapshot& snapshot, std::size_t selected) {
  std::string key;
  auto add = [&key](std::string_view part) {
    key += part;
    key += '\x1f';
  };
  const editor::UsdPrimDetail& prim = *snapshot.prim;
  add(prim.path);
  add(prim.name);
  add(prim.typeName);
  add(prim.active ? "1" : "0");
  add(std::to_string(selected));
  for (const std::string& path : snapshot.entityPaths)
    add(path);
  add("components");
  for (const editor::UsdComponent& component : snapshot.components) {
    add(component.type);
    add(component.label.value_or(""));
    for (const editor::ComponentProperty& property : component.properties) {
      add(property.name);
      add(property.kind);
      add(property.control.value_or(""));
      add(property.unit.value_or(""));
      add(property.overrideLayerName);
      for (const std::optional<double>& number : {property.min, property.max, property.step})
        add(number ? editor::formatNumber(*number) : "-");
      for (const editor::ComponentPropertyOption& option : property.options) {
        add(option.value);
        add(option.label);
      }
    }
  }
  add("attributes");
  for (const editor::UsdAttribute& attribute : snapshot.attributes) {
    add(attribute.name);
    add(attribute.type);
    add(attribute.value);
    add(attribute.overridden ? "1" : "0");
  }
  add("catalog");
  for (const editor::UsdComponent& candidate : snapshot.availableCatalog)
    add(candidate.type);
  return key;
}

bool holdsComponent(const editor::UsdPrimDetail& entity, const std::string& type) {
  return std::any_of(entity.components.begin(), entity.components.end(),
                     [&](const editor::UsdComponent& each) { return each.type == type; });
}

const editor::UsdComponent* componentOf(const editor::EditorSelectionSnapshot& snapshot,
                                        const std::string& type) {
  for (const editor::UsdComponent& component : snapshot.components) {
    if (component.type == type)
      return &component;
  }
  return nullptr;
}

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

// The header: a name, its type words, and a selectable path under them.
QFrame* makeHeader(const QString& name, const QStringList& types, const QString& extra,
                   const QString& path, QWidget* parent) {
  auto* header = new QFrame(parent);
  header->setObjectName("InspectorHeader");
  auto* headerLayout = new QVBoxLayout(header);
  headerLayout->setContentsMargins(12, 10, 12, 10);
  headerLayout->setSpacing(2);
  auto* titleRow = new QHBoxLayout;
  titleRow->setSpacing(8);
  titleRow->addWidget(label(name, "PrimName", header));
  for (const QString& type : types) {
    if (!type.isEmpty())
      titleRow->addWidget(label(type, "PrimType", header));
  }
  titleRow->addStretch(1);
  if (!extra.isEmpty())
    titleRow->addWidget(label(extra, "SectionDetail", header));
  headerLayout->addLayout(titleRow);
  auto* pathLabel = label(path, "PrimPath", header);
  pathLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
  headerLayout->addWidget(pathLabel);
  return header;
}

QString joinedNumbers(const std::vector<double>& values) {
  QStringList parts;
  for (double value : values)
    parts.push_back(QString::number(value, 'g', 6));
  return parts.join(", ");
}

QWidget* textCell(const QString& text, QWidget* parent) {
  auto* value = label(text, "ValueText", parent);
  value->setTextInteractionFlags(Qt::TextSelectableByMouse);
  value->setToolTip(text);
  return value;
}

// A section of plain name/value rows; rows with an empty value are left out.
void addTextSection(QVBoxLayout* column, const QString& title,
                    const std::vector<std::pair<QString, QString>>& rows, QWidget* content) {
  column->addWidget(makeSectionHeader(title, QString(), std::nullopt, content));
  auto* body = new QWidget(content);
  body->setObjectName("SectionBody");
  PropertyGrid grid(body);
  for (const auto& [name, value] : rows) {
    if (value.isEmpty())
      continue;
    grid.addRow(name, [&](QWidget* parent) { return textCell(value, parent); });
  }
  if (grid.rows() == 0)
    grid.addNote("Nothing known yet");
  column->addWidget(body);
}

void addBoundsRows(std::vector<std::pair<QString, QString>>& rows, const editor::UsdAsset& asset) {
  if (!asset.hasBoundsMetadata)
    return;
  rows.emplace_back("bounds centre", joinedNumbers(asset.boundsCenter));
  rows.emplace_back("bounds size", joinedNumbers(asset.boundsDimensions));
}

}  // namespace

InspectorPane::InspectorPane(editor::EditorModel& model, QWidget* parent)
    : QWidget(parent), model_(model) {
  setObjectName("InspectorPane");
  stack_ = new QStackedLayout(this);
  emptyState_ = makeEmptyState(QString(), this);
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
  stageSubscription_ =
      model_.clientDocument.hierarchyProjection.revision.subscribe([this](const auto&) {
        if (!model_.session.inspector.get().sceneSnapshot.prim)
          render();
      });
  // An asset's record follows the project data; it is drawn while an asset is the target.
  assetRecordSubscription_ = model_.presentation.inspectorRecord.subscribe([this](const auto&) {
    if (std::holds_alternative<editor::ProjectAssetSelection>(
            model_.session.inspector.get().target))
      render();
  });
  // What the fields show while an edit travels.
  draftsSubscription_ =
      model_.propertyDrafts.drafts.subscribe([this](const auto&) { scheduleRefresh(); });
  previewsSubscription_ = model_.propertyDrafts.livePreviews.values.subscribe(
      [this](const auto&) { scheduleRefresh(); });
  resolvingSubscription_ = model_.propertyDrafts.resolvingAssetPointers.subscribe(
      [this](const auto&) { scheduleRefresh(); });
  render();
}

QString InspectorPane::emptyStateText() const {
  return stack_->currentWidget() == emptyState_ ? emptyState_->text() : QString();
}

void InspectorPane::showEmptyState(const QString& text) {
  forgetEditors();
  emptyState_->setText(text);
  stack_->setCurrentWidget(emptyState_);
}

void InspectorPane::render() {
  const auto& target = model_.session.inspector.get().target;
  if (std::holds_alternative<editor::ProjectAssetSelection>(target)) {
    const auto& record = model_.presentation.inspectorRecord.get();
    if (record) {
      renderAsset(*record);
    } else {
      showEmptyState("This asset is no longer in the project");
    }
    return;
  }
  const auto& snapshot = model_.session.inspector.get().sceneSnapshot;
  if (snapshot.prim) {
    const std::string key = layoutKey(snapshot, model_.session.sceneSelection.get().paths.size());
    if (key == layoutKey_ && stack_->currentWidget() == scroll_) {
      scheduleRefresh();
      return;
    }
    renderSnapshot(snapshot);
    layoutKey_ = key;
    refreshValues();
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
  const auto selected = model_.session.sceneSelection.get().paths.size();
  column->addWidget(
      makeHeader(qs(prim.name), {qs(prim.typeName), prim.active ? QString() : "Inactive"},
                 selected > 1 ? QStringLiteral("+%1 more").arg(selected - 1) : QString(),
                 qs(prim.path), content));

  forgetEditors();
  ++layoutCount_;
  for (const editor::UsdComponent& component : snapshot.components) {
    column->addWidget(makeComponentHeader(component, content));
    auto* body = new QWidget(content);
    body->setObjectName("SectionBody");
    // A disabled component keeps its values readable but steps back.
    body->setProperty("componentDisabled", !component.enabled);
    sections_.back().body = body;
    std::vector<std::string> targets;
    for (const editor::UsdPrimDetail& entity : snapshot.entities) {
      if (holdsComponent(entity, component.type))
        targets.emplace_back(editor::entityPathOf(entity));
    }
    PropertyGrid grid(body);
    for (const editor::ComponentProperty& property : component.properties) {
      QToolButton* mark = nullptr;
      PropertyEditor* editor = grid.addEditorRow(
          qs(property.name),
          [&](QWidget* parent) { return makePropertyEditor(model_, component, property, parent); },
          mark, property.overrideLayerName);
      QObject::connect(mark, &QToolButton::clicked, this,
                       [this, type = component.type, name = property.name] {
                         const auto& current = model_.session.inspector.get().sceneSnapshot;
                         const editor::UsdComponent* now = componentOf(current, type);
                         if (!now)
                           return;
                         for (const editor::ComponentProperty& each : now->properties) {
                           if (each.name == name)
                             model_.propertyDrafts.resetComponentOverride(*now, each);
                         }
                       });
      PropertyRow row{editor, mark, targets, editor::draftKey(component.type, property.name),
                      {},     {}};
      for (const std::string& path : targets)
        row.previewKeys.push_back(editor::previewKey(path, component.type, property.name));
      rows_.push_back(std::move(row));
    }
    if (grid.rows() == 0)
      grid.addNote("No properties");
    column->addWidget(body);
  }
  column->addWidget(makeAddComponentButton(snapshot, content));

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
    if (attribute.overridden) {
      QToolButton* mark = makeOverrideMark(attribute.overrideLayerName, attributes);
      QObject::connect(mark, &QToolButton::clicked, this, [this, attribute] {
        model_.propertyDrafts.resetAttributeOverrideFromLayer(attribute);
      });
      grid.placeMark(mark);
    }
  }
  if (grid.rows() == 0)
    grid.addNote("No attributes");
  column->addWidget(attributes);
  showContent(content, column);
}

void InspectorPane::showContent(QWidget* content, QVBoxLayout* column) {
  column->addStretch(1);
  scroll_->setWidget(content);  // deletes the previous content
  content_ = content;
  stack_->setCurrentWidget(scroll_);
  fitNameColumn();
}

void InspectorPane::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  fitNameColumn();
}

void InspectorPane::fitNameColumn() {
  if (!content_)
    return;
  const int width = nameColumnWidth(this->width());
  for (QLabel* name : content_->findChildren<QLabel*>("PropertyName"))
    fitName(name, width);
}

void InspectorPane::renderAsset(const editor::InspectorPresentationRecord& record) {
  forgetEditors();
  auto* content = new QWidget;
  content->setObjectName("InspectorContent");
  auto* column = new QVBoxLayout(content);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(0);

  if (const auto* material = std::get_if<editor::MaterialPresentationRecord>(&record)) {
    const editor::UsdAsset& asset = material->asset;
    column->addWidget(makeHeader(qs(asset.name), {"Material"}, QString(), qs(asset.path), content));
    std::vector<std::pair<QString, QString>> rows{
        {"shader", qs(asset.shaderModel)},
        {"base colour", joinedNumbers(asset.baseColor)},
        {"roughness", QString::number(asset.roughness, 'g', 6)},
        {"metallic", QString::number(asset.metallic, 'g', 6)},
        {"base colour map", qs(asset.baseColorTexture)},
        {"normal map", qs(asset.normalTexture)},
        {"roughness map", qs(asset.roughnessTexture)},
        {"metallic map", qs(asset.metallicTexture)},
        {"emissive map", qs(asset.emissiveTexture)},
        {"double sided", asset.doubleSided ? "true" : "false"}};
    addTextSection(column, "Surface", rows, content);
    showContent(content, column);
    return;
  }

  const auto& project = std::get<editor::ProjectAssetPresentationRecord>(record);
  const editor::ProjectAssetItem& asset = project.asset;
  column->addWidget(
      makeHeader(qs(asset.name), {qs(asset.kind)}, QString(), qs(asset.path), content));
  std::vector<std::pair<QString, QString>> fileRows{
      {"folder", asset.folder.empty() ? "Project" : qs(asset.folder)},
      {"kind", qs(asset.kind)},
      {"cooked", asset.cooked ? (*asset.cooked ? "true" : "false") : QString()},
      {"asset path", asset.assetPath ? qs(*asset.assetPath) : QString()},
      {"content hash", asset.contentHash
                           ? QString::number(*asset.contentHash, 16).rightJustified(16, '0')
                           : QString()},
      {"generation", asset.sourceGeneration ? qs(*asset.sourceGeneration) : QString()}};
  if (asset.boundsCenter)
    fileRows.emplace_back("bounds centre", joinedNumbers(*asset.boundsCenter));
  if (asset.boundsDimensions)
    fileRows.emplace_back("bounds size", joinedNumbers(*asset.boundsDimensions));
  addTextSection(column, "File", fileRows, content);

  if (asset.descriptor) {
    const editor::ProjectAssetDescriptorInfo& descriptor = *asset.descriptor;
    std::vector<std::pair<QString, QString>> rows{
        {"class", qs(descriptor.identifier)},
        {"type", qs(descriptor.assetType)},
        {"based on",
         qs(descriptor.baseIdentifier.empty() ? descriptor.base : descriptor.baseIdentifier)},
        {"abstract", descriptor.abstract ? "true" : QString()},
        {"runtime", descriptor.runtimeEligible ? "true" : "false"}};
    for (const auto& setting : descriptor.settings)
      rows.emplace_back(qs(setting.name), qs(setting.value));
    addTextSection(column, "Class", rows, content);
  }
  if (const auto& used = project.stageAsset ? project.stageAsset : project.storeLinkedAsset) {
    std::vector<std::pair<QString, QString>> rows{
        {"used as", qs(used->path)}, {"kind", qs(used->kind)}, {"store", qs(used->storeURI)}};
    addBoundsRows(rows, *used);
    addTextSection(column, "In the scene", rows, content);
  }
  if (project.storeItem) {
    addTextSection(column, "Store",
                   {{"name", qs(project.storeItem->name)},
                    {"kind", qs(project.storeItem->kind)},
                    {"link", qs(project.storeItem->uri)}},
                   content);
  }
  showContent(content, column);
}

void InspectorPane::forgetEditors() {
  rows_.clear();
  stage_.reset();
  sections_.clear();
  addComponentMenu_ = nullptr;
  layoutKey_.clear();
}

QWidget* InspectorPane::makeComponentHeader(const editor::UsdComponent& component,
                                            QWidget* parent) {
  const QString type = qs(component.type);
  const QString title = component.label && !component.label->empty() ? qs(*component.label) : type;
  auto* header = new QFrame(parent);
  header->setObjectName("SectionHeader");
  auto* row = new QHBoxLayout(header);
  row->setContentsMargins(10, 5, 6, 5);
  row->setSpacing(6);
  auto* enabled = new QCheckBox(header);
  enabled->setObjectName("SectionEnabled");
  enabled->setChecked(component.enabled);
  enabled->setToolTip("Enable or disable " + title);
  QObject::connect(enabled, &QCheckBox::clicked, this, [this, type = component.type](bool on) {
    model_.components.setEnabled(type, on);
  });
  row->addWidget(enabled);
  row->addWidget(label(title, "SectionTitle", header));
  if (title != type)
    row->addWidget(label(type, "SectionDetail", header));
  row->addStretch(1);

  auto* more = new QToolButton(header);
  more->setObjectName("ComponentMenuButton");
  more->setText(QString::fromUtf8("\u22EF"));
  more->setAutoRaise(true);
  more->setPopupMode(QToolButton::InstantPopup);
  more->setToolTip(title + " actions");
  auto* menu = new QMenu(more);
  menu->setObjectName("ComponentMenu");
  more->setMenu(menu);
  row->addWidget(more);

  const std::string componentType = component.type;
  // Each action reads the component as the inspector shows it now, not as it was laid out.
  auto current = [this, componentType]() -> const editor::UsdComponent* {
    return componentOf(model_.session.inspector.get().sceneSnapshot, componentType);
  };
  auto visibleIndex = [this, componentType]() -> std::optional<std::size_t> {
    const auto& components = model_.session.inspector.get().sceneSnapshot.components;
    for (std::size_t index = 0; index < components.size(); ++index) {
      if (components[index].type == componentType)
        return index;
    }
    return std::nullopt;
  };
  QAction* remove = menu->addAction("Remove Component");
  remove->setObjectName("remove");
  QObject::connect(remove, &QAction::triggered, this,
                   [this, componentType] { model_.components.removeComponent(componentType); });
  QAction* reset = menu->addAction("Reset Overrides");
  reset->setObjectName("reset");
  QObject::connect(reset, &QAction::triggered, this, [this, current] {
    const editor::UsdComponent* component = current();
    if (!component)
      return;
    const editor::UsdComponent copy = *component;
    for (const editor::ComponentProperty& property : copy.properties) {
      if (property.overridden)
        model_.propertyDrafts.resetComponentOverride(copy, property);
    }
  });
  menu->addSeparator();
  QAction* copy = menu->addAction("Copy Component");
  copy->setObjectName("copy");
  QObject::connect(copy, &QAction::triggered, this, [this, current] {
    if (const editor::UsdComponent* component = current())
      model_.components.copyComponent(*component);
  });
  QAction* paste = menu->addAction("Paste Component Values");
  paste->setObjectName("paste");
  QObject::connect(paste, &QAction::triggered, this, [this] {
    if (!model_.components.clipboard)
      return;
    const editor::UsdComponent clipboard = *model_.components.clipboard;
    model_.components.pasteComponentSnapshot(
        clipboard, model_.session.inspector.get().sceneSnapshot.entityPaths);
  });
  menu->addSeparator();
  QAction* up = menu->addAction("Move Up");
  up->setObjectName("moveUp");
  QObject::connect(up, &QAction::triggered, this, [this, componentType, visibleIndex] {
    if (const auto index = visibleIndex(); index && *index > 0)
      model_.components.reorderComponent(componentType, *index - 1);
  });
  QAction* down = menu->addAction("Move Down");
  down->setObjectName("moveDown");
  QObject::connect(down, &QAction::triggered, this, [this, componentType, visibleIndex] {
    model_.components.reorderComponent(componentType, visibleIndex().value_or(0) + 1);
  });
  QObject::connect(menu, &QMenu::aboutToShow, this, [this] { updateMenus(); });
  sections_.push_back({component.type, enabled, menu, nullptr});
  return header;
}

QWidget* InspectorPane::makeAddComponentButton(const editor::EditorSelectionSnapshot& snapshot,
                                               QWidget* parent) {
  auto* holder = new QWidget(parent);
  auto* row = new QHBoxLayout(holder);
  row->setContentsMargins(10, 8, 10, 8);
  auto* button = new QToolButton(holder);
  button->setObjectName("AddComponentButton");
  button->setText("Add Component");
  button->setPopupMode(QToolButton::InstantPopup);
  button->setToolButtonStyle(Qt::ToolButtonTextOnly);
  addComponentMenu_ = new QMenu(button);
  addComponentMenu_->setObjectName("AddComponentMenu");
  for (const editor::UsdComponent& candidate : snapshot.availableCatalog) {
    const QString title =
        candidate.label && !candidate.label->empty() ? qs(*candidate.label) : qs(candidate.type);
    QAction* action = addComponentMenu_->addAction(title);
    action->setData(qs(candidate.type));
    QObject::connect(action, &QAction::triggered, this,
                     [this, type = candidate.type] { model_.components.addComponent(type); });
  }
  button->setMenu(addComponentMenu_);
  button->setEnabled(!snapshot.availableCatalog.empty());
  row->addWidget(button);
  row->addStretch(1);
  return holder;
}

void InspectorPane::updateMenus() {
  const auto& components = model_.session.inspector.get().sceneSnapshot.components;
  const auto& clipboard = model_.components.clipboard;
  for (const ComponentSection& section : sections_) {
    const editor::UsdComponent* component = nullptr;
    std::size_t index = 0;
    for (; index < components.size(); ++index) {
      if (components[index].type == section.type) {
        component = &components[index];
        break;
      }
    }
    const bool overridden =
        component &&
        std::any_of(component->properties.begin(), component->properties.end(),
                    [](const editor::ComponentProperty& each) { return each.overridden; });
    for (QAction* action : section.menu->actions()) {
      const QString name = action->objectName();
      if (name == "reset")
        action->setEnabled(overridden);
      else if (name == "paste")
        action->setEnabled(clipboard && clipboard->type == section.type);
      else if (name == "moveUp")
        action->setEnabled(component && index > 0);
      else if (name == "moveDown")
        action->setEnabled(component && index + 1 < components.size());
    }
  }
}

void InspectorPane::scheduleRefresh() {
  if (refreshPending_ || (rows_.empty() && sections_.empty()))
    return;
  refreshPending_ = true;
  QMetaObject::invokeMethod(
      this,
      [this] {
        refreshPending_ = false;
        refreshValues();
      },
      Qt::QueuedConnection);
}

void InspectorPane::lookUpStageProperties() {
  stage_ = model_.stage.get();
  for (PropertyRow& row : rows_) {
    const std::string& componentType = row.editor->component().type;
    const std::string& propertyName = row.editor->property().name;
    row.stageProperties.assign(row.targets.size(), nullptr);
    for (std::size_t index = 0; index < row.targets.size(); ++index) {
      const editor::UsdPrimDetail* prim = stage_->prim(row.targets[index]);
      if (!prim)
        continue;
      for (const editor::UsdComponent& component : prim->components) {
        if (component.type != componentType)
          continue;
        for (const editor::ComponentProperty& property : component.properties) {
          if (property.name == propertyName)
            row.stageProperties[index] = &property;
        }
      }
    }
  }
}

std::string InspectorPane::entityValue(const PropertyRow& row, std::size_t target,
                                       const std::string& fallback, bool& overridden) const {
  const editor::ComponentProperty* stageProperty = row.stageProperties[target];
  if (stageProperty && stageProperty->overridden)
    overridden = true;
  const auto& previews = model_.propertyDrafts.livePreviews.values.get();
  if (!previews.empty()) {
    if (auto found = previews.find(row.previewKeys[target]); found != previews.end())
      return found->second;
  }
  const auto& drafts = model_.propertyDrafts.drafts.get();
  if (auto entity = drafts.find(row.targets[target]); entity != drafts.end()) {
    if (auto found = entity->second.find(row.draftKey); found != entity->second.end())
      return found->second;
  }
  return stageProperty ? stageProperty->value : fallback;
}

void InspectorPane::refreshValues() {
  const auto& snapshot = model_.session.inspector.get().sceneSnapshot;
  for (const ComponentSection& section : sections_) {
    const editor::UsdComponent* component = componentOf(snapshot, section.type);
    if (!component)
      continue;
    const QSignalBlocker quiet(section.enabled);
    section.enabled->setChecked(component->enabled);
    if (section.body->property("componentDisabled").toBool() == component->enabled) {
      section.body->setProperty("componentDisabled", !component->enabled);
      section.body->style()->unpolish(section.body);
      section.body->style()->polish(section.body);
    }
  }
  if (model_.stage.get() != stage_)
    lookUpStageProperties();
  const auto& resolving = model_.propertyDrafts.resolvingAssetPointers.get();
  for (const PropertyRow& row : rows_) {
    const editor::UsdComponent& component = row.editor->component();
    const editor::ComponentProperty& property = row.editor->property();
    const editor::UsdComponent* shownComponent = componentOf(snapshot, component.type);
    std::string fallback = property.value;
    bool overridden = false;
    if (shownComponent) {
      for (const editor::ComponentProperty& each : shownComponent->properties) {
        if (each.name == property.name) {
          fallback = each.value;
          overridden = each.overridden;
        }
      }
    }
    ShownPropertyValue shown;
    shown.entityPaths = row.targets;
    shown.entityValues.reserve(row.targets.size());
    for (std::size_t index = 0; index < row.targets.size(); ++index)
      shown.entityValues.push_back(entityValue(row, index, fallback, overridden));
    if (shown.entityValues.empty())
      shown.entityValues.push_back(fallback);
    shown.resolving =
        !row.targets.empty() &&
        resolving.count(editor::previewKey(row.targets.front(), component.type, property.name)) > 0;
    row.editor->showValue(shown);
    row.mark->setVisible(overridden);
  }
  updateMenus();
}

PropertyEditor* InspectorPane::editorFor(const std::string& componentType,
                                         const std::string& propertyName) const {
  for (const PropertyRow& row : rows_) {
    if (row.editor->component().type == componentType &&
        row.editor->property().name == propertyName) {
      return row.editor;
    }
  }
  return nullptr;
}

QToolButton* InspectorPane::overrideMarkFor(const std::string& componentType,
                                            const std::string& propertyName) const {
  for (const PropertyRow& row : rows_) {
    if (row.editor->component().type == componentType &&
        row.editor->property().name == propertyName) {
      return row.mark;
    }
  }
  return nullptr;
}

QCheckBox* InspectorPane::enableSwitchFor(const std::string& componentType) const {
  for (const ComponentSection& section : sections_) {
    if (section.type == componentType)
      return section.enabled;
  }
  return nullptr;
}

QMenu* InspectorPane::componentMenuFor(const std::string& componentType) const {
  for (const ComponentSection& section : sections_) {
    if (section.type == componentType)
      return section.menu;
  }
  return nullptr;
}

// Whether a widget is part of a live editor, whose own text stands for it.
static bool insideEditor(const QWidget* widget, const QWidget* content) {
  for (const QWidget* each = widget->parentWidget(); each && each != content;
       each = each->parentWidget()) {
    if (dynamic_cast<const PropertyEditor*>(each))
      return true;
  }
  return false;
}

QStringList InspectorPane::contentLines() const {
  QStringList lines;
  if (stack_->currentWidget() != scroll_ || !content_)
    return lines;
  // Walk the labels in layout order: a section title starts a section, then name/value pairs.
  for (QWidget* child : content_->findChildren<QWidget*>(Qt::FindChildrenRecursively)) {
    const QString name = child->objectName();
    if (auto* editor = dynamic_cast<const PropertyEditor*>(child)) {
      lines.back() += " " + editor->shownText();
      continue;
    }
    if (insideEditor(child, content_))
      continue;
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
