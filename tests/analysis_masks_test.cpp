// The standards' masks and metrics: every built-in limit on both sides of each breakpoint against
// the recommendations' rows (tests/data/masks/breakpoints.txt, typed from them, not from
// masks.txt), the definitions a user's file may hold, the verdict rules (equality passes), and
// each metric against a plain loop over its definition.

#include <gtest/gtest.h>

#include <numbers>

#include "TestSupport.h"
#include "VDMTIEMask.h"
#include "VDMaskTable.h"
#include "VDMaskVerdict.h"
#include "VDTimeErrorMetrics.h"

namespace {

using TestSupport::Statistic;

TEST(AnalysisMasks, BuiltInLimitsMatchTheRecommendationsRows) {
  std::ifstream rows(TestSupport::sourceDir() / "tests/data/masks/breakpoints.txt");
  std::string line;
  int checked = 0;
  while (std::getline(rows, line)) {
    if (line.empty() || line[0] == '#') {
      continue;
    }
    std::string id, metric, expected;
    double tau = 0;
    std::istringstream(line) >> id >> metric >> tau >> expected;
    const VDMask* mask = VDMaskTable::builtIn().find(id, metric);
    ASSERT_NE(mask, nullptr) << line;
    const std::optional<double> limit = mask->limitAtTau(tau);
    if (expected == "none") {
      EXPECT_FALSE(limit.has_value()) << line;
    } else {
      ASSERT_TRUE(limit.has_value()) << line;
      EXPECT_NEAR(*limit, std::stod(expected), 1e-12 * std::stod(expected)) << line;
    }
    ++checked;
  }
  EXPECT_GT(checked, 100);
}

TEST(AnalysisMasks, NoTauBetweenTheFirstAndLastBreakpointFallsOutside) {
  for (const VDMask& mask : VDMaskTable::builtIn().masks()) {
    if (!mask.curve) {
      continue;
    }
    const double lower = std::max(mask.domainLower(), 1e-3);
    const double upper = std::isinf(mask.domainUpper()) ? 1e7 : mask.domainUpper();
    for (double tau = lower * 1.0001; tau <= upper; tau *= 1.0001) {
      ASSERT_TRUE(mask.limitAtTau(tau).has_value()) << mask.id << " " << mask.metric << " " << tau;
    }
    for (const VDMaskSegment& segment : mask.segments) {
      EXPECT_TRUE(mask.limitAtTau(segment.upper).has_value() || std::isinf(segment.upper));
    }
  }
}

TEST(AnalysisMasks, DefinitionsAreReadOrRefusedWithTheLine) {
  std::istringstream rows(
      TestSupport::readFile(TestSupport::sourceDir() / "tests/data/masks/definitions.txt"));
  std::vector<std::string> texts;
  for (std::string line, text; std::getline(rows, line);) {
    if (line.rfind("> ", 0) == 0) {
      text = line.substr(2);
      for (size_t at; (at = text.find("\\n")) != std::string::npos;) {
        text.replace(at, 2, 1, '\n');
      }
      texts.push_back(text);
    } else if (line.rfind("<", 0) == 0) {
      VDMaskTable table = VDMaskTable::builtIn();
      std::string error;
      EXPECT_EQ(table.addDefinitions(text, "user.txt", error), line.size() < 2) << text;
      EXPECT_EQ(error, line.substr(std::min<size_t>(line.size(), 2))) << text;
    }
  }
  ASSERT_EQ(texts.size(), 15u);
  VDMaskTable table;
  std::string error;
  ASSERT_TRUE(table.addDefinitions(texts[0], "user.txt", error));
  const VDMask& mask = table.masks().front();
  EXPECT_NEAR(*mask.limitAtTau(4), 5 / 2.0 - 4e-3 + 2, 1e-12);
  EXPECT_EQ(*mask.limitAtTau(1e9), 9);
  EXPECT_TRUE(mask.upperUnsure());
  EXPECT_EQ(mask.limitText(), "0 < tau <= 10: 5 tau^-0.5 + -0.001 tau + 2; 10 < tau <= inf?: 9");
}

TEST(AnalysisMasks, VerdictsPassAtTheLimitFailAboveAndNeedDataInTheDomain) {
  const VDMask& prtcA = *VDMaskTable::builtIn().find("g8272-prtc-a", "mtie");
  using Outcome = VDMaskVerdict::Outcome;
  // 0.275 tau + 25 up to 273 s, then 100 (upper end unsure).
  const std::vector<VDMaskVerdict::CurvePoint> curve = {
      {0.05, 1000}, {1, 25.275}, {2, 20}, {300, 100}, {400, 101}, {500, 120}, {600, 1}};
  const struct {
    double supportedTau;
    Outcome outcome;
    double value, limit, atTau;
    uint64_t exceeding, evaluated;
    double firstTau, lastTau;
  } cases[] = {
      {0.09, Outcome::notEvaluated, 0, 0, 0, 0, 0, 0, 0},
      {300, Outcome::pass, 25.275, 25.275, 1, 0, 3, 1, 300},
      {1e9, Outcome::fail, 120, 100, 500, 2, 6, 1, 600},
  };
  for (const auto& c : cases) {
    const VDMaskVerdict verdict = VDMaskVerdict::ofCurve(prtcA, curve, c.supportedTau);
    EXPECT_EQ(verdict.outcome, c.outcome) << c.supportedTau;
    EXPECT_EQ(verdict.exceeding, c.exceeding);
    EXPECT_EQ(verdict.evaluated, c.evaluated);
    if (c.evaluated > 0) {
      EXPECT_DOUBLE_EQ(verdict.value, c.value);
      EXPECT_DOUBLE_EQ(verdict.limit, c.limit);
      EXPECT_DOUBLE_EQ(verdict.margin, c.limit - c.value);
      EXPECT_EQ(verdict.atTau, c.atTau);
      EXPECT_EQ(verdict.firstTau, c.firstTau);
      EXPECT_EQ(verdict.lastTau, c.lastTau);
      EXPECT_EQ(verdict.note,
                "the mask's last row (tau above 273 s) is not confirmed by the recommendation");
    }
  }
  // A tau off a breakpoint or the data's end by rounding only is judged as on it.
  const VDMaskVerdict rounded =
      VDMaskVerdict::ofCurve(prtcA, {{273 * (1 + 4e-16), 100.1}}, 273 * (1 - 4e-16));
  EXPECT_EQ(rounded.evaluated, 1u);
  EXPECT_DOUBLE_EQ(rounded.limit, 0.275 * 273 + 25);
  EXPECT_EQ(VDMaskVerdict::ofCurve(prtcA, curve, 0.09).note,
            "the data supports no tau of the mask's domain (up to 0.09 s)");

  const VDMask& classC = *VDMaskTable::builtIn().find("g8273.2-c", "max_abs_te");
  EXPECT_EQ(VDMaskVerdict::ofValue(classC, 30).outcome, Outcome::pass);
  EXPECT_EQ(VDMaskVerdict::ofValue(classC, 30.000001).outcome, Outcome::fail);
  EXPECT_EQ(VDMaskVerdict::ofValue(classC, std::nan("")).outcome, Outcome::fail);
  EXPECT_FALSE(VDMaskVerdict::ofValue(classC, 3).atTau.has_value());
}

TEST(AnalysisMasks, OneHopMaskConformsUpToItsLimitAndNamesTheFirstPointBeyond) {
  const VDMTIEMask mask = VDMTIEMask::gPTP1Hop();
  std::optional<std::string> error;
  EXPECT_TRUE(mask.mtieConformsToMask({}, &error));
  EXPECT_TRUE(mask.mtieConformsToMask({{1, 0.125, 12, 99}, {2, 0.25, 160, 98}}, &error));
  EXPECT_FALSE(error.has_value());
  const std::vector<VDStatisticPoint> beyond = {
      {1, 0.125, 12, 99}, {7, 0.875, 160.5, 93}, {8, 1, 161, 92}};
  EXPECT_FALSE(mask.mtieConformsToMask(beyond, nullptr));
  EXPECT_FALSE(mask.mtieConformsToMask(beyond, &error));
  EXPECT_EQ(error, "MTIE exceeds the mask at window size 7 (tau 0.875 s): 160.5 ns > 160 ns");
  EXPECT_FALSE(mask.mtieConformsToMask({{3, 3, std::nan(""), 1}}, nullptr));
}

// The metrics' definitions as plain loops.
struct Reference {
  std::vector<double> times, x, y;
  size_t first, end;

