#include "Inspector/InspectorPane.h"

#include <algorithm>

#include <QCheckBox>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QScrollArea>
#include <QStackedLayout>
#include <QVBoxLayout>

#include "Application/EditorModel.h"
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
  const auto selected = model_.session.sceneSelection.get().paths.size();
  column->addWidget(
      makeHeader(qs(prim.name), {qs(prim.typeName), prim.active ? QString() : "Inactive"},
                 selected > 1 ? QStringLiteral("+%1 more").arg(selected - 1) : QString(),
                 qs(prim.path), content));

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
