#include "VDModifiedAllanDeviationAnalysis.h"

#include <cmath>
#include <utility>

#include "VDLaggedDifferenceSums.h"
#include "VDPhaseData.h"

const VDAnalysisClass& VDModifiedAllanDeviationAnalysis::classObject() {
  static const VDModifiedAllanDeviationAnalysisClass kClass;
  return kClass;
}

int64_t VDModifiedAllanDeviationAnalysis::largestWindowSize(int64_t sampleCount) const {
  return sampleCount < 3 ? 0 : sampleCount / 3;
}

std::vector<VDStatisticPoint> VDModifiedAllanDeviationAnalysis::evaluateWindows(
    const VDWindowRange& windows) const {
  const auto sampleCount = static_cast<int64_t>(_errors.size());
  // The inner sum of m second differences is the third difference of the prefix sums S:
  // S[j+3m] - 3S[j+2m] + 3S[j+m] - S[j]. Removing the drift keeps S small.
  // The drift-free phase is gone before the sums make their copy: three arrays at most.
  std::vector<int64_t> prefixSums = VDPhaseData::prefixSums(VDPhaseData::withoutDrift(_errors));
  const VDLaggedDifferenceSums thirdDifferences(std::move(prefixSums), 3);
  std::vector<VDStatisticPoint> points;
  points.reserve(windows.count());
  for (uint64_t index = 0; index < windows.count(); ++index) {
    const int64_t m = windows.at(index);
    const int64_t terms = sampleCount - 3 * m + 1;
    const double tau = tauOfWindow(m);
    const auto window = static_cast<double>(m);
    // Modified Allan variance from phase, NIST SP 1065 eq. 14, with x in ns:
    // Mod sigma^2 = sum_j (sum_{i=j}^{j+m-1} x[i+2m] - 2x[i+m] + x[i])^2 / (2 m^2 tau^2 (N-3m+1)).
    const double sum = thirdDifferences.sumOfSquares(m, terms);
    const double deviation =
        std::sqrt(sum / (2.0 * window * window * static_cast<double>(terms))) * 1e-9 / tau;
    points.push_back({m, tau, deviation, static_cast<uint64_t>(terms)});
  }
  return points;
}
