#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "VDMaskVerdict.h"

// VDTimeErrorMetrics computes the time error metrics that clock standards set limits on, over
// the settled part of one series (samples settledFirst .. settledEnd - 1); TE x in ns, times in
// seconds, nothing rounded on the way except where a statistic of the library needs integers.
//
// The low-pass y is causal and first order, -3 dB at 0.1 Hz: y[0] = x[0],
// y[n] = y[n-1] + a (x[n] - y[n-1]), a = 1 - exp(-2 pi 0.1 Ts), Ts the step to sample n. It runs
// from the series' first sample, so the settled part sees no start-up transient of its own; the
// high-pass is x - y.
class VDTimeErrorMetrics {
 public:
  VDTimeErrorMetrics(std::vector<double> times, std::vector<double> errors, size_t settledFirst,
                     size_t settledEnd);

  static std::vector<double> lowPass(const std::vector<double>& times,
                                     const std::vector<double>& errors);

  // max |x|, or with average > 1 the largest |mean| of average consecutive samples.
  std::optional<double> maxAbsTe(int64_t average) const;
  // max |y|.
  double maxAbsTeL() const;
  // The mean of x.
  double cte() const;
  // The largest |mean| of x over round(windowSeconds / tau0) consecutive samples; none when the
  // settled part is shorter.
  std::optional<double> cteMoving(double windowSeconds) const;
  // max - min of x - y.
  double dteHPeakToPeak() const;
  // MTIE and TDEV of x, or of y, for every window whose tau is at most largestTau.
  std::vector<VDMaskVerdict::CurvePoint> mtie(bool ofLowPass, double largestTau) const;
  std::vector<VDMaskVerdict::CurvePoint> tdev(bool ofLowPass, double largestTau) const;

  // The mean sample interval of the settled part, s, and its length.
  double tau0() const;
  double settledDuration() const { return _times[_settledEnd - 1] - _times[_settledFirst]; }
  const std::vector<double>& lowPassed() const { return _lowPassed; }

 private:
  // The largest |mean| of runs of count consecutive settled samples of x.
  double largestMean(int64_t count) const;

  std::vector<double> _times;
  std::vector<double> _errors;
  std::vector<double> _lowPassed;
  size_t _settledFirst;
  size_t _settledEnd;
};
