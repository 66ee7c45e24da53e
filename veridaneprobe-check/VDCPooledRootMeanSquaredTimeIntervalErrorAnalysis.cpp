#include "VDCPooledRootMeanSquaredTimeIntervalErrorAnalysis.h"

#include <cmath>

std::vector<VDStatisticPoint> VDCPooledRootMeanSquaredTimeIntervalErrorAnalysis::evaluateWindows(
    const VDWindowRange& windows) const {
  const VDCGapSegments::Pooled pooled = _segments.pooledSums(
      windows, largestOfSegment(),
      [](const std::vector<int64_t>& errors, const VDWindowRange& held) {
        return intervalErrorSums(errors, held, {});
      },
      intervalErrorTerms);
  std::vector<VDStatisticPoint> points;
  points.reserve(windows.count());
  for (uint64_t index = 0; index < windows.count(); ++index) {
    const int64_t m = windows.at(index);
    const double value = std::sqrt(pooled.sums[index] / static_cast<double>(pooled.terms[index]));
    points.push_back({m, tauOfWindow(m), value, static_cast<uint64_t>(pooled.terms[index])});
  }
  return points;
}
