#pragma once

#include <QWidget>

#include <variant>

#include "Foundation/Observable.h"

class QLabel;
class QScrollArea;
class QStackedLayout;
class QVBoxLayout;

namespace orvan::editor {
class EditorModel;
struct EditorSelectionSnapshot;
struct MaterialPresentationRecord;
struct ProjectAssetPresentationRecord;
}  // namespace orvan::editor

namespace orvan::ui {

// The inspector: the selected prim's header, one section per component with its properties, and
// its raw attributes; or the selected project asset or material. Read-only for now; it redraws
// only when the inspector's snapshot or the stage changes. The name column grows with the pane.
class InspectorPane final : public QWidget {
  Q_OBJECT
 public:
  explicit InspectorPane(editor::EditorModel& model, QWidget* parent = nullptr);

  // What the pane says when it has no prim to show; empty while it shows one.
  QString emptyStateText() const;
  // The shown content as lines of text ("Section", "name: value"), for tests and accessibility.
  QStringList contentLines() const;

 protected:
  void resizeEvent(QResizeEvent* event) override;

 private:
  // Gives every property name the column width the pane's width calls for.
  void fitNameColumn();
  void render();
  void renderSnapshot(const editor::EditorSelectionSnapshot& snapshot);
  void renderAsset(const std::variant<editor::ProjectAssetPresentationRecord,
                                      editor::MaterialPresentationRecord>& record);
  // Ends `column` and shows `content` in place of what the pane showed.
  void showContent(QWidget* content, QVBoxLayout* column);
  void showEmptyState(const QString& text);

  editor::EditorModel& model_;
  QStackedLayout* stack_ = nullptr;
  QLabel* emptyState_ = nullptr;
  QScrollArea* scroll_ = nullptr;
  QWidget* content_ = nullptr;
  editor::Subscription inspectorSubscription_;
  editor::Subscription stageSubscription_;
  editor::Subscription assetRecordSubscription_;
};

}  // namespace orvan::ui
