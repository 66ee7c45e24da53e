#include "VDCPooledTimeDeviationAnalysis.h"

#include <cmath>

#include "VDCPooledModifiedAllanDeviationAnalysis.h"

std::vector<VDStatisticPoint> VDCPooledTimeDeviationAnalysis::evaluateWindows(
    const VDWindowRange& windows) const {
  using Modified = VDCPooledModifiedAllanDeviationAnalysis;
  const VDCGapSegments::Pooled pooled = _segments.pooledSums(
      windows, largestOfSegment(), Modified::modifiedSumsOnly, Modified::modifiedTerms);
  std::vector<VDStatisticPoint> points;
  points.reserve(windows.count());
  for (uint64_t index = 0; index < windows.count(); ++index) {
    const int64_t m = windows.at(index);
    const auto window = static_cast<double>(m);
    // As for one series, over the terms of every segment: sum / (6 m^2 terms) ns^2.
    const double deviation = std::sqrt(
        pooled.sums[index] / (6.0 * window * window * static_cast<double>(pooled.terms[index])));
    points.push_back({m, tauOfWindow(m), deviation, static_cast<uint64_t>(pooled.terms[index])});
  }
  // The bounds of the modified Allan variance, as for one series.
  _segments.addConfidenceBounds(
      points, windows, VDEquivalentDegreesOfFreedom::Variance::kModifiedAllan, largestOfSegment());
  return points;
}
