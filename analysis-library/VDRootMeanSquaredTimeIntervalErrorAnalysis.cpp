#include "VDRootMeanSquaredTimeIntervalErrorAnalysis.h"

#include <cmath>
#include <optional>
#include <utility>

#include "VDExactAutocorrelation.h"
#include "VDLaggedDifferenceSums.h"
#include "VDPhaseData.h"

const VDAnalysisClass& VDRootMeanSquaredTimeIntervalErrorAnalysis::classObject() {
  static const VDRootMeanSquaredTimeIntervalErrorAnalysisClass kClass;
  return kClass;
}

int64_t VDRootMeanSquaredTimeIntervalErrorAnalysis::largestWindowSize(int64_t sampleCount) const {
  return sampleCount < 2 ? 0 : sampleCount - 1;
}

namespace {

// sum_{i=0}^{N-m-1} (y[i+m] - y[i])^2 for every window m: y[i+m]^2 and y[i]^2 summed over their
// ranges (prefix sums of the squares) less twice the autocorrelation at lag m, all in exact
// integers, so the only rounding is the final one to double. Nothing when the autocorrelation
// cannot be had exactly.
std::optional<std::vector<double>> sumsFromAutocorrelation(const std::vector<int64_t>& y,
                                                           const VDWindowRange& windows) {
  const std::optional<std::vector<__int128>> correlation = VDExactAutocorrelation::of(y);
  if (!correlation) {
    return std::nullopt;
  }
  const size_t count = y.size();
  std::vector<__int128> squares(count + 1, 0);  // squares[k] = y[0]^2 + ... + y[k-1]^2
  for (size_t i = 0; i < count; ++i) {
    squares[i + 1] = squares[i] + static_cast<__int128>(y[i]) * y[i];
  }
  std::vector<double> sums(windows.count());
  for (uint64_t index = 0; index < windows.count(); ++index) {
    const auto m = static_cast<size_t>(windows.at(index));
    const __int128 sum = (squares[count] - squares[m]) + squares[count - m] - 2 * (*correlation)[m];
    sums[index] = static_cast<double>(sum);
  }
  return sums;
}

}  // namespace

std::vector<VDStatisticPoint> VDRootMeanSquaredTimeIntervalErrorAnalysis::evaluateWindows(
    const VDWindowRange& windows) const {
  const auto sampleCount = static_cast<int64_t>(_errors.size());
  // TIE depends on the drift, so only the offset goes.
  std::vector<int64_t> relative = VDPhaseData::relativeToFirst(_errors);
  std::optional<std::vector<double>> sums = sumsFromAutocorrelation(relative, windows);
  if (!sums) {
    const VDLaggedDifferenceSums firstDifferences(std::move(relative), 1);
    sums = firstDifferences.sumsOfSquares(windows,
                                          windowsDoneReporter(windows, [sampleCount](int64_t m) {
                                            return static_cast<double>(sampleCount - m);
                                          }));
  }
  std::vector<VDStatisticPoint> points;
  points.reserve(windows.count());
  for (uint64_t index = 0; index < windows.count(); ++index) {
    const int64_t m = windows.at(index);
    const int64_t terms = sampleCount - m;
    // TIE rms (NIST SP 1065): sqrt(sum (x[i+m] - x[i])^2 / (N-m)), in ns.
    const double value = std::sqrt((*sums)[index] / static_cast<double>(terms));
    points.push_back({m, tauOfWindow(m), value, static_cast<uint64_t>(terms)});
  }
  return points;
}
