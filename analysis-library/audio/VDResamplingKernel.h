#pragma once

#include <cstdint>
#include <vector>

// The band-limited interpolator behind every sub-sample read of the audio calculator: a
// Kaiser-windowed sinc, 40 taps, beta 11. At 48 kHz its fractional-delay error up to 20 kHz stays
// below 0.5 ns, and far below that where the signal has most of its energy. It reads B through
// the drift, upsamples windows for the resampler type and rebuilds the correlation between its
// lags for the post-resampler type.
class VDResamplingKernel {
 public:
  static constexpr int64_t kHalfLength = 20;
  static constexpr double kBeta = 11.0;
  // Steps per sample of the tabulated interpolator used to read B through the drift; linear
  // interpolation between them is good to about 1e-7 of full scale.
  static constexpr int64_t kTableResolution = 2048;

  // The band-limited value at fraction (0 <= fraction < 1) past samples[0], from the samples
  // samples[-kHalfLength + 1] to samples[kHalfLength]. Exact where the fraction falls on a table
  // row (every multiple of 1/kTableResolution, so every step of a power-of-two upscale), blended
  // from the rows either side elsewhere.
  static double interpolatedValue(const double* samples, double fraction);

  // samples[from, from + count) as doubles, zero outside [0, length).
  static void copyZeroExtended(const float* samples, int64_t length, int64_t from, int64_t count,
                               double* out);

  // Samples of a recording read through a clock that runs (1 + drift) times as fast from a
  // fractional start: out[j] is the band-limited value at first + offset + j + drift (j - centre),
  // zero outside the recording. With neither drift nor offset it is a plain copy.
  static void copyWarped(const float* samples, int64_t length, int64_t first, double offset,
                         int64_t count, double drift, double centre, std::vector<double>& scratch,
                         double* out);

  // Upsamples source by upscale: phases[p * count + n] is the band-limited value at
  // n + p/upscale, for n < count and p < upscale. source[-kHalfLength + 1] to
  // source[count + kHalfLength - 1] must be readable.
  static void upsample(const double* source, int64_t count, int64_t upscale,
                       std::vector<double>& taps, double* phases);
};
