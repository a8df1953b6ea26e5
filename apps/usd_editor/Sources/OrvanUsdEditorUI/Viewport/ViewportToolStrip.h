#pragma once

#include <QWidget>

#include <optional>
#include <string>

#include "Foundation/Observable.h"
#include "Presentation/EditorSessionState.h"

class QAbstractButton;
class QButtonGroup;
class QToolButton;

namespace orvan::editor {
class EditorModel;
}  // namespace orvan::editor

namespace orvan::ui {

// The gizmo a key picks in the viewport: W moves, E rotates, R scales. Only a free camera without a
// held button takes them; while a button holds the view the same letters fly the camera, and a
// game camera leaves every key to the runtime.
std::optional<editor::ViewportTransformTool> transformToolForKey(const std::string& characters,
                                                                 unsigned modifiers,
                                                                 editor::ViewportCameraMode mode,
                                                                 bool pointerHeld);

// A small strip over the viewport's top-left corner: Move, Rotate, Scale and the World or Local
// switch, and in Full 3D View the way out of it. It shows the viewport controls and sets them; its
// buttons never take the focus, so that the viewport keeps its keys.
class ViewportToolStrip final : public QWidget {
  Q_OBJECT
 public:
  ViewportToolStrip(editor::EditorModel& model, QWidget* parent);
  ~ViewportToolStrip() override;

  QAbstractButton* toolButton(editor::ViewportTransformTool tool) const;
  // Checked for local space.
  QAbstractButton* spaceButton() const;
  // "Exit Full 3D View", shown while the viewport is the whole window.
  QAbstractButton* exitFocusButton() const;

 private:
  void follow(const editor::ViewportControls& controls);

  editor::EditorModel& model_;
  QButtonGroup* tools_ = nullptr;
  QToolButton* space_ = nullptr;
  QToolButton* exitFocus_ = nullptr;
  editor::Subscription subscription_;
  editor::Subscription focusSubscription_;
};

}  // namespace orvan::ui
