#include "VDWindowRange.h"

VDWindowRange VDWindowRange::clamped(int64_t start, int64_t end, int64_t step, int64_t smallest,
                                     int64_t largest) {
  const VDWindowRange none(1, 0, 1);
  if (step < 1) {
    return none;
  }
  // 128-bit arithmetic: start, end and step may all sit near the int64 limits.
  const __int128 wideStep = step;
  __int128 first = start;
  if (first < smallest) {
    const __int128 stepsToSmallest =
        (static_cast<__int128>(smallest) - first + wideStep - 1) / wideStep;
    first += stepsToSmallest * wideStep;
  }
  const __int128 upper = end < largest ? end : largest;
  if (first > upper) {
    return none;
  }
  const __int128 last = first + (upper - first) / wideStep * wideStep;
  return VDWindowRange(static_cast<int64_t>(first), static_cast<int64_t>(last), step);
}

uint64_t VDWindowRange::count() const {
  if (empty()) {
    return 0;
  }
  return (static_cast<uint64_t>(_last) - static_cast<uint64_t>(_first)) /
             static_cast<uint64_t>(_step) +
         1;
}

bool VDWindowRange::contains(int64_t windowSize) const {
  if (empty() || windowSize < _first || windowSize > _last) {
    return false;
  }
  return (static_cast<uint64_t>(windowSize) - static_cast<uint64_t>(_first)) %
             static_cast<uint64_t>(_step) ==
         0;
}
