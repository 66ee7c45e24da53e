#include "VDModifiedAllanDeviationAnalysis.h"

#include <cmath>
#include <mutex>
#include <utility>

#include "VDConfidenceInterval.h"
#include "VDLaggedDifferenceSums.h"
#include "VDPhaseData.h"

const VDAnalysisClass& VDModifiedAllanDeviationAnalysis::classObject() {
  static const VDModifiedAllanDeviationAnalysisClass kClass;
  return kClass;
}

int64_t VDModifiedAllanDeviationAnalysis::largestWindowSize(int64_t sampleCount) const {
  return sampleCount < 3 ? 0 : sampleCount / 3;
}

namespace {

// The last sums computed, with what they were computed from.
struct KeptSums {
  std::vector<int64_t> errors;
  int64_t firstWindow = 0;
  int64_t lastWindow = -1;
  int64_t windowStep = 0;
  std::vector<VDModifiedAllanDeviationAnalysis::ModifiedSum> sums;

  bool match(const std::vector<int64_t>& otherErrors, const VDWindowRange& windows) const {
    return !sums.empty() && firstWindow == windows.first() && lastWindow == windows.last() &&
           windowStep == windows.step() && errors == otherErrors;
  }
};

std::mutex gKeptSumsLock;
KeptSums gKeptSums;

std::vector<VDModifiedAllanDeviationAnalysis::ModifiedSum> computeModifiedSums(
    const std::vector<int64_t>& errors, const VDWindowRange& windows,
    const std::function<void(uint64_t)>& windowsDone) {
  const auto sampleCount = static_cast<int64_t>(errors.size());
  // The inner sum of m second differences is the third difference of the prefix sums S:
  // S[j+3m] - 3S[j+2m] + 3S[j+m] - S[j]. Removing the drift keeps S small.
  // The drift-free phase is gone before the sums make their copy: three arrays at most.
  std::vector<int64_t> prefixSums = VDPhaseData::prefixSums(VDPhaseData::withoutDrift(errors));
  const VDLaggedDifferenceSums thirdDifferences(std::move(prefixSums), 3);
  const std::vector<double> totals = thirdDifferences.sumsOfSquares(windows, windowsDone);
  // The bounds of a deviation of 1 at each window are the factors of any deviation's bounds.
  std::vector<VDStatisticPoint> unitBounds;
  unitBounds.reserve(windows.count());
  for (uint64_t index = 0; index < windows.count(); ++index) {
    unitBounds.push_back({windows.at(index), 0.0, 1.0, 0});
  }
  VDConfidenceInterval::addToPoints(unitBounds, errors,
                                    VDEquivalentDegreesOfFreedom::Variance::kModifiedAllan);
  std::vector<VDModifiedAllanDeviationAnalysis::ModifiedSum> sums;
  sums.reserve(windows.count());
  for (uint64_t index = 0; index < windows.count(); ++index) {
    const VDStatisticPoint& bounds = unitBounds[index];
    const int64_t m = bounds.windowSize;
    sums.push_back({m, VDModifiedAllanDeviationAnalysis::modifiedTerms(sampleCount, m),
                    totals[index], bounds.alpha, bounds.edf, bounds.minimum, bounds.maximum});
  }
  return sums;
}

}  // namespace

std::vector<VDModifiedAllanDeviationAnalysis::ModifiedSum>
VDModifiedAllanDeviationAnalysis::modifiedSums(const std::vector<int64_t>& errors,
                                               const VDWindowRange& windows,
                                               const std::function<void(uint64_t)>& windowsDone) {
  const std::lock_guard<std::mutex> lock(gKeptSumsLock);
  if (gKeptSums.match(errors, windows)) {
    KeptSums taken = std::move(gKeptSums);
    gKeptSums = KeptSums();
    if (windowsDone) {
      windowsDone(windows.count());
    }
    return std::move(taken.sums);
  }
  gKeptSums = KeptSums();  // the old sums go before the new ones take their room
  std::vector<ModifiedSum> sums = computeModifiedSums(errors, windows, windowsDone);
  gKeptSums = KeptSums{errors, windows.first(), windows.last(), windows.step(), sums};
  return sums;
}

std::vector<VDStatisticPoint> VDModifiedAllanDeviationAnalysis::evaluateWindows(
    const VDWindowRange& windows) const {
  std::vector<VDStatisticPoint> points;
  const auto sampleCount = static_cast<int64_t>(_errors.size());
  const auto termsOf = [sampleCount](int64_t m) {
    return static_cast<double>(modifiedTerms(sampleCount, m));
  };
  for (const ModifiedSum& modified :
       modifiedSums(_errors, windows, windowsDoneReporter(windows, termsOf))) {
    const double tau = tauOfWindow(modified.windowSize);
    const auto window = static_cast<double>(modified.windowSize);
    // Modified Allan variance from phase, NIST SP 1065 eq. 14, with x in ns:
    // Mod sigma^2 = sum_j (sum_{i=j}^{j+m-1} x[i+2m] - 2x[i+m] + x[i])^2 / (2 m^2 tau^2 (N-3m+1)).
    const double deviation =
        std::sqrt(modified.sum / (2.0 * window * window * static_cast<double>(modified.terms))) *
        1e-9 / tau;
    points.push_back(modified.point(tau, deviation));
  }
  return points;
}
