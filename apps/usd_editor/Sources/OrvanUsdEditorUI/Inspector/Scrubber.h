#pragma once

#include <QObject>
#include <QPoint>

#include <functional>
#include <optional>

class QWidget;

namespace orvan::ui {

// The pace and bounds of a scrubbed number.
struct ScrubRange {
  double step = 0.1;  // change per pixel
  std::optional<double> minimum;
  std::optional<double> maximum;
};

// The value a scrub reaches `pixels` to the right of where it started: `step` per pixel, ten times
// that with Shift, a tenth with Ctrl, held inside the range.
double scrubbedValue(double start, double pixels, Qt::KeyboardModifiers modifiers,
                     const ScrubRange& range);

// Press-drag on a handle (a field's label) changes a number. `begin` gives the value the drag
// starts from (none: the handle does nothing now); `moved` follows every step, `ended` gets the
// last value once the button is released after a move.
class Scrubber final : public QObject {
 public:
  Scrubber(QWidget* handle, ScrubRange range);

  std::function<std::optional<double>()> begin;
  std::function<void(double)> moved;
  std::function<void(double)> ended;

  void setRange(const ScrubRange& range) { range_ = range; }
  bool isScrubbing() const { return start_.has_value(); }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  ScrubRange range_;
  std::optional<double> start_;
  std::optional<double> last_;
  QPoint pressedAt_;
};

}  // namespace orvan::ui
