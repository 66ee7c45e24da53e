// The five statistics against TestSupport's plain-loop references (1e-9 relative; MTIE exact) on
// several kinds of noise, their CSV exports, the rows a run hands to its plots, and the fast paths
// behind them against brute-force integer sums.

#include <gtest/gtest.h>
#include <malloc.h>

#include <numeric>

#include "TestSupport.h"
#include "VDExactAutocorrelation.h"
#include "VDLaggedDifferenceSums.h"
#include "VDPlotReduction.h"
#include "VDPlotScript.h"
#include "VDPrefixCorrelation.h"
#include "VDTimeErrorSequence.h"

namespace {

using TestSupport::reference;
using TestSupport::Statistic;
using TestSupport::timeErrorValues;
constexpr Statistic kDeviations[] = {Statistic::ADEV, Statistic::MDEV, Statistic::TDEV,
                                     Statistic::RMSTIE};

// Integer time errors of one kind: white noise, random walks of phase and of frequency and a
// slope in its amounts (spiky: white noise with one sample in about 97 scaled by 5000).
struct Noise {
  double white, walk, frequencyWalk, slope;
  bool spiky;
};
constexpr Noise kNoises[] = {{40, 0, 0, 0, false},    {0, 5, 0, 0, false},   {10, 0, 0.3, 0, false},
                             {15, 0, 0, -731, false}, {0, 0, 0, 250, false}, {1, 0, 0, 0, true}};
constexpr const Noise &kWhite = kNoises[0], &kRandomWalk = kNoises[1],
                      &kRandomWalkFrequency = kNoises[2];

std::vector<int64_t> noise(const Noise& kind, int64_t count, int64_t offset, uint64_t seed) {
  std::mt19937_64 generator(seed);
  std::normal_distribution<double> gauss(0.0, 1.0);
  std::vector<int64_t> errors;
  double phase = 0.0, frequency = 0.0;
  for (int64_t i = 0; i < count; ++i) {
    frequency += kind.frequencyWalk * gauss(generator);
    phase += frequency + kind.walk * gauss(generator);
    const double white = kind.white * gauss(generator) * (kind.spiky && i % 97 == 5 ? 5000 : 1);
    errors.push_back(offset + std::llround(phase + kind.slope * static_cast<double>(i) + white));
  }
  return errors;
}

// Values 1 s apart, the first at an arbitrary time.
std::vector<VDTimeErrorValue> valuesOf(const std::vector<int64_t>& errors) {
  return TestSupport::timeErrorValues(errors, 1000000000, 1600000000000000000ull);
}

// Within 1e-9 relative (exactly 0 for 0).
void expectRelativelyNear(double actual, long double expected, const std::string& where) {
  EXPECT_LE(std::fabs(actual - expected), 1e-9L * std::fabs(expected))
      << where << ": " << actual << " vs " << static_cast<double>(expected);
}

// The windows 1, 1+step, ... of the run, each with its tau, reference value and term count; the
// values interval ns apart from start (an arbitrary time unless told), tau0 s.
void expectMatches(Statistic statistic, const std::vector<int64_t>& errors, int64_t step,
                   const std::string& label, uint64_t interval = 1000000000ull,
                   uint64_t start = 1600000000000000000ull, double tau0 = 1.0) {
  const auto n = static_cast<int64_t>(errors.size());
  const auto analysis =
      TestSupport::analysisOf(statistic, TestSupport::timeErrorValues(errors, interval, start));
  analysis->performAnalysisFromStartWindowSize(1, INT64_MAX, step);
  const std::vector<VDStatisticPoint>& points = analysis->points();
  ASSERT_EQ(static_cast<int64_t>(points.size()),
            (TestSupport::largestWindow(statistic, n) - 1) / step + 1)
      << label;
  for (size_t i = 0; i < points.size(); ++i) {
    const VDStatisticPoint& point = points[i];
    const std::string where = label + " m=" + std::to_string(point.windowSize);
    ASSERT_EQ(point.windowSize, 1 + static_cast<int64_t>(i) * step) << where;
    EXPECT_EQ(point.tau, tau0 * static_cast<double>(point.windowSize)) << where;
    const TestSupport::Reference expected = reference(statistic, errors, point.windowSize);
    EXPECT_EQ(point.termCount, expected.terms) << where;
    // ADEV and MDEV in the analysis's unit.
    const bool perTau = statistic == Statistic::ADEV || statistic == Statistic::MDEV;
    expectRelativelyNear(point.value, expected.value * (perTau ? 1e-9L / point.tau : 1), where);
  }
}

TEST(AnalysisStatistics, DeviationsAndRmsTieMatchTheirDefinitionsAtEveryWindowAndTau) {
  uint64_t seed = 1;
  // Series of kinds of noise and lengths (odd and even put the last window on both sides of N/3
  // and (N-1)/2); more than 2048 terms per window (the sums are built from chunks); phases of
  // ~2^56 ns, whose prefix sums leave the double fast path.
  std::vector<int64_t> large = noise(kWhite, 200, 0, 11);
  for (size_t i = 0; i < large.size(); ++i) {
    large[i] += (i % 3 == 0) ? (int64_t{1} << 56) : -(int64_t{1} << 55);
  }
  for (Statistic statistic : kDeviations) {
    const std::string name = "statistic " + std::to_string(static_cast<int>(statistic));
    for (const Noise& kind : kNoises) {
      for (int64_t count : {int64_t{301}, int64_t{302}}) {
        const int64_t offset = (seed % 2 == 0) ? 1000000000000 : -999999999937;
        expectMatches(
            statistic, noise(kind, count, offset, ++seed), 1,
            name + " noise " + std::to_string(&kind - kNoises) + " N=" + std::to_string(count));
      }
    }
    expectMatches(statistic, noise(kRandomWalkFrequency, 5003, 123456789, 7), 97, name + " long");
    expectMatches(statistic, large, 1, name + " large");
  }
  // Tau follows the timestamps. 1 s apart: tau is m s exactly (1000e9 ns * 1e-9 / 1000 is
  // 1.0000000000000002). 125 ms apart, starting before the epoch (the timestamps arrive wrapped):
  // tau0 is 0.125 s. One timestamp for all, or running backwards: no usable interval, tau0 is 1 s.
  const std::vector<int64_t> errors = noise(kWhite, 1001, 0, 8);
  const struct {
    Statistic statistic;
    uint64_t interval, start;
    double tau0;
  } cases[] = {{Statistic::RMSTIE, 1000000000, 0, 1.0},
               {Statistic::ADEV, 125000000, static_cast<uint64_t>(-1000000000), 0.125},
               {Statistic::TDEV, 0, 1, 1.0},
               {Statistic::TDEV, static_cast<uint64_t>(-1000), 1600000000000000000ull, 1.0}};
  for (const auto& c : cases) {
    expectMatches(c.statistic, errors, 1, "tau0", c.interval, c.start, c.tau0);
  }
}

// MTIE of every window and of sparse window lists, which take different paths.
void expectMtieMatches(const std::vector<int64_t>& errors, const std::string& label) {
  const std::vector<__int128> reference = TestSupport::mtieOfEveryWindow(errors);
  const auto n = static_cast<int64_t>(errors.size());
  const int64_t ranges[][3] = {{1, INT64_MAX, 1},    {2, INT64_MAX, 1},   {700, 1900, 3},
                               {1, INT64_MAX, 17},   {5, INT64_MAX, 255}, {300, INT64_MAX, 1000},
                               {n - 1, INT64_MAX, 1}};
  for (const auto& [start, end, step] : ranges) {
    VDMaximumTimeIntervalErrorAnalysis analysis(valuesOf(errors));
    analysis.performAnalysisFromStartWindowSize(start, end, step);
    const std::vector<VDStatisticPoint>& mtie = analysis.mtie();
    const int64_t last = std::min(end, n - 1);
    ASSERT_EQ(static_cast<int64_t>(mtie.size()), start > last ? 0 : (last - start) / step + 1)
        << label << " step " << step;
    for (size_t i = 0; i < mtie.size(); ++i) {
      const int64_t m = start + static_cast<int64_t>(i) * step;
      ASSERT_EQ(mtie[i].windowSize, m);
      ASSERT_EQ(mtie[i].value, static_cast<double>(reference[m])) << label << " m=" << m;
      ASSERT_EQ(mtie[i].termCount, static_cast<uint64_t>(n - m));
    }
  }
}

TEST(AnalysisStatistics, MtieMatchesEveryWindowOnAllKindsOfData) {
  uint64_t seed = 100;
  for (const Noise& kind : kNoises) {
    // 2100 samples: blocks of starts, a partial last block, windows both within and beyond one.
    expectMtieMatches(noise(kind, 2100, 1000000000000, ++seed),
                      "noise " + std::to_string(&kind - kNoises));
  }
  std::vector<int64_t> v;  // falling then rising
  for (int64_t i = 0; i < 1500; ++i) {
    v.push_back(std::abs(i - 900) * 37);
  }
  expectMtieMatches(v, "V");
  expectMtieMatches(std::vector<int64_t>(600, -42), "constant");
  expectMtieMatches(noise(kWhite, 9, 0, 5), "short");
  const std::vector<int64_t> extremes = {0, INT64_MAX, INT64_MIN, 5, INT64_MIN, INT64_MAX};
  expectMtieMatches(extremes, "extremes");  // MTIE up to 2^64 - 1 (rounded to a double)

  // A dip and a peak d samples apart are seen together by one window of size d only. Put such
  // pairs where blocks of starts (256) and segments of windows (64) begin and end, and next to
  // a larger pair two samples wider, so the only window that sees a pair is easy to lose.
  for (int64_t distance : {63, 64, 65, 66, 129, 255, 256, 257, 321}) {
    for (int64_t dipAt : {0, 256, 257, 511}) {
      std::vector<int64_t> errors = noise({4, 0, 0, 0, false}, 1400, 0, distance + dipAt);
      errors[dipAt] = -700;
      errors[dipAt + distance] = 800;
      errors[900] = -1000;
      errors[900 + distance + 2] = 1000;
      expectMtieMatches(errors, "pair " + std::to_string(dipAt) + "+" + std::to_string(distance));
    }
  }
}

TEST(AnalysisStatistics, WindowRangesAreClampedSteppedAndNeverOverflow) {
  using W = std::vector<int64_t>;
  const W none = {0, 0, 0, 0, 0};
  // The windows of ADEV (up to 49), MDEV, TDEV (33), RMS TIE and MTIE (99), each list ended by 0.
  const struct {
    int64_t start, end, step;
    W windows;
    int64_t samples = 100;
  } cases[] = {
      {30, INT64_MAX, 10, {30, 40, 0, 30, 0,  30, 0,  30, 40, 50, 60, 70,
                           80, 90, 0, 30, 40, 50, 60, 70, 80, 90, 0}},
      // A start below 1 starts at the first window reachable in steps.
      {-5, 12, 8, {3, 11, 0, 3, 11, 0, 3, 11, 0, 3, 11, 0, 3, 11, 0}},
      {INT64_MIN, 2, INT64_MAX, none},
      {INT64_MIN + 2, INT64_MAX, INT64_MAX, {1, 0, 1, 0, 1, 0, 1, 0, 1, 0}},
      {INT64_MIN + 1, INT64_MAX, INT64_MAX, none},  // reaches 0, then INT64_MAX
      {1, INT64_MAX, 0, none},
      {1, INT64_MAX, -3, none},
      {INT64_MAX, INT64_MAX, INT64_MAX, none},
      {INT64_MAX - 1, INT64_MAX, 1, none},
      {50, 10, 1, none},
      {INT64_MIN, INT64_MIN, 1, none},
      {99, INT64_MAX, INT64_MAX, {0, 0, 0, 99, 0, 99, 0}},
      {98, INT64_MAX, INT64_MAX - 1, {0, 0, 0, 98, 0, 98, 0}},
      // Too few samples: two define one window for RMS TIE and MTIE, none for the deviations.
      {INT64_MIN, INT64_MAX, 1, none, 0},
      {INT64_MIN, INT64_MAX, 1, none, 1},
      {INT64_MIN, INT64_MAX, 1, {0, 0, 0, 1, 0, 1, 0}, 2},
  };
  const std::vector<int64_t> errors = noise(kRandomWalk, 100, 0, 9);
  for (const auto& c : cases) {
    W windows;
    for (Statistic statistic : TestSupport::kStatistics) {
      const auto analysis = TestSupport::analysisOf(
          statistic, valuesOf({errors.begin(), errors.begin() + c.samples}));
      analysis->performAnalysisFromStartWindowSize(1, 5, 1);  // replaced by the next run
      analysis->performAnalysisFromStartWindowSize(c.start, c.end, c.step);
      for (const VDStatisticPoint& point : analysis->points()) {
        windows.push_back(point.windowSize);
      }
      windows.push_back(0);
    }
    EXPECT_EQ(windows, c.windows) << c.start << " " << c.end << " " << c.step;
  }
}

// Each export against its section of tests/data/expected/analysis-exports.txt (doubles in their
// shortest form that reads back unchanged); to a missing directory, a file or no name, false.
TEST(AnalysisExport, FilesHoldTheirExactTextOrTheExportGivesFalse) {
  TestSupport::TempDir dir;
  std::string text;
  const auto append = [&](const std::string& name, bool written) {
    EXPECT_TRUE(written) << name;
    text += "--- " + name + "\n" + TestSupport::readFile(dir / name);
  };
  append("sequence.csv", VDTimeErrorSequence({{0, -17},
                                              {18446744073709551615ull, 9223372036854775807},
                                              {9223372036854775808ull, -9223372036854775807 - 1},
                                              {125000000, 0}})
                             .exportTimeErrorsToDirectoryURL(dir.path(), "sequence.csv"));
  append("empty.csv",
         VDTimeErrorSequence({}).exportTimeErrorsToDirectoryURL(dir.path(), "empty.csv"));
  const std::vector<int64_t> three = {0, 3, 4}, ramp = {0, 1, 3, 6, 10, 15, 21, 28, 36, 45};
  const struct {
    const char* name;
    Statistic statistic;
    std::vector<int64_t> errors;
    int64_t start, end, step;
  } rows[] = {
      // 0, 0, 4, 8 ns 0.25 s apart: second differences 4 and 0, sqrt(16e-18 / (2 0.25^2 2)) = 8e-9.
      {"adev.csv", Statistic::ADEV, {0, 0, 4, 8}, 1, INT64_MAX, 1},
      // TIE 3 and 1 at lag 1, 4 at lag 2.
      {"rmstie.csv", Statistic::RMSTIE, three, 1, INT64_MAX, 1},
      {"mtie.csv", Statistic::MTIE, three, 1, INT64_MAX, 1},
      // One second difference 4 - 6 + 0 = -2: MDEV sqrt(4 / 2) ns, TDEV tau / sqrt(3) times it.
      {"mdev.csv", Statistic::MDEV, three, 1, INT64_MAX, 1},
      {"tdev.csv", Statistic::TDEV, three, 1, INT64_MAX, 1},
      // Only the windows asked for; none (a step below 1, past the data, no data): the header.
      {"windows-2-8-3.csv", Statistic::MTIE, ramp, 2, 8, 3},
      {"step-0.csv", Statistic::MTIE, ramp, 1, INT64_MAX, 0},
      {"step-negative.csv", Statistic::MTIE, ramp, 1, INT64_MAX, -1},
      {"past-the-data.csv", Statistic::MTIE, ramp, 10, INT64_MAX, 1},
      {"largest.csv", Statistic::MTIE, ramp, INT64_MAX, INT64_MAX, INT64_MAX},
      {"no-data.csv", Statistic::ADEV, {}, 1, INT64_MAX, 1},
  };
  for (const auto& row : rows) {
    const uint64_t interval = row.statistic == Statistic::ADEV ? 250000000 : 1000000000;
    const auto analysis =
        TestSupport::analysisOf(row.statistic, timeErrorValues(row.errors, interval));
    analysis->performAnalysisFromStartWindowSize(1, INT64_MAX, 1);
    append(row.name, analysis->exportAnalysisToDirectoryURL(dir.path(), row.name, row.start,
                                                            row.end, row.step));
  }
  EXPECT_EQ(text, TestSupport::expected("analysis-exports.txt"));
  TestSupport::writeFile(dir / "file", "x");
  const VDTimeErrorSequence sequence({{1, 2}});
  EXPECT_FALSE(sequence.exportTimeErrorsToDirectoryURL(dir / "missing", "t.csv"));
  EXPECT_FALSE(sequence.exportTimeErrorsToDirectoryURL(dir / "file", "t.csv"));
  VDAllanDeviationAnalysis adev(timeErrorValues({1, 2, 3, 4, 5}, 1));
  adev.performAnalysisFromStartWindowSize(1, INT64_MAX, 1);
  EXPECT_FALSE(adev.exportAnalysisToDirectoryURL(dir / "missing", "a.csv", 1, INT64_MAX, 1));
  EXPECT_FALSE(adev.exportAnalysisToDirectoryURL(dir.path(), "", 1, INT64_MAX, 1));
}

// The rows a run hands to its plots, reduced where the values are, draw as every row would: the
// script's own reduction (numpy) keeps the same rows of both, and the count that picks the legend
// stays on the same side of the rasterising limit. Ties, values no log axis shows, x not rising.
TEST(AnalysisScripts, RowsHandedToAPlotRunDrawAsEveryRow) {
  const struct {
    int count;
    bool logAxes, rising;
  } cases[] = {{30000, true, true},  {30000, false, true}, {12000, true, true}, {5000, false, true},
               {9000, false, false}, {9000, true, false},  {400000, true, true}};
  TestSupport::TempDir dir;
  std::string check = VDPlotScript::header() + VDPlotScript::pixelColumnExtremesFunction() +
                      "limit = " + std::to_string(VDPlotScript::kRasterisedPoints) + R"(
def check(name, logAxes):
    x, y, band = np.loadtxt(name + '.csv', delimiter=',', unpack=True)
    rows = np.loadtxt(name + '.rows', dtype=np.int64)
    every = np.arange(len(x))[pixelColumnExtremes(x, logAxes, y, band)]
    if not np.array_equal(every, rows[pixelColumnExtremes(x[rows], logAxes, y[rows], band[rows])]):
        sys.exit(name + ': other rows drawn')
    if (len(rows) > limit) != (len(x) > limit) or rows[0] != 0 or rows[-1] != len(x) - 1:
        sys.exit(name + ': other legend or ends')
    if len(x) > 100000 and len(rows) * 10 > len(x):
        sys.exit(name + ': not reduced')
)";
  for (const auto& row : cases) {
    std::vector<double> x, y, band;
    std::string table;
    for (int i = 0; i < row.count; ++i) {
      // Not rising: one row in the middle steps back to 0 (which no log axis shows either).
      x.push_back(row.rising || i != row.count / 2 ? 0.25 * (i + 1) : 0.0);
      // Plateaus (ties), spikes, and zeros and negatives among the values.
      y.push_back(i % 97 == 0 ? 0.0 : (i % 1009 == 0 ? -3.0 : std::floor(1.0 + (i * 31) % 17)));
      band.push_back(y.back() * (i % 3001 == 0 ? 9 : 1.5));
      table += std::to_string(x.back()) + "," + std::to_string(y.back()) + "," +
               std::to_string(band.back()) + "\n";
    }
    const auto at = [](const std::vector<double>& values) {
      return [&values](size_t i) { return values[i]; };
    };
    std::string rows;
    for (const size_t i :
         VDPlotReduction::rowsForPlotRun(x.size(), at(x), row.logAxes, {at(y), at(band)})) {
      rows += std::to_string(i) + "\n";
    }
    const std::string name = (dir / ("case" + std::to_string(&row - cases))).string();
    TestSupport::writeFile(name + ".csv", table);
    TestSupport::writeFile(name + ".rows", rows);
    check += "check('" + name + "', " + (row.logAxes ? "True" : "False") + ")\n";
  }
  TestSupport::writeFile(dir / "Check.py", check);
  const TestSupport::ToolRun run =
      TestSupport::shell("/usr/bin/python3 '" + (dir / "Check.py").string() + "' 2>&1");
  EXPECT_EQ(run.status, 0) << run.out;
}

