// The audio time error calculator on recording pairs like the ones engineers make: speech with
// pauses, music, noise; starting offsets up to a minute either way; drifts up to 1000 ppm; a
// dropout, inserted blocks, inverted polarity; one hour at 48 kHz.
//
// Channel A is a synthesised signal x sampled at 48 kHz. Channel B is made from x by band-limited
// resampling (64-tap Kaiser-windowed sinc): B's sample n shows x at n (1 - eps) / rate - d0 - s(n)
// seconds, where s(n) is the sum of the steps that B has passed by sample n (positive: a block
// inserted, so B lags more; negative: a dropout). Each channel then gets its own white noise. The
// true delay of B at A's time t is therefore (d0 + s + eps t) / (1 - eps).
//
// Printed per case: RMS and maximum error of the windows with a value against that truth (a
// window whose span in B crosses a step is scored against the nearer side), windows with a value,
// windows that contain the signal (speech: at least half of the window non-silent) and how many
// of them gave a value, windows with a value off by more than 1 microsecond, windows without a
// value that hold the signal within two windows' reach of a step, and speed as a multiple of real
// time (processor time of one core, so that a busy machine does not skew it). Noise is relative to
// the signal's RMS while it sounds. All cases use interval 4800, upscale 16 and the
// post-resampler type; the window is 4096 samples unless the name says otherwise.
//
// Options: --short leaves out the hour; --only TEXT runs the cases whose name contains TEXT;
// --dump lists the windows off by more than a microsecond and those near a step; --dump-all
// lists every window with a value on standard error; --trace FROM TO lists those windows.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "VDAudioTimeErrorCalculator.h"

namespace {

constexpr double kRate = 48000.0;
constexpr int64_t kInterval = 4800;
constexpr int64_t kUpscale = 16;

// ---- Signals ----------------------------------------------------------------------------------

// A two-pole resonator (gain normalised at its centre) used for formants and noise colour.
class Resonator {
 public:
  void set(double frequency, double bandwidth) {
    const double r = std::exp(-M_PI * bandwidth / kRate);
    _a1 = 2.0 * r * std::cos(2.0 * M_PI * frequency / kRate);
    _a2 = -r * r;
    _gain = 1.0 - r;
  }
  double operator()(double x) {
    const double y = _gain * x + _a1 * _y1 + _a2 * _y2;
    _y2 = _y1;
    _y1 = y;
    return y;
  }

 private:
  double _a1 = 0, _a2 = 0, _gain = 1, _y1 = 0, _y2 = 0;
};

// Two cascaded one-pole low-passes: keeps the source's spectrum far below full scale near the
// Nyquist frequency, where a finite resampler is not exact.
class Smoother {
 public:
  explicit Smoother(double corner) : _k(1.0 - std::exp(-2.0 * M_PI * corner / kRate)) {}
  double operator()(double x) {
    _s1 += _k * (x - _s1);
    _s2 += _k * (_s1 - _s2);
    return _s2;
  }

