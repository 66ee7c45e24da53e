#include "VDTimeDeviationAnalysis.h"

#include <cmath>

#include "VDModifiedAllanDeviationAnalysis.h"

const VDAnalysisClass& VDTimeDeviationAnalysis::classObject() {
  static const VDTimeDeviationAnalysisClass kClass;
  return kClass;
}

int64_t VDTimeDeviationAnalysis::largestWindowSize(int64_t sampleCount) const {
  return sampleCount < 3 ? 0 : sampleCount / 3;
}

std::vector<VDStatisticPoint> VDTimeDeviationAnalysis::evaluateWindows(
    const VDWindowRange& windows) const {
  std::vector<VDStatisticPoint> points;
  using Modified = VDModifiedAllanDeviationAnalysis;
  const auto sampleCount = static_cast<int64_t>(_errors.size());
  const auto termsOf = [sampleCount](int64_t m) {
    return static_cast<double>(Modified::modifiedTerms(sampleCount, m));
  };
  for (const auto& modified :
       Modified::modifiedSums(_errors, windows, windowsDoneReporter(windows, termsOf))) {
    const auto window = static_cast<double>(modified.windowSize);
    // Time variance, NIST SP 1065 eq. 15: sigma_x^2 = tau^2 / 3 * Mod sigma_y^2. With x in ns
    // the taus cancel: sigma_x^2 = sum / (6 m^2 (N-3m+1)) ns^2.
    const double deviation =
        std::sqrt(modified.sum / (6.0 * window * window * static_cast<double>(modified.terms)));
    points.push_back(modified.point(tauOfWindow(modified.windowSize), deviation));
  }
  return points;
}
