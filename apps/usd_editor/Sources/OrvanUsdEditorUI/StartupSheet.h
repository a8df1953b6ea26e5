#pragma once

#include <QWidget>

#include "Application/StartupPresentation.h"

class QLabel;
class QPushButton;

namespace orvan::ui {

// The start-up sheet: a card over a dimmed window while the project is not resolved. It is a
// plain overlay, not a modal dialog with its own event loop, so the editor keeps running under
// it and the sheet goes the moment the project resolves.
class StartupSheet final : public QWidget {
  Q_OBJECT
 public:
  explicit StartupSheet(QWidget* parent);

  void setContent(const editor::StartupSheetContent& content);
  // Follows the parent's size; call from the parent's resize handling.
  void coverParent();

  QString title() const;
  QString message() const;
  QPushButton* primaryButton() const { return primary_; }
  QPushButton* secondaryButton() const { return secondary_; }

 signals:
  void primaryActionTriggered(int action);
  void secondaryActionTriggered(int action);

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  QLabel* title_ = nullptr;
  QLabel* message_ = nullptr;
  QPushButton* primary_ = nullptr;
  QPushButton* secondary_ = nullptr;
  int primaryAction_ = 0;
  int secondaryAction_ = 0;
};

}  // namespace orvan::ui
