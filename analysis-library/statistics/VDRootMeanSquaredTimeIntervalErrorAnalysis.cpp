#include "VDRootMeanSquaredTimeIntervalErrorAnalysis.h"

#include <cmath>

#include "VDLaggedDifferenceSums.h"
#include "VDPhaseData.h"

const VDAnalysisClass& VDRootMeanSquaredTimeIntervalErrorAnalysis::classObject() {
  static const VDRootMeanSquaredTimeIntervalErrorAnalysisClass kClass;
  return kClass;
}

int64_t VDRootMeanSquaredTimeIntervalErrorAnalysis::largestWindowSize(int64_t sampleCount) const {
  return sampleCount < 2 ? 0 : sampleCount - 1;
}

std::vector<double> VDRootMeanSquaredTimeIntervalErrorAnalysis::intervalErrorSums(
    const std::vector<int64_t>& errors, const VDWindowRange& windows,
    const std::function<void(uint64_t)>& windowsDone) {
  // TIE depends on the drift, so only the offset goes.
  const VDLaggedDifferenceSums firstDifferences(VDPhaseData::relativeToFirst(errors), 1);
  return firstDifferences.sumsOfSquares(windows, windowsDone);
}

std::vector<VDStatisticPoint> VDRootMeanSquaredTimeIntervalErrorAnalysis::evaluateWindows(
    const VDWindowRange& windows) const {
  const auto sampleCount = static_cast<int64_t>(_errors.size());
  const std::vector<double> sums =
      intervalErrorSums(_errors, windows, windowsDoneReporter(windows, [sampleCount](int64_t m) {
                          return static_cast<double>(intervalErrorTerms(sampleCount, m));
                        }));
  std::vector<VDStatisticPoint> points;
  points.reserve(windows.count());
  for (uint64_t index = 0; index < windows.count(); ++index) {
    const int64_t m = windows.at(index);
    const int64_t terms = intervalErrorTerms(sampleCount, m);
    // TIE rms (NIST SP 1065): sqrt(sum (x[i+m] - x[i])^2 / (N-m)), in ns.
    const double value = std::sqrt(sums[index] / static_cast<double>(terms));
    points.push_back({m, tauOfWindow(m), value, static_cast<uint64_t>(terms)});
  }
  return points;
}
