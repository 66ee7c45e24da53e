// The audio time error calculator on pairs that sample one signal (120 tones, 50 Hz - 3 kHz, at
// 8 kHz; continuous, or in bursts of 0.1-0.3 s between pauses of exact zeros, like speech) at the
// instants each channel's clock sees: the true delay at every window is known exactly. Tolerance:
// 1 ns for the band-limited types (over 10x their error on clean signals), 0.1 sample for quick.

#include <gtest/gtest.h>

#include "TestSupport.h"  // and the standard headers
#include "VDAudioTimeErrorCalculator.h"
#include "VDAudioTracking.h"
#include "VDAudioWindowExport.h"
#include "VDFFTCorrelator.h"
#include "VDLagSearch.h"
#include "VDUncertaintyCalibration.h"
#include "VDWindowCorrelation.h"

namespace {

using Calculator = VDAudioTimeErrorCalculator;
using Status = VDAudioTimeErrorCalculator::WindowStatus;

constexpr double kRate = 8000.0;
constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr int64_t kBurstInterval = 800, kBurstLength = 1024;

// The signal at t0 + n dt for n < count, scaled to an RMS near 0.1; zero inside the silent
// stretch [silenceBegin, silenceEnd) of signal time.
std::vector<float> render(double t0, double dt, int64_t count, double silenceBegin,
                          double silenceEnd) {
  static const TestSupport::Multitone signal(42);
  const std::vector<double> sum = signal.render(t0, dt, count);
  std::vector<float> out(static_cast<size_t>(count));
  for (int64_t n = 0; n < count; ++n) {
    const double t = t0 + static_cast<double>(n) * dt;
    const bool silent = t >= silenceBegin && t < silenceEnd;
    out[n] = silent ? 0.0f : static_cast<float>(sum[n] * (0.1 / std::sqrt(60.0)));
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

// The largest |measured - true| delay over the used windows, in seconds, and how many there are.
struct Errors {
  double worst = 0;
  int64_t used = 0;
};
Errors worstError(const Calculator& calculator, int64_t length, double offset, double drift) {
  Errors errors;
  for (const auto& window : calculator.windows()) {
    if (window.status == Status::Used) {
      const double truth = offset + drift * centreSeconds(window, length);
      errors.worst = std::max(errors.worst, std::fabs(window.refinedLag / kRate - truth));
      ++errors.used;
    }
  }
  return errors;
}

// How many windows from index first on have the status.
int64_t countStatus(const Calculator& calculator, Status status, size_t first = 0) {
  const auto& windows = calculator.windows();
  return std::count_if(windows.begin() + static_cast<std::ptrdiff_t>(first), windows.end(),
                       [&](const Calculator::Window& window) { return window.status == status; });
}

// The tones under bursts of 0.1-0.3 s separated by pauses of 0.05-0.5 s, or without pauses.
class BurstSignal {
 public:
  explicit BurstSignal(double seconds, bool continuous = false) : _tones(7) {
    // The bursts come from the same draws as ever: those after the 240 that made the tones.
    // Without pauses, one burst outlasts every recording.
    std::mt19937_64 random(7);
    random.discard(240);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (double t = -100.0; t < seconds + 100.0;) {
      const double length = continuous ? 1e9 : 0.1 + 0.2 * unit(random);
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
      out[first + n] = static_cast<float>(0.01 * sum[n] * envelope(t));
    }
  }

 private:
  TestSupport::Multitone _tones;
  std::vector<std::pair<double, double>> _bursts;
};

const BurstSignal& burstSignal(bool continuous = false) {
  static const BurstSignal bursts(120.0), continuousTones(120.0, true);
  return continuous ? continuousTones : bursts;
}

// B lags by delayBefore up to its sample stepAt and by delayAfter from there on; its clock runs
// slow by drift: its sample n shows the signal at n (1 - drift) / rate - delay.
Pair burstPair(double seconds, double delayBefore, double delayAfter = NAN, int64_t stepAt = -1,
               bool continuous = false, double drift = 0) {
  const BurstSignal& signal = burstSignal(continuous);
  const int64_t count = static_cast<int64_t>(seconds * kRate);
  Pair pair{std::vector<float>(count), std::vector<float>(count)};
  signal.render(0.0, 0, count, pair.a);
  const int64_t split = stepAt < 0 ? count : stepAt;
  signal.render(-delayBefore, 0, split, pair.b, (1 - drift) / kRate);
  signal.render(static_cast<double>(split) / kRate - delayAfter, split, count - split, pair.b);
  return pair;
}

Calculator calculate(const Pair& pair, int64_t interval = kBurstInterval,
                     int64_t length = kBurstLength, int64_t upscale = 16,
                     int64_t type = Calculator::kPostResampler) {
  Calculator calculator(pair.a.data(), pair.b.data(), static_cast<int64_t>(pair.a.size()), interval,
                        length, upscale, kRate, type);
  calculator.calculateTimeError();
  return calculator;
}

// The rows of the diagnostic export after its header.
std::vector<std::string> exportedWindows(const Calculator& calculator) {
  TestSupport::TempDir dir;
  EXPECT_TRUE(calculator.exportTimeErrorToPath(dir.path().string()));
  return TestSupport::csvRows(dir / Calculator::kWindowExportFileName,
                              "window_start,integer_lag,refined_lag,delay,peak_correlation,used,"
                              "status,delay_uncertainty,peak_ratio,b_inverted");
}

TEST(AudioTimeErrorCalculator, FindsOffsetsEitherWayUpsideDownThroughHumNoiseAndDrift) {
  // Bursts; B started 15 s after or before A, or upside down; both 80 dB quieter; a 50 Hz hum
  // three times as loud as the sound in both at once (not delayed: its comb of peaks would
  // outweigh the sound's one), which still pulls each value by about 1 us; independent noise,
  // exact zeros in the pauses (a gate), 30 and 10 dB down: noisier windows measured too once the
  // delay is followed; 1000 ppm in windows of a second, each value within 1 ns from the first.
  const struct {
    double seconds, delay, drift;
    int64_t length;
    bool inverted;
    float gain, hum;
    double noise, tolerance;  // the noise's standard deviation; s
    int64_t leastUsed;
  } cases[] = {{40, 15.0, 0, 1024, false, 1, 0, 0, 1e-9, 0},
               {40, -15.0, 0, 1024, false, 1, 0, 0, 1e-9, 0},
               {40, 0.0123, 0, 1024, true, 1, 0, 0, 1e-9, 0},
               {40, 15.0, 0, 1024, false, 1e-4f, 0, 0, 1e-9, 0},
               {40, 15.0123, 0, 1024, false, 1, 0.03f, 0, 2e-6, 0},
               {30, 0.0123, 0, 1024, false, 1, 0, 0.01 * std::pow(10.0, -1.5), 0.05 / kRate, 170},
               {30, 0.0123, 0, 1024, false, 1, 0, 0.01 * std::pow(10.0, -0.5), 0.05 / kRate, 170},
               {30, 0.0123, 0.001, 8192, false, 1, 0, 0, 1e-9, 145}};  // half the windows
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.delay << " gain " << c.gain << " hum " << c.hum
                                    << " noise " << c.noise << " drift " << c.drift);
    Pair pair = burstPair(c.seconds, c.delay, NAN, -1, false, c.drift);
    for (size_t n = 0; n < pair.a.size(); ++n) {
      const auto hum = c.hum * static_cast<float>(std::sin(2 * M_PI * 50.0 * n / kRate));
      pair.a[n] = c.gain * pair.a[n] + hum;
      pair.b[n] = (c.inverted ? -c.gain : c.gain) * pair.b[n] + hum;
    }
    std::mt19937_64 random(3);
    std::normal_distribution<double> gauss(0.0, 1.0);
    for (std::vector<float>* channel : {&pair.a, &pair.b}) {
      for (float& sample : *channel) {
        sample += sample != 0.0f && c.noise > 0 ? static_cast<float>(c.noise * gauss(random)) : 0;
      }
    }
    const Calculator calculator = calculate(pair, kBurstInterval, c.length);
    int64_t used = 0, sounding = 0;
    double sumSquares = 0, sumVariance = 0, largestUncertainty = 0;
    for (const auto& window : calculator.windows()) {
      // Windows that B also holds, with sound in at least half of them.
      const double centre = centreSeconds(window, c.length);
      const double delay = (c.delay + c.drift * centre) / (1 - c.drift);
      int64_t loud = 0;  // of 64 instants across the window
      for (int64_t n = 0; n < c.length; n += c.length / 64) {
        loud += burstSignal().envelope(static_cast<double>(window.start + n) / kRate) > 0 ? 1 : 0;
      }
      const double inB = centre + delay;
      sounding += inB > 0.2 && inB < c.seconds - 0.2 && 2 * loud >= 64 ? 1 : 0;
      if (window.status == Status::Used) {
        ++used;
        const double error = window.refinedLag - delay * kRate;  // samples
        EXPECT_LT(std::fabs(error), c.tolerance * kRate) << window.start;
        EXPECT_EQ(window.bInverted, c.inverted);
        largestUncertainty = std::max(largestUncertainty, window.delayUncertainty);
        sumSquares += error * error;
        sumVariance += window.delayUncertainty * window.delayUncertainty;
      }
    }
    // Windows in the pauses give no value; the sounding ones do, also those before the first
    // match (measured backwards from it).
    EXPECT_GE(used, sounding * 8 / 10) << sounding;
    EXPECT_GT(used, c.leastUsed);
    // Under noise, uncertainties of at most 0.01 sample, true to the scatter within a factor of 2.
    if (c.noise > 0) {
      EXPECT_LE(largestUncertainty, 0.01);
      const double scatterOverReported = std::sqrt(sumSquares / sumVariance);
      EXPECT_GT(scatterOverReported, 0.5);
      EXPECT_LT(scatterOverReported, 2.0);
    }
    // The diagnostic export says which way up B was measured, in its last column.
    int64_t usedRows = 0;
    for (const std::string& row : exportedWindows(calculator)) {
      usedRows += row.find(",1,used,") != std::string::npos && row.ends_with(",1") == c.inverted;
    }
    EXPECT_EQ(usedRows, used);
  }
}

TEST(AudioTimeErrorCalculator, FollowsStepsInTheDelayWithinTwoWindows) {
  // In B at 10 s, a dropout of 300 samples, 0.3 s, 10 and 40 samples inserted (40: beyond the
  // range); late in sound without pauses, found by the tracker's own searches within a second, 33
  // (just beyond the range) and 0.3 s after 1.2 s of noise (failed searches are retried soon).
  const struct {
    double change, noiseSeconds;
    int64_t stepAt;
    bool continuous;
  } steps[] = {{-300 / kRate, 0, 80000, false}, {0.3, 0, 80000, false},
               {10 / kRate, 0, 80000, false},   {40 / kRate, 0, 80000, false},
               {33 / kRate, 0, 148000, true},   {0.3, 1.2, 136000, true}};
  for (const auto& [change, noiseSeconds, kStepAt, continuous] : steps) {
    SCOPED_TRACE(testing::Message() << change << " at " << kStepAt);
    const double before = 0.0123, after = before + change;
    Pair pair = burstPair(20.0, before, after, kStepAt, continuous);
    std::mt19937 random(5);
    std::normal_distribution<float> noise(0.0f, 0.1f);
    std::generate_n(pair.b.begin() + kStepAt, std::llround(noiseSeconds * kRate),
                    [&] { return noise(random); });
    const Calculator calculator = calculate(pair);
    const std::vector<Calculator::Window>& windows = calculator.windows();
    int64_t lost = 0;
    for (const auto& window : windows) {
      const double centre = centreSeconds(window, kBurstLength);
      // The delay of the side of the step B's stretch for this window lies on, or either.
      const double lag = window.refinedLag / kRate;
      const bool isBefore = std::fabs(lag - before) < 1e-9, isAfter = std::fabs(lag - after) < 1e-9;
      if (window.status == Status::Used) {
        EXPECT_TRUE(window.start + before * kRate > kStepAt                 ? isAfter
                    : window.start + kBurstLength + after * kRate < kStepAt ? isBefore
                                                                            : isBefore || isAfter)
            << centre;
      }
      lost += window.status != Status::Used && window.status != Status::Silent &&
              window.status != Status::Weak &&
              std::fabs(centre + before - static_cast<double>(kStepAt) / kRate - noiseSeconds) < 1;
    }
    EXPECT_LE(lost, 2);
    // Far from the step, the windows with signal have values on both sides.
    EXPECT_GT(countStatus(calculator, Status::Used, windows.size() - 40), 10);
  }
}

// A piece that repeats one 1.6 s pattern of bursts exactly, with a quieter part over it that
// does not repeat: every stretch of A matches B nearly as well a whole number of patterns away
// as at the delay. B lags or leads by delay samples; dropouts take samples out of B.
Pair repeatingPair(double seconds, int64_t delay, int64_t dropoutEvery = 0, int64_t dropout = 0) {
  const auto period = static_cast<int64_t>(1.6 * kRate);
  const auto count = static_cast<int64_t>(seconds * kRate);
  const int64_t margin = 2 * count;
  std::vector<float> pattern(static_cast<size_t>(period));
  std::vector<float> melody(static_cast<size_t>(2 * margin + count));
  burstSignal().render(0.0, 0, period, pattern);
  burstSignal().render(30.0, 0, 2 * margin + count, melody);
  const auto piece = [&](int64_t n) {
    return pattern[((n % period) + period) % period] + 0.3f * melody[n + margin];
  };
  Pair pair{std::vector<float>(count), std::vector<float>(count)};
  for (int64_t n = 0; n < count; ++n) {
    pair.a[n] = piece(n);
    const int64_t removed = dropoutEvery > 0 ? (n / dropoutEvery) * dropout : 0;
    pair.b[n] = piece(n - delay + removed);
  }
  return pair;
}

TEST(AudioTimeErrorCalculator, ARepeatingPieceIsMatchedAtItsDelayNotAPatternAway) {
  const struct {
    const char* what;
    double seconds;
    int64_t delay, dropoutEvery, dropout;  // samples
  } rows[] = {
      {"B late by 0.75 s", 24, 6000, 0, 0},
      {"B early by 12.3 s, more than half the recording", 24, -98400, 0, 0},
      {"B early by 15.2 s, its match on a few places only", 24, -121600, 0, 0},
      {"a dropout of 150 samples every 13 s", 40, 6000, 104000, 150},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const Calculator calculator =
        calculate(repeatingPair(row.seconds, row.delay, row.dropoutEvery, row.dropout));
    int64_t used = 0, sounding = 0;
    for (const auto& window : calculator.windows()) {
      // The delay at the window's match in B, whole stairs of dropouts before it taken out.
      const int64_t matchInB = window.start + row.delay;
      const int64_t stairs = row.dropoutEvery > 0 ? matchInB / row.dropoutEvery : 0;
      const bool crosses =
          row.dropoutEvery > 0 && (matchInB + kBurstLength) / row.dropoutEvery != stairs;
      const bool inB = matchInB >= 0 && matchInB + kBurstLength <= row.seconds * kRate;
      sounding += inB && !crosses && window.status != Status::Silent ? 1 : 0;
      if (window.status == Status::Used) {
        ++used;
        EXPECT_NEAR(window.refinedLag, row.delay - stairs * row.dropout, crosses ? 0.05 : 0.01)
            << window.start;
      }
    }
    EXPECT_GE(used, sounding * 9 / 10);
    EXPECT_GT(sounding, 60);
  }
}

TEST(AudioTimeErrorCalculator, FollowsASteadyToneByItsPhase) {
  // A 440 Hz tone with a little noise, B 30 ppm fast: the acquisition whitens the tone away, so it
  // is followed by the peak nearest the one before. Its delay is known modulo B's period,
  // (1 + drift) / 440 s, each value within four times its stated uncertainty.
  constexpr double kDrift = 30e-6, kOffset = 0.0123, kFrequency = 440.0;
  std::mt19937 random(5);
  std::normal_distribution<double> noise(0.0, 1e-3);
  Pair pair{std::vector<float>(80000), std::vector<float>(80000)};
  for (size_t n = 0; n < pair.a.size(); ++n) {
    const double t = static_cast<double>(n) / kRate;
    pair.a[n] = static_cast<float>(0.1 * std::sin(2 * M_PI * kFrequency * t) + noise(random));
    pair.b[n] = static_cast<float>(
        0.1 * std::sin(2 * M_PI * kFrequency * (t - kOffset) / (1 + kDrift)) + noise(random));
  }
  const Calculator calculator = calculate(pair);
  const double period = (1 + kDrift) / kFrequency;
  int64_t used = 0;
  for (const auto& window : calculator.windows()) {
    if (window.status == Status::Used) {
      ++used;
      const double error =
          window.refinedLag / kRate - (kOffset + kDrift * centreSeconds(window, kBurstLength));
      EXPECT_NEAR(error - period * std::round(error / period), 0.0,
                  4 * window.delayUncertainty / kRate)
          << window.start;
    }
  }
  EXPECT_GE(used, static_cast<int64_t>(calculator.windows().size()) * 9 / 10);
}

// Through a room drawn from the seed: the direct sound, 12 reflections in 30 ms, a 0.3 s tail.
std::vector<float> throughRoom(const std::vector<float>& dry, uint64_t seed) {
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::normal_distribution<double> gauss(0.0, 1.0);
  std::vector<double> response(3200, 0.0);
  response[0] = 1.0;
  for (int i = 0; i < 12; ++i) {
    const auto at = static_cast<size_t>(16 + 224 * unit(random));
    response[at] += (unit(random) < 0.5 ? -1 : 1) * (0.2 + 0.5 * unit(random));
  }
  for (size_t n = 80; n < response.size(); ++n) {
    response[n] += 0.12 * gauss(random) * std::pow(10.0, -3.0 * n / 2400.0);
  }
  VDFFTCorrelator correlator(VDFFTCorrelator::fastSize(dry.size() + response.size()));
  std::reverse_copy(response.begin(), response.end(), correlator.reference());
  std::copy(dry.begin(), dry.end(), correlator.other() + response.size() - 1);
  const double* wet = correlator.correlate();
  return std::vector<float>(wet, wet + dry.size());
}

TEST(AudioTimeErrorCalculator, MeasuresThroughTwoRoomsOfTheirOwn) {
  // Two microphones in one room, B 40 ppm slow: reflections blur and move the plain peak, A and B
  // correlate by 0.2-0.5, the rooms add a constant delay. In these rooms (not in all) the drift
  // comes out within 1 ppm, and at most 2 % of the values beyond 5 times their uncertainty.
  constexpr double kDrift = 40e-6, kOffset = 0.0125;
  const Pair dry = burstPair(30.0, kOffset, NAN, -1, false, kDrift);
  for (const uint64_t room : {1, 5, 21, 29}) {
    SCOPED_TRACE(room);
    const Calculator calculator =
        calculate({throughRoom(dry.a, room), throughRoom(dry.b, room + 1)});
    std::vector<double> errors, stated;  // seconds
    double st = 0, se = 0, stt = 0, ste = 0;
    for (const auto& window : calculator.windows()) {
      if (window.status == Status::Used) {
        const double t = centreSeconds(window, kBurstLength);
        errors.push_back(window.refinedLag / kRate - (kOffset + kDrift * t));
        stated.push_back(window.delayUncertainty / kRate);
        st += t, se += errors.back(), stt += t * t, ste += t * errors.back();
      }
    }
    const auto n = static_cast<double>(errors.size());
    ASSERT_GE(n, 150);  // of 299 windows, 30 of them in pauses
    EXPECT_NEAR((n * ste - st * se) / (n * stt - st * st), 0.0, 1e-6);
    int64_t beyond = 0;  // about the true line moved by the rooms' constant, the mean error
    for (size_t i = 0; i < errors.size(); ++i) {
      beyond += std::fabs(errors[i] - se / n) > 5 * stated[i] ? 1 : 0;
    }
    EXPECT_LE(beyond, n / 50);
  }
}

TEST(AudioTimeErrorCalculator, AWindowWhoseBestPeakIsNotTheDelayFollowedGivesNoValue) {
  // B lags 0.0123 s, but 7 samples more over B's samples 75300-76180. The window mostly on that
  // glitch (75200) is ambiguous: its peak lies off the prediction, no step is confirmed. Windows
  // touching it in part may keep a value, pulled a little; the others are exact.
  const double delay = 0.0123;
  Pair pair = burstPair(20.0, delay);
  const Pair glitch = burstPair(20.0, delay + 7 / kRate);
  const int64_t glitchBegin = 75300, glitchEnd = 76180;
  std::copy(glitch.b.begin() + glitchBegin, glitch.b.begin() + glitchEnd,
            pair.b.begin() + glitchBegin);
  const Calculator calculator = calculate(pair);
  int64_t used = 0;
  for (const auto& window : calculator.windows()) {
    const double firstInB = static_cast<double>(window.start) + delay * kRate;
    const bool touches = firstInB + kBurstLength > glitchBegin && firstInB < glitchEnd;
    if (window.start == 75200) {
      EXPECT_EQ(window.status, Status::Ambiguous);
      EXPECT_EQ(window.integerLag, 98 + 7);
    } else if (window.status == Status::Used) {
      EXPECT_NEAR(window.refinedLag / kRate, delay, touches ? 0.05 / kRate : 1e-9) << window.start;
      ++used;
    }
  }
  EXPECT_GT(used, 50);
  EXPECT_EQ(calculator.windows()[static_cast<size_t>(76800 / kBurstInterval)].status, Status::Used);
}

TEST(AudioTimeErrorCalculator, MeasuresIntegerFractionalAndNegativeDelaysInEveryType) {
  // Types 0 to 2 at an upscale of 16, and the post-resampler at 1 (parabola on the native
  // correlation): every window measured. One window predicted a few samples off (the search range
  // is +-32) finds its peak at the offset where it lies and places it between samples from there;
  // also at the recordings' ends, where it is judged on the part whose neighbourhood lies in both.
  constexpr int64_t kInterval = 800, kLength = 1024;
  for (double delay : {37.0, 37.3, -37.3, -12.62, 0.0}) {  // samples; positive when B lags
    const Pair pair = makePair(3.0, delay / kRate);
    const auto count = static_cast<int64_t>(pair.a.size());
    for (int64_t type : {0, 1, 2, 3}) {
      SCOPED_TRACE(testing::Message() << "delay " << delay << " type " << type);
      const int64_t upscale = type == 3 ? 1 : 16;
      const auto kind = static_cast<Calculator::CorrelationType>(type == 3 ? 2 : type);
      const Calculator calculator = calculate(pair, kInterval, kLength, upscale, kind);
      ASSERT_EQ(calculator.windows().size(), 29u);  // (24000 - 1024) / 800 + 1
      const auto [worst, used] = worstError(calculator, kLength, delay / kRate, 0.0);
      EXPECT_EQ(used, 29);
      const double tolerance = type == Calculator::kQuick || type == 3 ? 0.1 : 1e-9 * kRate;
      EXPECT_LT(worst, tolerance / kRate);
      for (const Calculator::Window& window : calculator.windows()) {
        EXPECT_EQ(window.integerLag, std::llround(delay)) << window.start;
        EXPECT_GT(window.peakCorrelation, 0.99) << window.start;
      }
      VDAudioTracking tracking;
      const auto size = static_cast<size_t>(kLength + 2 * VDWindowCorrelation::kLagMargin);
      tracking.warpedB.resize(size);
      tracking.correlation.resize(2 * VDWindowCorrelation::kLagMargin + 1);
      const size_t fast = VDFFTCorrelator::fastSize(size);
      tracking.forwardCorrelator = std::make_unique<VDFFTCorrelator>(fast);
      tracking.backwardCorrelator = std::make_unique<VDFFTCorrelator>(fast);
      const VDWindowCorrelation window(pair.a.data(), pair.b.data(), count, kLength, upscale, kind);
      for (int64_t start : {int64_t{40}, int64_t{8000}, count - kLength - 8}) {
        for (double predictedOff : {-3.4, -1.0, 0.0, 0.4, 2.0, 6.7}) {
          SCOPED_TRACE(testing::Message() << "start " << start << " off " << predictedOff);
          VDWindowPeak peak;
          const double predicted = delay + predictedOff;
          ASSERT_EQ(window.correlate(start, predicted, 1.0, tracking, peak), Status::Used);
          EXPECT_EQ(peak.offset, std::llround(delay - predicted));
          EXPECT_NEAR(predicted + window.refinedOffset(start, peak.offset, tracking), delay,
                      std::max(tolerance, 2e-3));
        }
      }
    }
  }
}

TEST(AudioTimeErrorCalculator, TheSampleSearchKeepsOnlyALagThatStandsClear) {
  // Half a second of A against B over 60 +- 50 samples, B lagging 37, the peak twice any other
  // outside its lobe: found, also from a stretch cut short by the end, in tones four times lower
  // (a broad lobe) and with B upside down; a tone and unrelated noise give nothing.
  Pair clean = makePair(3.0, 37 / kRate), inverted = clean, tone = clean, unrelated = clean;
  const double slow = 0.25 / kRate;
  const Pair low{render(0.0, slow, 24000, 0, 0), render(-37 * slow, slow, 24000, 0, 0)};
  std::mt19937 random(9);
  std::normal_distribution<float> noise(0.0f, 0.1f);
  for (size_t n = 0; n < clean.a.size(); ++n) {
    inverted.b[n] = -clean.b[n];
    tone.a[n] = static_cast<float>(std::sin(2 * M_PI * 440.0 * n / kRate));
    tone.b[n] = static_cast<float>(std::sin(2 * M_PI * 440.0 * (n - 37.0) / kRate));
    unrelated.b[n] = noise(random);
  }
  const struct {
    const char* what;
    const Pair& pair;
    int64_t start;
    double polarity;  // of the lag of 37 samples found, 0 for none
  } rows[] = {{"clean", clean, 8000, 1.0},
              {"the stretch cut short", clean, 24000 - 3000, 1.0},
              {"tones four times lower", low, 8000, 1.0},
              {"B upside down", inverted, 8000, -1.0},
              {"a tone", tone, 8000, 0.0},
              {"unrelated noise", unrelated, 8000, 0.0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    VDAudioTracking tracking;
    tracking.searchLength = 4000;
    const auto hit = VDLagSearch(row.pair.a.data(), row.pair.b.data(), 24000)
                         .search(row.start, 60, 50, 2.0, tracking);
    ASSERT_EQ(hit.has_value(), row.polarity != 0.0);
    if (hit) {
      EXPECT_EQ(hit->lag, 37);
      EXPECT_EQ(hit->polarity, row.polarity);
      EXPECT_GT(hit->prominence, 2.0);
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
    const Calculator calculator = calculate(pair, kInterval, kLength, 8, type);
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
  // At -0.15 s the first windows' matches lie before B's start; the windows from the first
  // value on are measured, and the ones before it backwards from there.
  for (double offset : {0.5123, -0.4871, -0.15}) {
    SCOPED_TRACE(offset);
    const Pair pair = makePair(4.0, offset, 20e-6);
    const Calculator calculator = calculate(pair, kInterval, kLength);
    // Within 5 ns even where the recordings' ends leave only half a window to correlate.
    const auto [worst, used] = worstError(calculator, kLength, offset, 20e-6);
    EXPECT_LT(worst, 5e-9);
    // Windows whose partner stretch lies outside B have no value: those at the end if B lags, at
    // the start if it leads; about offset / interval of them, give or take the partial ones.
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
  const Calculator calculator = calculate(pair, kInterval, kLength);
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

  // Silence throughout: every window is silent and there is no series.
  const std::vector<float> zeros(40000, 0.0f);
  const Calculator quiet = calculate({zeros, zeros}, kInterval, kLength);
  EXPECT_EQ(countStatus(quiet, Status::Silent), 99);
  for (const auto& window : quiet.windows()) {
    EXPECT_EQ(window.integerLag, 0) << window.start;  // no delay known, none shown
  }

  // B cut to digital zero for a second while A sounds: no lag is judged on B's silence, every
  // window keeps within 0.05 sample of the delay, and one whose partner stretch of B holds signal
  // in less than a quarter of it (the window at 47600 sees 116 of 512 samples) is silent.
  Pair cut = makePair(8.0, kOffset, kDrift);
  std::fill(cut.b.begin() + 40000, cut.b.begin() + 48080, 0.0f);
  const Calculator deaf = calculate(cut, kInterval, kLength);
  EXPECT_LT(worstError(deaf, kLength, kOffset, kDrift).worst, 0.05 / kRate);
  for (const auto& window : deaf.windows()) {
    const auto from = window.start + std::llround(kOffset * kRate + kDrift * window.start);
    const auto heard = std::count_if(cut.b.begin() + std::min<int64_t>(from, 64000),
                                     cut.b.begin() + std::min<int64_t>(from + kLength, 64000),
                                     [](float sample) { return sample != 0.0f; });
    EXPECT_EQ(window.status == Status::Silent, 4 * heard < kLength) << window.start;
  }

  // One channel replaced by unrelated noise: the windows are weak, not measured.
  std::mt19937 random(3);
  std::normal_distribution<float> noise(0.0f, 0.1f);
  std::vector<float> unrelated(pair.a.size());
  std::generate(unrelated.begin(), unrelated.end(), [&] { return noise(random); });
  const Calculator mismatched = calculate({pair.a, unrelated}, kInterval, kLength);
  EXPECT_EQ(countStatus(mismatched, Status::Weak) + countStatus(mismatched, Status::Silent),
            static_cast<int64_t>(mismatched.windows().size()));
}

TEST(AudioTimeErrorCalculator, DegenerateSizesGiveAnEmptySeriesWithoutFailing) {
  const Pair pair = makePair(1.0, 0.001);
  const float *a = pair.a.data(), *b = pair.b.data();
  struct Case {
    const char* what;
    const float *a, *b;
    int64_t length, interval, correlationLength, upscale;
    double rate;
    int64_t type;  // any but 0 (quick) and 1 (resampler) means the post-resampler
  };
  const Case cases[] = {
      {"no samples", a, b, 0, 800, 1024, 16, kRate, 3},
      {"negative length", a, b, -5, 800, 1024, 16, kRate, -1},
      {"shorter than a window", a, b, 1023, 800, 1024, 16, kRate, 2},
      {"no arrays", nullptr, nullptr, 0, 800, 1024, 16, kRate, 2},
      {"zero interval", a, b, 8000, 0, 1024, 16, kRate, 2},
      {"zero correlation length", a, b, 8000, 800, 0, 16, kRate, 2},
      {"zero upscale", a, b, 8000, 800, 1024, 0, kRate, 2},
      {"zero rate", a, b, 8000, 800, 1024, 16, 0.0, 2},
      {"rate not a number", a, b, 8000, 800, 1024, 16, kNaN, 2},
      {"huge correlation length", a, b, 8000, 800, kInt64Max, 16, kRate, 2},
      {"huge everything", a, b, 8000, kInt64Max, kInt64Max, kInt64Max, kRate, kInt64Max},
      {"resampler, upscaled window too long", a, b, 8000, 800, 1024, kInt64Max, kRate, 1},
      {"resampler, upscaled window just too long", a, b, 8000, 800, 1024, 4097, kRate, 1},
      {"one sample per window and interval", a, b, 1, 1, 1, 1, kRate, 0},
  };
  TestSupport::TempDir dir;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Calculator calculator(c.a, c.b, c.length, c.interval, c.correlationLength, c.upscale, c.rate,
                          c.type);
    EXPECT_EQ(calculator.correlationType(), c.type == 0   ? Calculator::kQuick
                                            : c.type == 1 ? Calculator::kResampler
                                                          : Calculator::kPostResampler);
    calculator.calculateTimeError();
    EXPECT_TRUE(calculator.timeErrors().empty());
    EXPECT_TRUE(calculator.exportTimeErrorToDirectoryURL(dir.path(), "series.csv"));
    EXPECT_EQ(TestSupport::readFile(dir / "series.csv"), "time,time_error\n");
  }

  // A huge interval leaves just the first window; a huge upscale factor still resolves finely;
  // an interval of one sample is accepted: a window at every sample.
  const Calculator sparse = calculate(pair, kInt64Max, 1024, kInt64Max);
  ASSERT_EQ(sparse.timeErrors().size(), 1u);
  EXPECT_LT(worstError(sparse, 1024, 0.001, 0.0).worst, 1e-9);
  const Calculator dense = calculate(makePair(0.5, 0.001), 1, 1024);
  EXPECT_EQ(dense.windows().size(), 4000u - 1024 + 1);
  EXPECT_FALSE(dense.timeErrors().empty());
}

TEST(AudioTimeErrorCalculator, ValuesAreWholeNanosecondsSaturatedAtTheRangesEnds) {
  // A used window's centre and delay, rounded to the nearest nanosecond; beyond what the series
  // holds, its ends (2^62 samples at 250 MHz end exactly at 2^64 ns); a delay that is not a
  // number, zero. Windows without a value give none.
  const struct {
    int64_t start, length;
    double rate, lag;
    uint64_t timestamp;
    int64_t error;
  } rows[] = {
      {0, 1024, 8000, 100.4, 63937500, 12550000},
      {1, 2, 3, -1, 500000000, -333333333},
      {int64_t{1} << 62, 1, 5e8, 0, uint64_t{1} << 63, 0},
      {int64_t{1} << 62, 1, 2.5e8, 0, UINT64_MAX, 0},
      {0, 1, 1, 1e30, 0, INT64_MAX},
      {0, 1, 1, -1e30, 0, INT64_MIN},
      {0, 1, 1, kNaN, 0, 0},
  };
  for (const auto& row : rows) {
    const std::vector<Calculator::Window> windows = {
        {.start = row.start, .refinedLag = row.lag, .status = Status::Used},
        {.status = Status::Silent}};
    const std::vector<VDTimeErrorValue> values =
        VDAudioWindowExport(windows, row.length, row.rate).timeErrors();
    ASSERT_EQ(values.size(), 1u);
    EXPECT_EQ(values[0].timestamp(), row.timestamp) << row.start << " at " << row.rate;
    EXPECT_EQ(values[0].error(), row.error) << row.lag;
  }
}

TEST(AudioTimeErrorCalculator, ExportsTheSeriesInSecondsAndEveryWindowForDiagnosis) {
  constexpr int64_t kInterval = 4000, kLength = 1024;
  // One second of silence in the middle of four.
  const Pair pair = makePair(4.0, 0.0125, 0.0, 1.6, 2.6);
  const Calculator calculator = calculate(pair, kInterval, kLength);
  TestSupport::TempDir dir;
  ASSERT_TRUE(calculator.exportTimeErrorToDirectoryURL(dir.path(), "x_audio_time_error.csv"));

  // time,time_error: one row per used window, in seconds; not the window at 2 s, wholly in the
  // gap, nor the one at 2.5 s, with signal only in its last 28 ms (less than a quarter of it).
  const auto series = TestSupport::csvRows(dir / "x_audio_time_error.csv", "time,time_error");
  ASSERT_EQ(series.size(), 6u);
  ASSERT_EQ(calculator.timeErrors().size(), 6u);
  EXPECT_EQ(series[0].substr(0, 12), "0.063937500,");  // 511.5 / kRate
  for (const std::string& row : series) {
    double time = 0, error = 0;
    ASSERT_EQ(std::sscanf(row.c_str(), "%lf,%lf", &time, &error), 2) << row;
    EXPECT_NEAR(std::remainder(time * kRate - 511.5, kInterval), 0.0, 1e-6) << time;
    EXPECT_NEAR(error, 0.0125, 1e-9) << time;
  }

  // The diagnostic file: one row per window, the two silent ones (at 2 s and 2.5 s) included; the
  // clean tones' standard uncertainty far below a nanosecond.
  const std::vector<std::string> lines = exportedWindows(calculator);
  ASSERT_EQ(lines.size(), 8u);
  EXPECT_EQ(lines[0].substr(0, 18), "0,100,100.00000000");
  for (size_t i = 0; i < lines.size(); ++i) {
    const size_t used = lines[i].find(",1,used,");
    if (i == 4 || i == 5) {
      EXPECT_NE(lines[i].find(",nan,nan,0.000000,0,silent,nan,"), std::string::npos) << lines[i];
    } else {
      double uncertainty = 1.0;
      ASSERT_NE(used, std::string::npos) << lines[i];
      ASSERT_EQ(std::sscanf(lines[i].c_str() + used + 8, "%lf", &uncertainty), 1) << lines[i];
      EXPECT_GT(uncertainty, 0.0);
      EXPECT_LT(uncertainty, 1e-9);
    }
  }

  // An unwritable place is reported, not fatal.
  EXPECT_FALSE(calculator.exportTimeErrorToDirectoryURL(dir / "missing", "x.csv"));
  EXPECT_FALSE(calculator.exportTimeErrorToPath((dir / "missing").string()));
}

}  // namespace

TEST(AudioTimeErrorCalculator, CalibratesUncertaintiesAgainstTheScatterOfTheValues) {
  // 400 windows on a drift line with errors of a known distribution; afterwards at most 2 % of
  // the errors may exceed three times their window's uncertainty, as for honest Gaussian ones.
  const struct {
    const char* what;
    double noiseOverStated;        // the errors' standard deviation over the stated uncertainty
    double extra;                  // samples, an error the peaks do not show (lossy coding)
    int64_t stepAt;                // window index where the delay steps by 5 samples (400: none)
    int64_t wrongAt;               // window index one sample off, or -1
    double factorLow, factorHigh;  // the range of calibrated over stated, elsewhere
  } rows[] = {
      {"errors as stated", 1.0, 0.0, 400, -1, 1.0, 1.5},
      {"errors three times the stated", 3.0, 0.0, 400, -1, 1.8, 6.5},
      {"an extra error that the peaks do not show", 1.0, 0.02, 400, -1, 1.0, 12.0},
      {"a step of five samples", 1.0, 0.0, 200, -1, 1.0, 1.5},
      {"one wrong match", 1.0, 0.0, 400, 300, 1.0, 1.5},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    std::mt19937 random(11);
    std::normal_distribution<double> gauss(0.0, 1.0);
    std::uniform_real_distribution<double> spread(0.002, 0.006);
    std::vector<Calculator::Window> windows(400);
    std::vector<double> errors;
    for (int64_t i = 0; i < 400; ++i) {
      Calculator::Window& w = windows[i];
      w.start = i * 800;
      w.status = Status::Used;
      w.delayUncertainty = spread(random);
      errors.push_back(row.noiseOverStated * w.delayUncertainty * gauss(random) +
                       row.extra * gauss(random));
      w.refinedLag = 100.0 + 1e-4 * static_cast<double>(w.start) + errors.back() +
                     (i >= row.stepAt ? 5.0 : 0.0) + (i == row.wrongAt ? 1.0 : 0.0);
    }
    const std::vector<Calculator::Window> stated = windows;
    VDUncertaintyCalibration::apply(windows, kRate);
    int64_t beyond = 0, kept = 0;
    for (int64_t i = 0; i < 400; ++i) {
      ASSERT_EQ(windows[i].status, i == row.wrongAt ? Status::Uncertain : Status::Used) << i;
      if (i != row.wrongAt) {
        ++kept;
        beyond += std::fabs(errors[i]) > 3 * windows[i].delayUncertainty ? 1 : 0;
        const double factor = windows[i].delayUncertainty / stated[i].delayUncertainty;
        EXPECT_GE(factor, row.factorLow) << i;
        EXPECT_LE(factor, row.factorHigh) << i;
      }
    }
    EXPECT_LE(beyond, kept * 2 / 100);
  }
}