// ---- The fast paths behind the statistics ------------------------------------------------

// The values of a statistic of errors over the windows start, start + step, ... up to end.
std::vector<double> analysed(Statistic statistic, const std::vector<int64_t>& errors, int64_t start,
                             int64_t end, int64_t step) {
  const auto analysis = TestSupport::analysisOf(statistic, timeErrorValues(errors));
  analysis->performAnalysisFromStartWindowSize(start, end, step);
  std::vector<double> values;
  for (const VDStatisticPoint& point : analysis->points()) {
    values.push_back(point.value);
  }
  return values;
}

std::vector<int64_t> randomIntegers(size_t count, int64_t magnitude, uint64_t seed) {
  std::mt19937_64 generator(seed);
  std::uniform_int_distribution<int64_t> uniform(-magnitude, magnitude);
  std::vector<int64_t> values(count);
  std::generate(values.begin(), values.end(), [&] { return uniform(generator); });
  return values;
}

// A random walk with a drift: time error as a free-running clock makes it.
std::vector<int64_t> wanderingPhase(int64_t count, uint64_t seed, double drift = 17.0) {
  return noise({0, 3, 0, drift, false}, count, 5000, seed);
}

// sum of y[i] y[i + lag] over the first starts i (every one by default).
__int128 bruteForceCorrelation(const std::vector<int64_t>& y, size_t lag,
                               size_t starts = SIZE_MAX) {
  __int128 sum = 0;
  for (size_t i = 0; i + lag < y.size() && i < starts; ++i) {
    sum += static_cast<__int128>(y[i]) * y[i + lag];
  }
  return sum;
}

