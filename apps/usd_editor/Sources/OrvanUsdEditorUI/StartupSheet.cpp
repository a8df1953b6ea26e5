#include "StartupSheet.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

namespace orvan::ui {

namespace {

constexpr int kCardWidth = 420;

}  // namespace

StartupSheet::StartupSheet(QWidget* parent) : QWidget(parent) {
  setObjectName("StartupSheet");
  // Swallows clicks meant for the window underneath.
  setAttribute(Qt::WA_NoMousePropagation);
  auto* outer = new QVBoxLayout(this);
  outer->setAlignment(Qt::AlignCenter);
  auto* card = new QFrame(this);
  card->setObjectName("SheetCard");
  card->setFixedWidth(kCardWidth);
  auto* column = new QVBoxLayout(card);
  column->setContentsMargins(22, 20, 22, 18);
  column->setSpacing(8);
  title_ = new QLabel(card);
  title_->setObjectName("SheetTitle");
  title_->setWordWrap(true);
  message_ = new QLabel(card);
  message_->setObjectName("SheetMessage");
  message_->setWordWrap(true);
  message_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  column->addWidget(title_);
  column->addWidget(message_);
  column->addSpacing(8);
  auto* buttons = new QHBoxLayout;
  buttons->addStretch(1);
  secondary_ = new QPushButton(card);
  secondary_->setObjectName("SheetSecondary");
  primary_ = new QPushButton(card);
  primary_->setObjectName("SheetPrimary");
  primary_->setDefault(true);
  buttons->addWidget(secondary_);
  buttons->addWidget(primary_);
  column->addLayout(buttons);
  outer->addWidget(card, 0, Qt::AlignCenter);

  connect(primary_, &QPushButton::clicked, this,
          [this] { emit primaryActionTriggered(primaryAction_); });
  connect(secondary_, &QPushButton::clicked, this,
          [this] { emit secondaryActionTriggered(secondaryAction_); });
  hide();
}

void StartupSheet::setContent(const editor::StartupSheetContent& content) {
  title_->setText(QString::fromStdString(content.title));
  message_->setText(QString::fromStdString(content.message));
  const auto& issue = content.issue;
  const bool hasPrimary = issue && !issue->primaryLabel.empty() &&
                          issue->primaryAction != editor::VelkConnectionAction::none;
  const bool hasSecondary = issue && !issue->secondaryLabel.empty() &&
                            issue->secondaryAction != editor::VelkConnectionAction::none;
  primaryAction_ = hasPrimary ? static_cast<int>(issue->primaryAction) : 0;
  secondaryAction_ = hasSecondary ? static_cast<int>(issue->secondaryAction) : 0;
  primary_->setText(hasPrimary ? QString::fromStdString(issue->primaryLabel) : QString());
  secondary_->setText(hasSecondary ? QString::fromStdString(issue->secondaryLabel) : QString());
  primary_->setVisible(hasPrimary);
  secondary_->setVisible(hasSecondary);
}

void StartupSheet::coverParent() {
  if (parentWidget())
    setGeometry(parentWidget()->rect());
  raise();
}

QString StartupSheet::title() const {
  return title_->text();
}
QString StartupSheet::message() const {
  return message_->text();
}

void StartupSheet::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.fillRect(rect(), QColor(10, 11, 13, 170));
}

}  // namespace orvan::ui
