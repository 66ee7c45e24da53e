// Noise identification, EDF and 68.3 % bounds of ADEV, MDEV and TDEV against published results
// on PHASE.DAT and against plain loops written here from the papers (Riley & Greenhall 2004 lag-1
// autocorrelation; NIST SP 1065 5.6 B1 and R(n); Greenhall & Riley 2003 EDF, every sum direct;
// chi-square quantiles from Boost). Alpha exact; EDF 2e-5 (the library tabulates the 100-term
// sum); bounds 1e-5.

#include <gtest/gtest.h>

#include <boost/math/distributions/chi_squared.hpp>
#include <numeric>

#include "TestSupport.h"
#include "VDConfidenceInterval.h"
#include "VDEquivalentDegreesOfFreedom.h"
#include "VDNoiseIdentification.h"

namespace {

using Variance = VDEquivalentDegreesOfFreedom::Variance;
using TestSupport::Statistic;
using TestSupport::timeErrorValues;

double mean(const std::vector<double>& series) {
  return std::accumulate(series.begin(), series.end(), 0.0) / static_cast<double>(series.size());
}

// Phase with the mean frequency removed as the library does (integer slope), as doubles.
std::vector<double> driftFree(const std::vector<int64_t>& errors) {
  std::vector<double> phase;
  const auto n = static_cast<int64_t>(errors.size());
  const int64_t slope = n < 2 ? 0
                              : std::llround(static_cast<double>(errors.back() - errors.front()) /
                                             static_cast<double>(n - 1));
  for (int64_t i = 0; i < n; ++i) {
    phase.push_back(static_cast<double>(errors[i] - errors[0] - slope * i));
  }
  return phase;
}

int lagOneAlpha(std::vector<double> z) {
  for (int d = 0;; ++d) {
    const double mu = mean(z);
    double numerator = 0, denominator = 0;
    for (size_t i = 0; i < z.size(); ++i) {
      denominator += (z[i] - mu) * (z[i] - mu);
      if (i + 1 < z.size()) {
        numerator += (z[i] - mu) * (z[i + 1] - mu);
      }
    }
    const double r1 = denominator > 0 ? numerator / denominator : 0;
    const double delta = r1 / (1 + r1);
    if (delta < 0.25 || d == 2) {
      return std::clamp(2 - 2 * d - static_cast<int>(std::lround(2 * delta)), -2, 2);
    }
    std::adjacent_difference(z.begin(), z.end(), z.begin());
    z.erase(z.begin());
  }
}

double b1Expected(double n, int mu) {
  return mu == 0 ? n * std::log(n) / (2 * (n - 1) * std::log(2.0))
                 : n * (1 - std::pow(n, mu)) / (2 * (n - 1) * (1 - std::pow(2.0, mu)));
}

// The mean square of v's second differences at lag over every stride-th start (NaN for none).
double meanSquaredSecondDifference(const std::vector<double>& v, size_t lag, size_t stride) {
  double sum = 0;
  int count = 0;
  for (size_t i = 0; i + 2 * lag < v.size(); i += stride, ++count) {
    const double d = v[i + 2 * lag] - 2 * v[i + lag] + v[i];
    sum += d * d;
  }
  return sum / count;
}

int biasRatioAlpha(const std::vector<double>& x, int64_t m, const std::vector<double>& z) {
  // Averages over whole windows, plus the last shorter one when it spans half a window.
  std::vector<double> y;
  for (size_t k = 0; k + 1 < z.size(); ++k) {
    y.push_back((z[k + 1] - z[k]) / static_cast<double>(m));
  }
  const size_t rest = x.size() - 1 - (z.size() - 1) * m;
  if (2 * rest >= static_cast<size_t>(m)) {
    y.push_back((x.back() - z.back()) / static_cast<double>(rest));
  }
  const double ybar = mean(y);
  double variance = 0;
  for (double value : y) {
    variance += (value - ybar) * (value - ybar);
  }
  variance /= static_cast<double>(y.size() - 1);
  // Overlapping Allan variance from every ceil(m/16)-th start.
  const double allan = meanSquaredSecondDifference(x, m, (m + 15) / 16) /
                       (2.0 * static_cast<double>(m) * static_cast<double>(m));
  if (!(allan > 0)) {
    return 2;
  }
  const double b1 = variance / allan;
  const double n = static_cast<double>(y.size());
  const int mus[] = {-2, -1, 0, 1};
  int chosen = 3;
  for (int i = 0; i < 3; ++i) {
    if (b1 < std::sqrt(b1Expected(n, mus[i]) * b1Expected(n, mus[i + 1]))) {
      chosen = i;
      break;
    }
  }
  if (chosen > 0) {
    return 1 - chosen;
  }
  // R(n): non-overlapping modified over Allan variance, the averages summed directly.
  double modified = 0;
  int terms = 0;
  for (size_t j = 0; j + 3 * m <= x.size(); j += m, ++terms) {
    double inner = 0;
    for (int64_t i = 0; i < m; ++i) {
      inner += x[j + i + 2 * m] - 2 * x[j + i + m] + x[j + i];
    }
    modified += (inner / m) * (inner / m);
  }
  const double second = meanSquaredSecondDifference(z, 1, 1);
  if (terms == 0 || !(second > 0)) {
    return 2;
  }
  const double r = (modified / terms) / second;
  const double md = static_cast<double>(m);
  const double flicker = 3 * std::log(256.0 / 27.0) / (2 * (1.038 + 3 * std::log(M_PI * md)));
  return r < std::sqrt(flicker / md) ? 2 : 1;
}

int referenceAlpha(const std::vector<double>& x, int64_t m) {
  std::vector<double> z;
  for (size_t i = 0; i < x.size(); i += m) {
    z.push_back(x[i]);
  }
  if (z.size() >= 30) {
    return lagOneAlpha(z);
  }
  if (z.size() >= 4) {
    return biasRatioAlpha(x, m, z);
  }
  return x.size() < 4 ? 0 : referenceAlpha(x, (static_cast<int64_t>(x.size()) - 1) / 3);
}

// Greenhall & Riley 2003, eqs. 7-13, d = 2, evaluated directly in long double.
using Real = long double;
Real sw(Real t, int alpha) {
  const Real a = std::fabs(t);
  if (alpha == 2) return -a;
  if (alpha == 1) return a == 0 ? 0 : a * a * std::log(a);
  if (alpha == 0) return a * a * a;
  if (alpha == -1) return a == 0 ? 0 : a * a * a * a * std::log(a);
  return a * a * a * a * a;
}
Real sx(Real t, Real f, int alpha) {
  if (std::isinf(f)) return sw(t, alpha + 2);
  return f * f * (2 * sw(t, alpha) - sw(t - 1 / f, alpha) - sw(t + 1 / f, alpha));
}
Real sz(Real t, Real f, int alpha) {
  return 6 * sx(t, f, alpha) - 4 * sx(t - 1, f, alpha) - 4 * sx(t + 1, f, alpha) +
         sx(t - 2, f, alpha) + sx(t + 2, f, alpha);
}
Real basic(Real J, Real M, Real S, Real F, int alpha) {
  Real sum = sz(0, F, alpha) * sz(0, F, alpha) + (1 - J / M) * std::pow(sz(J / S, F, alpha), 2);
  for (int j = 1; j < J; ++j) {
    sum += 2 * (1 - j / M) * std::pow(sz(j / S, F, alpha), 2);
  }
  return sum;
}

double referenceEdf(bool modified, int alpha, int64_t m, int64_t N) {
  const Real inf = std::numeric_limits<Real>::infinity();
  const Real F = modified ? 1 : m;
  const Real S = m;
  const Real L = m / F + 2 * m;
  const Real M = 1 + std::floor(S * (N - L) / m);
  const Real J = std::min(M, 3 * S);
  const Real r = M / S;
  const double a1Table[5][2] = {
      {7.0 / 9, 0.5}, {0.997, 0.616}, {1.033, 0.607}, {1.048, 0.534}, {1.302, 0.535}};
  const double a2Table[5][2] = {
      {35.0 / 18, 1.0}, {790, 410}, {2.0 / 3, 1.0 / 3}, {0.852, 0.375}, {1.079, 0.368}};
  // Cases 1-3: the sum directly up to 100 terms, beyond that tabulated (r > 3) or taken at 100
  // terms (r <= 3); the Allan variance of flicker FM then normalised by b.
  const bool flickerAllan = !modified && alpha == 1;
  const Real b = std::pow(15.23 + 12.0 * std::log(Real(m)), 2);
  const auto direct = [&](Real j, Real terms, Real s, Real f, bool byB) {
    return basic(j, terms, s, f, alpha) / ((byB ? b : std::pow(sz(0, f, alpha), 2)) * terms);
  };
  const double* table = (modified ? a1Table : a2Table)[2 - alpha];
  Real inverse = 0;
  if (!modified && alpha == 2 && std::ceil(r) > 2) {
    inverse = (35.0L / 18 - 1 / r) / M;  // case 4, K > d
  } else if (!modified && alpha == 2) {
    // Case 4, K <= d: independent samples, correlations -2/3 at lag m and 1/6 at lag 2m.
    inverse =
        (M + 2 * (std::max<Real>(0, M - m) * 4 / 9 + std::max<Real>(0, M - 2 * m) / 36)) / (M * M);
  } else if (J <= 100) {
    inverse = direct(J, M, S, modified ? 1 : alpha == 1 || m * 3 <= 100 ? Real(m) : inf, false);
  } else if (r > 3) {
    inverse = (table[0] - table[1] / r) / r / (flickerAllan ? b : 1);
  } else {
    inverse = direct(100, 100, 100 / r, modified ? 1 : alpha == 1 ? 100 / r : inf, flickerAllan);
  }
  return static_cast<double>(1 / inverse);
}

// Checks every point of an analysis against the reference.
void expectMatchesReference(const VDStatisticAnalysis& analysis, const std::vector<int64_t>& errors,
                            bool modified) {
  const std::vector<double> phase = driftFree(errors);
  const auto n = static_cast<int64_t>(errors.size());
  ASSERT_FALSE(analysis.points().empty());
  for (const VDStatisticPoint& point : analysis.points()) {
    const int alpha = referenceAlpha(phase, point.windowSize);
    ASSERT_EQ(point.alpha, alpha) << "window " << point.windowSize;
    const double edf = referenceEdf(modified, alpha, point.windowSize, n);
    ASSERT_NEAR(point.edf / edf, 1.0, 2e-5) << "window " << point.windowSize << " alpha " << alpha;
    const boost::math::chi_squared_distribution<double> chi(point.edf);
    const double low = point.value * std::sqrt(point.edf / quantile(chi, (1 + 0.683) / 2));
    const double high = point.value * std::sqrt(point.edf / quantile(chi, (1 - 0.683) / 2));
    ASSERT_NEAR(point.minimum, low, 1e-5 * low) << point.windowSize;
    ASSERT_NEAR(point.maximum, high, 1e-5 * high) << point.windowSize;
  }
}

// Phase with S_x(f) ~ f^(alpha-2), alpha = 2..-2, from white noise through the fractional
// integration filter of N. J. Kasdin and T. Walter (1992), fixed seed.
std::vector<int64_t> powerLawPhase(int alpha, int count, uint64_t seed) {
  std::mt19937_64 generator(seed);
  std::normal_distribution<double> gauss(0.0, 1.0);
  const double exponent = 2.0 - alpha;  // phase spectrum f^-exponent
  std::vector<double> white(count);
  std::generate(white.begin(), white.end(), [&] { return gauss(generator); });
  std::vector<double> coefficients(count);
  coefficients[0] = 1;
  for (int k = 1; k < count; ++k) {
    coefficients[k] = coefficients[k - 1] * (exponent / 2 + k - 1) / k;
  }
  std::vector<int64_t> phase(count);
  for (int i = 0; i < count; ++i) {
    double sum = 0;
    for (int k = 0; k <= i; ++k) {
      sum += coefficients[k] * white[i - k];
    }
    phase[i] = std::llround(1000.0 * sum);
  }
  return phase;
}

TEST(AnalysisConfidence, PublishedResultsOnPhaseDat) {
  std::ifstream file(TestSupport::sourceDir() / "tests" / "data" / "PHASE.DAT");
  std::vector<int64_t> errors;
  double value = 0;
  while (file >> value) {
    errors.push_back(std::llround(value * 1e9));  // ADEV then comes out in the file's unit
  }
  ASSERT_EQ(errors.size(), 1001u);
  VDAllanDeviationAnalysis adev(timeErrorValues(errors));
  adev.performAnalysisFromStartWindowSize(1, INT64_MAX, 1);
  const std::vector<TestSupport::PublishedAdev> published = TestSupport::publishedPhaseDatAdev();
  ASSERT_EQ(published.size(), 7u);
  for (const auto& row : published) {
    const VDStatisticPoint& point = adev.points()[row.window - 1];
    ASSERT_EQ(point.windowSize, row.window);
    EXPECT_NEAR(point.value, row.sigma, 1e-4 * row.sigma) << row.window;
    EXPECT_EQ(point.alpha, row.alpha) << row.window;
    EXPECT_NEAR(point.minimum, row.low, 0.01 * row.low) << row.window;
    EXPECT_NEAR(point.maximum, row.high, 0.01 * row.high) << row.window;
  }
  expectMatchesReference(adev, errors, false);
}

TEST(AnalysisConfidence, FiveNoiseTypesAgainstThePlainLoops) {
  for (int alpha = 2; alpha >= -2; --alpha) {
    SCOPED_TRACE("generated alpha " + std::to_string(alpha));
    const std::vector<int64_t> errors = powerLawPhase(alpha, 4096, 1000 + alpha);
    for (const Statistic statistic : {Statistic::ADEV, Statistic::MDEV, Statistic::TDEV}) {
      const auto analysis = TestSupport::analysisOf(statistic, timeErrorValues(errors));
      analysis->performAnalysisFromStartWindowSize(1, INT64_MAX, 1);
      // A long series identifies its own noise type at short windows.
      for (int64_t window : {1, 2, 4, 8}) {
        EXPECT_EQ(analysis->points()[window - 1].alpha, alpha) << "window " << window;
      }
      expectMatchesReference(*analysis, errors, statistic != Statistic::ADEV);
    }
  }
  // Flicker FM under a steady frequency drift: its second differences' mean is far from zero.
  std::vector<int64_t> drifting = powerLawPhase(-1, 4096, 999);
  for (size_t k = 0; k < drifting.size(); ++k) {
    drifting[k] += static_cast<int64_t>(k * k);
  }
  VDAllanDeviationAnalysis adev(timeErrorValues(drifting));
  adev.performAnalysisFromStartWindowSize(1, INT64_MAX, 1);
  expectMatchesReference(adev, drifting, false);
}

TEST(AnalysisConfidence, TablesAgreeWithTheDirectEvaluation) {
  // The EDF tables over r <= 3 for every noise type and both variances, and the interpolated
  // chi-square factors, against their direct evaluation.
  const int64_t n = 1000003;
  for (int alpha = 2; alpha >= -2; --alpha) {
    for (const Variance variance : {Variance::kOverlappingAllan, Variance::kModifiedAllan}) {
      const int64_t last = variance == Variance::kModifiedAllan ? n / 3 : (n - 1) / 2;
      for (int64_t m = last / 5; m <= last; m += 7919) {
        const double direct = VDEquivalentDegreesOfFreedom::direct(variance, alpha, m, n);
        EXPECT_NEAR(VDEquivalentDegreesOfFreedom::of(variance, alpha, m, n) / direct, 1.0, 2e-5)
            << alpha << " " << m;
      }
    }
  }
  for (double edf = 0.3; edf < 1e8; edf *= 1.0173) {
    const VDConfidenceInterval table = VDConfidenceInterval::forDegreesOfFreedom(edf);
    const VDConfidenceInterval exact = VDConfidenceInterval::exactForDegreesOfFreedom(edf);
    ASSERT_NEAR(table.lowerFactor / exact.lowerFactor, 1.0, 1e-7) << edf;
    ASSERT_NEAR(table.upperFactor / exact.upperFactor, 1.0, 1e-7) << edf;
  }
}

TEST(AnalysisConfidence, DegenerateSeriesGiveFiniteNumbers) {
  TestSupport::TempDir dir;
  std::vector<int64_t> ramp;
  for (int i = 0; i < 50; ++i) {
    ramp.push_back(-5 + 250 * i);
  }
  for (const std::vector<int64_t>& errors : std::vector<std::vector<int64_t>>{
           ramp, std::vector<int64_t>(50, 777), {1, 2, 3}, {5}, {}, {4, 9, 2, 7}}) {
    for (const auto statistic : {Statistic::ADEV, Statistic::MDEV, Statistic::TDEV}) {
      const auto analysis = TestSupport::analysisOf(statistic, timeErrorValues(errors));
      analysis->performAnalysisFromStartWindowSize(1, INT64_MAX, 1);
      for (const VDStatisticPoint& point : analysis->points()) {
        EXPECT_TRUE(std::isfinite(point.edf) && point.edf > 0) << point.windowSize;
        EXPECT_TRUE(std::isfinite(point.minimum) && std::isfinite(point.maximum));
        EXPECT_TRUE(point.minimum <= point.value && point.value <= point.maximum);
        // No noise, no uncertainty.
        EXPECT_TRUE(point.value != 0 || (point.minimum == 0 && point.maximum == 0));
      }
      ASSERT_TRUE(analysis->exportAnalysisToDirectoryURL(dir.path(), "s.csv", 1, INT64_MAX, 1));
      const std::string text = TestSupport::readFile(dir / "s.csv");
      EXPECT_TRUE(text.find("nan") == std::string::npos && text.find("inf") == std::string::npos)
          << text;
    }
  }
}

// The one-week caesium clock against hydrogen maser recording (ps), when VDP_REFERENCE_DATA names
// its directory: windows across the whole range, the last ones (fewest terms) included.
TEST(AnalysisConfidence, OneWeekRecordingAgainstThePlainLoops) {
  const char* directory = std::getenv("VDP_REFERENCE_DATA");
  const std::string path =
      std::string(directory == nullptr ? "" : directory) + "/cs-clock-vs-maser-1pps-phase.txt.gz";
  if (directory == nullptr || !std::filesystem::exists(path)) {
    GTEST_SKIP() << "VDP_REFERENCE_DATA names no directory holding the one-week recording";
  }
  std::istringstream lines(TestSupport::shell("gzip -dc '" + path + "'").out);
  std::vector<int64_t> errors;
  for (std::string line; std::getline(lines, line);) {
    if (line[0] != '#') {
      errors.push_back(std::llround(std::strtod(line.c_str(), nullptr) * 1e12));
    }
  }
  ASSERT_EQ(errors.size(), 556990u);
  VDAllanDeviationAnalysis adev(timeErrorValues(errors));
  VDModifiedAllanDeviationAnalysis mdev(timeErrorValues(errors));
  for (const auto& [analysis, start, modified] :
       {std::tuple<VDStatisticAnalysis*, int64_t, bool>{&adev, 278400, false},
        {&mdev, 185600, true}}) {
    analysis->performAnalysisFromStartWindowSize(1, INT64_MAX, 9973);
    expectMatchesReference(*analysis, errors, modified);
    analysis->performAnalysisFromStartWindowSize(start, INT64_MAX, 1);
    expectMatchesReference(*analysis, errors, modified);
  }
}

}  // namespace
