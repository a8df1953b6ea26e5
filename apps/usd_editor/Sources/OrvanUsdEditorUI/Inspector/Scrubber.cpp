#include "Inspector/Scrubber.h"

#include <QMouseEvent>
#include <QWidget>

#include <algorithm>

namespace orvan::ui {

double scrubbedValue(double start, double pixels, Qt::KeyboardModifiers modifiers,
                     const ScrubRange& range) {
  double factor = 1.0;
  if (modifiers.testFlag(Qt::ShiftModifier))
    factor *= 10.0;
  if (modifiers.testFlag(Qt::ControlModifier))
    factor *= 0.1;
  double value = start + pixels * range.step * factor;
  if (range.minimum)
    value = std::max(value, *range.minimum);
  if (range.maximum)
    value = std::min(value, *range.maximum);
  return value;
}

Scrubber::Scrubber(QWidget* handle, ScrubRange range) : QObject(handle), range_(range) {
  handle->installEventFilter(this);
  handle->setCursor(Qt::SizeHorCursor);
  handle->setToolTip(handle->toolTip().isEmpty()
                         ? QStringLiteral("Drag to change; Shift: faster, Ctrl: finer")
                         : handle->toolTip() + "\nDrag to change; Shift: faster, Ctrl: finer");
}

bool Scrubber::eventFilter(QObject* watched, QEvent* event) {
  switch (event->type()) {
    case QEvent::MouseButtonPress: {
      auto* press = static_cast<QMouseEvent*>(event);
      if (press->button() != Qt::LeftButton || !begin)
        return false;
      start_ = begin();
      last_.reset();
      pressedAt_ = press->position().toPoint();
      return start_.has_value();
    }
    case QEvent::MouseMove: {
      if (!start_)
        return false;
      auto* move = static_cast<QMouseEvent*>(event);
      const double pixels = move->position().x() - pressedAt_.x();
      const double value = scrubbedValue(*start_, pixels, move->modifiers(), range_);
      if (last_ && *last_ == value)
        return true;
      last_ = value;
      if (moved)
        moved(value);
      return true;
    }
    case QEvent::MouseButtonRelease: {
      if (!start_)
        return false;
      const std::optional<double> last = last_;
      start_.reset();
      last_.reset();
      if (last && ended)
        ended(*last);
      return true;
    }
    default:
      break;
  }
  return QObject::eventFilter(watched, event);
}

}  // namespace orvan::ui