TEST(AnalysisFastSums, ExactAutocorrelationEqualsTheIntegerSums) {
  // Small values; the largest the transforms take for 1000 values (N max^2 just below 2^84); one
  // value; a power of two; 2^22 + 1 values, one more than the transforms of 2^23 could correlate
  // (at the lags where a lost term would show: the first, around the old length, the last).
  const std::vector<std::vector<int64_t>> sequences = {
      randomIntegers(777, 1000, 1),
      randomIntegers(1000, int64_t{1} << 36, 2),
      {-123456789},
      randomIntegers(1024, 5, 3),
      randomIntegers((size_t{1} << 22) + 1, 1 << 20, 11)};
  const std::vector<size_t> longLags = {0, 1, size_t{1} << 21, (size_t{1} << 22) - 1,
                                        size_t{1} << 22};
  for (const std::vector<int64_t>& y : sequences) {
    const auto correlation = VDExactAutocorrelation::of(y);
    ASSERT_TRUE(correlation.has_value()) << y.size();
    ASSERT_EQ(correlation->size(), y.size());
    std::vector<size_t> everyLag(y.size() < 5000 ? y.size() : 0);
    std::iota(everyLag.begin(), everyLag.end(), 0);
    for (const size_t lag : everyLag.empty() ? longLags : everyLag) {
      ASSERT_TRUE((*correlation)[lag] == bruteForceCorrelation(y, lag))
          << "N=" << y.size() << " lag " << lag;
    }
  }
  EXPECT_TRUE(VDExactAutocorrelation::of({}).value().empty());
  // Sums the three primes cannot hold are refused, not wrapped; up to N max|y|^2 < 2^89 (17 values
  // of 2^40) they are exact.
  EXPECT_FALSE(VDExactAutocorrelation::of({int64_t{1} << 42, 0}).has_value());
  EXPECT_FALSE(VDExactAutocorrelation::of(std::vector<int64_t>(513, int64_t{1} << 40)).has_value());
  EXPECT_TRUE(VDExactAutocorrelation::of(std::vector<int64_t>(17, int64_t{1} << 40)).value()[0] ==
              static_cast<__int128>(17) << 80);
}

