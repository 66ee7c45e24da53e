#include "VDAllanDeviationAnalysis.h"

#include <cmath>

#include "VDConfidenceInterval.h"
#include "VDLaggedDifferenceSums.h"
#include "VDPhaseData.h"

const VDAnalysisClass& VDAllanDeviationAnalysis::classObject() {
  static const VDAllanDeviationAnalysisClass kClass;
  return kClass;
}

int64_t VDAllanDeviationAnalysis::largestWindowSize(int64_t sampleCount) const {
  return sampleCount < 3 ? 0 : (sampleCount - 1) / 2;
}

std::vector<double> VDAllanDeviationAnalysis::allanSums(
    const std::vector<int64_t>& errors, const VDWindowRange& windows,
    const std::function<void(uint64_t)>& windowsDone) {
  // Second differences ignore a linear trend, so the drift goes before the sums.
  const VDLaggedDifferenceSums secondDifferences(VDPhaseData::withoutDrift(errors), 2);
  return secondDifferences.sumsOfSquares(windows, windowsDone);
}

std::vector<VDStatisticPoint> VDAllanDeviationAnalysis::evaluateWindows(
    const VDWindowRange& windows) const {
  const auto sampleCount = static_cast<int64_t>(_errors.size());
  const std::vector<double> sums =
      allanSums(_errors, windows, windowsDoneReporter(windows, [sampleCount](int64_t m) {
                  return static_cast<double>(allanTerms(sampleCount, m));
                }));
  std::vector<VDStatisticPoint> points;
  points.reserve(windows.count());
  for (uint64_t index = 0; index < windows.count(); ++index) {
    const int64_t m = windows.at(index);
    const int64_t terms = allanTerms(sampleCount, m);
    const double tau = tauOfWindow(m);
    // Overlapping Allan variance from phase, NIST SP 1065 eq. 11, with x in ns:
    // sigma^2 = sum (x[i+2m] - 2x[i+m] + x[i])^2 / (2 tau^2 (N-2m)).
    const double deviation =
        std::sqrt(sums[index] / (2.0 * static_cast<double>(terms))) * 1e-9 / tau;
    points.push_back({m, tau, deviation, static_cast<uint64_t>(terms)});
  }
  VDConfidenceInterval::addToPoints(points, _errors,
                                    VDEquivalentDegreesOfFreedom::Variance::kOverlappingAllan);
  return points;
}
