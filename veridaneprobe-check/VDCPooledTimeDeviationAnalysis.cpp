#include "VDCPooledTimeDeviationAnalysis.h"

#include <cmath>

#include "VDCPooledModifiedAllanDeviationAnalysis.h"

VDCPooledTimeDeviationAnalysis::VDCPooledTimeDeviationAnalysis(
    const std::vector<VDTimeErrorValue>& values,
    const std::vector<VDCContinuity::Segment>& segments)
    : VDTimeDeviationAnalysis(values), _segments(values, segments) {
  _tau0 = _segments.tau0();
}

VDCGapSegments::LargestWindow VDCPooledTimeDeviationAnalysis::largestOfSegment() const {
  return [this](int64_t sampleCount) {
    return VDTimeDeviationAnalysis::largestWindowSize(sampleCount);
  };
}

int64_t VDCPooledTimeDeviationAnalysis::largestWindowSize(int64_t /*sampleCount*/) const {
  return _segments.largestWindowSize(largestOfSegment());
}

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
