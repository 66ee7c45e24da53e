#include "VDCorrelationPeak.h"

#include <algorithm>
#include <cmath>
#include <limits>

VDCorrelationPeak::VDCorrelationPeak(const double* correlation, int64_t radius) : _radius(radius) {
  const auto at = [&](int64_t offset) { return correlation[radius + offset]; };
  for (int64_t offset = -radius; offset <= radius; ++offset) {
    if (at(offset) > at(_best)) {
      _best = offset;
    }
  }
  const double peak = at(_best);
  if (!(peak > 0.0)) {
    return;
  }
  int64_t lobeBegin = _best;
  int64_t lobeEnd = _best;
  while (lobeBegin > -radius && at(lobeBegin - 1) < at(lobeBegin)) {
    --lobeBegin;
  }
  while (lobeEnd < radius && at(lobeEnd + 1) < at(lobeEnd)) {
    ++lobeEnd;
  }
  double other = 0.0;
  for (int64_t offset = -radius; offset <= radius; ++offset) {
    if (offset >= lobeBegin && offset <= lobeEnd) {
      continue;
    }
    const bool risesFromLeft = offset == -radius || at(offset - 1) <= at(offset);
    const bool risesFromRight = offset == radius || at(offset + 1) <= at(offset);
    if (risesFromLeft && risesFromRight) {
      other = std::max(other, at(offset));
    }
  }
  _ratio = other / peak;
  if (!onEdge()) {
    const double bend = -(at(_best - 1) - 2.0 * peak + at(_best + 1)) / peak;
    _curvature = bend > 0.0 ? bend : 0.0;
    if (bend > 0.0) {
      const double slope = at(_best + 1) - at(_best - 1);
      _peakGain = 1.0 + slope * slope / (8.0 * bend * peak * peak);
    }
  }
}

double VDCorrelationPeak::delayUncertainty(double curvature, double rho, int64_t count) {
  if (!(curvature > 0.0) || !(rho > 0.0) || count < 1) {
    return std::numeric_limits<double>::infinity();
  }
  // A correlation of 1 would mean no noise at all; rounding in the sums caps what it can show.
  const double clamped = std::min(rho, 1.0 - 1e-9);
  const double snr = clamped / (1.0 - clamped);
  const double n = static_cast<double>(count);
  const double variance =
      2.0 / (snr * n * curvature) + M_PI * M_PI / (3.0 * snr * snr * n * curvature * curvature);
  return std::sqrt(variance);
}
