#pragma once

#include <cstdint>

// A VDWindowRange is the ascending list of window sizes first, first+step, ..., last that an
// analysis evaluates or exports, with every window size already inside the allowed limits.
class VDWindowRange {
 public:
  // The window sizes start, start+step, ... up to end that lie within [smallest, largest]. Empty
  // when step < 1 or when none does. The arithmetic is done wide, so any int64 arguments are
  // fine.
  static VDWindowRange clamped(int64_t start, int64_t end, int64_t step, int64_t smallest,
                               int64_t largest);

  bool empty() const { return _last < _first; }
  int64_t first() const { return _first; }
  int64_t last() const { return _last; }
  int64_t step() const { return _step; }
  // Number of window sizes.
  uint64_t count() const;
  // The index-th window size, index < count(); never beyond last(), so never overflows.
  int64_t at(uint64_t index) const { return _first + static_cast<int64_t>(index) * _step; }
  // True when windowSize is one of the window sizes.
  bool contains(int64_t windowSize) const;

 private:
  VDWindowRange(int64_t first, int64_t last, int64_t step)
      : _first(first), _last(last), _step(step) {}

  int64_t _first;
  int64_t _last;  // < _first when empty
  int64_t _step;
};
