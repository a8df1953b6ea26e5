#include "OrvanUsdEditorUI/EditorTheme.h"

#include <QApplication>
#include <QPalette>
#include <QStyleFactory>

namespace orvan::ui {

void applyEditorTheme(QApplication& application) {
  application.setStyle(QStyleFactory::create("Fusion"));
  QPalette palette;
  const QColor window(0x26, 0x28, 0x2c);
  const QColor base(0x1e, 0x20, 0x23);
  const QColor text(0xd8, 0xdb, 0xe0);
  const QColor dim(0x80, 0x86, 0x8f);
  const QColor accent(0x3d, 0x8b, 0xfd);
  palette.setColor(QPalette::Window, window);
  palette.setColor(QPalette::WindowText, text);
  palette.setColor(QPalette::Base, base);
  palette.setColor(QPalette::AlternateBase, QColor(0x23, 0x25, 0x29));
  palette.setColor(QPalette::Text, text);
  palette.setColor(QPalette::Button, QColor(0x30, 0x33, 0x38));
  palette.setColor(QPalette::ButtonText, text);
  palette.setColor(QPalette::ToolTipBase, base);
  palette.setColor(QPalette::ToolTipText, text);
  palette.setColor(QPalette::PlaceholderText, dim);
  palette.setColor(QPalette::Highlight, accent);
  palette.setColor(QPalette::HighlightedText, Qt::white);
  palette.setColor(QPalette::Mid, QColor(0x3a, 0x3d, 0x43));
  palette.setColor(QPalette::Disabled, QPalette::Text, dim);
  palette.setColor(QPalette::Disabled, QPalette::WindowText, dim);
  palette.setColor(QPalette::Disabled, QPalette::ButtonText, dim);
  application.setPalette(palette);
  application.setStyleSheet(
      "QSplitter::handle { background: #1a1c1f; }"
      "QStatusBar { background: #1e2023; color: #a8adb5; }"
      "QToolBar { background: #2b2e33; border-bottom: 1px solid #1a1c1f; spacing: 6px; }"
      "QLabel#PaneTitle { color: #a8adb5; font-weight: 600; padding: 6px 10px;"
      "  background: #2b2e33; border-bottom: 1px solid #1a1c1f; }"
      "QLabel#EmptyState { color: #6c727b; }"
      "QLabel#ProjectLabel { font-weight: 600; padding: 0 6px; }"
      "QLabel#LocalBadge { background: #3d8bfd; color: white; border-radius: 3px;"
      "  padding: 1px 6px; font-size: 10px; font-weight: 700; }");
}

}  // namespace orvan::ui
