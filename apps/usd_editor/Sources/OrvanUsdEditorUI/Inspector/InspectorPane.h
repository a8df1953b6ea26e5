#pragma once

#include <QWidget>

#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "Foundation/Observable.h"

class QCheckBox;
class QLabel;
class QMenu;
class QScrollArea;
class QToolButton;
class QStackedLayout;
class QVBoxLayout;

namespace orvan::editor {
class EditorModel;
struct EditorSelectionSnapshot;
struct MaterialPresentationRecord;
struct ProjectAssetPresentationRecord;
struct UsdComponent;
struct ComponentProperty;
class PreparedStage;
}  // namespace orvan::editor

namespace orvan::ui {

class PropertyEditor;
struct ShownPropertyValue;

// The inspector: the selected prim's header, one section per component with its properties, and
// its raw attributes; or the selected project asset or material. Every component property has
// the control its kind calls for; a component's header switches it on and off and has a menu; "Add
// Component" lists the catalogue. The pane lays its editors out again only when what it shows
// changes shape (another selection, other components or properties); drafts, previews and values
// arriving from the server update the live editors in place, so that typing and drags go on. The
// name column grows with the pane.
class InspectorPane final : public QWidget {
  Q_OBJECT
 public:
  explicit InspectorPane(editor::EditorModel& model, QWidget* parent = nullptr);

  // What the pane says when it has no prim to show; empty while it shows one.
  QString emptyStateText() const;
  // The shown content as lines of text ("Section", "name: value"), for tests and accessibility.
  QStringList contentLines() const;

  // The live controls, while the pane shows a prim (null otherwise).
  PropertyEditor* editorFor(const std::string& componentType,
                            const std::string& propertyName) const;
  QToolButton* overrideMarkFor(const std::string& componentType,
                               const std::string& propertyName) const;
  QCheckBox* enableSwitchFor(const std::string& componentType) const;
  QMenu* componentMenuFor(const std::string& componentType) const;
  QMenu* addComponentMenu() const { return addComponentMenu_; }
  // How often the pane has laid out its editors; a drag must not raise it.
  int layoutCount() const { return layoutCount_; }

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
  // Coalesces store changes of one turn into one in-place update of the editors.
  void scheduleRefresh();
  void refreshValues();
  void updateMenus();
  QWidget* makeComponentHeader(const editor::UsdComponent& component, QWidget* parent);
  QWidget* makeAddComponentButton(const editor::EditorSelectionSnapshot& snapshot, QWidget* parent);
  void forgetEditors();

  struct PropertyRow {
    PropertyEditor* editor = nullptr;
    QToolButton* mark = nullptr;
    std::vector<std::string> targets;  // the selected entities holding the component
    // Looked up once per layout, not on every refresh of a drag.
    std::string draftKey;
    std::vector<std::string> previewKeys;                           // per target
    std::vector<const editor::ComponentProperty*> stageProperties;  // per target, of `stage_`
  };
  // The value the editors show for one target: its preview, else its draft, else the stage's.
  std::string entityValue(const PropertyRow& row, std::size_t target, const std::string& fallback,
                          bool& overridden) const;
  void lookUpStageProperties();
  struct ComponentSection {
    std::string type;
    QCheckBox* enabled = nullptr;
    QMenu* menu = nullptr;
    QWidget* body = nullptr;
  };

  editor::EditorModel& model_;
  QStackedLayout* stack_ = nullptr;
  QLabel* emptyState_ = nullptr;
  QScrollArea* scroll_ = nullptr;
  QWidget* content_ = nullptr;
  std::string layoutKey_;  // the shape of what the editors show; empty without editors
  std::vector<PropertyRow> rows_;
  std::vector<ComponentSection> sections_;
  QMenu* addComponentMenu_ = nullptr;
  bool refreshPending_ = false;
  std::shared_ptr<const editor::PreparedStage> stage_;  // what `stageProperties` point into
  int layoutCount_ = 0;
  editor::Subscription inspectorSubscription_;
  editor::Subscription stageSubscription_;
  editor::Subscription assetRecordSubscription_;
  editor::Subscription draftsSubscription_;
  editor::Subscription previewsSubscription_;
  editor::Subscription resolvingSubscription_;
};

}  // namespace orvan::ui
