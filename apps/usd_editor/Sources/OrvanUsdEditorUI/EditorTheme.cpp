#include "EditorTheme.h"

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
      "QStatusBar QLabel { padding-left: 6px; }"
      "QToolBar { background: #2b2e33; border-bottom: 1px solid #1a1c1f; spacing: 6px;"
      "  padding: 4px 6px; }"
      "QLabel#PaneTitle { color: #a8adb5; font-weight: 600; padding: 6px 10px;"
      "  background: #2b2e33; border-bottom: 1px solid #1a1c1f; }"
      "QLabel#EmptyState { color: #6c727b; }"
      "QLabel#ProjectLabel { font-weight: 600; font-size: 13px; padding: 0 6px; }"
      "QLabel#LocalBadge { background: #3d8bfd; color: white; border-radius: 3px;"
      "  padding: 1px 6px; font-size: 10px; font-weight: 700; }"
      // Hierarchy
      "QTreeView#HierarchyTree { background: #1e2023; border: none; }"
      "QTreeView#HierarchyTree::item { height: 22px; }"
      "QTreeView#HierarchyTree::item:selected { background: #2f5fa8; color: white; }"
      "QHeaderView::section { background: #25272b; color: #8a9099; border: none;"
      "  border-bottom: 1px solid #1a1c1f; padding: 3px 8px; font-size: 11px; }"
      // Inspector
      "QWidget#InspectorContent, QScrollArea#InspectorScroll { background: #1e2023; }"
      "QFrame#InspectorHeader { background: #232529; border-bottom: 1px solid #1a1c1f; }"
      "QLabel#PrimName { color: #eceef1; font-size: 14px; font-weight: 600; }"
      "QLabel#PrimType { color: #9cc3ff; background: #263447; border-radius: 3px;"
      "  padding: 1px 6px; font-size: 11px; }"
      "QLabel#PrimPath { color: #7b818a; font-size: 11px; }"
      "QFrame#SectionHeader { background: #272a2e; border-top: 1px solid #1a1c1f;"
      "  border-bottom: 1px solid #1a1c1f; }"
      "QLabel#SectionTitle { color: #c9cdd3; font-weight: 600; }"
      "QLabel#SectionDetail { color: #6c727b; font-size: 11px; }"
      "QLabel#PropertyName { color: #9096a0; }"
      "QLabel#SectionNote { color: #6c727b; font-style: italic; }"
      "QLabel#NumberValue, QLabel#VectorField, QLabel#ValueText { color: #d8dbe0; }"
      "QLabel#VectorField, QLabel#NumberValue { background: #17191c; border: 1px solid #2c2f34;"
      "  border-radius: 3px; padding: 1px 5px; }"
      "QLabel#AssetValue { color: #9cc3ff; }"
      "QWidget[componentDisabled=\"true\"] QLabel#PropertyName,"
      "QWidget[componentDisabled=\"true\"] QLabel#ValueText,"
      "QWidget[componentDisabled=\"true\"] QLabel#NumberValue,"
      "QWidget[componentDisabled=\"true\"] QLabel#VectorField,"
      "QWidget[componentDisabled=\"true\"] QLabel#AssetValue { color: #6c727b; }"
      // Inspector controls: an invalid draft is framed in red; the override mark is a blue dot
      "QLineEdit#NumberField, QLineEdit#VectorField, QLineEdit#TextField { background: #17191c;"
      "  color: #d8dbe0; border: 1px solid #2c2f34; border-radius: 3px; padding: 1px 4px; }"
      "QLineEdit#NumberField[invalid=\"true\"], QLineEdit#VectorField[invalid=\"true\"],"
      "QLineEdit#TextField[invalid=\"true\"] { border: 1px solid #e05555; background: #2a1718; }"
      "QComboBox#OptionMenu[invalid=\"true\"] { border: 1px solid #e05555; }"
      "QLabel#AxisLabel { font-weight: 600; }"
      "QLabel#UnitLabel { color: #7b818a; }"
      "QToolButton#OverrideMark { color: #3d8bfd; border: none; font-size: 10px; }"
      "QToolButton#AddComponentButton { color: #c9cdd3; background: #2b2e33;"
      "  border: 1px solid #3a3d43; border-radius: 4px; padding: 3px 10px; }"
      // Start-up sheet and connection banner
      "QFrame#SheetCard { background: #2b2e33; border: 1px solid #3a3d43; border-radius: 8px; }"
      "QLabel#SheetTitle { color: #eceef1; font-size: 16px; font-weight: 600; }"
      "QLabel#SheetMessage { color: #a8adb5; }"
      "QPushButton#SheetPrimary { background: #3d8bfd; color: white; border: none;"
      "  border-radius: 4px; padding: 5px 14px; }"
      "QFrame#ConnectionBanner { background: #3a2a1c; border-bottom: 1px solid #5c3f22; }"
      "QLabel#BannerTitle { color: #f5d0a3; font-weight: 600; }"
      "QLabel#BannerMessage { color: #dcc4a6; }"
      "QLabel#BannerDetail { color: #b09a80; font-family: monospace; font-size: 11px; }");
}

}  // namespace orvan::ui