// sum_j (sum_a c_a u[j + a m])^2 over every start, in 128-bit integers.
__int128 bruteForceSumOfSquares(const std::vector<int64_t>& u, int order, size_t m) {
  static const std::vector<std::vector<int64_t>> kCoefficients = {
      {}, {-1, 1}, {1, -2, 1}, {-1, 3, -3, 1}};
  const std::vector<int64_t>& c = kCoefficients[order];
  __int128 sum = 0;
  for (size_t j = 0; j + order * m < u.size(); ++j) {
    __int128 difference = 0;
    for (int a = 0; a <= order; ++a) {
      difference += c[a] * static_cast<__int128>(u[j + a * m]);
    }
    sum += difference * difference;
  }
  return sum;
}

// Sums of squared differences of orders 1 to 3 equal the sums in 128 bits, rounded once: by
// transforms up to 2^34 (lengths just past a 2048-value block, over 8192 lags reported in parts),
// in halves up to 2^45; from 2^62 on by tiles, bit for bit as one lag at a time. Lags from 1,
// stepped, and short only (under a sixteenth of the series: by blocks). RMS TIE takes its sums so.
TEST(AnalysisFastSums, SumsOfSquaresAndRmsTieAreTheExactSumsRoundedOnce) {
  std::vector<int64_t> atTheTop = randomIntegers(1500, int64_t{1} << 40, 6);
  std::ranges::for_each(atTheTop, [](int64_t& value) { value += int64_t{1} << 62; });
  const std::vector<int64_t> halves = randomIntegers(6000, int64_t{1} << 45, 5);
  for (int order = 1; order <= 3; ++order) {
    // Lags checked every `every` (beside those around a report and the last), reported in parts
    // (at 0 and every 8192 lags) or else as tiles finish.
    const std::tuple<std::vector<int64_t>, uint64_t, bool> rows[] = {
        {randomIntegers(order < 3 ? 20500 : 26700, int64_t{1} << 34, 10 + order), 97, true},
        {halves, 37, false},
        {atTheTop, 1, false}};
    for (const auto& [u, every, inParts] : rows) {
      const VDLaggedDifferenceSums sums(u, order);
      const auto count = static_cast<int64_t>(u.size());
      const std::string where = "order " + std::to_string(order) + " N=" + std::to_string(count);
      // No lag before 0 and no start before the first: nothing to sum.
      for (const auto& [lag, starts] : {std::pair<int64_t, int64_t>{-1, 10}, {3, 0}, {3, -5}}) {
        EXPECT_EQ(sums.sumOfSquares(lag, starts), 0.0) << where;
      }
      const int64_t lagRanges[][3] = {{1, INT64_MAX, 1},
                                      {5, INT64_MAX, 611},
                                      {300, INT64_MAX, 7},
                                      {1, count / (20 * order), 1}};
      for (const auto& [first, last, step] : lagRanges) {
        const VDWindowRange lags =
            VDWindowRange::clamped(first, last, step, 1, (count - 1) / order);
        std::vector<uint64_t> reports;
        const std::vector<double> exact =
            sums.sumsOfSquares(lags, [&](uint64_t done) { reports.push_back(done); });
        ASSERT_EQ(exact.size(), lags.count());
        ASSERT_FALSE(reports.empty());
        EXPECT_EQ(reports.back(), lags.count()) << where;
        for (size_t k = 0; k < reports.size(); ++k) {
          EXPECT_TRUE(!inParts || reports[k] == std::min(8192 * k, lags.count())) << where;
          EXPECT_TRUE(k == 0 || reports[k] > reports[k - 1]) << where;
        }
        for (uint64_t index = 0; index < lags.count(); ++index) {
          const auto m = static_cast<size_t>(lags.at(index));
          if (index % every == 0 || index % 8192 < 2 || index % 8192 > 8189 ||
              index + 1 == lags.count()) {
            ASSERT_EQ(exact[index],
                      u.front() > (int64_t{1} << 61)
                          ? sums.sumOfSquares(lags.at(index), count - order * lags.at(index))
                          : static_cast<double>(bruteForceSumOfSquares(u, order, m)))
                << where << " lag " << m;
          }
        }
      }
    }
  }
  // RMS TIE, 5000 samples drifting 40 us a sample: squares beyond 2^53, where a double sum rounds.
  const std::vector<int64_t> errors = wanderingPhase(5000, 4, 40000.0);
  const std::vector<double> rms = analysed(Statistic::RMSTIE, errors, 1, INT64_MAX, 1);
  ASSERT_EQ(rms.size(), errors.size() - 1);
  for (size_t m = 1; m < errors.size(); ++m) {
    const auto exact = static_cast<double>(bruteForceSumOfSquares(errors, 1, m));
    ASSERT_EQ(rms[m - 1], std::sqrt(exact / static_cast<double>(errors.size() - m))) << "m=" << m;
  }
}

