#pragma once

class QApplication;

namespace orvan::ui {

// The editor's look: a dark, low-contrast palette that keeps the viewport the brightest thing on
// screen, the way people who spend the day in a 3D editor want it.
void applyEditorTheme(QApplication& application);

}  // namespace orvan::ui
