// The audio time error calculator on recording pairs whose delay is known by construction:
// integer, fractional and negative delays, a drift that carries the delay across many windows,
// a large initial offset, silent gaps, degenerate sizes, and both exports.
//
// The pairs sample one continuous multitone signal (120 tones, 50 Hz - 3 kHz, at 8 kHz) at
// the instants each channel's clock sees: B's sample n shows the signal at
// (n / rate - offset) / (1 + drift), so the true delay of B at channel A's time t is
// offset + drift t, exact to rounding. Tolerances: 1 ns for the band-limited types (their
// systematic error on clean signals is below 0.1 ns at 48 kHz), 0.1 sample for quick.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "VDAudioTimeErrorCalculator.h"

namespace {

using Calculator = VDAudioTimeErrorCalculator;
using Status = VDAudioTimeErrorCalculator::WindowStatus;

constexpr double kRate = 8000.0;
constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();

// The signal at t0 + n dt for n < count, scaled to an RMS near 0.1; zero inside the silent
// stretch [silenceBegin, silenceEnd) of signal time.
std::vector<float> render(double t0, double dt, int64_t count, double silenceBegin,
                          double silenceEnd) {
  static const TestSupport::Multitone signal(42);
  const std::vector<double> sum = signal.render(t0, dt, count);
  std::vector<float> out(static_cast<size_t>(count));
  for (int64_t n = 0; n < count; ++n) {
    const double t = t0 + static_cast<double>(n) * dt;
    out[n] = t >= silenceBegin && t < silenceEnd
                 ? 0.0f
                 : static_cast<float>(sum[n] * (0.1 / std::sqrt(60.0)));
  }
  return out;
}

struct Pair {
  std::vector<float> a, b;
};

Pair makePair(double seconds, double offsetSeconds, double drift = 0.0, double silenceBegin = 0,
              double silenceEnd = 0) {
  const int64_t count = static_cast<int64_t>(seconds * kRate);
  return {render(0.0, 1.0 / kRate, count, silenceBegin, silenceEnd),
          render(-offsetSeconds / (1.0 + drift), 1.0 / (kRate * (1.0 + drift)), count, silenceBegin,
                 silenceEnd)};
}

double centreSeconds(const Calculator::Window& window, int64_t length) {
  return (static_cast<double>(window.start) + (length - 1) / 2.0) / kRate;
}

// Largest |measured - true| delay over the used windows, in seconds; counts the used windows.
double worstError(const Calculator& calculator, int64_t length, double offset, double drift,
                  int64_t* used = nullptr) {
  double worst = 0;
  int64_t count = 0;
  for (const auto& window : calculator.windows()) {
    if (window.status == Status::Used) {
      const double truth = offset + drift * centreSeconds(window, length);
      worst = std::max(worst, std::fabs(window.refinedLag / kRate - truth));
      ++count;
    }
  }
  if (used != nullptr) {
    *used = count;
  }
  return worst;
}

int64_t countStatus(const Calculator& calculator, Status status) {
  int64_t count = 0;
  for (const auto& window : calculator.windows()) {
    count += window.status == status ? 1 : 0;
  }
  return count;
}

TEST(AudioTimeErrorCalculator, MeasuresIntegerFractionalAndNegativeDelaysInEveryType) {
  constexpr int64_t kInterval = 800, kLength = 1024;
  const double delays[] = {37.0, 37.3, -12.62, 0.0};  // samples; positive when B lags
  for (double delay : delays) {
    const Pair pair = makePair(3.0, delay / kRate);
    for (int64_t type : {0, 1, 2}) {
      SCOPED_TRACE(testing::Message() << "delay " << delay << " type " << type);
      Calculator calculator(pair.a.data(), pair.b.data(), static_cast<int64_t>(pair.a.size()),
                            kInterval, kLength, 16, kRate, type);
      calculator.calculateTimeError();
      ASSERT_EQ(calculator.windows().size(), 29u);  // (24000 - 1024) / 800 + 1
      int64_t used = 0;
      const double worst = worstError(calculator, kLength, delay / kRate, 0.0, &used);
      EXPECT_EQ(used, 29);
      EXPECT_LT(worst, type == Calculator::kQuick ? 0.1 / kRate : 1e-9);

      // Whole nanoseconds, rounded, stamped at each window's centre.
      const std::vector<VDTimeErrorValue> values = calculator.timeErrors();
      ASSERT_EQ(values.size(), 29u);
      for (size_t i = 0; i < values.size(); ++i) {
        const Calculator::Window& window = calculator.windows()[i];
        EXPECT_EQ(window.start, static_cast<int64_t>(i) * kInterval);
        EXPECT_EQ(window.integerLag, std::llround(delay));
        EXPECT_GT(window.peakCorrelation, 0.99);
        EXPECT_EQ(values[i].timestamp(), static_cast<uint64_t>(std::llround(
                                             (i * kInterval + (kLength - 1) / 2.0) / kRate * 1e9)));
        EXPECT_EQ(values[i].error(), std::llround(window.refinedLag / kRate * 1e9));
      }
    }
  }
}

TEST(AudioTimeErrorCalculator, FollowsADriftAcrossManyWindowLengths) {
  // 1000 ppm over 40 s: the delay grows by 40 ms, 320 samples, five windows of 64.
  constexpr int64_t kInterval = 320, kLength = 64;
  constexpr double kOffset = 0.002, kDrift = 0.001;
  const Pair pair = makePair(40.0, kOffset, kDrift);
  for (int64_t type : {0, 1, 2}) {
    SCOPED_TRACE(type);
    Calculator calculator(pair.a.data(), pair.b.data(), static_cast<int64_t>(pair.a.size()),
                          kInterval, kLength, 8, kRate, type);
    calculator.calculateTimeError();
    const std::vector<Calculator::Window>& windows = calculator.windows();
    ASSERT_EQ(windows.size(), 1000u);
    // The first and last windows' neighbourhoods are cut off by the ends of the recordings.
    EXPECT_EQ(windows.front().status, Status::Outside);
    EXPECT_EQ(windows.back().status, Status::Outside);
    EXPECT_EQ(countStatus(calculator, Status::Used), 998);
    // Until the drift is known (from the fourth window) a window sees the delay change across
    // it; from then on each window follows it.
    const double settled = type == Calculator::kQuick ? 0.01 / kRate : 1e-9;
    for (size_t i = 1; i + 1 < windows.size(); ++i) {
      const double truth = kOffset + kDrift * centreSeconds(windows[i], kLength);
      const double error = std::fabs(windows[i].refinedLag / kRate - truth);
      EXPECT_LT(error, i < 20 ? 0.05 / kRate : settled) << i;
    }
    const Calculator::Window& last = windows[windows.size() - 2];
    EXPECT_EQ(last.integerLag,
              std::llround((kOffset + kDrift * centreSeconds(last, kLength)) * kRate));
    EXPECT_GT(last.integerLag, 5 * kLength);
  }
}
TEST(AudioTimeErrorCalculator, FindsALargeInitialOffsetEitherWay) {
  constexpr int64_t kInterval = 800, kLength = 1024;
  // At -0.15 s the first search finds too little overlap at the start; the match comes half a
  // second later, and the windows before it are measured backwards from there.
  for (double offset : {0.5123, -0.4871, -0.15}) {
    SCOPED_TRACE(offset);
    const Pair pair = makePair(4.0, offset, 20e-6);
    Calculator calculator(pair.a.data(), pair.b.data(), static_cast<int64_t>(pair.a.size()),
                          kInterval, kLength, 16, kRate, Calculator::kPostResampler);
    calculator.calculateTimeError();
    int64_t used = 0;
    // Within 5 ns even where the recordings' ends leave only half a window to correlate.
    EXPECT_LT(worstError(calculator, kLength, offset, 20e-6, &used), 5e-9);
    // Windows whose partner stretch of B lies outside the recording have no value: with B
    // lagging, those at the end; with B leading, those at the start. About offset / interval
    // of them, give or take a window for the partial ones.
    const int64_t windows = static_cast<int64_t>(calculator.windows().size());
    const int64_t outside = countStatus(calculator, Status::Outside);
    EXPECT_EQ(used + outside, windows);
    const double expected = std::fabs(offset) * kRate / kInterval;
    EXPECT_GE(outside, std::floor(expected) - 1);
    EXPECT_LE(outside, std::ceil(expected) + 2);
    EXPECT_EQ(calculator.windows().front().status, offset < 0 ? Status::Outside : Status::Used);
    EXPECT_EQ(calculator.windows().back().status, offset < 0 ? Status::Used : Status::Outside);
  }
}

TEST(AudioTimeErrorCalculator, SilentStretchesGiveNoValuesAndTrackingResumesAfterThem) {
  constexpr int64_t kInterval = 400, kLength = 512;
  constexpr double kOffset = 0.01, kDrift = 100e-6;
  // Signal time 2 s to 4 s is silent in both recordings.
  const Pair pair = makePair(8.0, kOffset, kDrift, 2.0, 4.0);
  Calculator calculator(pair.a.data(), pair.b.data(), static_cast<int64_t>(pair.a.size()),
                        kInterval, kLength, 16, kRate, Calculator::kPostResampler);
  calculator.calculateTimeError();
  int64_t silent = 0, usedAfter = 0;
  for (const auto& window : calculator.windows()) {
    const double begin = window.start / kRate, end = (window.start + kLength) / kRate;
    if (begin >= 2.0 && end <= 4.0) {
      EXPECT_EQ(window.status, Status::Silent) << window.start;
      ++silent;
    }
    // Clear of the gap's edges (where the hard cut makes the channels differ by more than a
    // delay), every window has its value, as exact as anywhere.
    if ((end < 1.99 || begin > 4.02) && end <= 8.0 - kOffset - 0.01) {
      EXPECT_EQ(window.status, Status::Used) << window.start;
      const double truth = kOffset + kDrift * centreSeconds(window, kLength);
      EXPECT_NEAR(window.refinedLag / kRate, truth, 1e-9) << window.start;
      usedAfter += begin > 4.02 ? 1 : 0;
    }
  }
  EXPECT_GE(silent, 35);
  EXPECT_GE(usedAfter, 40);
  for (const VDTimeErrorValue& value : calculator.timeErrors()) {
    const double t = value.timestamp() * 1e-9;
    EXPECT_FALSE(t > 2.0 + 0.032 && t < 4.0 - 0.032) << t;
  }

  // Silence throughout: every window is silent and there is no series.
  const std::vector<float> zeros(40000, 0.0f);
  Calculator quiet(zeros.data(), zeros.data(), 40000, kInterval, kLength, 16, kRate, 2);
  quiet.calculateTimeError();
  EXPECT_EQ(countStatus(quiet, Status::Silent), 99);
  EXPECT_TRUE(quiet.timeErrors().empty());

  // One channel replaced by unrelated noise: the windows are weak, not measured.
  std::mt19937 random(3);
  std::normal_distribution<float> noise(0.0f, 0.1f);
  std::vector<float> unrelated(pair.a.size());
  for (float& sample : unrelated) {
    sample = noise(random);
  }
  Calculator mismatched(pair.a.data(), unrelated.data(), static_cast<int64_t>(pair.a.size()),
                        kInterval, kLength, 16, kRate, 2);
  mismatched.calculateTimeError();
  EXPECT_TRUE(mismatched.timeErrors().empty());
  EXPECT_EQ(countStatus(mismatched, Status::Weak) + countStatus(mismatched, Status::Silent),
            static_cast<int64_t>(mismatched.windows().size()));
}

TEST(AudioTimeErrorCalculator, DegenerateSizesGiveAnEmptySeriesWithoutFailing) {
  const Pair pair = makePair(1.0, 0.001);
  const float* a = pair.a.data();
  const float* b = pair.b.data();
  struct Case {
    const char* what;
    const float* a;
    const float* b;
    int64_t length, interval, correlationLength, upscale;
    double rate;
    int64_t type;
  };
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const Case cases[] = {
      {"no samples", a, b, 0, 800, 1024, 16, kRate, 2},
      {"negative length", a, b, -5, 800, 1024, 16, kRate, 2},
      {"shorter than a window", a, b, 1023, 800, 1024, 16, kRate, 2},
      {"no arrays", nullptr, nullptr, 0, 800, 1024, 16, kRate, 2},
      {"zero interval", a, b, 8000, 0, 1024, 16, kRate, 2},
      {"zero correlation length", a, b, 8000, 800, 0, 16, kRate, 2},
      {"zero upscale", a, b, 8000, 800, 1024, 0, kRate, 2},
      {"zero rate", a, b, 8000, 800, 1024, 16, 0.0, 2},
      {"rate not a number", a, b, 8000, 800, 1024, 16, nan, 2},
      {"huge correlation length", a, b, 8000, 800, kInt64Max, 16, kRate, 2},
      {"huge everything", a, b, 8000, kInt64Max, kInt64Max, kInt64Max, kRate, kInt64Max},
      {"resampler, upscaled window too long", a, b, 8000, 800, 1024, kInt64Max, kRate, 1},
      {"one sample per window and interval", a, b, 1, 1, 1, 1, kRate, 0},
  };
  TestSupport::TempDir dir;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Calculator calculator(c.a, c.b, c.length, c.interval, c.correlationLength, c.upscale, c.rate,
                          c.type);
    calculator.calculateTimeError();
    EXPECT_TRUE(calculator.timeErrors().empty());
    EXPECT_TRUE(calculator.exportTimeErrorToDirectoryURL(dir.path(), "series.csv"));
    EXPECT_EQ(TestSupport::readFile(dir / "series.csv"), "time,time_error\n");
  }

