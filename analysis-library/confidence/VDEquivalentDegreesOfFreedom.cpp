#include "VDEquivalentDegreesOfFreedom.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <mutex>

#include "VDUniformTable.h"

namespace {

using Variance = VDEquivalentDegreesOfFreedom::Variance;

constexpr int kOrder = 2;             // d: second differences
constexpr int64_t kLongestSum = 100;  // J_max of the paper
constexpr double kInfinite = std::numeric_limits<double>::infinity();

// The direct sums run in long double: with F = m up to 1e6 the second differences of eq. 8
// need the digits. The tables (F = 1, infinite, or at most 6400) are built in double.

// Eq. 7: the generalised autocovariance of the phase for noise exponent alpha.
template <typename Real>
Real sw(Real t, int alpha) {
  const Real a = std::fabs(t);
  switch (alpha) {
    case 2:
      return -a;
    case 1:
      return a == 0 ? 0 : a * a * std::log(a);
    case 0:
      return a * a * a;
    case -1:
      return a == 0 ? 0 : a * a * a * a * std::log(a);
    default:  // -2
      return a * a * a * a * a;
  }
}

// Eq. 8: after the filter of factor F (infinite: the limit F -> infinity).
template <typename Real>
Real sx(Real t, double filter, int alpha) {
  if (std::isinf(filter)) {
    return sw(t, alpha + 2);
  }
  const Real f = filter;
  return f * f * (2 * sw(t, alpha) - sw(t - 1 / f, alpha) - sw(t + 1 / f, alpha));
}

// Eq. 9 with d = 2: after the second difference.
template <typename Real>
Real sz(Real t, double filter, int alpha) {
  return 6 * sx(t, filter, alpha) - 4 * sx(t - 1, filter, alpha) - 4 * sx(t + 1, filter, alpha) +
         sx(t - 2, filter, alpha) + sx(t + 2, filter, alpha);
}

// Eq. 10: the basic sum over lags j of the squared covariances of the terms.
template <typename Real>
Real basicSum(int64_t longest, Real terms, Real stride, double filter, int alpha) {
  const Real first = sz<Real>(0, filter, alpha);
  const Real last = sz<Real>(static_cast<Real>(longest) / stride, filter, alpha);
  Real sum = first * first + (1 - static_cast<Real>(longest) / terms) * last * last;
  for (int64_t j = 1; j < longest; ++j) {
    const Real value = sz<Real>(static_cast<Real>(j) / stride, filter, alpha);
    sum += 2 * (1 - static_cast<Real>(j) / terms) * value * value;
  }
  return sum;
}

// Eq. 13: 1/EDF from the basic sum over J lags of M terms.
template <typename Real>
Real inverseFromSum(int64_t longest, Real terms, Real stride, double filter, int alpha) {
  const Real first = sz<Real>(0, filter, alpha);
  return basicSum<Real>(longest, terms, stride, filter, alpha) / (first * first * terms);
}

// Tables 1 and 2 of the paper, d = 2, alpha = 2 .. -2: (a0, a1) of 1/EDF = (a0 - a1/r) / r.
constexpr std::array<std::array<double, 2>, 5> kModifiedCoefficients = {
    {{7.0 / 9.0, 1.0 / 2.0}, {0.997, 0.616}, {1.033, 0.607}, {1.048, 0.534}, {1.302, 0.535}}};
constexpr std::array<std::array<double, 2>, 5> kAllanCoefficients = {
    {{35.0 / 18.0, 1.0}, {790.0, 410.0}, {2.0 / 3.0, 1.0 / 3.0}, {0.852, 0.375}, {1.079, 0.368}}};
// Table 3, d = 2: flicker PM's factor (b0 + b1 ln m) for the Allan variance.
constexpr double kFlickerB0 = 15.23;
constexpr double kFlickerB1 = 12.0;

double flickerFactor(int64_t window) {
  const double factor = kFlickerB0 + kFlickerB1 * std::log(static_cast<double>(window));
  return factor * factor;
}

// The paper's 100-term approximation for r <= d + 1 (cases 1.3, 2.3, 3.3), as 1/EDF (for
// flicker PM and the Allan variance without the factor (b0 + b1 ln m)^2).
template <typename Real>
double longSumInverse(Variance variance, int alpha, double ratio) {
  const Real stride = static_cast<Real>(kLongestSum) / ratio;  // m' = J_max / r
  const Real terms = kLongestSum;
  if (variance == Variance::kModifiedAllan) {
    return static_cast<double>(inverseFromSum<Real>(kLongestSum, terms, stride, 1, alpha));
  }
  if (alpha == 1) {
    const double filter = static_cast<double>(stride);
    return static_cast<double>(basicSum<Real>(kLongestSum, terms, stride, filter, alpha) / terms);
  }
  return static_cast<double>(inverseFromSum<Real>(kLongestSum, terms, stride, kInfinite, alpha));
}

// The tables of longSumInverse over r in [kTableStart, d + 1]; below it, directly.
constexpr double kTableStart = 1.0 / 64.0;
constexpr int kTableIntervals = 1536;

double tabulatedLongSumInverse(Variance variance, int alpha, double ratio) {
  static std::once_flag built[2][5];
  static std::unique_ptr<VDUniformTable> tables[2][5];
  const int kind = variance == Variance::kModifiedAllan ? 1 : 0;
  const int row = 2 - alpha;
  std::call_once(built[kind][row], [&] {
    tables[kind][row] = std::make_unique<VDUniformTable>(
        kTableStart, kOrder + 1.0, kTableIntervals,
        [&](double r) { return longSumInverse<double>(variance, alpha, r); });
  });
  return (*tables[kind][row])(ratio);
}

// White PM and the Allan variance: the second differences of independent samples correlate
// only at lags m and 2m (coefficients -2/3 and 1/6), so
// 1/EDF = (M + 2 sum_k max(0, M - k m) rho_k^2) / M^2 exactly.
double whitePhaseAllanEDF(int64_t window, int64_t terms) {
  const auto m = static_cast<double>(terms);
  const double lagOne = std::max<int64_t>(0, terms - window);
  const double lagTwo = std::max<int64_t>(0, terms - 2 * window);
  const double inverse = (m + 2 * (lagOne * 4.0 / 9.0 + lagTwo / 36.0)) / (m * m);
  return 1.0 / inverse;
}

double equivalentDegreesOfFreedom(Variance variance, int alpha, int64_t window, int64_t sampleCount,
                                  bool useTables) {
  alpha = std::clamp(alpha, -2, 2);
  const bool modified = variance == Variance::kModifiedAllan;
  // Filter length L = m/F + m d, terms M = 1 + floor(S (N - L) / m) with S = m, J = min(M,(d+1)S).
  const int64_t terms = modified ? sampleCount - 3 * window + 1 : sampleCount - 2 * window;
  if (terms < 1 || window < 1) {
    return 1.0;
  }
  if (!modified && alpha == 2) {
    return whitePhaseAllanEDF(window, terms);
  }
  const int64_t longest = std::min(terms, (kOrder + 1) * window);
  using Real = long double;
  const auto stride = static_cast<Real>(window);
  const double ratio = static_cast<double>(terms) / static_cast<double>(window);
  double inverse = 0;
  if (longest <= kLongestSum) {
    // Cases 1.1, 2.1, 3.1: the sum over all J lags.
    double filter = modified ? 1.0 : static_cast<double>(window);
    if (!modified && alpha <= 0 && (kOrder + 1) * window > kLongestSum) {
      filter = kInfinite;
    }
    inverse = static_cast<double>(inverseFromSum<Real>(longest, terms, stride, filter, alpha));
  } else if (ratio > kOrder + 1) {
    // Cases 1.2, 2.2, 3.2: the fitted coefficients.
    const auto& [a0, a1] = (modified ? kModifiedCoefficients : kAllanCoefficients)[2 - alpha];
    inverse = (a0 - a1 / ratio) / ratio;
    if (!modified && alpha == 1) {
      inverse /= flickerFactor(window);
    }
  } else {
    // Cases 1.3, 2.3, 3.3.
    inverse = useTables && ratio >= kTableStart ? tabulatedLongSumInverse(variance, alpha, ratio)
                                                : longSumInverse<Real>(variance, alpha, ratio);
    if (!modified && alpha == 1) {
      inverse /= flickerFactor(window);
    }
  }
  const double edf = 1.0 / inverse;
  // The formulas give a positive, finite EDF; a term count is the fallback should rounding not.
  return std::isfinite(edf) && edf > 0 ? edf : static_cast<double>(terms);
}

}  // namespace

double VDEquivalentDegreesOfFreedom::of(Variance variance, int alpha, int64_t window,
                                        int64_t sampleCount) {
  return equivalentDegreesOfFreedom(variance, alpha, window, sampleCount, true);
}

double VDEquivalentDegreesOfFreedom::direct(Variance variance, int alpha, int64_t window,
                                            int64_t sampleCount) {
  return equivalentDegreesOfFreedom(variance, alpha, window, sampleCount, false);
}
