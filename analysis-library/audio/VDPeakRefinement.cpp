#include "VDPeakRefinement.h"

double VDPeakRefinement::parabolicOffset(double below, double centre, double above) {
  const double curvature = below - 2.0 * centre + above;
  if (!(curvature < 0.0)) {
    return 0.0;
  }
  return std::clamp(0.5 * (below - above) / curvature, -0.5, 0.5);
}

double VDPeakRefinement::dotProduct(const double* x, const double* y, int64_t count) {
  // Four running sums let the additions overlap instead of waiting on each other.
  double s0 = 0, s1 = 0, s2 = 0, s3 = 0;
  int64_t i = 0;
  for (; i + 4 <= count; i += 4) {
    s0 += x[i] * y[i];
    s1 += x[i + 1] * y[i + 1];
    s2 += x[i + 2] * y[i + 2];
    s3 += x[i + 3] * y[i + 3];
  }
  for (; i < count; ++i) {
    s0 += x[i] * y[i];
  }
  return (s0 + s1) + (s2 + s3);
}
