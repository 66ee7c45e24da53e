// The five statistics against plain-loop references written from their textbook definitions
// (NIST SP 1065 eq. 11, 14 and 15; TIE rms; MTIE), on several kinds of noise. Tolerance: 1e-9
// relative for the deviations and RMS TIE, exact for MTIE (a difference of integers).

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "VDAllanDeviationAnalysis.h"
#include "VDMaximumTimeIntervalErrorAnalysis.h"
#include "VDModifiedAllanDeviationAnalysis.h"
#include "VDRootMeanSquaredTimeIntervalErrorAnalysis.h"
#include "VDTimeDeviationAnalysis.h"

namespace {

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();

enum class Noise { kWhite, kRandomWalk, kRandomWalkFrequency, kDrifting, kRamp, kSpiky };

// Integer time errors of one kind, plus offset.
std::vector<int64_t> noise(Noise kind, int64_t count, int64_t offset, uint64_t seed) {
  std::mt19937_64 generator(seed);
  std::normal_distribution<double> gauss(0.0, 1.0);
  std::vector<int64_t> errors;
  double phase = 0.0;
  double frequency = 0.0;
  for (int64_t i = 0; i < count; ++i) {
    double value = 0.0;
    switch (kind) {
      case Noise::kWhite:
        value = 40.0 * gauss(generator);
        break;
      case Noise::kRandomWalk:
        phase += 5.0 * gauss(generator);
        value = phase;
        break;
      case Noise::kRandomWalkFrequency:
        frequency += 0.3 * gauss(generator);
        phase += frequency;
        value = phase + 10.0 * gauss(generator);
        break;
      case Noise::kDrifting:
        value = -731.0 * static_cast<double>(i) + 15.0 * gauss(generator);
        break;
      case Noise::kRamp:
        value = 250.0 * static_cast<double>(i);
        break;
      case Noise::kSpiky:
        value = (generator() % 97 == 0) ? 5000.0 * gauss(generator) : gauss(generator);
        break;
    }
    errors.push_back(offset + std::llround(value));
  }
  return errors;
}

// Values one second apart (unless told), the first at an arbitrary time.
std::vector<VDTimeErrorValue> valuesOf(const std::vector<int64_t>& errors,
                                       uint64_t interval = 1000000000ull) {
  return TestSupport::timeErrorValues(errors, interval, 1600000000000000000ull);
}

// Exact differences first (in 128-bit), then long double.
long double difference(int64_t a, int64_t b) {
  return static_cast<long double>(static_cast<__int128>(a) - b);
}

long double secondDifference(const std::vector<int64_t>& x, size_t i, size_t m) {
  return static_cast<long double>(static_cast<__int128>(x[i + 2 * m]) -
                                  2 * static_cast<__int128>(x[i + m]) + x[i]);
}

// Overlapping ADEV, NIST SP 1065 eq. 11, x converted to seconds.
long double referenceAdev(const std::vector<int64_t>& x, size_t m, long double tau0) {
  const size_t n = x.size();
  long double sum = 0;
  for (size_t i = 0; i + 2 * m < n; ++i) {
    const long double d = secondDifference(x, i, m) * 1e-9L;
    sum += d * d;
  }
  const long double tau = m * tau0;
  return std::sqrt(sum / (2 * tau * tau * static_cast<long double>(n - 2 * m)));
}

// MDEV, NIST SP 1065 eq. 14: the inner sum taken literally.
long double referenceMdev(const std::vector<int64_t>& x, size_t m, long double tau0) {
  const size_t n = x.size();
  long double sum = 0;
  for (size_t j = 0; j + 3 * m <= n; ++j) {
    __int128 inner = 0;
    for (size_t i = j; i < j + m; ++i) {
      inner += static_cast<__int128>(x[i + 2 * m]) - 2 * static_cast<__int128>(x[i + m]) + x[i];
    }
    const long double d = static_cast<long double>(inner) * 1e-9L;
    sum += d * d;
  }
  const long double tau = m * tau0;
  return std::sqrt(sum / (2 * static_cast<long double>(m) * m * tau * tau * (n - 3 * m + 1)));
}

// TDEV, NIST SP 1065 eq. 15, in ns.
long double referenceTdev(const std::vector<int64_t>& x, size_t m, long double tau0) {
  return m * tau0 / std::sqrt(3.0L) * referenceMdev(x, m, tau0) * 1e9L;
}

long double referenceRmsTie(const std::vector<int64_t>& x, size_t m) {
  long double sum = 0;
  for (size_t i = 0; i + m < x.size(); ++i) {
    const long double d = difference(x[i + m], x[i]);
    sum += d * d;
  }
  return std::sqrt(sum / static_cast<long double>(x.size() - m));
}

// MTIE of every window 1..N-1 at once: each start's window grown one sample at a time.
std::vector<__int128> referenceMtie(const std::vector<int64_t>& x) {
  const size_t n = x.size();
  std::vector<__int128> mtie(n, 0);
  for (size_t k = 0; k < n; ++k) {
    int64_t high = x[k];
    int64_t low = x[k];
    for (size_t m = 1; k + m < n; ++m) {
      high = std::max(high, x[k + m]);
      low = std::min(low, x[k + m]);
      mtie[m] = std::max(mtie[m], static_cast<__int128>(high) - low);
    }
  }
  return mtie;
}

struct Statistic {
  std::string name;
  std::function<std::unique_ptr<VDStatisticAnalysis>(const std::vector<VDTimeErrorValue>&)> make;
  std::function<int64_t(int64_t)> largestWindow;
  // The reference value for window m (tau0 = 1 s).
  std::function<long double(const std::vector<int64_t>&, size_t)> reference;
  std::function<int64_t(int64_t, int64_t)> terms;  // (N, m)
};

template <typename Analysis>
std::unique_ptr<VDStatisticAnalysis> make(const std::vector<VDTimeErrorValue>& values) {
  return std::make_unique<Analysis>(values);
}

std::vector<Statistic> deviations() {
  return {
      {"ADEV", make<VDAllanDeviationAnalysis>, [](int64_t n) { return (n - 1) / 2; },
       [](const auto& x, size_t m) { return referenceAdev(x, m, 1); },
       [](int64_t n, int64_t m) { return n - 2 * m; }},
      {"MDEV", make<VDModifiedAllanDeviationAnalysis>, [](int64_t n) { return n / 3; },
       [](const auto& x, size_t m) { return referenceMdev(x, m, 1); },
       [](int64_t n, int64_t m) { return n - 3 * m + 1; }},
      {"TDEV", make<VDTimeDeviationAnalysis>, [](int64_t n) { return n / 3; },
       [](const auto& x, size_t m) { return referenceTdev(x, m, 1); },
       [](int64_t n, int64_t m) { return n - 3 * m + 1; }},
      {"RMS TIE", make<VDRootMeanSquaredTimeIntervalErrorAnalysis>, [](int64_t n) { return n - 1; },
       [](const auto& x, size_t m) { return referenceRmsTie(x, m); },
       [](int64_t n, int64_t m) { return n - m; }},
  };
}

void expectRelativelyNear(double actual, long double expected, const std::string& where) {
  if (expected == 0) {
    EXPECT_EQ(actual, 0.0) << where;
  } else {
    EXPECT_LE(std::fabs((actual - expected) / expected), 1e-9L)
        << where << ": " << actual << " vs " << static_cast<double>(expected);
  }
}

// Every window of the series, one point each, with the reference value and term count.
void expectAllWindowsMatch(const Statistic& statistic, const std::vector<int64_t>& errors,
                           const std::string& label) {
  const auto n = static_cast<int64_t>(errors.size());
  std::unique_ptr<VDStatisticAnalysis> analysis = statistic.make(valuesOf(errors));
  analysis->performAnalysisFromStartWindowSize(1, kMax, 1);
  const std::vector<VDStatisticPoint>& points = analysis->points();
  ASSERT_EQ(static_cast<int64_t>(points.size()), statistic.largestWindow(n))
      << statistic.name << " " << label;
  for (const VDStatisticPoint& point : points) {
    const std::string where =
        statistic.name + " " + label + " m=" + std::to_string(point.windowSize);
    EXPECT_EQ(point.tau, static_cast<double>(point.windowSize)) << where;
    EXPECT_EQ(point.termCount, static_cast<uint64_t>(statistic.terms(n, point.windowSize)))
        << where;
    expectRelativelyNear(point.value, statistic.reference(errors, point.windowSize), where);
  }
}

TEST(AnalysisStatistics, DeviationsAndRmsTieMatchTheirDefinitionsAtEveryWindow) {
  const Noise kinds[] = {Noise::kWhite,    Noise::kRandomWalk, Noise::kRandomWalkFrequency,
                         Noise::kDrifting, Noise::kRamp,       Noise::kSpiky};
  uint64_t seed = 1;
  for (const Statistic& statistic : deviations()) {
    for (Noise kind : kinds) {
      // Odd and even lengths put the last window on both sides of N/3 and (N-1)/2.
      for (int64_t count : {int64_t{301}, int64_t{302}}) {
        const int64_t offset = (seed % 2 == 0) ? 1000000000000 : -999999999937;
        expectAllWindowsMatch(
            statistic, noise(kind, count, offset, ++seed),
            "noise " + std::to_string(static_cast<int>(kind)) + " N=" + std::to_string(count));
      }
    }
  }
}

TEST(AnalysisStatistics, LongSeriesMatchAcrossSummationChunks) {
  // More than 2048 terms per window: the sums are built from chunks, the reference is not.
  const std::vector<int64_t> errors = noise(Noise::kRandomWalkFrequency, 5003, 123456789, 7);
  const auto values = valuesOf(errors);
  for (const Statistic& statistic : deviations()) {
    std::unique_ptr<VDStatisticAnalysis> analysis = statistic.make(values);
    analysis->performAnalysisFromStartWindowSize(1, kMax, 97);
    ASSERT_FALSE(analysis->points().empty());
    for (const VDStatisticPoint& point : analysis->points()) {
      ASSERT_EQ((point.windowSize - 1) % 97, 0);
      expectRelativelyNear(point.value, statistic.reference(errors, point.windowSize),
                           statistic.name + " m=" + std::to_string(point.windowSize));
    }
  }
}

TEST(AnalysisStatistics, ValuesBeyondExactDoublesStillMatch) {
  // Phases of ~2^56 ns (and their prefix sums, far more) leave the double fast path.
  std::vector<int64_t> errors = noise(Noise::kWhite, 200, 0, 11);
  for (size_t i = 0; i < errors.size(); ++i) {
    errors[i] += (i % 3 == 0) ? (int64_t{1} << 56) : -(int64_t{1} << 55);
  }
  for (const Statistic& statistic : deviations()) {
    expectAllWindowsMatch(statistic, errors, "large");
  }
}

TEST(AnalysisStatistics, AnOffsetChangesNothingBitForBit) {
  const std::vector<int64_t> errors = noise(Noise::kRandomWalkFrequency, 4000, 0, 3);
  std::vector<int64_t> shifted = errors;
  for (int64_t& error : shifted) {
    error += 1000000000000;
  }
  std::vector<Statistic> statistics = deviations();
  statistics.push_back(
      {"MTIE", make<VDMaximumTimeIntervalErrorAnalysis>, nullptr, nullptr, nullptr});
  for (const Statistic& statistic : statistics) {
    for (int64_t step : {int64_t{1}, int64_t{33}}) {
      std::unique_ptr<VDStatisticAnalysis> plain = statistic.make(valuesOf(errors));
      std::unique_ptr<VDStatisticAnalysis> offset = statistic.make(valuesOf(shifted));
      plain->performAnalysisFromStartWindowSize(1, kMax, step);
      offset->performAnalysisFromStartWindowSize(1, kMax, step);
      ASSERT_EQ(plain->points().size(), offset->points().size()) << statistic.name;
      for (size_t i = 0; i < plain->points().size(); ++i) {
        // Bit-identical, not merely close.
        ASSERT_EQ(plain->points()[i].value, offset->points()[i].value)
            << statistic.name << " m=" << plain->points()[i].windowSize;
      }
    }
  }
}

// MTIE of every window and of sparse window lists, which take different paths.
void expectMtieMatches(const std::vector<int64_t>& errors, const std::string& label) {
  const std::vector<__int128> reference = referenceMtie(errors);
  const auto n = static_cast<int64_t>(errors.size());
  struct Range {
    int64_t start, end, step;
  };
  const Range ranges[] = {{1, kMax, 1},   {2, kMax, 1},      {700, 1900, 3},  {1, kMax, 17},
                          {5, kMax, 255}, {300, kMax, 1000}, {n - 1, kMax, 1}};
  for (const Range& range : ranges) {
    VDMaximumTimeIntervalErrorAnalysis analysis(valuesOf(errors));
    analysis.performAnalysisFromStartWindowSize(range.start, range.end, range.step);
    const std::vector<VDStatisticPoint>& mtie = analysis.mtie();
    const int64_t last = std::min(range.end, n - 1);
    const int64_t count = range.start > last ? 0 : (last - range.start) / range.step + 1;
    ASSERT_EQ(static_cast<int64_t>(mtie.size()), count) << label << " step " << range.step;
    for (size_t i = 0; i < mtie.size(); ++i) {
      const int64_t m = range.start + static_cast<int64_t>(i) * range.step;
      ASSERT_EQ(mtie[i].windowSize, m);
      ASSERT_EQ(mtie[i].value, static_cast<double>(reference[m]))
          << label << " step " << range.step << " m=" << m;
      ASSERT_EQ(mtie[i].termCount, static_cast<uint64_t>(n - m));
    }
  }
}

TEST(AnalysisStatistics, MtieMatchesEveryWindowOnAllKindsOfData) {
  const Noise kinds[] = {Noise::kWhite,    Noise::kRandomWalk, Noise::kRandomWalkFrequency,
                         Noise::kDrifting, Noise::kRamp,       Noise::kSpiky};
  uint64_t seed = 100;
  for (Noise kind : kinds) {
    // 2100 samples: blocks of starts, a partial last block, windows both within and beyond one.
    expectMtieMatches(noise(kind, 2100, 1000000000000, ++seed),
                      "noise " + std::to_string(static_cast<int>(kind)));
  }
  // A falling then rising V, a constant and a short series.
  std::vector<int64_t> v;
  for (int64_t i = 0; i < 1500; ++i) {
    v.push_back(std::abs(i - 900) * 37);
  }
  expectMtieMatches(v, "V");
  expectMtieMatches(std::vector<int64_t>(600, -42), "constant");
  expectMtieMatches(noise(Noise::kWhite, 9, 0, 5), "short");
}

TEST(AnalysisStatistics, MtieMatchesWhenSpikePairsAtBlockAndSegmentEdgesDecide) {
  // A dip and a peak d samples apart are seen together by one window of size d only. Put such
  // pairs where blocks of starts (256) and segments of windows (64) begin and end, and next to
  // a larger pair two samples wider, so the only window that sees a pair is easy to lose.
  for (int64_t distance : {int64_t{63}, int64_t{64}, int64_t{65}, int64_t{66}, int64_t{129},
                           int64_t{255}, int64_t{256}, int64_t{257}, int64_t{321}}) {
    for (int64_t dipAt : {int64_t{0}, int64_t{256}, int64_t{257}, int64_t{511}}) {
      std::vector<int64_t> errors = noise(Noise::kWhite, 1400, 0, distance + dipAt);
      for (int64_t& error : errors) {
        error /= 10;
      }
      errors[dipAt] = -700;
      errors[dipAt + distance] = 800;
      errors[900] = -1000;
      errors[900 + distance + 2] = 1000;
      expectMtieMatches(errors, "pair " + std::to_string(dipAt) + "+" + std::to_string(distance));
    }
  }
}

TEST(AnalysisStatistics, MtieIsExactForTheWidestIntegerSpread) {
  const std::vector<int64_t> errors = {0, kMax, kMin, 5, kMin, kMax};
  VDMaximumTimeIntervalErrorAnalysis analysis(valuesOf(errors));
  analysis.performAnalysisFromStartWindowSize(1, kMax, 1);
  ASSERT_EQ(analysis.mtie().size(), 5u);
  EXPECT_EQ(analysis.mtie().front().value, 18446744073709551615.0);  // 2^64 - 1, rounded
  expectMtieMatches(errors, "extremes");
}

TEST(AnalysisStatistics, TauFollowsTheTimestamps) {
  // 1001 samples 1 s apart: tau is m s exactly (1000e9 ns * 1e-9 / 1000 is 1.0000000000000002).
  VDMaximumTimeIntervalErrorAnalysis mtie(
      TestSupport::timeErrorValues(noise(Noise::kWhite, 1001, 0, 9), 1000000000, 0));
  mtie.performAnalysisFromStartWindowSize(1, 1000, 1);
  for (const VDStatisticPoint& point : mtie.points()) {
    ASSERT_EQ(point.tau, static_cast<double>(point.windowSize)) << point.windowSize;
  }
  const std::vector<int64_t> errors = noise(Noise::kWhite, 50, 0, 8);
  // 125 ms apart, starting before the epoch: the timestamps arrive wrapped.
  VDAllanDeviationAnalysis adev(
      TestSupport::timeErrorValues(errors, 125000000, static_cast<uint64_t>(-1000000000)));
  adev.performAnalysisFromStartWindowSize(1, 3, 1);
  ASSERT_EQ(adev.points().size(), 3u);
  for (const VDStatisticPoint& point : adev.points()) {
    EXPECT_DOUBLE_EQ(point.tau, 0.125 * static_cast<double>(point.windowSize));
    expectRelativelyNear(point.value, referenceAdev(errors, point.windowSize, 0.125L), "tau0");
  }

  // No usable interval (one timestamp for all, or running backwards): tau0 is 1 s.
  for (uint64_t interval : {uint64_t{0}, static_cast<uint64_t>(-1000)}) {
    VDTimeDeviationAnalysis tdev(valuesOf(errors, interval));
    tdev.performAnalysisFromStartWindowSize(1, 16, 1);
    ASSERT_EQ(tdev.points().size(), 16u);
    for (const VDStatisticPoint& point : tdev.points()) {
      EXPECT_EQ(point.tau, static_cast<double>(point.windowSize));
      EXPECT_TRUE(std::isfinite(point.value));
      expectRelativelyNear(point.value, referenceTdev(errors, point.windowSize, 1), "tau0 = 1");
    }
  }
}

TEST(AnalysisStatistics, WindowRangesAreClampedSteppedAndNeverOverflow) {
  const std::vector<VDTimeErrorValue> values = valuesOf(noise(Noise::kRandomWalk, 100, 0, 9));
  const auto windowsOf = [&values](int64_t start, int64_t end, int64_t step) {
    std::vector<int64_t> windows;
    for (const auto& factory :
         {make<VDAllanDeviationAnalysis>, make<VDModifiedAllanDeviationAnalysis>,
          make<VDTimeDeviationAnalysis>, make<VDRootMeanSquaredTimeIntervalErrorAnalysis>,
          make<VDMaximumTimeIntervalErrorAnalysis>}) {
      std::unique_ptr<VDStatisticAnalysis> analysis = factory(values);
      analysis->performAnalysisFromStartWindowSize(start, end, step);
      for (const VDStatisticPoint& point : analysis->points()) {
        windows.push_back(point.windowSize);
      }
      windows.push_back(0);  // separates the statistics
    }
    return windows;
  };
  using W = std::vector<int64_t>;
  // ADEV to 49, MDEV and TDEV to 33, RMS TIE and MTIE to 99.
  EXPECT_EQ(windowsOf(30, kMax, 10), (W{30, 40, 0, 30, 0,  30, 0,  30, 40, 50, 60, 70,
                                        80, 90, 0, 30, 40, 50, 60, 70, 80, 90, 0}));
  // A start below 1 starts at the first window reachable in steps.
  EXPECT_EQ(windowsOf(-5, 12, 8), (W{3, 11, 0, 3, 11, 0, 3, 11, 0, 3, 11, 0, 3, 11, 0}));
  EXPECT_EQ(windowsOf(kMin, 2, kMax), (W{0, 0, 0, 0, 0}));
  EXPECT_EQ(windowsOf(kMin + 2, kMax, kMax), (W{1, 0, 1, 0, 1, 0, 1, 0, 1, 0}));
  EXPECT_EQ(windowsOf(kMin + 1, kMax, kMax), (W{0, 0, 0, 0, 0}));  // reaches 0, then kMax
  const W none = {0, 0, 0, 0, 0};
  EXPECT_EQ(windowsOf(1, kMax, 0), none);
  EXPECT_EQ(windowsOf(1, kMax, -3), none);
  EXPECT_EQ(windowsOf(kMax, kMax, kMax), none);
  EXPECT_EQ(windowsOf(kMax - 1, kMax, 1), none);
  EXPECT_EQ(windowsOf(50, 10, 1), none);
  EXPECT_EQ(windowsOf(kMin, kMin, 1), none);
  EXPECT_EQ(windowsOf(99, kMax, kMax), (W{0, 0, 0, 99, 0, 99, 0}));
  EXPECT_EQ(windowsOf(98, kMax, kMax - 1), (W{0, 0, 0, 98, 0, 98, 0}));

  // A second run replaces the first.
  VDRootMeanSquaredTimeIntervalErrorAnalysis rms(values);
  rms.performAnalysisFromStartWindowSize(1, 5, 1);
  rms.performAnalysisFromStartWindowSize(7, 8, 1);
  ASSERT_EQ(rms.points().size(), 2u);
  EXPECT_EQ(rms.points()[0].windowSize, 7);
}

TEST(AnalysisStatistics, TooFewSamplesGiveNoResults) {
  for (size_t count : {size_t{0}, size_t{1}, size_t{2}}) {
    const std::vector<VDTimeErrorValue> values = valuesOf(std::vector<int64_t>(count, 5), 0);
    VDAllanDeviationAnalysis adev(values);
    VDModifiedAllanDeviationAnalysis mdev(values);
    VDTimeDeviationAnalysis tdev(values);
    VDRootMeanSquaredTimeIntervalErrorAnalysis rms(values);
    VDMaximumTimeIntervalErrorAnalysis mtie(values);
    for (VDStatisticAnalysis* analysis :
         std::initializer_list<VDStatisticAnalysis*>{&adev, &mdev, &tdev, &rms, &mtie}) {
      analysis->performAnalysisFromStartWindowSize(kMin, kMax, 1);
    }
    EXPECT_TRUE(adev.points().empty());
    EXPECT_TRUE(mdev.points().empty());
    EXPECT_TRUE(tdev.points().empty());
    // Two samples define one window for RMS TIE and MTIE, and none for the deviations.
    EXPECT_EQ(rms.points().size(), count == 2 ? 1u : 0u);
    EXPECT_EQ(mtie.points().size(), count == 2 ? 1u : 0u);
  }
}

}  // namespace
