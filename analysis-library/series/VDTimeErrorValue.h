#pragma once

#include <cstdint>

// A VDTimeErrorValue is one time error sample: when it was taken and how far the clock under
// test was from its reference, both in nanoseconds.
class VDTimeErrorValue {
 public:
  VDTimeErrorValue(uint64_t timestamp, int64_t error) : _timestamp(timestamp), _error(error) {}

  uint64_t timestamp() const { return _timestamp; }
  int64_t error() const { return _error; }

 private:
  uint64_t _timestamp;
  int64_t _error;
};
