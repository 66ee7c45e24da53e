// How the audio time error calculator finds and follows the delay on recordings with pauses:
// offsets of many seconds either way, B upside down, steps in the delay (a dropout, an inserted
// block, a short glitch), digital silence, and the uncertainty it reports.
//
// The pairs sample one continuous signal at the instants each channel sees: 120 tones of
// 50 Hz - 3 kHz at 8 kHz under bursts of 0.1-0.3 s separated by pauses of 0.05-0.5 s (exact
// zeros), like speech. B's sample n shows the signal at n / rate - delay, where the delay may
// change at one of B's samples, so the true delay at every window is known exactly.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
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
constexpr int64_t kInterval = 800, kLength = 1024;

// The tones under bursts of 0.1-0.3 s separated by pauses of 0.05-0.5 s.
class BurstSignal {
 public:
  explicit BurstSignal(double seconds) : _tones(7) {
    // The bursts come from the same draws as ever: those after the 240 that made the tones.
    std::mt19937_64 random(7);
    random.discard(240);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (double t = -100.0; t < seconds + 100.0;) {
      const double length = 0.1 + 0.2 * unit(random);
      _bursts.push_back({t, t + length});
      t += length + 0.05 + 0.45 * unit(random);
    }
  }

  double envelope(double t) const {
    for (const auto& [begin, end] : _bursts) {
      if (t > begin && t < end) {
        const double edge = std::min({1.0, (t - begin) / 0.02, (end - t) / 0.02});
        return 0.5 - 0.5 * std::cos(M_PI * edge);
      }
    }
    return 0.0;
  }

  // The signal at t0 + n dt for n < count, written to out from index first on.
  void render(double t0, int64_t first, int64_t count, std::vector<float>& out,
              double dt = 1.0 / kRate) const {
    const std::vector<double> sum = _tones.render(t0, dt, count);
    for (int64_t n = 0; n < count; ++n) {
      const double t = t0 + static_cast<double>(n) * dt;
      out[static_cast<size_t>(first + n)] =
          static_cast<float>(0.01 * sum[static_cast<size_t>(n)] * envelope(t));
    }
  }

 private:
  TestSupport::Multitone _tones;
  std::vector<std::pair<double, double>> _bursts;
};

struct Pair {
  std::vector<float> a, b;
};

const BurstSignal& burstSignal() {
  static const BurstSignal signal(120.0);
  return signal;
}

// B lags by delayBefore up to its sample stepAt and by delayAfter from there on.
Pair makePair(double seconds, double delayBefore, double delayAfter = NAN, int64_t stepAt = -1) {
  const BurstSignal& signal = burstSignal();
  const int64_t count = static_cast<int64_t>(seconds * kRate);
  Pair pair{std::vector<float>(static_cast<size_t>(count)),
            std::vector<float>(static_cast<size_t>(count))};
  signal.render(0.0, 0, count, pair.a);
  const int64_t split = stepAt < 0 ? count : stepAt;
  signal.render(-delayBefore, 0, split, pair.b);
  if (split < count) {
    signal.render(static_cast<double>(split) / kRate - delayAfter, split, count - split, pair.b);
  }
  return pair;
}

double centreSeconds(const Calculator::Window& window) {
  return (static_cast<double>(window.start) + (kLength - 1) / 2.0) / kRate;
}

Calculator calculate(const Pair& pair, int64_t length = kLength) {
  Calculator calculator(pair.a.data(), pair.b.data(), static_cast<int64_t>(pair.a.size()),
                        kInterval, length, 16, kRate, Calculator::kPostResampler);
  calculator.calculateTimeError();
  return calculator;
}