// Beyond 2^26 values (two years of 1 PPS) no transform holds the sums of ADEV's and MDEV's
// differences: they are summed in doubles, by tiles of lags and one lag at a time, exact here.
TEST(AnalysisFastSums, SeriesBeyondTheLongestTransformAreSummedInDoubles) {
  const std::vector<int64_t> u = randomIntegers((size_t{1} << 26) + 21, 1000, 4);
  const auto count = static_cast<int64_t>(u.size());
  for (int order = 2; order <= 3; ++order) {
    const VDLaggedDifferenceSums sums(u, order);
    const std::vector<double> tiled =
        sums.sumsOfSquares(VDWindowRange::clamped(1, 5001, 5000, 1, count), {});
    ASSERT_EQ(tiled.size(), 2u);
    EXPECT_EQ(tiled[0], sums.sumOfSquares(1, count - order)) << "order " << order;
    EXPECT_EQ(tiled[1], sums.sumOfSquares(5001, count - order * 5001)) << "order " << order;
    EXPECT_EQ(tiled[1], static_cast<double>(bruteForceSumOfSquares(u, order, 5001))) << order;
  }
}

TEST(AnalysisFastSums, TimeDeviationAfterModifiedAllanDeviationGivesItsOwnValues) {
  using S = Statistic;
  const std::vector<int64_t> first = wanderingPhase(3000, 7), second = wanderingPhase(3000, 8);
  // TDEV of first over windows 5, 7, ... 999: alone (the sums kept are of other data), then after
  // MDEV of the same series over the same windows (as the processor runs them, reusing its sums),
  // of other data, or over windows that differ in start, end or step alone (no stale sums).
  analysed(S::MDEV, second, 5, 999, 2);
  const std::vector<double> alone = analysed(S::TDEV, first, 5, 999, 2);
  expectRelativelyNear(alone.front(), reference(S::TDEV, first, 5).value, "m=5");
  expectRelativelyNear(alone.back(), reference(S::TDEV, first, 999).value, "m=999");
  const struct {
    const std::vector<int64_t>* errors;
    int64_t start, end, step;
  } before[] = {{&first, 5, 999, 2},
                {&second, 5, 999, 2},
                {&first, 3, 999, 2},
                {&first, 5, 997, 2},
                {&first, 5, 999, 1}};
  for (const auto& [errors, start, end, step] : before) {
    analysed(S::MDEV, second, 1, 9, 1);  // leaves sums that no row matches
    analysed(S::MDEV, *errors, start, end, step);
    EXPECT_EQ(analysed(S::TDEV, first, 5, 999, 2), alone) << start << " " << end << " " << step;
  }
}

