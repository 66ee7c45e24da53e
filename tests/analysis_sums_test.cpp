// The fast paths behind the statistics against plain loops: the exact autocorrelation and the
// sums by transforms against brute-force integer sums (equal once rounded), RMS TIE against its
// exact sums, the tiled lagged sums against the same sums taken one lag at a time (bit for bit),
// the time deviation that reuses the modified Allan deviation's sums, and the progress reports
// every statistic makes.

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "VDExactAutocorrelation.h"
#include "VDLaggedDifferenceSums.h"
#include "VDPrefixCorrelation.h"

namespace {

std::vector<int64_t> randomIntegers(size_t count, int64_t magnitude, uint64_t seed) {
  std::mt19937_64 generator(seed);
  std::uniform_int_distribution<int64_t> uniform(-magnitude, magnitude);
  std::vector<int64_t> values(count);
  for (int64_t& value : values) {
    value = uniform(generator);
  }
  return values;
}

// A random walk with a drift: time error as a free-running clock makes it.
std::vector<int64_t> wanderingPhase(size_t count, uint64_t seed, double drift = 17.0) {
  std::mt19937_64 generator(seed);
  std::normal_distribution<double> step(0.0, 3.0);
  std::vector<int64_t> values(count);
  double phase = 0.0;
  for (size_t i = 0; i < count; ++i) {
    phase += drift + step(generator);
    values[i] = std::llround(phase) + 5000;
  }
  return values;
}

using TestSupport::timeErrorValues;

// sum of y[i] y[i + lag] over the first starts i (every one by default).
__int128 bruteForceCorrelation(const std::vector<int64_t>& y, size_t lag,
                               size_t starts = SIZE_MAX) {
  __int128 sum = 0;
  for (size_t i = 0; i + lag < y.size() && i < starts; ++i) {
    sum += static_cast<__int128>(y[i]) * y[i + lag];
  }
  return sum;
}

TEST(AnalysisFastSums, ExactAutocorrelationEqualsTheIntegerSumsAtEveryLag) {
  // Small values; the largest the transforms take for 1000 values (N max^2 just below 2^84);
  // one value; a length that is a power of two.
  const std::vector<std::vector<int64_t>> sequences = {randomIntegers(777, 1000, 1),
                                                       randomIntegers(1000, int64_t{1} << 36, 2),
                                                       {-123456789},
                                                       randomIntegers(1024, 5, 3)};
  for (const std::vector<int64_t>& y : sequences) {
    const auto correlation = VDExactAutocorrelation::of(y);
    ASSERT_TRUE(correlation.has_value()) << y.size();
    ASSERT_EQ(correlation->size(), y.size());
    for (size_t lag = 0; lag < y.size(); ++lag) {
      ASSERT_TRUE((*correlation)[lag] == bruteForceCorrelation(y, lag))
          << "N=" << y.size() << " lag " << lag;
    }
  }
  EXPECT_TRUE(VDExactAutocorrelation::of({}).value().empty());
  // Sums the three primes cannot hold are refused, not wrapped.
  EXPECT_FALSE(VDExactAutocorrelation::of({int64_t{1} << 42, 0}).has_value());
  EXPECT_FALSE(VDExactAutocorrelation::of(std::vector<int64_t>(513, int64_t{1} << 40)).has_value());
  // Up to N max|y|^2 < 2^89: 17 values of 2^40 are summed exactly.
  EXPECT_TRUE(VDExactAutocorrelation::of(std::vector<int64_t>(17, int64_t{1} << 40)).value()[0] ==
              static_cast<__int128>(17) << 80);
}

TEST(AnalysisFastSums, SequencesBeyondFourMillionValuesStayExact) {
  // 2^22 + 1 values, one more than the transforms of 2^23 could correlate: exact at the lags
  // where a lost term would show (the first, around the old length, the last).
  const std::vector<int64_t> y = randomIntegers((size_t{1} << 22) + 1, 1 << 20, 11);
  const auto correlation = VDExactAutocorrelation::of(y);
  ASSERT_TRUE(correlation.has_value());
  for (const size_t lag :
       {size_t{0}, size_t{1}, size_t{1} << 21, (size_t{1} << 22) - 1, size_t{1} << 22}) {
    EXPECT_TRUE((*correlation)[lag] == bruteForceCorrelation(y, lag)) << "lag " << lag;
  }
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

TEST(AnalysisFastSums, RmsTieIsTheExactSumRoundedOnce) {
  // 5000 samples drifting 40 us a sample: squares beyond 2^53, where a double sum would round.
  const std::vector<int64_t> errors = wanderingPhase(5000, 4, 40000.0);
  VDRootMeanSquaredTimeIntervalErrorAnalysis analysis(timeErrorValues(errors));
  analysis.performAnalysisFromStartWindowSize(1, INT64_MAX, 1);
  ASSERT_EQ(analysis.points().size(), errors.size() - 1);
  for (const VDStatisticPoint& point : analysis.points()) {
    const auto m = static_cast<size_t>(point.windowSize);
    const __int128 exact = bruteForceSumOfSquares(errors, 1, m);
    const auto terms = static_cast<double>(errors.size() - m);
    ASSERT_EQ(point.value, std::sqrt(static_cast<double>(exact) / terms)) << "m=" << m;
  }
}

TEST(AnalysisFastSums, SumsByTransformsAreTheExactSumsRoundedOnce) {
  // Values up to 2^34: squared differences far beyond 2^53, where double sums would round. More
  // than 8192 lags (reported in parts) and many 2048-value blocks; lags from 1 and stepped, and
  // only short lags (under a sixteenth of the series, summed by blocks, not one transform).
  // The lengths lie just past a multiple of the 2048-value block, so the short lags' starts cross
  // a block boundary.
  for (const auto& [order, count] : {std::pair<int, size_t>{1, 20500}, {2, 20500}, {3, 26700}}) {
    const std::vector<int64_t> u = randomIntegers(count, int64_t{1} << 34, 10 + order);
    const VDLaggedDifferenceSums sums(u, order);
    const int64_t largestLag = (static_cast<int64_t>(count) - 1) / order;
    const int64_t shortLag = static_cast<int64_t>(count) / (20 * order);
    for (const auto& [first, last, step] : {std::tuple<int64_t, int64_t, int64_t>{1, INT64_MAX, 1},
                                            {5, INT64_MAX, 611},
                                            {1, shortLag, 1}}) {
      const VDWindowRange lags = VDWindowRange::clamped(first, last, step, 1, largestLag);
      std::vector<uint64_t> reports;
      const std::vector<double> exact =
          sums.sumsOfSquares(lags, [&](uint64_t done) { reports.push_back(done); });
      // 0 first, then as parts of 8192 lags finish.
      std::vector<uint64_t> expectedReports = {0};
      for (uint64_t done = 8192; done < lags.count(); done += 8192) {
        expectedReports.push_back(done);
      }
      expectedReports.push_back(lags.count());
      EXPECT_EQ(reports, expectedReports) << "order " << order;
      ASSERT_EQ(exact.size(), lags.count());
      // A sample of lags, with those on both sides of a report and the last.
      for (uint64_t index = 0; index < lags.count(); ++index) {
        const bool sampled =
            index % 97 == 0 || index % 8192 < 2 || index % 8192 > 8189 || index + 1 == lags.count();
        const auto m = static_cast<size_t>(lags.at(index));
        if (sampled) {
          ASSERT_EQ(exact[index], static_cast<double>(bruteForceSumOfSquares(u, order, m)))
              << "order " << order << " lag " << m;
        }
      }
    }
  }
}

TEST(AnalysisFastSums, TiledSumsEqualTheSumsTakenOneLagAtATime) {
  // Values too large for the transforms whole: up to 2^45 they are split into halves and summed
  // exactly (rounded once, as brute force in 128 bits); from 2^62 on the tiles of the double or
  // the integer path sum them. 6000 values: several 2048-term chunks and, at step 1, several
  // tiles of lags.
  std::vector<int64_t> atTheTop = randomIntegers(1500, int64_t{1} << 40, 6);
  for (int64_t& value : atTheTop) {
    value += int64_t{1} << 62;
  }
  const std::vector<std::vector<int64_t>> sequences = {randomIntegers(6000, int64_t{1} << 45, 5),
                                                       atTheTop};
  for (const std::vector<int64_t>& sequence : sequences) {
    const bool split = sequence.front() < (int64_t{1} << 61);
    for (int order = 1; order <= 3; ++order) {
      const VDLaggedDifferenceSums sums(sequence, order);
      const auto size = static_cast<int64_t>(sequence.size());
      const int64_t largestLag = (size - 1) / order;
      for (const auto& [first, step] : {std::pair<int64_t, int64_t>{1, 1}, {300, 7}}) {
        const VDWindowRange lags = VDWindowRange::clamped(first, INT64_MAX, step, 1, largestLag);
        int64_t lastReport = -1;
        const std::vector<double> tiled = sums.sumsOfSquares(lags, [&lastReport](uint64_t done) {
          EXPECT_GT(static_cast<int64_t>(done), lastReport);
          lastReport = static_cast<int64_t>(done);
        });
        EXPECT_EQ(lastReport, static_cast<int64_t>(lags.count()));
        ASSERT_EQ(tiled.size(), lags.count());
        for (uint64_t index = 0; index < lags.count(); index += split ? 37 : 1) {
          const int64_t lag = lags.at(index);
          ASSERT_EQ(tiled[index], split ? static_cast<double>(bruteForceSumOfSquares(
                                              sequence, order, static_cast<size_t>(lag)))
                                        : sums.sumOfSquares(lag, size - order * lag))
              << "order " << order << " lag " << lag << " N=" << size;
        }
      }
    }
  }
}

// The values of a statistic of errors over the windows start, start + step, ... up to end.
std::vector<double> analysed(TestSupport::Statistic statistic, const std::vector<int64_t>& errors,
                             int64_t start, int64_t end, int64_t step) {
  const auto analysis = TestSupport::analysisOf(statistic, timeErrorValues(errors));
  analysis->performAnalysisFromStartWindowSize(start, end, step);
  std::vector<double> values;
  for (const VDStatisticPoint& point : analysis->points()) {
    values.push_back(point.value);
  }
  return values;
}

TEST(AnalysisFastSums, TimeDeviationAfterModifiedAllanDeviationGivesItsOwnValues) {
  using S = TestSupport::Statistic;
  const std::vector<int64_t> first = wanderingPhase(3000, 7), second = wanderingPhase(3000, 8);
  // TDEV of first over windows 5, 7, ... 999: alone (the sums kept are of other data), then after
  // MDEV of the same series over the same windows (as the processor runs them, reusing its sums),
  // of other data, or over windows that differ in start, end or step alone (no stale sums).
  analysed(S::MDEV, second, 5, 999, 2);
  const std::vector<double> alone = analysed(S::TDEV, first, 5, 999, 2);
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
  // TDEV = tau / sqrt(3) MDEV with tau in ns.
  const std::vector<double> modified = analysed(S::MDEV, first, 5, 999, 2);
  ASSERT_EQ(modified.size(), alone.size());
  for (size_t index = 0; index < alone.size(); ++index) {
    const double tau = static_cast<double>(5 + 2 * index) * 1e9;
    EXPECT_NEAR(alone[index], tau / std::sqrt(3.0) * modified[index], 1e-12 * alone[index]);
  }
}

// Writes down each start and end (with the last windows and work done reported), checking the
// reports between them as they come: inside a run, never going back, never beyond the whole.
class RecordingObserver : public VDAnalysisProgress {
 public:
  void analysisStarted(const std::string& name, uint64_t windows) override {
    EXPECT_FALSE(running);
    running = true, total = windows, windowsDone = 0, workDone = 0;
    events += "start " + name + " " + std::to_string(windows) + "\n";
  }
  void analysisProgressed(uint64_t windows, double work) override {
    EXPECT_TRUE(running && windows >= windowsDone && windows <= total && work >= workDone &&
                work <= 1.0 + 1e-12)
        << windows << " " << work;
    windowsDone = windows, workDone = work;
  }
  void analysisFinished() override {
    EXPECT_TRUE(running);
    running = false;
    events += "end " + std::to_string(windowsDone) + " " + std::to_string(workDone) + "\n";
  }
  std::string events;

 private:
  bool running = false;
  uint64_t total = 0, windowsDone = 0;
  double workDone = 0;
};

TEST(AnalysisFastSums, EveryStatisticReportsItsProgressToTheObserver) {
  using S = TestSupport::Statistic;
  // Each statistic's windows of 3001 samples, all done at the end; MTIE finishes every window at
  // once and reports nothing between.
  const std::pair<S, std::string> rows[] = {
      {S::ADEV, "start ADEV 1500\nend 1500 1.000000\n"},
      {S::MDEV, "start MDEV 1000\nend 1000 1.000000\n"},
      {S::TDEV, "start TDEV 1000\nend 1000 1.000000\n"},
      {S::RMSTIE, "start RMS TIE 3000\nend 3000 1.000000\n"},
      {S::MTIE, "start MTIE 3000\nend 0 0.000000\n"},
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
      VDPrefixCorrelation::Workspace workspace;
      const std::vector<__int128> split = correlation->sumsBySplitting(list, {}, workspace);
      for (size_t q = 0; q < list.size(); ++q) {
        const __int128 exact = bruteForceCorrelation(u, list[q].lag, list[q].starts);
        ASSERT_TRUE(sums[q] == exact && split[q] == exact)
            << "lag " << list[q].lag << " starts " << list[q].starts;
      }
    }
  }
}

}  // namespace