  // A huge interval leaves just the first window; a huge upscale factor still resolves finely.
  Calculator sparse(a, b, 8000, kInt64Max, 1024, kInt64Max, kRate, 2);
  sparse.calculateTimeError();
  ASSERT_EQ(sparse.timeErrors().size(), 1u);
  EXPECT_LT(worstError(sparse, 1024, 0.001, 0.0), 1e-9);
}

TEST(AudioTimeErrorCalculator, UnknownCorrelationTypesMeanPostResampler) {
  for (int64_t type : {int64_t{3}, int64_t{-1}, kInt64Max, int64_t{2}}) {
    EXPECT_EQ(Calculator(nullptr, nullptr, 0, 1, 1, 1, kRate, type).correlationType(),
              Calculator::kPostResampler);
  }
  EXPECT_EQ(Calculator(nullptr, nullptr, 0, 1, 1, 1, kRate, 0).correlationType(),
            Calculator::kQuick);
  EXPECT_EQ(Calculator(nullptr, nullptr, 0, 1, 1, 1, kRate, 1).correlationType(),
            Calculator::kResampler);
}

TEST(AudioTimeErrorCalculator, ExportsTheSeriesInSecondsAndEveryWindowForDiagnosis) {
  constexpr int64_t kInterval = 4000, kLength = 1024;
  // One second of silence in the middle of four.
  const Pair pair = makePair(4.0, 0.0125, 0.0, 1.6, 2.6);
  Calculator calculator(pair.a.data(), pair.b.data(), static_cast<int64_t>(pair.a.size()),
                        kInterval, kLength, 16, kRate, Calculator::kPostResampler);
  calculator.calculateTimeError();
  TestSupport::TempDir dir;
  ASSERT_TRUE(calculator.exportTimeErrorToDirectoryURL(dir.path(), "x_audio_time_error.csv"));
  ASSERT_TRUE(calculator.exportTimeErrorToPath(dir.path().string()));

  // time,time_error: one row per used window, both in seconds.
  std::istringstream series(TestSupport::readFile(dir / "x_audio_time_error.csv"));
  std::string line;
  ASSERT_TRUE(std::getline(series, line));
  EXPECT_EQ(line, "time,time_error");
  std::vector<std::pair<double, double>> rows;
  while (std::getline(series, line)) {
    double time = 0, error = 0;
    ASSERT_EQ(std::sscanf(line.c_str(), "%lf,%lf", &time, &error), 2) << line;
    rows.emplace_back(time, error);
  }
  const std::vector<VDTimeErrorValue> values = calculator.timeErrors();
  ASSERT_EQ(rows.size(), values.size());
  // All but the window at 2 s, which lies wholly in the gap, and the one at 2.5 s, which holds
  // signal only in its last 28 ms (less than a quarter of it).
  ASSERT_EQ(rows.size(), 6u);
  EXPECT_EQ(rows[0].first, 511.5 / kRate);
  for (size_t i = 0; i < rows.size(); ++i) {
    EXPECT_NEAR(rows[i].first, values[i].timestamp() * 1e-9, 0.5e-9);
    EXPECT_NEAR(rows[i].second, 0.0125, 1e-9);
    EXPECT_NEAR(rows[i].second, values[i].error() * 1e-9, 0.5e-9);
  }

  // The diagnostic file: one row per window, silent ones included.
  std::istringstream windows(TestSupport::readFile(dir / Calculator::kWindowExportFileName));
  ASSERT_TRUE(std::getline(windows, line));
  EXPECT_EQ(line,
            "window_start,integer_lag,refined_lag,delay,peak_correlation,used,status,"
            "delay_uncertainty,peak_ratio,b_inverted");
  std::vector<std::string> lines;
  while (std::getline(windows, line)) {
    lines.push_back(line);
  }
  ASSERT_EQ(lines.size(), calculator.windows().size());
  EXPECT_EQ(lines[0].substr(0, 18), "0,100,100.00000000");
  int64_t silent = 0;
  for (size_t i = 0; i < lines.size(); ++i) {
    const Calculator::Window& window = calculator.windows()[i];
    if (window.status == Status::Silent) {
      ++silent;
      EXPECT_NE(lines[i].find(",nan,nan,0.000000,0,silent,nan,"), std::string::npos) << lines[i];
    } else if (window.status == Status::Used) {
      // Clean tones: a standard uncertainty far below a nanosecond; B upright.
      double uncertainty = 1.0;
      const size_t used = lines[i].find(",1,used,");
      ASSERT_NE(used, std::string::npos) << lines[i];
      ASSERT_EQ(std::sscanf(lines[i].c_str() + used + 8, "%lf", &uncertainty), 1) << lines[i];
      EXPECT_GT(uncertainty, 0.0);
      EXPECT_LT(uncertainty, 1e-9);
      EXPECT_EQ(lines[i].substr(lines[i].size() - 2), ",0") << lines[i];
    }
  }
  EXPECT_EQ(silent, 2);

  // An unwritable place is reported, not fatal.
  EXPECT_FALSE(calculator.exportTimeErrorToDirectoryURL(dir / "missing", "x.csv"));
  EXPECT_FALSE(calculator.exportTimeErrorToPath((dir / "missing").string()));
}

}  // namespace