// Writes down each start and end, checking the reports between: inside a run, never going back,
// never beyond the whole.
class RecordingObserver : public VDAnalysisProgress {
 public:
  void analysisStarted(const std::string& name, uint64_t windows) override {
    EXPECT_EQ(total, 0u);
    total = windows, windowsDone = 0, workDone = 0;
    events += "start " + name + " " + std::to_string(windows) + "\n";
  }
  void analysisProgressed(uint64_t windows, double work) override {
    EXPECT_TRUE(total > 0 && windows >= windowsDone && windows <= total && work >= workDone &&
                work <= 1.0 + 1e-12)
        << windows << " " << work;
    windowsDone = windows, workDone = work;
  }
  void analysisFinished() override {
    EXPECT_GT(total, 0u);
    total = 0;
    events += "end " + std::to_string(windowsDone) + " " + std::to_string(workDone) + "\n";
  }
  std::string events;
  uint64_t total = 0, windowsDone = 0;
  double workDone = 0;
};

TEST(AnalysisFastSums, EveryStatisticReportsItsProgressToTheObserver) {
  // Each statistic's windows of 3001 samples, all done at the end; MTIE finishes every window at
  // once and reports nothing between.
  const std::pair<Statistic, std::string> rows[] = {
      {Statistic::ADEV, "start ADEV 1500\nend 1500 1.000000\n"},
      {Statistic::MDEV, "start MDEV 1000\nend 1000 1.000000\n"},
      {Statistic::TDEV, "start TDEV 1000\nend 1000 1.000000\n"},
      {Statistic::RMSTIE, "start RMS TIE 3000\nend 3000 1.000000\n"},
      {Statistic::MTIE, "start MTIE 3000\nend 0 0.000000\n"},
  };
  for (const auto& [statistic, events] : rows) {
    const auto analysis =
        TestSupport::analysisOf(statistic, timeErrorValues(wanderingPhase(3001, 9)));
    RecordingObserver observer;
    analysis->setProgressObserver(&observer);
    analysis->performAnalysisFromStartWindowSize(1, INT64_MAX, 1);
    // No windows, no reports; without an observer, none either.
    analysis->performAnalysisFromStartWindowSize(5000, INT64_MAX, 1);
    analysis->setProgressObserver(nullptr);
    analysis->performAnalysisFromStartWindowSize(1, INT64_MAX, 1);
    EXPECT_EQ(observer.events, events);
  }
}

