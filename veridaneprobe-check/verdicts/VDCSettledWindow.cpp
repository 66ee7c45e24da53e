#include "VDCSettledWindow.h"

#include <algorithm>

namespace {

size_t firstAtOrAfter(const std::vector<double>& times, size_t from, double time) {
  return static_cast<size_t>(
      std::lower_bound(times.begin() + static_cast<long>(from), times.end(), time) - times.begin());
}

}  // namespace

VDCSettledWindow VDCSettledWindow::afterSeconds(const std::vector<double>& times,
                                                double settleSeconds) {
  VDCSettledWindow window;
  window.end = times.size();
  window.first = times.empty() ? 0 : firstAtOrAfter(times, 0, times.front() + settleSeconds);
  return window;
}

VDCSettledWindow VDCSettledWindow::afterServoLock(const std::vector<double>& times,
                                                  const std::vector<int>& states) {
  VDCSettledWindow window;
  // The first lock after the unlocked or stepped samples the log starts with; a log that starts
  // locked counts from its first sample.
  size_t lock = 0;
  while (lock < states.size() && states[lock] < kLocked) {
    ++lock;
  }
  if (lock == states.size()) {
    return window;
  }
  size_t lost = lock;
  while (lost < states.size() && states[lost] >= kLocked) {
    ++lost;
  }
  window.lostLock = lost < states.size();
  window.end = lost;
  window.first = std::min(firstAtOrAfter(times, lock, times[lock] + kServoSettleSeconds), lost);
  return window;
}
