#include "VDCPooledAllanDeviationAnalysis.h"

#include <cmath>

std::vector<VDStatisticPoint> VDCPooledAllanDeviationAnalysis::evaluateWindows(
    const VDWindowRange& windows) const {
  const VDCGapSegments::Pooled pooled = _segments.pooledSums(
      windows, largestOfSegment(),
      [](const std::vector<int64_t>& errors, const VDWindowRange& held) {
        return allanSums(errors, held, {});
      },
      allanTerms);
  std::vector<VDStatisticPoint> points;
  points.reserve(windows.count());
  for (uint64_t index = 0; index < windows.count(); ++index) {
    const int64_t m = windows.at(index);
    const double tau = tauOfWindow(m);
    // As for one series, over the terms of every segment.
    const double deviation =
        std::sqrt(pooled.sums[index] / (2.0 * static_cast<double>(pooled.terms[index]))) * 1e-9 /
        tau;
    points.push_back({m, tau, deviation, static_cast<uint64_t>(pooled.terms[index])});
  }
  _segments.addConfidenceBounds(points, windows,
                                VDEquivalentDegreesOfFreedom::Variance::kOverlappingAllan,
                                largestOfSegment());
  return points;
}
