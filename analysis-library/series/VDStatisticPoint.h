#pragma once

#include <cstdint>

// A VDStatisticPoint is one result of a stability statistic: its value for one window size.
// ADEV, MDEV and TDEV also carry the noise type identified at the window and their 68.3 %
// confidence interval (VDConfidenceInterval); the other statistics leave those at zero.
struct VDStatisticPoint {
  int64_t windowSize;  // samples
  double tau;          // observation interval, seconds
  double value;        // ADEV/MDEV dimensionless; TDEV, RMS TIE and MTIE in ns
  uint64_t termCount;  // terms averaged or maximised over
  int alpha = 0;       // power-law noise exponent: 2 white PM .. -2 random-walk FM
  double edf = 0;      // equivalent degrees of freedom of the variance
  double minimum = 0;  // lower bound of the 68.3 % confidence interval, the value's unit
  double maximum = 0;  // upper bound
};
