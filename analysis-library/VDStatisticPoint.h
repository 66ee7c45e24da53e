#pragma once

#include <cstdint>

// A VDStatisticPoint is one result of a stability statistic: its value for one window size.
struct VDStatisticPoint {
  int64_t windowSize;  // samples
  double tau;          // observation interval, seconds
  double value;        // ADEV/MDEV dimensionless; TDEV, RMS TIE and MTIE in ns
  uint64_t termCount;  // terms averaged or maximised over
};
