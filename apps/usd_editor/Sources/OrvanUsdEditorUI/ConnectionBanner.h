#pragma once

#include <QFrame>

#include "ServerClient/VelkConnectionIssue.h"

class QLabel;
class QPushButton;

namespace orvan::ui {

// A connection problem after start-up, shown above the panes: what happened, what to do, and the
// helper's or server's last words as detail. The editor stays usable underneath.
class ConnectionBanner final : public QFrame {
  Q_OBJECT
 public:
  explicit ConnectionBanner(QWidget* parent = nullptr);

  void setIssue(const editor::VelkConnectionIssue& issue);

  QString title() const;
  QString message() const;
  QString detail() const;
  QPushButton* retryButton() const { return retry_; }
  QPushButton* dismissButton() const { return dismiss_; }

  // The detail shows the end of the diagnostic, where a failing helper says why.
  static constexpr std::size_t kDetailBytes = 240;
  static constexpr qsizetype kDetailLines = 3;

 signals:
  void retryRequested();
  void dismissRequested();

 private:
  QLabel* title_ = nullptr;
  QLabel* message_ = nullptr;
  QLabel* detail_ = nullptr;
  QPushButton* retry_ = nullptr;
  QPushButton* dismiss_ = nullptr;
};

}  // namespace orvan::ui
