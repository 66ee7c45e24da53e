#pragma once

// Synthetic sound for the audio benchmarks: notes of sinusoids under smooth envelopes, rendered
// at any instants, so that channel B can be sampled from the same continuous signal as channel A
// at the instants B's clock samples it.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace synthetic {

// One sinusoid of a note.
struct Partial {
  double frequency;
  double amplitude;
  double phase;
};

// A stretch of sound: partials under a smooth envelope (raised-cosine attack, exponential
// decay, raised-cosine release), zero outside [start, start + duration]. The envelope's corners
// are smooth enough that nothing reaches the Nyquist frequency.
struct Note {
  double start;
  double duration;
  double attack;
  double decay;  // time constant; infinity for none
  double release;
  std::vector<Partial> partials;

  double envelope(double t) const {
    const double local = t - start;
    if (local <= 0.0 || local >= duration) {
      return 0.0;
    }
    double value = std::isinf(decay) ? 1.0 : std::exp(-local / decay);
    if (local < attack) {
      value *= 0.5 - 0.5 * std::cos(M_PI * local / attack);
    }
    if (duration - local < release) {
      value *= 0.5 - 0.5 * std::cos(M_PI * (duration - local) / release);
    }
    return value;
  }
};

using Signal = std::vector<Note>;

// Adds the signal at the instants t0 + n dt, n < count, to out. Phases are set exactly at the
// start of every block of 1024 samples and advanced by rotation within it.
void render(const Signal& signal, double t0, double dt, int64_t count, std::vector<double>& out) {
  constexpr int64_t kBlock = 1024;
  std::vector<double> block(kBlock);
  for (const Note& note : signal) {
    const int64_t first = std::max<int64_t>(0, static_cast<int64_t>((note.start - t0) / dt) - 1);
    const int64_t last =
        std::min(count, static_cast<int64_t>((note.start + note.duration - t0) / dt) + 2);
    for (int64_t blockStart = first; blockStart < last; blockStart += kBlock) {
      const int64_t blockCount = std::min(kBlock, last - blockStart);
      std::fill(block.begin(), block.begin() + blockCount, 0.0);
      const double blockTime = t0 + static_cast<double>(blockStart) * dt;
      for (const Partial& partial : note.partials) {
        const double cycles = partial.frequency * blockTime;
        const double theta = 2.0 * M_PI * (cycles - std::floor(cycles)) + partial.phase;
        const double step = 2.0 * M_PI * partial.frequency * dt;
        double re = std::cos(theta), im = std::sin(theta);
        const double c = std::cos(step), s = std::sin(step);
        for (int64_t n = 0; n < blockCount; ++n) {
          block[n] += partial.amplitude * re;
          const double nextRe = re * c - im * s;
          im = re * s + im * c;
          re = nextRe;
        }
      }
      for (int64_t n = 0; n < blockCount; ++n) {
        const double t = t0 + static_cast<double>(blockStart + n) * dt;
        out[blockStart + n] += block[n] * note.envelope(t);
      }
    }
  }
}

}  // namespace synthetic