TEST(AnalysisFastSums, PrefixCorrelationEqualsTheIntegerSums) {
  // Values whose products overflow int64 partial sums, both signs: 9000 up to 2^30 (sums of
  // many blocks, and remainders longer than a block); 8191, where each block of lags' fewest
  // starts are whole blocks (no remainder); four near the largest magnitude taken.
  const int64_t largest = (int64_t{1} << 41) - 1;
  for (const std::vector<int64_t>& u : {randomIntegers(9000, int64_t{1} << 30, 31),
                                        randomIntegers(8191, int64_t{1} << 30, 32),
                                        {largest, -largest, largest - 1, -largest}}) {
    const auto correlation = VDPrefixCorrelation::of(u);
    ASSERT_TRUE(correlation.has_value());
    const auto count = static_cast<int64_t>(u.size());
    std::vector<VDPrefixCorrelation::Query> queries;
    for (int64_t lag = 0; lag < count; lag += 1 + lag / 3) {
      for (int64_t starts : {int64_t{1}, (count - lag) / 2, count - lag}) {
        if (starts >= 1 &&
            (queries.empty() || queries.back().lag != lag || queries.back().starts < starts)) {
          queries.push_back({lag, starts});
        }
      }
    }
    // Every lag over every start: many enough for the splitting to take cross-correlations.
    std::vector<VDPrefixCorrelation::Query> everyLag;
    for (int64_t lag = 0; lag < count; ++lag) {
      everyLag.push_back({lag, count - lag});
    }
    for (const auto& list : {queries, everyLag}) {
      const std::vector<__int128> sums = correlation->sums(list);
      // Splitting runs once per prime, reporting as often each time, and holds one prime's
      // transforms at a time (at a year of 1 PPS each is 256 MB): no later pass holds more
      // memory than the first (but for a few bytes of bookkeeping).
      std::vector<size_t> held;
      const auto measure = [&held](size_t) {
        const struct mallinfo2 info = mallinfo2();
        held.push_back(info.uordblks + info.hblkhd);
      };
      VDPrefixCorrelation::Workspace workspace;
      const std::vector<__int128> split = correlation->sumsBySplitting(list, measure, workspace);
      ASSERT_EQ(held.size() % 3, 0u);
      const auto pass = held.begin() + static_cast<ptrdiff_t>(held.size() / 3);
      EXPECT_LE(*std::max_element(pass, held.end()), *std::max_element(held.begin(), pass) + 4096);
      for (size_t q = 0; q < list.size(); ++q) {
        const __int128 exact = bruteForceCorrelation(u, list[q].lag, list[q].starts);
        ASSERT_TRUE(sums[q] == exact && split[q] == exact)
            << "lag " << list[q].lag << " starts " << list[q].starts;
      }
    }
  }
}

}  // namespace