TEST(AudioTracking, FindsOffsetsOfManySecondsEitherWayAndInvertedPolarity) {
  // 40 s of bursts; B started 15 s after A, or 15 s before it, or upside down.
  struct Case {
    double delay;
    bool inverted;
  };
  for (const Case& c : {Case{15.0, false}, Case{-15.0, false}, Case{0.0123, true}}) {
    SCOPED_TRACE(c.delay);
    Pair pair = makePair(40.0, c.delay);
    if (c.inverted) {
      for (float& sample : pair.b) {
        sample = -sample;
      }
    }
    const Calculator calculator = calculate(pair);
    int64_t used = 0, sounding = 0;
    for (const auto& window : calculator.windows()) {
      // Windows that B also holds, with sound in at least half of them.
      const double inB = centreSeconds(window) + c.delay;
      int64_t loud = 0;
      for (int64_t n = 0; n < kLength; n += 16) {
        loud += burstSignal().envelope(static_cast<double>(window.start + n) / kRate) > 0 ? 16 : 0;
      }
      sounding += inB > 0.2 && inB < 39.8 && 2 * loud >= kLength ? 1 : 0;
      if (window.status == Status::Used) {
        ++used;
        EXPECT_NEAR(window.refinedLag / kRate, c.delay, 1e-9) << window.start;
        EXPECT_EQ(window.bInverted, c.inverted);
      }
    }
    // Windows in the pauses give no value; the sounding ones do, also those before the first
    // match (measured backwards from it).
    EXPECT_GE(used, sounding * 8 / 10) << sounding;
    // The diagnostic export says which way up B was measured, in its last column.
    TestSupport::TempDir dir;
    ASSERT_TRUE(calculator.exportTimeErrorToPath(dir.path().string()));
    std::istringstream rows(TestSupport::readFile(dir / Calculator::kWindowExportFileName));
    std::string row;
    std::getline(rows, row);
    int64_t usedRows = 0;
    while (std::getline(rows, row)) {
      if (row.find(",1,used,") != std::string::npos) {
        EXPECT_EQ(row.substr(row.size() - 2), c.inverted ? ",1" : ",0") << row;
        ++usedRows;
      }
    }
    EXPECT_EQ(usedRows, used);
  }
}

TEST(AudioTracking, FollowsStepsInTheDelayWithinTwoWindows) {
  // A dropout of 300 samples, a block of 0.3 s inserted, and 10 samples inserted, in B at 10 s.
  constexpr int64_t kStepAt = 80000;
  for (double change : {-300 / kRate, 0.3, 10 / kRate}) {
    SCOPED_TRACE(change);
    const double before = 0.0123;
    const double after = before + change;
    const Calculator calculator = calculate(makePair(20.0, before, after, kStepAt));
    const std::vector<Calculator::Window>& windows = calculator.windows();
    int64_t lost = 0;
    for (const auto& window : windows) {
      const double centre = centreSeconds(window);
      // Which side of the step B's stretch for this window lies on.
      const double firstInB = static_cast<double>(window.start) / kRate + before;
      const double lastInB = static_cast<double>(window.start + kLength) / kRate + after;
      const bool beforeStep = lastInB * kRate < kStepAt;
      const bool afterStep = firstInB * kRate > kStepAt;
      if (window.status == Status::Used) {
        if (beforeStep) {
          EXPECT_NEAR(window.refinedLag / kRate, before, 1e-9) << centre;
        } else if (afterStep) {
          EXPECT_NEAR(window.refinedLag / kRate, after, 1e-9) << centre;
        } else {
          const double lag = window.refinedLag / kRate;
          EXPECT_TRUE(std::fabs(lag - before) < 1e-9 || std::fabs(lag - after) < 1e-9) << centre;
        }
      } else if (std::fabs(centre + before - kStepAt / kRate) < 1.0 &&
                 window.status != Status::Silent && window.status != Status::Weak) {
        ++lost;
      }
    }
    EXPECT_LE(lost, 2);
    // Far from the step, the windows with signal have values on both sides.
    int64_t usedLate = 0;
    for (size_t i = windows.size() - 40; i < windows.size(); ++i) {
      usedLate += windows[i].status == Status::Used ? 1 : 0;
    }
    EXPECT_GT(usedLate, 10);
  }
}

TEST(AudioTracking, AWindowWhoseBestPeakIsNotTheDelayFollowedGivesNoValue) {
  // B lags 0.0123 s, except over 880 samples of a burst from B's sample 75300 on, where a glitch
  // moves it by 7 samples. The window that sees mostly the glitch (starting at 75200) is
  // ambiguous: its peak lies away from the prediction and the next window does not confirm a
  // step. Windows that touch the glitch in part may keep a value, pulled by a little; the others
  // are exact, before and after.
  const double delay = 0.0123;
  Pair pair = makePair(20.0, delay);
  const Pair glitch = makePair(20.0, delay + 7 / kRate);
  const int64_t glitchBegin = 75300, glitchEnd = 76180;
  std::copy(glitch.b.begin() + glitchBegin, glitch.b.begin() + glitchEnd,
            pair.b.begin() + glitchBegin);
  const Calculator calculator = calculate(pair);
  int64_t used = 0;
  for (const auto& window : calculator.windows()) {
    const double firstInB = static_cast<double>(window.start) + delay * kRate;
    const bool touches = firstInB + kLength > glitchBegin && firstInB < glitchEnd;
    if (window.start == 75200) {
      EXPECT_EQ(window.status, Status::Ambiguous);
      EXPECT_EQ(window.integerLag, 98 + 7);
    } else if (window.status == Status::Used) {
      EXPECT_NEAR(window.refinedLag / kRate, delay, touches ? 0.05 / kRate : 1e-9) << window.start;
      ++used;
    }
  }
  EXPECT_GT(used, 50);
  EXPECT_EQ(calculator.windows()[static_cast<size_t>(76800 / kInterval)].status, Status::Used);
}

