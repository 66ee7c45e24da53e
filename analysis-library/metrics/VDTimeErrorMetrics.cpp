#include "VDTimeErrorMetrics.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "VDExactAutocorrelation.h"
#include "VDLaggedDifferenceSums.h"
#include "VDMaximumRangeSearch.h"
#include "VDPhaseData.h"
#include "VDWindowRange.h"

namespace {

constexpr double kCornerHz = 0.1;
// MTIE's range search is exact for any 64-bit integers, so it sees the values in a unit far
// below any clock's resolution (ns).
constexpr double kMTIEUnit = 1.0 / (1 << 20);

std::vector<int64_t> counts(const std::vector<double>& values, size_t first, size_t end,
                            double unit) {
  std::vector<int64_t> result;
  result.reserve(end - first);
  for (size_t i = first; i < end; ++i) {
    result.push_back(std::llround(values[i] / unit));
  }
  return result;
}

// The windows of at most largestTau, up to largestWindow.
VDWindowRange windowsUpTo(double largestTau, double tau0, int64_t largestWindow) {
  const auto last = static_cast<int64_t>(std::floor(largestTau / tau0 * (1 + 1e-12)));
  return VDWindowRange::clamped(1, last, 1, 1, largestWindow);
}

}  // namespace

VDTimeErrorMetrics::VDTimeErrorMetrics(std::vector<double> times, std::vector<double> errors,
                                       size_t settledFirst, size_t settledEnd)
    : _times(std::move(times)),
      _errors(std::move(errors)),
      _lowPassed(lowPass(_times, _errors)),
      _settledFirst(settledFirst),
      _settledEnd(settledEnd) {}

std::vector<double> VDTimeErrorMetrics::lowPass(const std::vector<double>& times,
                                                const std::vector<double>& errors) {
  std::vector<double> filtered(errors.size());
  for (size_t n = 0; n < errors.size(); ++n) {
    if (n == 0) {
      filtered[n] = errors[n];
      continue;
    }
    const double step = times[n] - times[n - 1];
    // 1 - exp(-w) without the cancellation of small w.
    const double a = -std::expm1(-2 * std::numbers::pi * kCornerHz * step);
    filtered[n] = filtered[n - 1] + a * (errors[n] - filtered[n - 1]);
  }
  return filtered;
}

double VDTimeErrorMetrics::tau0() const {
  const size_t count = _settledEnd - _settledFirst;
  return count < 2 ? 1.0 : settledDuration() / static_cast<double>(count - 1);
}

double VDTimeErrorMetrics::largestMean(int64_t count) const {
  // A sliding sum in extended precision: over a day at 16 Hz its rounding stays near 1e-15 of
  // the values.
  const auto window = static_cast<size_t>(count);
  long double sum = 0;
  double largest = 0;
  for (size_t i = _settledFirst; i < _settledEnd; ++i) {
    sum += _errors[i];
    if (i >= _settledFirst + window) {
      sum -= _errors[i - window];
    }
    if (i + 1 >= _settledFirst + window) {
      largest = std::max(largest, static_cast<double>(std::abs(sum / window)));
    }
  }
  return largest;
}

std::optional<double> VDTimeErrorMetrics::maxAbsTe(int64_t average) const {
  if (average > static_cast<int64_t>(_settledEnd - _settledFirst)) {
    return std::nullopt;
  }
  return largestMean(std::max<int64_t>(average, 1));
}

double VDTimeErrorMetrics::maxAbsTeL() const {
  double largest = 0;
  for (size_t i = _settledFirst; i < _settledEnd; ++i) {
    largest = std::max(largest, std::abs(_lowPassed[i]));
  }
  return largest;
}

double VDTimeErrorMetrics::cte() const {
  double sum = 0;
  for (size_t i = _settledFirst; i < _settledEnd; ++i) {
    sum += _errors[i];
  }
  return sum / static_cast<double>(_settledEnd - _settledFirst);
}

std::optional<double> VDTimeErrorMetrics::cteMoving(double windowSeconds) const {
  const auto count = std::max<int64_t>(1, std::llround(windowSeconds / tau0()));
  return maxAbsTe(count);
}

double VDTimeErrorMetrics::dteHPeakToPeak() const {
  double highest = -INFINITY;
  double lowest = INFINITY;
  for (size_t i = _settledFirst; i < _settledEnd; ++i) {
    const double highPassed = _errors[i] - _lowPassed[i];
    highest = std::max(highest, highPassed);
    lowest = std::min(lowest, highPassed);
  }
  return highest - lowest;
}

std::vector<VDMaskVerdict::CurvePoint> VDTimeErrorMetrics::mtie(bool ofLowPass,
                                                                double largestTau) const {
  const std::vector<int64_t> samples =
      counts(ofLowPass ? _lowPassed : _errors, _settledFirst, _settledEnd, kMTIEUnit);
  const auto count = static_cast<int64_t>(samples.size());
  const VDWindowRange windows = windowsUpTo(largestTau, tau0(), count - 1);
  std::vector<VDMaskVerdict::CurvePoint> points;
  if (windows.empty()) {
    return points;
  }
  const std::vector<uint64_t> ranges = VDMaximumRangeSearch(samples).largestRanges(windows);
  for (uint64_t index = 0; index < windows.count(); ++index) {
    points.push_back({static_cast<double>(windows.at(index)) * tau0(),
                      static_cast<double>(ranges[index]) * kMTIEUnit});
  }
  return points;
}

std::vector<VDMaskVerdict::CurvePoint> VDTimeErrorMetrics::tdev(bool ofLowPass,
                                                                double largestTau) const {
  // TDEV^2 = sum over j of (S[j+3m] - 3S[j+2m] + 3S[j+m] - S[j])^2 / (6 m^2 (N - 3m + 1)), S
  // the prefix sums of the drift-free phase (NIST SP 1065 eq. 15 with the inner sum of second
  // differences written through S). The exact transform sums need small integers: whole ns stay
  // whole, finer values are kept to the finest of 1, 10 or 100 ps for which the sums of this
  // series stay exact (a day at 16 Hz of a wander of tens of ns: 10 ps).
  const std::vector<double>& values = ofLowPass ? _lowPassed : _errors;
  const bool whole = std::all_of(values.begin() + static_cast<long>(_settledFirst),
                                 values.begin() + static_cast<long>(_settledEnd),
                                 [](double value) { return value == std::round(value); });
  double unit = whole ? 1 : 1e-3;
  std::vector<int64_t> prefixSums;
  while (true) {
    prefixSums = VDPhaseData::prefixSums(
        VDPhaseData::withoutDrift(counts(values, _settledFirst, _settledEnd, unit)));
    if (unit >= 0.1 || VDExactAutocorrelation::holdsEverySum(prefixSums)) {
      break;
    }
    unit *= 10;
  }
  const auto count = static_cast<int64_t>(_settledEnd - _settledFirst);
  const VDWindowRange windows = windowsUpTo(largestTau, tau0(), count / 3);
  std::vector<VDMaskVerdict::CurvePoint> points;
  if (windows.empty()) {
    return points;
  }
  const std::vector<double> totals =
      VDLaggedDifferenceSums(std::move(prefixSums), 3).sumsOfSquares(windows, {});
  for (uint64_t index = 0; index < windows.count(); ++index) {
    const auto m = static_cast<double>(windows.at(index));
    const double terms = static_cast<double>(count) - 3 * m + 1;
    points.push_back({m * tau0(), std::sqrt(totals[index] / (6 * m * m * terms)) * unit});
  }
  return points;
}
