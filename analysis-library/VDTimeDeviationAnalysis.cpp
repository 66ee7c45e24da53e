#include "VDTimeDeviationAnalysis.h"

#include <cmath>
#include <utility>

#include "VDLaggedDifferenceSums.h"
#include "VDPhaseData.h"

const VDAnalysisClass& VDTimeDeviationAnalysis::classObject() {
  static const VDTimeDeviationAnalysisClass kClass;
  return kClass;
}

int64_t VDTimeDeviationAnalysis::largestWindowSize(int64_t sampleCount) const {
  return sampleCount < 3 ? 0 : sampleCount / 3;
}

std::vector<VDStatisticPoint> VDTimeDeviationAnalysis::evaluateWindows(
    const VDWindowRange& windows) const {
  const auto sampleCount = static_cast<int64_t>(_errors.size());
  // The same third differences of prefix sums as the modified Allan deviation.
  // The drift-free phase is gone before the sums make their copy: three arrays at most.
  std::vector<int64_t> prefixSums = VDPhaseData::prefixSums(VDPhaseData::withoutDrift(_errors));
  const VDLaggedDifferenceSums thirdDifferences(std::move(prefixSums), 3);
  std::vector<VDStatisticPoint> points;
  points.reserve(windows.count());
  for (uint64_t index = 0; index < windows.count(); ++index) {
    const int64_t m = windows.at(index);
    const int64_t terms = sampleCount - 3 * m + 1;
    const auto window = static_cast<double>(m);
    // Time variance, NIST SP 1065 eq. 15: sigma_x^2 = tau^2 / 3 * Mod sigma_y^2. With x in ns
    // the taus cancel: sigma_x^2 = sum / (6 m^2 (N-3m+1)) ns^2.
    const double sum = thirdDifferences.sumOfSquares(m, terms);
    const double deviation = std::sqrt(sum / (6.0 * window * window * static_cast<double>(terms)));
    points.push_back({m, tauOfWindow(m), deviation, static_cast<uint64_t>(terms)});
  }
  return points;
}
