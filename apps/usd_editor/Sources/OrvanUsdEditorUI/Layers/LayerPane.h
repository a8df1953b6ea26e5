#pragma once

#include <QTreeWidget>
#include <QWidget>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Foundation/Observable.h"

class QMenu;
class QMessageBox;
class QMimeData;

namespace orvan::editor {
class EditorModel;
struct LayerConfirmation;
struct UsdLayerInfo;
}  // namespace orvan::editor

namespace orvan::ui {

// The layer rows: one per layer of the stack, strongest first. A row dropped on the list asks the
// pane to move its layer; the list itself never reorders its rows.
class LayerStackView final : public QTreeWidget {
  Q_OBJECT
 public:
  explicit LayerStackView(QWidget* parent = nullptr);

  // The drag's payload kind: the identifier of one layer row.
  static constexpr const char* kLayerMimeType = "application/x-orvan-layer";

 signals:
  void layerDropped(const QString& identifier, int row);

 protected:
  QStringList mimeTypes() const override;
  QMimeData* mimeData(const QList<QTreeWidgetItem*>& items) const override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dragMoveEvent(QDragMoveEvent* event) override;
  void dropEvent(QDropEvent* event) override;
};

// The row a drop lands on: the row under the pointer, or the one after it when the pointer is in
// its lower half; the end of the list below the last row.
int layerDropRow(int rowUnderPointer, bool lowerHalf, int rowCount);

// The layer pane: the scene's layer stack, strongest first, with the layer that receives edits
// marked, a check box that mutes a layer, rows that are dragged to reorder, and the stack's
// commands in a context menu. Refusals show in the status line in the core's words; only the
// commands that lose or move content ask first.
class LayerPane final : public QWidget {
  Q_OBJECT
 public:
  explicit LayerPane(editor::EditorModel& model, QWidget* parent = nullptr);
  ~LayerPane() override;

  // Columns of the rows: the name with its mute check box, and the mark of the active layer.
  static constexpr int kNameColumn = 0;
  static constexpr int kActiveColumn = 1;
  // The item data role that holds a row's layer identifier.
  static constexpr int kIdentifierRole = Qt::UserRole + 1;

  LayerStackView& view() const { return *view_; }
  // The row of a layer, or -1.
  int rowOf(const std::string& identifier) const;
  // The context menu of a row; for "" the menu below the rows (only Add Layer).
  std::unique_ptr<QMenu> contextMenuFor(const std::string& identifier);
  // The question on screen, while the core asks one.
  QMessageBox* confirmationDialog() const { return dialog_; }
  // A drop of `data` on `row`; false (and nothing done) for anything but a layer row.
  bool dropLayer(const QMimeData& data, int row);
  // Asks for a new layer's name; none when the user cancels. Tests replace it.
  std::function<std::optional<QString>()> askLayerName;

 private:
  void rebuild();
  void showConfirmation(const std::optional<editor::LayerConfirmation>& question);
  void closeConfirmation();
  std::optional<editor::UsdLayerInfo> layerNamed(const std::string& identifier) const;
  void itemChanged(QTreeWidgetItem* item, int column);

  editor::EditorModel& model_;
  LayerStackView* view_ = nullptr;
  QMessageBox* dialog_ = nullptr;
  // True while the pane writes its own rows, so that the check boxes it sets are not sent back.
  bool rebuilding_ = false;
  std::vector<editor::Subscription> subscriptions_;
};

}  // namespace orvan::ui
