#include "Viewport/ViewportToolStrip.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QToolButton>

#include "Application/EditorModel.h"

namespace orvan::ui {

namespace {

// The modifier bits of the viewport's lines that make a letter a shortcut rather than a tool key.
constexpr unsigned kCommandLikeModifiers = 2u | 4u | 8u;

QToolButton* makeButton(const QString& text, const QString& toolTip, QWidget* parent) {
  auto* button = new QToolButton(parent);
  button->setText(text);
  button->setToolTip(toolTip);
  button->setCheckable(true);
  button->setFocusPolicy(Qt::NoFocus);
  button->setAutoRaise(true);
  return button;
}

QString spaceText(editor::ViewportTransformSpace space) {
  switch (space) {
    case editor::ViewportTransformSpace::world:
      return QStringLiteral("World");
    case editor::ViewportTransformSpace::local:
      return QStringLiteral("Local");
  }
  return QStringLiteral("World");
}

}  // namespace

std::optional<editor::ViewportTransformTool> transformToolForKey(const std::string& characters,
                                                                 unsigned modifiers,
                                                                 editor::ViewportCameraMode mode,
                                                                 bool pointerHeld) {
  if (mode != editor::ViewportCameraMode::free || pointerHeld ||
      (modifiers & kCommandLikeModifiers) != 0 || characters.size() != 1) {
    return std::nullopt;
  }
  switch (characters[0]) {
    case 'w':
      return editor::ViewportTransformTool::translate;
    case 'e':
      return editor::ViewportTransformTool::rotate;
    case 'r':
      return editor::ViewportTransformTool::scale;
    default:
      return std::nullopt;
  }
}

ViewportToolStrip::ViewportToolStrip(editor::EditorModel& model, QWidget* parent)
    : QWidget(parent), model_(model) {
  setObjectName("ViewportToolStrip");
  setAttribute(Qt::WA_StyledBackground);
  setStyleSheet(
      "#ViewportToolStrip { background: rgba(23, 24, 27, 200); border-radius: 4px; }"
      "QToolButton { color: #d8d8dc; padding: 2px 6px; }"
      "QToolButton:checked { background: #3d6fd6; color: white; border-radius: 3px; }");
  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(3, 3, 3, 3);
  layout->setSpacing(2);
  tools_ = new QButtonGroup(this);
  tools_->setExclusive(true);
  const auto addTool = [&](const QString& text, const QString& tip,
                           editor::ViewportTransformTool tool) {
    QToolButton* button = makeButton(text, tip, this);
    tools_->addButton(button, static_cast<int>(tool));
    layout->addWidget(button);
  };
  addTool("Move", "Move (W)", editor::ViewportTransformTool::translate);
  addTool("Rotate", "Rotate (E)", editor::ViewportTransformTool::rotate);
  addTool("Scale", "Scale (R)", editor::ViewportTransformTool::scale);
  connect(tools_, &QButtonGroup::idClicked, this, [this](int id) {
    const auto tool = static_cast<editor::ViewportTransformTool>(id);
    model_.session.viewport.update(
        [tool](editor::ViewportControlsState& state) { state.controls.transformTool = tool; });
  });
  space_ = makeButton("World", "Transform space: World or Local", this);
  layout->addWidget(space_);
  connect(space_, &QToolButton::clicked, this, [this](bool local) {
    model_.session.viewport.update([local](editor::ViewportControlsState& state) {
      state.controls.transformSpace =
          local ? editor::ViewportTransformSpace::local : editor::ViewportTransformSpace::world;
    });
  });
  exitFocus_ = new QToolButton(this);
  exitFocus_->setText("Exit Full 3D View");
  exitFocus_->setFocusPolicy(Qt::NoFocus);
  exitFocus_->setAutoRaise(true);
  layout->addWidget(exitFocus_);
  connect(exitFocus_, &QToolButton::clicked, this,
          [this] { model_.viewPreferences.viewportFocusMode.set(false); });
  exitFocus_->setVisible(model_.viewPreferences.viewportFocusMode.get());
  focusSubscription_ = model_.viewPreferences.viewportFocusMode.subscribe([this](bool focus) {
    exitFocus_->setVisible(focus);
    adjustSize();
  });
  subscription_ = model_.session.viewport.subscribe(
      [this](const editor::ViewportControlsState& state) { follow(state.controls); });
  follow(model_.session.viewport.get().controls);
  adjustSize();
}

ViewportToolStrip::~ViewportToolStrip() = default;

QAbstractButton* ViewportToolStrip::toolButton(editor::ViewportTransformTool tool) const {
  return tools_->button(static_cast<int>(tool));
}

QAbstractButton* ViewportToolStrip::spaceButton() const {
  return space_;
}

QAbstractButton* ViewportToolStrip::exitFocusButton() const {
  return exitFocus_;
}

void ViewportToolStrip::follow(const editor::ViewportControls& controls) {
  toolButton(controls.transformTool)->setChecked(true);
  space_->setChecked(controls.transformSpace == editor::ViewportTransformSpace::local);
  space_->setText(spaceText(controls.transformSpace));
}

}  // namespace orvan::ui
