#include "ConnectionBanner.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QStringList>
#include <QVBoxLayout>

#include <algorithm>

#include "Foundation/Logging.h"

namespace orvan::ui {

ConnectionBanner::ConnectionBanner(QWidget* parent) : QFrame(parent) {
  setObjectName("ConnectionBanner");
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(14, 8, 10, 8);
  row->setSpacing(12);
  auto* text = new QVBoxLayout;
  text->setSpacing(2);
  title_ = new QLabel(this);
  title_->setObjectName("BannerTitle");
  message_ = new QLabel(this);
  message_->setObjectName("BannerMessage");
  message_->setWordWrap(true);
  detail_ = new QLabel(this);
  detail_->setObjectName("BannerDetail");
  detail_->setWordWrap(true);
  detail_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  detail_->setMaximumHeight(48);
  text->addWidget(title_);
  text->addWidget(message_);
  text->addWidget(detail_);
  row->addLayout(text, 1);
  retry_ = new QPushButton("Retry", this);
  retry_->setObjectName("BannerRetry");
  dismiss_ = new QPushButton("Dismiss", this);
  dismiss_->setObjectName("BannerDismiss");
  row->addWidget(retry_, 0, Qt::AlignTop);
  row->addWidget(dismiss_, 0, Qt::AlignTop);
  connect(retry_, &QPushButton::clicked, this, &ConnectionBanner::retryRequested);
  connect(dismiss_, &QPushButton::clicked, this, &ConnectionBanner::dismissRequested);
  hide();
}

void ConnectionBanner::setIssue(const editor::VelkConnectionIssue& issue) {
  title_->setText(QString::fromStdString(issue.title));
  message_->setText(QString::fromStdString(issue.message));
  // Only the last lines fit; the full diagnostic is in the log and the tooltip.
  const QStringList lines = QString::fromStdString(editor::textTail(issue.diagnostic, kDetailBytes))
                                .split('\n', Qt::SkipEmptyParts);
  const QString tail = lines.mid(std::max<qsizetype>(0, lines.size() - kDetailLines)).join('\n');
  detail_->setText(tail.trimmed());
  detail_->setToolTip(QString::fromStdString(editor::textTail(issue.diagnostic)));
  detail_->setVisible(!tail.isEmpty());
  retry_->setVisible(issue.retryable);
}

QString ConnectionBanner::title() const {
  return title_->text();
}
QString ConnectionBanner::message() const {
  return message_->text();
}
QString ConnectionBanner::detail() const {
  return detail_->text();
}

}  // namespace orvan::ui
