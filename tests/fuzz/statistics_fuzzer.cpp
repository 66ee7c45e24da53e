// The five statistics on a short arbitrary series with arbitrary window ranges, checked against
// the textbook formulas evaluated directly (NIST SP 1065; README "Statistics"): which windows
// are evaluated, their tau and term counts always, and their values when the time errors are
// small enough (|x| <= 2^40 ns) for the direct sums in long double to be a reference.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "VDAllanDeviationAnalysis.h"
#include "VDMaximumTimeIntervalErrorAnalysis.h"
#include "VDModifiedAllanDeviationAnalysis.h"
#include "VDRootMeanSquaredTimeIntervalErrorAnalysis.h"
#include "VDTimeDeviationAnalysis.h"

namespace {

enum class Statistic { ADEV, MDEV, TDEV, RMSTIE, MTIE };

struct Expected {
  long double value;
  uint64_t terms;
};

int64_t largestWindow(Statistic statistic, int64_t n) {
  switch (statistic) {
    case Statistic::ADEV:
      return (n - 1) / 2;
    case Statistic::MDEV:
    case Statistic::TDEV:
      return n / 3;
    case Statistic::RMSTIE:
    case Statistic::MTIE:
      return n - 1;
  }
  return 0;
}

// The statistic for window m in ns (the deviations ADEV and MDEV still to be divided by tau).
Expected reference(Statistic statistic, const std::vector<int64_t>& x, int64_t m) {
  const auto n = static_cast<int64_t>(x.size());
  const auto secondDifference = [&](int64_t i) {
    return static_cast<long double>(x[i + 2 * m]) - 2.0L * x[i + m] + x[i];
  };
  long double sum = 0;
  switch (statistic) {
    case Statistic::ADEV:
      for (int64_t i = 0; i + 2 * m < n; ++i) {
        sum += secondDifference(i) * secondDifference(i);
      }
      return {std::sqrt(sum / (2.0L * (n - 2 * m))), static_cast<uint64_t>(n - 2 * m)};
    case Statistic::MDEV:
    case Statistic::TDEV: {
      for (int64_t j = 0; j + 3 * m <= n; ++j) {
        long double inner = 0;
        for (int64_t i = j; i < j + m; ++i) {
          inner += secondDifference(i);
        }
        sum += inner * inner;
      }
      const long double terms = n - 3 * m + 1;
      const long double divisor = statistic == Statistic::MDEV ? 2.0L : 6.0L;
      return {std::sqrt(sum / (divisor * m * m * terms)), static_cast<uint64_t>(terms)};
    }
    case Statistic::RMSTIE:
      for (int64_t i = 0; i + m < n; ++i) {
        const long double d = static_cast<long double>(x[i + m]) - x[i];
        sum += d * d;
      }
      return {std::sqrt(sum / (n - m)), static_cast<uint64_t>(n - m)};
    case Statistic::MTIE: {
      long double widest = 0;
      for (int64_t i = 0; i + m < n; ++i) {
        const auto [low, high] = std::minmax_element(x.begin() + i, x.begin() + i + m + 1);
        widest = std::max(widest, static_cast<long double>(*high) - *low);
      }
      return {widest, static_cast<uint64_t>(n - m)};
    }
  }
  return {0, 0};
}

std::unique_ptr<VDStatisticAnalysis> analysisOf(Statistic statistic,
                                                const std::vector<VDTimeErrorValue>& values) {
  switch (statistic) {
    case Statistic::ADEV:
      return std::make_unique<VDAllanDeviationAnalysis>(values);
    case Statistic::MDEV:
      return std::make_unique<VDModifiedAllanDeviationAnalysis>(values);
    case Statistic::TDEV:
      return std::make_unique<VDTimeDeviationAnalysis>(values);
    case Statistic::RMSTIE:
      return std::make_unique<VDRootMeanSquaredTimeIntervalErrorAnalysis>(values);
    case Statistic::MTIE:
      return std::make_unique<VDMaximumTimeIntervalErrorAnalysis>(values);
  }
  return nullptr;
}

void check(bool condition) {
  if (!condition) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const auto start = input.ConsumeIntegral<int64_t>();
  const auto end = input.ConsumeIntegral<int64_t>();
  const auto step = input.ConsumeIntegral<int64_t>();
  // Small errors most of the time, so that the values are checked as well as the windows.
  const bool small = input.ConsumeBool();
  std::vector<VDTimeErrorValue> values;
  std::vector<int64_t> errors;
  const size_t count = input.ConsumeIntegralInRange<size_t>(0, 48);
  for (size_t i = 0; i < count && input.remaining_bytes() > 0; ++i) {
    const auto timestamp = input.ConsumeIntegral<uint64_t>();
    const auto error =
        small ? input.ConsumeIntegralInRange<int64_t>(-(int64_t{1} << 40), int64_t{1} << 40)
              : input.ConsumeIntegral<int64_t>();
    values.emplace_back(timestamp, error);
    errors.push_back(error);
  }
  const auto n = static_cast<int64_t>(values.size());
  double tau0 = 1.0;
  if (n >= 2) {
    const auto span = static_cast<int64_t>(values.back().timestamp() - values.front().timestamp());
    tau0 = span > 0 ? static_cast<double>(span) * 1e-9 / static_cast<double>(n - 1) : 1.0;
  }
  long double largestError = 0;
  for (int64_t e : errors) {
    largestError = std::max(largestError, std::fabs(static_cast<long double>(e)));
  }

  for (Statistic statistic :
       {Statistic::ADEV, Statistic::MDEV, Statistic::TDEV, Statistic::RMSTIE, Statistic::MTIE}) {
    const std::unique_ptr<VDStatisticAnalysis> analysis = analysisOf(statistic, values);
    analysis->performAnalysisFromStartWindowSize(start, end, step);
    const std::vector<VDStatisticPoint>& points = analysis->points();
    // Every window 1..largest that the range start, start+step, ... up to end names, in order.
    std::vector<int64_t> windows;
    for (int64_t m = 1; m <= largestWindow(statistic, n) && step >= 1; ++m) {
      const __int128 offset = static_cast<__int128>(m) - start;
      if (m <= end && offset >= 0 && offset % step == 0) {
        windows.push_back(m);
      }
    }
    check(points.size() == windows.size());
    for (size_t k = 0; k < points.size(); ++k) {
      const VDStatisticPoint& point = points[k];
      const int64_t m = windows[k];
      check(point.windowSize == m);
      check(point.tau == static_cast<double>(m) * tau0);
      const Expected expected = reference(statistic, errors, m);
      check(point.termCount == expected.terms);
      check(point.value >= 0 && std::isfinite(point.value));
      if (!small) {
        continue;
      }
      long double want = expected.value;
      long double scale = 4 * largestError;
      if (statistic == Statistic::ADEV || statistic == Statistic::MDEV) {
        want = want * 1e-9L / point.tau;
        scale = scale * 1e-9L / point.tau;
      }
      check(std::fabs(point.value - want) <= 1e-9L * (want + scale));
    }
  }
  return 0;
}
