// The check program's parts: the line layouts it reads (tests/data/check/lines.txt), the gaps that
// split a stream, which samples count as settled, how checks add up to the run's verdict and exit
// status, and the exact report of one run (tests/data/check/report.txt).

#include <gtest/gtest.h>

#include <numeric>
#include <regex>

#include "TestSupport.h"
#include "VDCCheckReport.h"
#include "VDCContinuity.h"
#include "VDCMaskChecks.h"
#include "VDCProcessSkippingGaps.h"
#include "VDCRecording.h"
#include "VDCSettledWindow.h"
#include "VDConfidenceInterval.h"
#include "VDMaskTable.h"
#include "VDNoiseIdentification.h"

namespace {

TEST(CheckFormats, EveryLineVariantReadsAsItsRowSays) {
  std::ifstream table(TestSupport::sourceDir() / "tests/data/check/lines.txt");
  std::map<std::string, VDCRecording::Grammar> grammars;
  std::map<std::string, std::vector<std::string>> linesOf;
  int rows = 0;
  for (std::string row; std::getline(table, row);) {
    if (row.empty() || row[0] == '#') {
      continue;
    }
    static const std::regex bar(" *\\| *");
    const std::vector<std::string> fields(
        std::sregex_token_iterator(row.begin(), row.end(), bar, -1), {});
    ASSERT_EQ(fields.size(), 4u) << row;
    const std::string& format = fields[0];
    // One reader a format, made by its first row.
    VDCRecording::Grammar& grammar =
        grammars.try_emplace(format, VDCRecording::lineGrammar(format, {})).first->second;
    VDCSample sample;
    const VDCLineKind kind = grammar(fields[1], sample);
    // "sample STREAM TIME ERROR STATE", "summary" or "other".
    std::istringstream expected(fields[2]);
    std::string what, stream;
    double time = 0;
    int64_t error = 0;
    int state = 0;
    expected >> what >> stream >> time >> error >> state;
    EXPECT_EQ(kind, what == "sample"    ? VDCLineKind::sample
                    : what == "summary" ? VDCLineKind::summary
                                        : VDCLineKind::other)
        << row;
    if (what == "sample") {
      EXPECT_EQ(sample.stream, stream) << row;
      EXPECT_DOUBLE_EQ(sample.time, time) << row;
      EXPECT_EQ(sample.error, error) << row;
      // The formats without a servo leave its state as it was.
      EXPECT_TRUE(format == "ticc" || format == "phase" || format == "time-error" ||
                  sample.servoState == state)
          << row;
      linesOf[format].push_back(fields[1]);
    }
    ++rows;
  }
  EXPECT_GT(rows, 30);
  // Each format's sample lines are recognised as that format.
  for (const auto& [format, lines] : linesOf) {
    EXPECT_EQ(VDCRecording::recognisedFormat(lines, {}), format);
  }
}

TEST(CheckFormats, PhaseDataKeepsItsPicosecondsThroughTheStatistics) {
  // PHASE.DAT read as phase data in seconds: the published overlapping ADEV at every octave.
  std::string error;
  const auto recording =
      VDCRecording::read((TestSupport::sourceDir() / "tests/data/PHASE.DAT").string(), {}, error);
  ASSERT_TRUE(recording.has_value()) << error;
  EXPECT_EQ(recording->format(), "phase");
  const VDCRecording::Stream& phase = recording->streams().at("phase");
  std::vector<VDTimeErrorValue> values;
  for (size_t i = 0; i < phase.times.size(); ++i) {
    values.emplace_back(static_cast<uint64_t>(phase.times[i] * 1e9), phase.errors[i]);
  }
  VDAllanDeviationAnalysis adev(values);
  adev.setCountsPerNanosecond(recording->countsPerNanosecond());
  adev.performAnalysisFromStartWindowSize(2, 128, 1);
  for (const TestSupport::PublishedAdev& row : TestSupport::publishedPhaseDatAdev()) {
    EXPECT_NEAR(adev.points()[row.window - 2].value, row.sigma, 1e-4 * row.sigma) << row.window;
  }
}

TEST(CheckFormats, GapsAndDisorderSplitTheStream) {
  struct Case {
    const char* name;
    std::vector<double> times;
    double tau0;
    size_t gaps, disorder;
    std::vector<size_t> segmentStarts;
    double missingShare;
  };
  const Case cases[] = {
      {"even", {0, 1, 2, 3, 4}, 1, 0, 0, {0}, 0},
      {"jitter in the time tags", {0, 1.2, 2, 3.1, 4, 5}, 1, 0, 0, {0}, 0},
      {"a step of 1.5 intervals is no gap yet", {0, 1, 2, 3.5, 4.5, 5.5}, 1, 0, 0, {0}, 0},
      {"one gap", {0, 1, 2, 6, 7, 8, 9, 10}, 1, 1, 0, {0, 3}, 0.3},
      {"a repeated time", {0, 1, 2, 2, 3, 4}, 1, 0, 1, {0, 3}, 0},
      {"a time going back", {0, 1, 2, 1.5, 2.5, 3.5}, 1, 0, 1, {0, 3}, 0},
      {"16 Hz", {0, 0.0625, 0.125, 0.1875, 0.5, 0.5625}, 0.0625, 1, 0, {0, 4}, 0.25 / 0.5625},
      // The median step, not the last one.
      {"a gap last", {0, 1, 2, 3, 4, 10}, 1, 1, 0, {0, 5}, 0.5},
  };
  for (const Case& c : cases) {
    const VDCContinuity continuity = VDCContinuity::of(c.times);
    EXPECT_DOUBLE_EQ(continuity.tau0, c.tau0) << c.name;
    EXPECT_EQ(continuity.gaps.size(), c.gaps) << c.name;
    EXPECT_EQ(continuity.disorder.size(), c.disorder) << c.name;
    std::vector<size_t> starts;
    for (const VDCContinuity::Segment& segment : continuity.segments) {
      starts.push_back(segment.first);
    }
    EXPECT_EQ(starts, c.segmentStarts) << c.name;
    EXPECT_NEAR(continuity.missingShare, c.missingShare, 1e-12) << c.name;
  }
}

TEST(CheckVerdicts, SettledWindowByTimeAndByTheServosLock) {
  std::vector<double> times(200);
  std::iota(times.begin(), times.end(), 1000);  // 1 s apart
  struct Case {
    const char* name;
    std::vector<int> states;  // runs of (state, count)
    size_t first, end;
    bool lostLock;
  };
  const Case cases[] = {
      {"unlocked, a step, locked", {0, 10, 1, 1, 2, 189}, 71, 200, false},
      {"starts locked", {2, 50, 3, 150}, 60, 200, false},
      {"loses the lock", {0, 5, 2, 100, 0, 3, 2, 92}, 65, 105, true},
      {"a step after locking is a loss too", {2, 100, 1, 1, 2, 99}, 60, 100, true},
      {"locks too late to settle", {0, 170, 2, 30}, 200, 200, false},
      {"never locks", {0, 100, 1, 100}, 0, 0, false},
  };
  for (const Case& c : cases) {
    std::vector<int> states;
    for (size_t i = 0; i < c.states.size(); i += 2) {
      states.insert(states.end(), c.states[i + 1], c.states[i]);
    }
    const VDCSettledWindow window = VDCSettledWindow::afterServoLock(times, states);
    EXPECT_EQ(window.first, c.first) << c.name;
    EXPECT_EQ(window.end, c.end) << c.name;
    EXPECT_EQ(window.lostLock, c.lostLock) << c.name;
  }
  EXPECT_EQ(VDCSettledWindow::afterSeconds(times, 300).first, 200u);
  EXPECT_EQ(VDCSettledWindow::afterSeconds(times, 12.5).first, 13u);
  EXPECT_EQ(VDCSettledWindow::afterSeconds(times, 0).first, 0u);
}

// A 6 ns sinusoidal wander on a 25 ns offset, 2000 s at 16 Hz, judged against class C (max|TE|,
// cTE and dTE_L MTIE fail: 31 > 30, 24.6 > 10, 12 > 10), the PRTC-A TDEV (upper end unsure;
// evaluated from 0.1 s to a twelfth of the settled 1700 s) and a user's mask beyond the data.
TEST(CheckVerdicts, ReportOfOneRunIsExact) {
  std::vector<double> times, errors;
  for (int i = 0; i < 32000; ++i) {
    times.push_back(i / 16.0);
    errors.push_back(25 + 6 * std::sin(i / 16.0 / 300));
  }
  VDMaskTable table = VDMaskTable::builtIn();
  std::string error;
  ASSERT_TRUE(table.addDefinitions(
      "late | mtie | 5000 < tau <= 9000: 1 | mine | 1 | - | none | lab | a mask beyond the data",
      "user.txt", error));
  std::vector<const VDMask*> masks = table.masksWithId("g8273.2-c");
  masks.push_back(table.find("g8272-prtc-a", "tdev"));
  masks.push_back(table.find("late", "mtie"));
  const VDCSettledWindow window = VDCSettledWindow::afterSeconds(times, 300);
  const VDTimeErrorMetrics metrics(times, errors, window.first, window.end);
  VDCMaskChecks checks(metrics, window, {});
  const VDCCheckReport report(
      {"run.log", "ptp4l", 32000, 0.0625, 0, times[window.first], times.back(), window.samples()},
      checks.evaluate(masks), false);
  const std::string expected =
      TestSupport::readFile(TestSupport::sourceDir() / "tests/data/check/report.txt");
  EXPECT_EQ(report.consoleText() + "--- check.json\n" + report.json() + "--- check.junit.xml\n" +
                report.junitXML(),
            expected);
  EXPECT_EQ(report.exitStatus(), 1);
}

TEST(CheckVerdicts, TwoSettledSamplesAreEnoughForOneWindow) {
  const std::vector<double> times = {0, 1, 400, 401};
  const std::vector<double> errors = {900, 900, 10, 170};
  const VDCSettledWindow window = VDCSettledWindow::afterSeconds(times, 300);
  const VDTimeErrorMetrics metrics(times, errors, window.first, window.end);
  VDCMaskChecks checks(metrics, window, {});
  const VDCMaskCheck check =
      checks.evaluate({VDMaskTable::builtIn().find("gptp-one-hop", "mtie")}).front();
  EXPECT_EQ(check.verdict.outcome, VDMaskVerdict::Outcome::pass);
  EXPECT_EQ(check.verdict.value, 160);
  EXPECT_EQ(check.verdict.atTau, 1);
}

TEST(CheckVerdicts, RunVerdictAndExitStatus) {
  const VDMask& mask = *VDMaskTable::builtIn().find("g8273.2-c", "cte");
  using Outcome = VDMaskVerdict::Outcome;
  auto check = [&](Outcome outcome) {
    VDMaskVerdict verdict;
    verdict.outcome = outcome;
    return VDCMaskCheck{&mask, verdict};
  };
  struct Case {
    std::vector<VDCMaskCheck> checks;
    bool lostLock;
    int status;
  };
  const Case cases[] = {
      {{check(Outcome::pass), check(Outcome::pass)}, false, 0},
      {{check(Outcome::pass), check(Outcome::fail)}, false, 1},
      {{check(Outcome::notEvaluated), check(Outcome::fail)}, false, 1},
      {{check(Outcome::pass), check(Outcome::notEvaluated)}, false, 3},
      {{}, false, 3},
      {{check(Outcome::pass)}, true, 1},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(VDCCheckReport({}, c.checks, c.lostLock).exitStatus(), c.status);
  }
}

// --gaps skip: at window m each statistic pools the terms inside the segments that hold m, by
// TestSupport's plain loops: the largest MTIE, the others the root mean square over all terms; the
// deviations' EDF add over those segments.
TEST(CheckSkippingGaps, EveryStatisticPoolsTheTermsInsideSegments) {
  using S = TestSupport::Statistic;
  using P = VDPProcessSingleTimeError;
  using V = const std::vector<VDTimeErrorValue>&;
  using Variance = VDEquivalentDegreesOfFreedom::Variance;
  const struct {
    S statistic;
    std::function<std::unique_ptr<VDStatisticAnalysis>(P&, V)> analysis;
    std::optional<Variance> variance;
  } statistics[] = {
      {S::ADEV, [](P& p, V v) { return p.adevAnalysisForTimeErrorValues(v); },
       Variance::kOverlappingAllan},
      {S::MDEV, [](P& p, V v) { return p.madevAnalysisForTimeErrorValues(v); },
       Variance::kModifiedAllan},
      {S::TDEV, [](P& p, V v) { return p.tdevAnalysisForTimeErrorValues(v); },
       Variance::kModifiedAllan},
      {S::RMSTIE, [](P& p, V v) { return p.rmstieAnalysisForTimeErrorValues(v); }, {}},
      {S::MTIE, [](P& p, V v) { return p.mtieAnalysisForTimeErrorValues(v); }, {}},
  };
  // Samples every 0.5 s with gaps of 1, 4 and 23, which leave segments of 150, 89, 9 and 66.
  std::vector<double> times;
  std::vector<VDTimeErrorValue> values;
  std::vector<std::vector<int64_t>> segments(1);
  for (int64_t t = 0, walk = 0; t < 342; ++t) {
    walk += (t * t * 7919) % 41 - 20;
    if (t == 150 || (t >= 240 && t < 244) || (t >= 253 && t < 276)) {
      segments.back().empty() ? void() : segments.emplace_back().clear();
      continue;
    }
    times.push_back(0.5 * static_cast<double>(t));
    values.emplace_back(t * 500000000, 300 * t + walk + (t * 7727) % 997);
    segments.back().push_back(values.back().error());
  }
  ASSERT_EQ(segments.size(), 4u);
  VDCProcessSkippingGaps process("", "", 1, VDCContinuity::of(times).segments);
  const VDNoiseIdentification noise(segments[0]);  // the longest segment's
  for (const auto& [statistic, analysisOf, variance] : statistics) {
    const auto analysis = analysisOf(process, values);
    analysis->performAnalysisFromStartWindowSize(1, INT64_MAX, 1);
    int64_t m = 0;
    for (const VDStatisticPoint& point : analysis->points()) {
      ++m;
      long double squares = 0, largest = 0;
      double terms = 0, edf = 0;
      for (const std::vector<int64_t>& x : segments) {
        const auto n = static_cast<int64_t>(x.size());
        if (TestSupport::largestWindow(statistic, n) >= m) {
          const TestSupport::Reference segment = TestSupport::reference(statistic, x, m);
          squares += segment.value * segment.value * segment.terms;
          largest = std::max(largest, segment.value);
          terms += static_cast<double>(segment.terms);
          edf += variance
                     ? VDEquivalentDegreesOfFreedom::of(*variance, noise.alphaAtWindow(m), m, n)
                     : 0;
        }
      }
      const bool fractional = statistic == S::ADEV || statistic == S::MDEV;
      const double expected = statistic == S::MTIE
                                  ? static_cast<double>(largest)
                                  : static_cast<double>(std::sqrt(squares / terms)) *
                                        (fractional ? 1e-9 / (0.5 * m) : 1);
      const VDConfidenceInterval bounds =
          edf > 0 ? VDConfidenceInterval::forDegreesOfFreedom(edf) : VDConfidenceInterval{0, 0};
      const std::string where =
          std::to_string(static_cast<int>(statistic)) + " m=" + std::to_string(m);
      // tau0: the 310 steps inside the segments, not the span over the samples.
      EXPECT_EQ(point.tau, m * 0.5) << where;
      EXPECT_NEAR(point.value, expected, 1e-12 * expected) << where;
      EXPECT_EQ(point.termCount, terms) << where;
      EXPECT_EQ(point.alpha, variance ? noise.alphaAtWindow(m) : 0) << where;
      EXPECT_NEAR(point.edf, edf, 1e-12 * edf) << where;
      EXPECT_NEAR(point.minimum, bounds.lowerFactor * expected, 1e-12 * expected) << where;
      EXPECT_NEAR(point.maximum, bounds.upperFactor * expected, 1e-12 * expected) << where;
    }
    // Up to the largest window the longest segment holds.
    EXPECT_EQ(m, TestSupport::largestWindow(statistic, 150));
  }
}

}  // namespace