  Reference(std::vector<double> t, std::vector<double> e, size_t f)
      : times(std::move(t)), x(std::move(e)), first(f), end(x.size()) {
    y = x;
    for (size_t n = 1; n < x.size(); ++n) {
      const double a = 1 - std::exp(-2 * std::numbers::pi * 0.1 * (times[n] - times[n - 1]));
      y[n] = y[n - 1] + a * (x[n] - y[n - 1]);
    }
  }
  double largestMean(size_t count) const {
    double largest = 0;
    for (size_t k = first; k + count <= end; ++k) {
      double sum = 0;
      for (size_t i = k; i < k + count; ++i) sum += x[i];
      largest = std::max(largest, std::abs(sum / count));
    }
    return largest;
  }
  // A statistic of the settled part of v by TestSupport's plain loops, in integers of unit.
  double statistic(Statistic kind, const std::vector<double>& v, size_t m, double unit) const {
    std::vector<int64_t> x;
    for (size_t i = first; i < end; ++i) {
      x.push_back(std::llround(v[i] / unit));
    }
    return static_cast<double>(TestSupport::reference(kind, x, static_cast<int64_t>(m)).value) *
           unit;
  }
};

void expectRelative(double actual, double expected, double absolute, const std::string& what) {
  EXPECT_NEAR(actual, expected, 1e-9 * std::abs(expected) + absolute) << what;
}

TEST(AnalysisMetrics, EveryMetricEqualsAPlainLoopOverItsDefinition) {
  std::mt19937_64 random(7);
  std::normal_distribution<double> noise(0, 3);
  const size_t count = 1200, settledFirst = 160;  // settled after 10 s at 16 Hz
  // Each series' time error at t s with noise n.
  const std::pair<std::string, double (*)(double t, double n)> series[] = {
      {"white noise", [](double, double n) { return n; }},
      {"slow wander", [](double t, double n) { return 40 * std::sin(t / 9) + 0.01 * n; }},
      {"constant offset", [](double, double) { return -17.25; }},
      {"frequency offset", [](double t, double) { return 0.5 * t - 3; }},
      {"step", [](double t, double n) { return (t < 40 ? 0.0 : 50.0) + 0.1 * n; }},
  };
  for (const auto& [name, error] : series) {
    std::vector<double> times, errors;
    for (size_t i = 0; i < count; ++i) {
      // 16 Hz with jitter in the time tags.
      times.push_back(100 + i / 16.0 + 1e-4 * noise(random));
      errors.push_back(error(times.back() - 100, noise(random)));
    }
    const Reference reference(times, errors, settledFirst);
    const VDTimeErrorMetrics metrics(times, errors, settledFirst, count);
    for (size_t n = 0; n < count; ++n) {
      ASSERT_NEAR(metrics.lowPassed()[n], reference.y[n], 1e-9 * std::abs(reference.y[n]) + 1e-12);
    }
    expectRelative(*metrics.maxAbsTe(1), reference.largestMean(1), 0, name + " max|TE|");
    expectRelative(*metrics.maxAbsTe(100), reference.largestMean(100), 1e-12, name + " average");
    EXPECT_FALSE(metrics.maxAbsTe(count).has_value());
    double sum = 0, maxL = 0, highest = -1e300, lowest = 1e300;
    for (size_t i = settledFirst; i < count; ++i) {
      sum += errors[i];
      maxL = std::max(maxL, std::abs(reference.y[i]));
      highest = std::max(highest, errors[i] - reference.y[i]);
      lowest = std::min(lowest, errors[i] - reference.y[i]);
    }
    expectRelative(metrics.cte(), sum / (count - settledFirst), 1e-12, name + " cTE");
    const double tau0 = (times.back() - times[settledFirst]) / (count - settledFirst - 1);
    expectRelative(*metrics.cteMoving(20), reference.largestMean(std::llround(20 / tau0)), 1e-12,
                   name + " moving cTE");
    expectRelative(metrics.maxAbsTeL(), maxL, 0, name + " max|TE_L|");
    expectRelative(metrics.dteHPeakToPeak(), highest - lowest, 1e-12, name + " dTE_H");
    // MTIE is kept to 2^-20 ns and TDEV to 1 ps (the integers the statistics take).
    for (bool ofLowPass : {false, true}) {
      const std::vector<double>& v = ofLowPass ? reference.y : reference.x;
      const auto mtie = metrics.mtie(ofLowPass, 20);
      const auto tdev = metrics.tdev(ofLowPass, 20);
      const size_t windows = static_cast<size_t>(20 / tau0);
      ASSERT_EQ(mtie.size(), windows) << name;
      ASSERT_EQ(tdev.size(), windows) << name;
      for (size_t m : {size_t{1}, size_t{2}, size_t{7}, size_t{64}, windows}) {
        expectRelative(mtie[m - 1].value, reference.statistic(Statistic::MTIE, v, m, 0x1p-20), 2e-6,
                       name + " MTIE " + std::to_string(m));
        expectRelative(mtie[m - 1].tau, m * tau0, 1e-9, name + " tau");
        expectRelative(tdev[m - 1].value, reference.statistic(Statistic::TDEV, v, m, 1e-3), 1e-3,
                       name + " TDEV " + std::to_string(m));
      }
    }
  }
}

}  // namespace