 private:
  double _k, _s1 = 0, _s2 = 0;
};

// Speech-like sound: sentences of words of one to three syllables; a syllable is an optional
// fricative (noise through a 4-6 kHz resonance) and a voiced nucleus (a glottal pulse train at a
// pitch of 100-250 Hz falling along the sentence, radiated at the lips, through three formant
// resonators of a random
// vowel) under a smooth envelope. Words are 80-300 ms apart, sentences 0.6-2 s; the pauses are
// exact zeros. active[n] says whether sample n belongs to a syllable.
void speechLike(int64_t count, uint64_t seed, std::vector<float>& out, std::vector<bool>& active) {
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::normal_distribution<double> gauss(0.0, 1.0);
  static const double kVowels[][3] = {{730, 1090, 2440}, {270, 2290, 3010}, {530, 1840, 2480},
                                      {300, 870, 2240},  {640, 1190, 2390}, {440, 1020, 2240},
                                      {490, 1350, 1690}, {660, 1720, 2410}};
  out.assign(static_cast<size_t>(count), 0.0f);
  active.assign(static_cast<size_t>(count), false);
  int64_t n = static_cast<int64_t>(0.3 * kRate * unit(random));
  while (n < count) {
    const int words = 3 + static_cast<int>(unit(random) * 8);
    const double basePitch = 120.0 + 90.0 * unit(random);
    for (int w = 0; w < words && n < count; ++w) {
      const int syllables = 1 + static_cast<int>(unit(random) * 3);
      for (int s = 0; s < syllables && n < count; ++s) {
        const double pitch = basePitch * (1.0 - 0.25 * w / words) * (0.9 + 0.2 * unit(random));
        const double glide = (unit(random) - 0.5) * 0.3;  // relative pitch change over the nucleus
        const int64_t fricative =
            unit(random) < 0.4 ? static_cast<int64_t>((0.03 + 0.06 * unit(random)) * kRate) : 0;
        const int64_t voiced = static_cast<int64_t>((0.08 + 0.17 * unit(random)) * kRate);
        const int64_t total = fricative + voiced;
        const double* vowel = kVowels[static_cast<int>(unit(random) * 8) % 8];
        Resonator f1, f2, f3, hiss;
        f1.set(vowel[0] * (0.95 + 0.1 * unit(random)), 80);
        f2.set(vowel[1] * (0.95 + 0.1 * unit(random)), 100);
        f3.set(vowel[2] * (0.95 + 0.1 * unit(random)), 140);
        hiss.set(4000 + 2000 * unit(random), 1500);
        Smoother glottal(800.0), fricativeTone(7000.0);
        double phase = unit(random);
        double previousFlow = 0.0;
        const double loudness = 0.5 + unit(random);
        for (int64_t k = 0; k < total && n + k < count; ++k) {
          double value = 0.0;
          if (k < fricative) {
            const double edge = std::min(k, fricative - k) / (0.01 * kRate);
            value = 0.3 * hiss(fricativeTone(gauss(random))) * std::min(1.0, edge);
          } else {
            const int64_t v = k - fricative;
            const double f0 = pitch * (1.0 + glide * static_cast<double>(v) / voiced);
            phase += f0 / kRate;
            double pulse = 0.0;
            if (phase >= 1.0) {
              phase -= 1.0;
              pulse = 1.0;
            }
            // Glottal flow falls 12 dB per octave, the lips' radiation lifts it by 6.
            const double flow = glottal(pulse);
            const double source = flow - previousFlow;
            previousFlow = flow;
            const double shaped = f3(f2(f1(source * 2000.0)));
            const double attack = std::min(1.0, v / (0.02 * kRate));
            const double release = std::min(1.0, (voiced - v) / (0.03 * kRate));
            value = loudness * shaped * (0.5 - 0.5 * std::cos(M_PI * attack)) *
                    (0.5 - 0.5 * std::cos(M_PI * release));
          }
          out[static_cast<size_t>(n + k)] = static_cast<float>(value);
          active[static_cast<size_t>(n + k)] = true;
        }
        n += total + static_cast<int64_t>((0.02 + 0.04 * unit(random)) * kRate);
      }
      n += static_cast<int64_t>((0.08 + 0.22 * unit(random)) * kRate);
    }
    n += static_cast<int64_t>((0.6 + 1.4 * unit(random)) * kRate);
  }
}

// Music-like sound: random notes of 82 Hz - 1.3 kHz with harmonics up to 12 kHz falling as 1/h,
// about three sounding at once, each with a quick attack, a decay and a release.
void musicLike(int64_t count, uint64_t seed, std::vector<float>& out) {
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::vector<double> sum(static_cast<size_t>(count), 0.0), note;
  for (int64_t start = 0; start < count;
       start += static_cast<int64_t>((0.1 + 0.25 * unit(random)) * kRate)) {
    const double fundamental = 82.4 * std::pow(2.0, std::floor(unit(random) * 48.0) / 12.0);
    const int64_t length =
        std::min(count - start, static_cast<int64_t>((0.4 + 0.8 * unit(random)) * kRate));
    const double attack = (0.004 + 0.01 * unit(random)) * kRate;
    const double decay = (0.15 + 0.4 * unit(random)) * kRate;
    const double release = 0.03 * kRate;
    note.assign(static_cast<size_t>(length), 0.0);
    for (int h = 1; h * fundamental < 12000.0; ++h) {
      const double amplitude = (0.5 + unit(random)) / h;
      const double step = 2.0 * M_PI * h * fundamental * (1.0 + 0.0005 * unit(random)) / kRate;
      const double theta = 2 * M_PI * unit(random);
      double re = std::cos(theta), im = std::sin(theta);
      const double c = std::cos(step), s = std::sin(step);
      for (int64_t k = 0; k < length; ++k) {
        note[static_cast<size_t>(k)] += amplitude * re;
        const double next = re * c - im * s;
        im = re * s + im * c;
        re = next;
      }
    }
    for (int64_t k = 0; k < length; ++k) {
      const double local = static_cast<double>(k);
      double envelope = std::exp(-local / decay);
      if (local < attack) {
        envelope *= 0.5 - 0.5 * std::cos(M_PI * local / attack);
      }
      if (static_cast<double>(length) - local < release) {
        envelope *= 0.5 - 0.5 * std::cos(M_PI * (static_cast<double>(length) - local) / release);
      }
      sum[static_cast<size_t>(start + k)] += note[static_cast<size_t>(k)] * envelope;
    }
  }
  out.resize(static_cast<size_t>(count));
  for (int64_t k = 0; k < count; ++k) {
    out[static_cast<size_t>(k)] = static_cast<float>(sum[static_cast<size_t>(k)]);
  }
}

// Noise: white Gaussian noise through the smoother (corner 6 kHz).
void noiseLike(int64_t count, uint64_t seed, std::vector<float>& out) {
  std::mt19937_64 random(seed);
  std::normal_distribution<double> gauss(0.0, 1.0);
  Smoother smoother(6000.0);
  out.resize(static_cast<size_t>(count));
  for (int64_t k = 0; k < count; ++k) {
    out[static_cast<size_t>(k)] = static_cast<float>(smoother(gauss(random)));
  }
}

// ---- Band-limited resampling ------------------------------------------------------------------

constexpr int kHalfTaps = 32;
constexpr int kRows = 4096;

double besselI0(double x) {
  double sum = 1.0, term = 1.0;
  for (int k = 1; k < 80; ++k) {
    term *= (x * x / 4.0) / (static_cast<double>(k) * k);
    sum += term;
  }
  return sum;
}

// Row r holds the 64 weights for a position r / kRows past a sample, tap t for the sample
// t - kHalfTaps + 1 away; Kaiser window, beta 10, cut-off at 0.95 of the Nyquist frequency.
const std::vector<double>& kernel() {
  static const std::vector<double> table = [] {
    std::vector<double> values(static_cast<size_t>((kRows + 1) * 2 * kHalfTaps));
    const double beta = 10.0, cutoff = 0.95, norm = besselI0(beta);
    for (int row = 0; row <= kRows; ++row) {
      const double fraction = static_cast<double>(row) / kRows;
      for (int t = 0; t < 2 * kHalfTaps; ++t) {
        const double x = fraction - (t - kHalfTaps + 1);
        const double ratio = x / kHalfTaps;
        const double window =
            std::fabs(ratio) >= 1.0 ? 0.0 : besselI0(beta * std::sqrt(1.0 - ratio * ratio)) / norm;
        const double sinc =
            std::fabs(x) < 1e-12 ? cutoff : std::sin(M_PI * cutoff * x) / (M_PI * x);
        values[static_cast<size_t>(row * 2 * kHalfTaps + t)] = sinc * window;
      }
    }
    return values;
  }();
  return table;
}

// x between its samples: position in samples of x, zero outside it.
double valueAt(const std::vector<float>& x, double position) {
  const double whole = std::floor(position);
  const int64_t base = static_cast<int64_t>(whole);
  const double row = (position - whole) * kRows;
  const int below = std::min(kRows - 1, static_cast<int>(row));
  const double between = row - below;
  const double* w0 = kernel().data() + below * 2 * kHalfTaps;
  const double* w1 = w0 + 2 * kHalfTaps;
  const int64_t first = base - kHalfTaps + 1;
  double s0 = 0, s1 = 0;
  if (first >= 0 && first + 2 * kHalfTaps <= static_cast<int64_t>(x.size())) {
    const float* in = x.data() + first;
    for (int t = 0; t < 2 * kHalfTaps; ++t) {
      s0 += w0[t] * in[t];
      s1 += w1[t] * in[t];
    }
  } else {
    for (int t = 0; t < 2 * kHalfTaps; ++t) {
      const int64_t i = first + t;
      const double v = i >= 0 && i < static_cast<int64_t>(x.size()) ? x[static_cast<size_t>(i)] : 0;
      s0 += w0[t] * v;
      s1 += w1[t] * v;
    }
  }
  return s0 + (s1 - s0) * between;
}

// ---- Cases ------------------------------------------------------------------------------------

enum class Kind { Speech, Music, Noise };

// A change of B's delay from B's sample at (seconds) on; negative for a dropout.
struct Step {
  double at;
  double seconds;
};

struct Case {
  std::string name;
  Kind kind;
  double seconds;
  double offset;  // d0, seconds, positive when B lags
  double drift;   // eps
  double snrDb;
  std::vector<Step> steps;
  bool inverted = false;
  int64_t length = 4096;
  uint64_t seed = 1;
};

struct Recording {
  std::vector<float> a, b;
  std::vector<bool> active;  // samples of A holding the signal (speech only; else all)
  double scale = 1.0;
};

// x covers A's span and a margin either side for the offsets; A is x from the margin on.
Recording record(const Case& c) {
  const int64_t count = static_cast<int64_t>(c.seconds * kRate);
  const int64_t margin = static_cast<int64_t>((std::fabs(c.offset) + 2.0) * kRate);
  std::vector<float> x;
  std::vector<bool> active;
  const int64_t total = count + 2 * margin;
  switch (c.kind) {
    case Kind::Speech:
      speechLike(total, c.seed, x, active);
      break;
    case Kind::Music:
      musicLike(total, c.seed, x);
      break;
    case Kind::Noise:
      noiseLike(total, c.seed, x);
      break;
  }
  double power = 0;
  int64_t activeCount = 0;
  for (int64_t k = 0; k < total; ++k) {
    if (active.empty() || active[static_cast<size_t>(k)]) {
      power += static_cast<double>(x[static_cast<size_t>(k)]) * x[static_cast<size_t>(k)];
      ++activeCount;
    }
  }
  // The signal (while it sounds) at an RMS of 0.1; the noise relative to that.
  const double scale =
      0.1 / std::sqrt(power / static_cast<double>(std::max<int64_t>(1, activeCount)));
  const double noiseLevel = std::isinf(c.snrDb) ? 0.0 : 0.1 * std::pow(10.0, -c.snrDb / 20.0);
  Recording r;
  r.a.resize(static_cast<size_t>(count));
  r.b.resize(static_cast<size_t>(count));
  r.active.resize(static_cast<size_t>(count), true);
  std::mt19937_64 random(c.seed * 7919 + 17);
  std::normal_distribution<double> gauss(0.0, 1.0);
  for (int64_t n = 0; n < count; ++n) {
    double shift = 0.0;
    for (const Step& step : c.steps) {
      if (n >= static_cast<int64_t>(step.at * kRate)) {
        shift += step.seconds;
      }
    }
    const double sourceSeconds =
        static_cast<double>(n) / kRate * (1.0 - c.drift) - c.offset - shift;
    const double b = valueAt(x, sourceSeconds * kRate + static_cast<double>(margin));
    r.b[static_cast<size_t>(n)] =
        static_cast<float>((c.inverted ? -1.0 : 1.0) * b * scale + noiseLevel * gauss(random));
    r.a[static_cast<size_t>(n)] =
        static_cast<float>(x[static_cast<size_t>(n + margin)] * scale + noiseLevel * gauss(random));
    if (!active.empty()) {
      r.active[static_cast<size_t>(n)] = active[static_cast<size_t>(n + margin)];
    }
  }
  return r;
}

// The true delay (seconds) at A's time t with the steps that B has passed there.
double truth(const Case& c, double t, double shift) {
  return (c.offset + shift + c.drift * t) / (1.0 - c.drift);
}

struct Result {
  double rmsNs = 0, maxNs = 0;
  int64_t windows = 0, withValue = 0, signalWindows = 0, signalWithValue = 0, beyond1us = 0;
  int64_t stepCost = 0;
  double realTime = 0;
};

bool gDumpAll = false;  // --dump-all: every window with a value, on standard error
bool gDump = false;
int64_t gTraceFrom = -1, gTraceTo = -1;  // --trace FROM TO: these windows' statuses     // --dump:
                                         // every window off by more than 1 microsecond

Result run(const Case& c) {
  const Recording r = record(c);
  const int64_t count = static_cast<int64_t>(r.a.size());
  VDAudioTimeErrorCalculator calculator(r.a.data(), r.b.data(), count, kInterval, c.length,
                                        kUpscale, kRate,
                                        VDAudioTimeErrorCalculator::kPostResampler);
  // Processor time of this process: the figure stays honest on a machine shared with others.
  const std::clock_t begin = std::clock();
  calculator.calculateTimeError();
  const double elapsed = static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
  Result result;
  result.realTime = c.seconds / elapsed;
  double sumSquares = 0;
  const auto& windows = calculator.windows();
  result.windows = static_cast<int64_t>(windows.size());
  std::vector<bool> nearStep(windows.size(), false);
  for (size_t i = 0; i < windows.size(); ++i) {
    const auto& w = windows[i];
    const double centre = (static_cast<double>(w.start) + (c.length - 1) / 2.0) / kRate;
    // The truth on each side of every step; a window is scored against the nearest of those
    // whose side its span in B touches.
    const double bFirst = centre + truth(c, centre, 0) - c.length / 2.0 / kRate;
    double best = INFINITY;
    double shiftBefore = 0.0;
    bool crosses = false;
    std::vector<double> shifts{0.0};
    for (const Step& step : c.steps) {
      shiftBefore += step.seconds;
      shifts.push_back(shiftBefore);
    }
    // Shift that applies at the window's centre in B, and whether the span crosses a step.
    double shiftHere = 0.0;
    for (const Step& step : c.steps) {
      const double bCentre = centre + truth(c, centre, shiftHere);
      if (bCentre >= step.at) {
        shiftHere += step.seconds;
      }
      const double bCentreAfter = centre + truth(c, centre, shiftHere);
      if (std::fabs(bCentreAfter - step.at) < 2.5 * c.length / kRate + kInterval / kRate ||
          std::fabs(bFirst - step.at) < 2.5 * c.length / kRate + kInterval / kRate) {
        crosses = true;
      }
    }
    nearStep[i] = crosses;
    int64_t activeSamples = 0;
    for (int64_t k = w.start; k < w.start + c.length && k < count; ++k) {
      activeSamples += r.active[static_cast<size_t>(k)] ? 1 : 0;
    }
    if ((gDump && crosses) ||
        (static_cast<int64_t>(i) >= gTraceFrom && static_cast<int64_t>(i) <= gTraceTo)) {
      static const char* kNames[] = {"used",      "silent", "weak",   "ambiguous",
                                     "uncertain", "lost",   "outside"};
      std::printf(
          "  near a step: window %zu at %.3f s (active %.2f): %s, lag %lld (true %.1f), "
          "correlation %.3f, ratio "
          "%.3f\n",
          i, centre, static_cast<double>(activeSamples) / static_cast<double>(c.length),
          kNames[static_cast<int>(w.status)], static_cast<long long>(w.integerLag),
          truth(c, centre, shiftHere) * kRate, w.peakCorrelation, w.peakRatio);
    }
    const bool holdsSignal = 2 * activeSamples >= c.length;
    const bool inside = centre + truth(c, centre, shiftHere) > c.length / kRate &&
                        centre + truth(c, centre, shiftHere) < c.seconds - c.length / kRate;
    if (holdsSignal && inside) {
      ++result.signalWindows;
    }
    if (w.status != VDAudioTimeErrorCalculator::WindowStatus::Used) {
      if (crosses && holdsSignal) {
        ++result.stepCost;
      }
      continue;
    }
    if (holdsSignal && inside) {
      ++result.signalWithValue;
    }
    const double measured = w.refinedLag / kRate;
    if (crosses) {
      for (double s : shifts) {
        best = std::min(best, std::fabs(measured - truth(c, centre, s)));
      }
    } else {
      best = std::fabs(measured - truth(c, centre, shiftHere));
    }
    const double errorNs = best * 1e9;
    if (gDumpAll) {
      std::fprintf(stderr, "%zu %.3f %.1f %.4f %.3f %.1f %.2f\n", i, centre, errorNs,
                   w.peakCorrelation, w.peakRatio, w.delayUncertainty / kRate * 1e9,
                   static_cast<double>(activeSamples) / static_cast<double>(c.length));
    }
    ++result.withValue;
    sumSquares += errorNs * errorNs;
    result.maxNs = std::max(result.maxNs, errorNs);
    if (errorNs > 1000.0) {
      ++result.beyond1us;
      if (gDump) {
        std::printf(
            "  window %zu at %.3f s: error %.1f ns, correlation %.3f, ratio %.3f, "
            "uncertainty %.1f ns, active %.2f\n",
            i, centre, errorNs, w.peakCorrelation, w.peakRatio, w.delayUncertainty / kRate * 1e9,
            static_cast<double>(activeSamples) / static_cast<double>(c.length));
      }
    }
  }
  result.rmsNs = result.withValue > 0 ? std::sqrt(sumSquares / result.withValue) : 0.0;
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  bool shortRun = false;
  std::string only;  // --only TEXT: the cases whose name contains TEXT
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--short") == 0) {
      shortRun = true;
    } else if (std::strcmp(argv[i], "--dump-all") == 0) {
      gDumpAll = true;
    } else if (std::strcmp(argv[i], "--trace") == 0 && i + 2 < argc) {
      gTraceFrom = std::atoll(argv[i + 1]);
      gTraceTo = std::atoll(argv[i + 2]);
      i += 2;
    } else if (std::strcmp(argv[i], "--dump") == 0) {
      gDump = true;
    } else if (std::strcmp(argv[i], "--only") == 0 && i + 1 < argc) {
      only = argv[++i];
    }
  }
  std::vector<Case> cases = {
      {"music 0 ppm", Kind::Music, 60, 0.0123456, 0.0, 40, {}},
      {"music 25 ppm", Kind::Music, 60, 0.0123456, 25e-6, 40, {}},
      {"music 1000 ppm", Kind::Music, 60, -0.0123456, 1000e-6, 40, {}},
      {"music 25 ppm no noise", Kind::Music, 60, 0.0123456, 25e-6, INFINITY, {}},
      {"music 25 ppm 20 dB", Kind::Music, 60, 0.0123456, 25e-6, 20, {}},
      {"noise 25 ppm", Kind::Noise, 60, 0.0123456, 25e-6, 40, {}},
      {"speech 0 ppm", Kind::Speech, 60, 0.0123456, 0.0, 40, {}},
      {"speech 25 ppm", Kind::Speech, 60, 0.0123456, 25e-6, 40, {}, false, 4096, 2},
      {"speech 1000 ppm", Kind::Speech, 60, 0.0123456, -1000e-6, 40, {}, false, 4096, 3},
      {"speech 25 ppm no noise", Kind::Speech, 60, 0.0123456, 25e-6, INFINITY, {}, false, 4096, 4},
      {"speech 25 ppm 60 dB", Kind::Speech, 60, 0.0123456, 25e-6, 60, {}, false, 4096, 4},
      {"speech 25 ppm 20 dB", Kind::Speech, 60, 0.0123456, 25e-6, 20, {}, false, 4096, 12},
      {"noise 25 ppm 10 dB", Kind::Noise, 60, 0.0123456, 25e-6, 10, {}},
      {"speech offset +3 s", Kind::Speech, 60, 3.0, 25e-6, 40, {}, false, 4096, 5},
      {"speech offset -3 s", Kind::Speech, 60, -3.0, 25e-6, 40, {}, false, 4096, 6},
      {"speech offset +60 s", Kind::Speech, 180, 60.0, 100e-6, 40, {}, false, 4096, 7},
      {"music offset -60 s", Kind::Music, 180, -60.0, 100e-6, 40, {}},
      {"music offset +3 s", Kind::Music, 60, 3.0, 25e-6, 40, {}},
      {"speech dropout 300 smp",
       Kind::Speech,
       60,
       0.01,
       25e-6,
       40,
       {{20.0, -300 / kRate}},
       false,
       4096,
       8},
      {"music dropouts every 10 s",
       Kind::Music,
       60,
       0.01,
       25e-6,
       40,
       {{10, -300 / kRate},
        {20, -300 / kRate},
        {30, -300 / kRate},
        {40, -300 / kRate},
        {50, -300 / kRate}}},
      {"speech step 0.3 s", Kind::Speech, 60, 0.01, 25e-6, 40, {{30.0, 0.3}}, false, 4096, 9},
      {"music insert 10 smp", Kind::Music, 60, 0.01, 25e-6, 40, {{30.0, 10 / kRate}}},
      {"music dropout 20 smp", Kind::Music, 60, 0.01, 25e-6, 40, {{30.0, -20 / kRate}}},
      {"speech inverted", Kind::Speech, 60, 0.01, 25e-6, 40, {}, true, 4096, 10},
      {"music inverted", Kind::Music, 60, 0.01, 25e-6, 40, {}, true},
      {"music length 16384 1000 ppm", Kind::Music, 60, 0.01, 1000e-6, 40, {}, false, 16384},
  };
  if (!shortRun) {
    cases.push_back(
        {"speech one hour 100 ppm", Kind::Speech, 3600, 0.5, 100e-6, 40, {}, false, 4096, 11});
  }
  std::printf("%-30s %10s %10s %12s %14s %8s %9s %10s\n", "case", "rms (ns)", "max (ns)",
              "with value", "signal w/ val", ">1 us", "step cost", "x realtime");
  for (const Case& c : cases) {
    if (!only.empty() && c.name.find(only) == std::string::npos) {
      continue;
    }
    const Result r = run(c);
    char withValue[32], signal[32];
    std::snprintf(withValue, sizeof withValue, "%lld/%lld", static_cast<long long>(r.withValue),
                  static_cast<long long>(r.windows));
    std::snprintf(signal, sizeof signal, "%.1f%%",
                  r.signalWindows > 0 ? 100.0 * r.signalWithValue / r.signalWindows : 0.0);
    std::printf("%-30s %10.2f %10.2f %12s %14s %8lld %9lld %10.1f\n", c.name.c_str(), r.rmsNs,
                r.maxNs, withValue, signal, static_cast<long long>(r.beyond1us),
                static_cast<long long>(r.stepCost), r.realTime);
    std::fflush(stdout);
  }
  std::printf(
      "\nmust hold: music at 40 dB rms <= 3 ns; post-resampler >= 200x real time on the hour; "
      "speech at 40 dB no window > 1 us and >= 80%% of speech windows with a value; offsets of "
      "60 s found; each dropout or step costs at most two windows.\n");
  return 0;
}
