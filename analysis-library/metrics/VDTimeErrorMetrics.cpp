#include "VDTimeErrorMetrics.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "VDMaximumTimeIntervalErrorAnalysis.h"
#include "VDTimeDeviationAnalysis.h"

namespace {

constexpr double kCornerHz = 0.1;
// The integer units the library's statistics see, in ns: MTIE's range search is exact for any
// 64-bit values, so it gets a unit far below any clock's resolution; TDEV's exact sums stay on
// their fast path for picoseconds.
constexpr double kMTIEUnit = 1.0 / (1 << 20);
constexpr double kTDEVUnit = 1e-3;

std::vector<VDTimeErrorValue> integerSeries(const std::vector<double>& times,
                                            const std::vector<double>& values, size_t first,
                                            size_t end, double unit) {
  std::vector<VDTimeErrorValue> series;
  series.reserve(end - first);
  for (size_t i = first; i < end; ++i) {
    series.emplace_back(static_cast<uint64_t>(std::llround((times[i] - times[first]) * 1e9)),
                        std::llround(values[i] / unit));
  }
  return series;
}

std::vector<VDMaskVerdict::CurvePoint> curve(VDStatisticAnalysis& analysis, double tau0,
                                             double largestTau, double unit) {
  const auto largestWindow = static_cast<int64_t>(std::floor(largestTau / tau0 * (1 + 1e-12)));
  std::vector<VDMaskVerdict::CurvePoint> points;
  if (largestWindow < 1) {
    return points;
  }
  analysis.performAnalysisFromStartWindowSize(1, largestWindow, 1);
  for (const VDStatisticPoint& point : analysis.points()) {
    points.push_back({point.tau, point.value * unit});
  }
  return points;
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
  VDMaximumTimeIntervalErrorAnalysis analysis(integerSeries(
      _times, ofLowPass ? _lowPassed : _errors, _settledFirst, _settledEnd, kMTIEUnit));
  return curve(analysis, tau0(), largestTau, kMTIEUnit);
}

std::vector<VDMaskVerdict::CurvePoint> VDTimeErrorMetrics::tdev(bool ofLowPass,
                                                                double largestTau) const {
  VDTimeDeviationAnalysis analysis(integerSeries(_times, ofLowPass ? _lowPassed : _errors,
                                                 _settledFirst, _settledEnd, kTDEVUnit));
  return curve(analysis, tau0(), largestTau, kTDEVUnit);
}