TEST(AudioTracking, JudgesAWindowOnThePartThatHoldsSignalAndReportsItsUncertainty) {
  // B lags 0.0123 s; independent noise on each channel, but exact zeros in the pauses, as a
  // recorder with a noise gate gives them. Noisier windows are measured too, once the delay is
  // followed, with the larger uncertainty they have.
  struct Case {
    double noiseDb;  // the noise's standard deviation is 0.01 x 10^(-noiseDb / 20)
    int64_t leastUsed;
  };
  for (const Case& row : {Case{30.0, 170}, Case{10.0, 170}}) {
    SCOPED_TRACE(row.noiseDb);
    const double delay = 0.0123;
    Pair pair = makePair(30.0, delay);
    std::mt19937_64 random(3);
    std::normal_distribution<double> noise(0.0, 0.01 * std::pow(10.0, -row.noiseDb / 20));
    for (std::vector<float>* channel : {&pair.a, &pair.b}) {
      for (float& sample : *channel) {
        if (sample != 0.0f) {
          sample += static_cast<float>(noise(random));
        }
      }
    }
    const Calculator calculator = calculate(pair);
    double sumSquares = 0, sumVariance = 0;
    int64_t used = 0;
    for (const auto& window : calculator.windows()) {
      int64_t nonZero = 0;
      for (int64_t i = window.start; i < window.start + kLength; ++i) {
        nonZero += pair.a[static_cast<size_t>(i)] != 0.0f ? 1 : 0;
      }
      if (4 * nonZero < kLength) {
        EXPECT_EQ(window.status, Status::Silent) << window.start;
      }
      if (window.status == Status::Used) {
        const double error = window.refinedLag - delay * kRate;
        sumSquares += error * error;
        sumVariance += window.delayUncertainty * window.delayUncertainty;
        EXPECT_LE(window.delayUncertainty, 0.01);
        ++used;
      }
    }
    ASSERT_GT(used, row.leastUsed);
    // The reported uncertainty matches the scatter it describes, within a factor of two.
    const double scatter = std::sqrt(sumSquares / static_cast<double>(used));
    const double reported = std::sqrt(sumVariance / static_cast<double>(used));
    EXPECT_GT(scatter, reported / 2);
    EXPECT_LT(scatter, reported * 2);
  }
}

TEST(AudioTracking, LongWindowsAtAHighDriftStartAsWellAsShortOnes) {
  // 1000 ppm with 8192-sample windows (a second at 8 kHz): the delay changes by eight samples
  // across one window; from the first window on each value is within a nanosecond.
  constexpr double kOffset = 0.0123, kDrift = 0.001;
  static const BurstSignal signal(120.0);
  const int64_t count = static_cast<int64_t>(30.0 * kRate);
  std::vector<float> a(static_cast<size_t>(count)), b(static_cast<size_t>(count));
  signal.render(0.0, 0, count, a);
  // B's clock runs slow by the drift: its sample n shows the signal at n (1 - drift) / rate - d.
  signal.render(-kOffset, 0, count, b, (1.0 - kDrift) / kRate);
  constexpr int64_t kLong = 8192;
  Calculator calculator(a.data(), b.data(), count, kInterval, kLong, 16, kRate,
                        Calculator::kPostResampler);
  calculator.calculateTimeError();
  int64_t used = 0;
  for (const auto& window : calculator.windows()) {
    if (window.status == Status::Used) {
      const double t = (static_cast<double>(window.start) + (kLong - 1) / 2.0) / kRate;
      EXPECT_NEAR(window.refinedLag / kRate, (kOffset + kDrift * t) / (1.0 - kDrift), 1e-9)
          << window.start;
      ++used;
    }
  }
  EXPECT_GT(used, static_cast<int64_t>(calculator.windows().size()) / 2);
}

}  // namespace
