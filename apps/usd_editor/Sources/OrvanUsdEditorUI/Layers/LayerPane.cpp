#include "Layers/LayerPane.h"

#include <QDropEvent>
#include <QHeaderView>
#include <QInputDialog>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QScopedValueRollback>
#include <QVBoxLayout>

#include <algorithm>

#include "Application/EditorModel.h"

namespace orvan::ui {

namespace {

constexpr int kActiveColumnWidth = 56;

QString displayName(const editor::UsdLayerInfo& layer) {
  if (!layer.name.empty())
    return QString::fromStdString(layer.name);
  return layer.root ? QStringLiteral("Root Layer") : QStringLiteral("Layer");
}

QString identifierIn(const QMimeData& data) {
  return QString::fromUtf8(data.data(LayerStackView::kLayerMimeType));
}

}  // namespace

int layerDropRow(int rowUnderPointer, bool lowerHalf, int rowCount) {
  if (rowUnderPointer < 0)
    return std::max(rowCount - 1, 0);
  return lowerHalf ? rowUnderPointer + 1 : rowUnderPointer;
}

// ---- LayerStackView

LayerStackView::LayerStackView(QWidget* parent) : QTreeWidget(parent) {
  setDragEnabled(true);
  setAcceptDrops(true);
  setDropIndicatorShown(true);
  setDragDropMode(QAbstractItemView::DragDrop);
  setDefaultDropAction(Qt::MoveAction);
}

QStringList LayerStackView::mimeTypes() const {
  return {QString::fromLatin1(kLayerMimeType)};
}

QMimeData* LayerStackView::mimeData(const QList<QTreeWidgetItem*>& items) const {
  if (items.size() != 1)
    return nullptr;
  auto* data = new QMimeData;
  data->setData(
      kLayerMimeType,
      items.front()->data(LayerPane::kNameColumn, LayerPane::kIdentifierRole).toString().toUtf8());
  return data;
}

void LayerStackView::dragEnterEvent(QDragEnterEvent* event) {
  if (event->mimeData()->hasFormat(kLayerMimeType))
    event->acceptProposedAction();
  else
    event->ignore();
}

void LayerStackView::dragMoveEvent(QDragMoveEvent* event) {
  if (event->mimeData()->hasFormat(kLayerMimeType))
    event->acceptProposedAction();
  else
    event->ignore();
}

void LayerStackView::dropEvent(QDropEvent* event) {
  // The list never moves its own rows: the pane asks the model, whose answer redraws them.
  event->setDropAction(Qt::IgnoreAction);
  event->accept();
  if (!event->mimeData()->hasFormat(kLayerMimeType))
    return;
  const QPoint at = event->position().toPoint();
  const QModelIndex index = indexAt(at);
  const bool lowerHalf = index.isValid() && at.y() > visualRect(index).center().y();
  const int row = layerDropRow(index.isValid() ? index.row() : -1, lowerHalf, topLevelItemCount());
  emit layerDropped(identifierIn(*event->mimeData()), row);
}

// ---- LayerPane

LayerPane::LayerPane(editor::EditorModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  setObjectName("LayerPane");
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  view_ = new LayerStackView(this);
  view_->setObjectName("LayerStack");
  view_->setColumnCount(2);
  view_->setHeaderHidden(true);
  view_->setRootIsDecorated(false);
  view_->setUniformRowHeights(true);
  view_->setFrameShape(QFrame::NoFrame);
  view_->setSelectionMode(QAbstractItemView::SingleSelection);
  view_->setContextMenuPolicy(Qt::CustomContextMenu);
  view_->header()->setStretchLastSection(false);
  view_->header()->setSectionResizeMode(kNameColumn, QHeaderView::Stretch);
  view_->header()->setSectionResizeMode(kActiveColumn, QHeaderView::Fixed);
  view_->header()->resizeSection(kActiveColumn, kActiveColumnWidth);
  layout->addWidget(view_, 1);

  askLayerName = [this]() -> std::optional<QString> {
    bool accepted = false;
    const QString name = QInputDialog::getText(this, tr("Add Layer"), tr("Layer name"),
                                               QLineEdit::Normal, QString(), &accepted);
    if (!accepted)
      return std::nullopt;
    return name;
  };

  connect(view_, &QTreeWidget::itemChanged, this, &LayerPane::itemChanged);
  connect(view_, &QTreeWidget::itemDoubleClicked, this, [this](QTreeWidgetItem* item, int) {
    const std::string identifier =
        item->data(kNameColumn, kIdentifierRole).toString().toStdString();
    if (std::optional<editor::UsdLayerInfo> layer = layerNamed(identifier))
      model_.layers.setActiveLayer(*layer);
  });
  connect(view_, &LayerStackView::layerDropped, this, [this](const QString& identifier, int row) {
    QMimeData data;
    data.setData(LayerStackView::kLayerMimeType, identifier.toUtf8());
    dropLayer(data, row);
  });
  connect(view_, &QWidget::customContextMenuRequested, this, [this](const QPoint& at) {
    const QTreeWidgetItem* item = view_->itemAt(at);
    const std::string identifier =
        item ? item->data(kNameColumn, kIdentifierRole).toString().toStdString() : std::string();
    std::unique_ptr<QMenu> menu = contextMenuFor(identifier);
    menu->exec(view_->viewport()->mapToGlobal(at));
  });

  subscriptions_.push_back(
      model_.layers.layerPaneLayers.subscribe([this](const auto&) { rebuild(); }));
  subscriptions_.push_back(model_.scope.current.subscribe([this](const auto&) { rebuild(); }));
  subscriptions_.push_back(model_.layers.confirmation.subscribe(
      [this](const std::optional<editor::LayerConfirmation>& question) {
        showConfirmation(question);
      }));
  rebuild();
  showConfirmation(model_.layers.confirmation.get());
}

LayerPane::~LayerPane() = default;

int LayerPane::rowOf(const std::string& identifier) const {
  const QString wanted = QString::fromStdString(identifier);
  for (int row = 0; row < view_->topLevelItemCount(); ++row) {
    if (view_->topLevelItem(row)->data(kNameColumn, kIdentifierRole).toString() == wanted)
      return row;
  }
  return -1;
}

std::optional<editor::UsdLayerInfo> LayerPane::layerNamed(const std::string& identifier) const {
  for (const editor::UsdLayerInfo& layer : model_.layers.layerPaneLayers.get()) {
    if (layer.identifier == identifier)
      return layer;
  }
  return std::nullopt;
}

void LayerPane::rebuild() {
  const QScopedValueRollback<bool> writing(rebuilding_, true);
  const std::vector<editor::UsdLayerInfo>& layers = model_.layers.layerPaneLayers.get();
  const std::string& active = model_.layers.activeLayerIdentifier();
  const QString selected = view_->currentItem()
                               ? view_->currentItem()->data(kNameColumn, kIdentifierRole).toString()
                               : QString();
  // Rows are few (a stack is a handful of layers): they are written again in place.
  while (view_->topLevelItemCount() > static_cast<int>(layers.size()))
    delete view_->takeTopLevelItem(view_->topLevelItemCount() - 1);
  while (view_->topLevelItemCount() < static_cast<int>(layers.size()))
    view_->addTopLevelItem(new QTreeWidgetItem);
  for (std::size_t position = 0; position < layers.size(); ++position) {
    const editor::UsdLayerInfo& layer = layers[position];
    QTreeWidgetItem* item = view_->topLevelItem(static_cast<int>(position));
    const bool isActive = !active.empty() && layer.identifier == active;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable;
    if (!layer.root && !layer.system.value_or(false))
      flags |= Qt::ItemIsDragEnabled;
    item->setFlags(flags | Qt::ItemIsDropEnabled);
    item->setText(kNameColumn, displayName(layer));
    item->setData(kNameColumn, kIdentifierRole, QString::fromStdString(layer.identifier));
    item->setCheckState(kNameColumn, layer.muted ? Qt::Unchecked : Qt::Checked);
    item->setToolTip(kNameColumn,
                     QString::fromStdString(layer.path.empty() ? layer.identifier : layer.path));
    item->setText(kActiveColumn, isActive ? tr("Editing") : QString());
    QFont font = item->font(kNameColumn);
    font.setBold(isActive);
    item->setFont(kNameColumn, font);
    QPalette::ColorRole role =
        layer.muted || !layer.writable ? QPalette::PlaceholderText : QPalette::Text;
    item->setForeground(kNameColumn, view_->palette().brush(role));
    if (!selected.isEmpty() && selected == QString::fromStdString(layer.identifier))
      view_->setCurrentItem(item);
  }
}

void LayerPane::itemChanged(QTreeWidgetItem* item, int column) {
  if (rebuilding_ || column != kNameColumn)
    return;
  const std::string identifier = item->data(kNameColumn, kIdentifierRole).toString().toStdString();
  const std::optional<editor::UsdLayerInfo> layer = layerNamed(identifier);
  if (!layer)
    return;
  const bool muted = item->checkState(kNameColumn) == Qt::Unchecked;
  if (muted != layer->muted)
    model_.layers.setLayerMuted(*layer, muted);
  // A refusal leaves the stack as it was: the box shows the truth again.
  rebuild();
}

bool LayerPane::dropLayer(const QMimeData& data, int row) {
  if (!data.hasFormat(LayerStackView::kLayerMimeType))
    return false;
  const std::optional<editor::UsdLayerInfo> layer = layerNamed(identifierIn(data).toStdString());
  if (!layer)
    return false;
  // A row dropped below its own place lands one higher once it has left that place.
  const int present = rowOf(layer->identifier);
  const int index = present >= 0 && row > present ? row - 1 : row;
  model_.layers.moveLayerToVisibleIndex(*layer, static_cast<std::size_t>(std::max(index, 0)));
  return true;
}

std::unique_ptr<QMenu> LayerPane::contextMenuFor(const std::string& identifier) {
  auto menu = std::make_unique<QMenu>(this);
  menu->addAction(tr("Add Layer\u2026"), this, [this] {
    if (std::optional<QString> name = askLayerName())
      model_.layers.addLayer(name->toStdString());
  });
  const std::optional<editor::UsdLayerInfo> found = layerNamed(identifier);
  if (!found)
    return menu;
  const editor::UsdLayerInfo layer = *found;
  const bool system = layer.system.value_or(false);
  editor::LayerStackEditing& layers = model_.layers;
  menu->addSeparator();
  // The workspace's edit layer is never offered as one to edit in or to remove.
  if (!system) {
    QAction* active = menu->addAction(tr("Make Active"), this,
                                      [&layers, layer] { layers.setActiveLayer(layer); });
    active->setEnabled(layer.identifier != layers.activeLayerIdentifier());
  }
  menu->addAction(layer.muted ? tr("Unmute") : tr("Mute"), this,
                  [&layers, layer] { layers.setLayerMuted(layer, !layer.muted); });
  menu->addSeparator();
  menu->addAction(tr("Move Up"), this, [&layers, layer] { layers.moveLayer(layer, "up"); });
  menu->addAction(tr("Move Down"), this, [&layers, layer] { layers.moveLayer(layer, "down"); });
  menu->addSeparator();
  menu->addAction(tr("Merge Down\u2026"), this,
                  [&layers, layer] { layers.confirmMergeLayerDown(layer); });
  menu->addAction(tr("Clear\u2026"), this, [&layers, layer] { layers.confirmClearLayer(layer); });
  if (!system) {
    menu->addAction(tr("Remove\u2026"), this,
                    [&layers, layer] { layers.confirmRemoveLayer(layer); });
  }
  return menu;
}

// ---- Confirmation

void LayerPane::closeConfirmation() {
  if (QMessageBox* dialog = std::exchange(dialog_, nullptr)) {
    dialog->disconnect(this);
    dialog->close();
    dialog->deleteLater();
  }
}

void LayerPane::showConfirmation(const std::optional<editor::LayerConfirmation>& question) {
  closeConfirmation();
  if (!question)
    return;
  dialog_ = new QMessageBox(QMessageBox::Warning, QString::fromStdString(question->title),
                            QString::fromStdString(question->text), QMessageBox::NoButton, this);
  dialog_->setObjectName("LayerConfirmation");
  QPushButton* confirmButton =
      dialog_->addButton(QString::fromStdString(question->confirmTitle), QMessageBox::AcceptRole);
  dialog_->addButton(QMessageBox::Cancel);
  dialog_->setDefaultButton(QMessageBox::Cancel);
  connect(dialog_, &QMessageBox::finished, this, [this, confirmButton](int) {
    QMessageBox* dialog = std::exchange(dialog_, nullptr);
    if (!dialog)
      return;
    const bool confirmed = dialog->clickedButton() == confirmButton;
    dialog->disconnect(this);
    dialog->deleteLater();
    if (confirmed)
      model_.layers.confirm();
    else
      model_.layers.cancel();
  });
  dialog_->open();
}

}  // namespace orvan::ui
