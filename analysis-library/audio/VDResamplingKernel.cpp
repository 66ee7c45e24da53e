#include "VDResamplingKernel.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

constexpr int64_t kKernelHalfLength = VDResamplingKernel::kHalfLength;
constexpr double kKernelBeta = VDResamplingKernel::kBeta;
constexpr int64_t kTableResolution = VDResamplingKernel::kTableResolution;

// Modified Bessel function of the first kind, order 0, by its power series (converges fast for
// the arguments of a Kaiser window).
double besselI0(double x) {
  double sum = 1.0;
  double term = 1.0;
  const double quarterSquare = x * x / 4.0;
  for (int k = 1; k < 64; ++k) {
    term *= quarterSquare / (static_cast<double>(k) * k);
    sum += term;
    if (term < sum * 1e-17) {
      break;
    }
  }
  return sum;
}

// The interpolator's weight for a sample x samples away. sinPiX is sin(pi x), which the caller
// shares between all taps of one position, since taps an integer apart only differ in its sign.
double interpolationKernel(double x, double sinPiX) {
  static const double kWindowNormalisation = 1.0 / besselI0(kKernelBeta);
  const double ratio = x / static_cast<double>(kKernelHalfLength);
  if (ratio <= -1.0 || ratio >= 1.0) {
    return 0.0;
  }
  const double sinc = std::fabs(x) < 1e-12 ? 1.0 : sinPiX / (M_PI * x);
  return sinc * besselI0(kKernelBeta * std::sqrt(1.0 - ratio * ratio)) * kWindowNormalisation;
}

// Weights of the taps at offset - i for i = first, first + 1, ...; count of them.
void interpolationTaps(double offset, int64_t first, int64_t count, double* weights) {
  const double sinPiOffset = std::sin(M_PI * offset);
  for (int64_t k = 0; k < count; ++k) {
    const int64_t i = first + k;
    const double sign = (i % 2 == 0) ? 1.0 : -1.0;
    weights[k] = interpolationKernel(offset - static_cast<double>(i), sign * sinPiOffset);
  }
}

// Two doubles handled as one by the processor's vector instructions.
typedef double DoublePair __attribute__((vector_size(16)));

DoublePair loadPair(const double* values) {
  DoublePair pair;
  std::memcpy(&pair, values, sizeof pair);
  return pair;
}

// The interpolator tabulated by fraction: row p (0 <= p <= kTableResolution) holds the
// 2 kKernelHalfLength weights for a position p / kTableResolution past a sample, weight k for the
// sample k - kKernelHalfLength + 1 away. Every sample of a drift-following read has its own
// fraction, too many for the exact kernel; rows either side of it are blended linearly.
const double* kernelTable() {
  static const std::vector<double> table = [] {
    constexpr int64_t kTaps = 2 * kKernelHalfLength;
    std::vector<double> values(static_cast<size_t>((kTableResolution + 1) * kTaps));
    for (int64_t row = 0; row <= kTableResolution; ++row) {
      const double fraction = static_cast<double>(row) / static_cast<double>(kTableResolution);
      interpolationTaps(fraction, -kKernelHalfLength + 1, kTaps, values.data() + row * kTaps);
    }
    return values;
  }();
  return table.data();
}

}  // namespace

double VDResamplingKernel::interpolatedValue(const double* samples, double fraction) {
  constexpr int64_t kTaps = 2 * kKernelHalfLength;
  static_assert(kTaps % 8 == 0);
  const double row = fraction * static_cast<double>(kTableResolution);
  const int64_t below = std::clamp<int64_t>(static_cast<int64_t>(row), 0, kTableResolution - 1);
  const double between = row - static_cast<double>(below);
  const double* in = samples - kKernelHalfLength + 1;
  const double* weightsBelow = kernelTable() + below * kTaps;
  const double* weightsAbove = weightsBelow + kTaps;
  // Pairs of lanes in independent partial sums: this runs for every sample that is read
  // through the drift, and the additions need not wait on each other.
  DoublePair sumBelow[4] = {}, sumAbove[4] = {};
  for (int64_t k = 0; k < kTaps; k += 8) {
    for (int lane = 0; lane < 4; ++lane) {
      const DoublePair x = loadPair(in + k + 2 * lane);
      sumBelow[lane] += x * loadPair(weightsBelow + k + 2 * lane);
      sumAbove[lane] += x * loadPair(weightsAbove + k + 2 * lane);
    }
  }
  const DoublePair totalBelow = (sumBelow[0] + sumBelow[1]) + (sumBelow[2] + sumBelow[3]);
  const DoublePair totalAbove = (sumAbove[0] + sumAbove[1]) + (sumAbove[2] + sumAbove[3]);
  const double valueBelow = totalBelow[0] + totalBelow[1];
  const double valueAbove = totalAbove[0] + totalAbove[1];
  return valueBelow + (valueAbove - valueBelow) * between;
}

void VDResamplingKernel::copyZeroExtended(const float* samples, int64_t length, int64_t from,
                                          int64_t count, double* out) {
  for (int64_t i = 0; i < count; ++i) {
    const int64_t index = from + i;
    out[i] = index >= 0 && index < length ? samples[index] : 0.0;
  }
}

void VDResamplingKernel::copyWarped(const float* samples, int64_t length, int64_t first,
                                    double offset, int64_t count, double drift, double centre,
                                    std::vector<double>& scratch, double* out) {
  if (drift == 0.0 && offset == 0.0) {
    copyZeroExtended(samples, length, first, count, out);
    return;
  }
  const auto shiftAt = [&](int64_t j) {
    return offset + drift * (static_cast<double>(j) - centre);
  };
  // The drift is far below one sample per sample, so the samples read only move forward.
  const int64_t scratchFirst =
      first + static_cast<int64_t>(std::floor(shiftAt(0))) - kKernelHalfLength + 1;
  const int64_t scratchLast =
      first + count - 1 + static_cast<int64_t>(std::floor(shiftAt(count - 1))) + kKernelHalfLength;
  scratch.resize(static_cast<size_t>(scratchLast - scratchFirst + 1));
  copyZeroExtended(samples, length, scratchFirst, scratchLast - scratchFirst + 1, scratch.data());
  for (int64_t j = 0; j < count; ++j) {
    const double shift = shiftAt(j);
    const double whole = std::floor(shift);
    const int64_t nearest = first + j + static_cast<int64_t>(whole) - scratchFirst;
    out[j] = interpolatedValue(scratch.data() + nearest, shift - whole);
  }
}

void VDResamplingKernel::upsample(const double* source, int64_t count, int64_t upscale,
                                  std::vector<double>& taps, double* phases) {
  const int64_t tapCount = 2 * kKernelHalfLength;
  taps.resize(static_cast<size_t>(tapCount));
  for (int64_t phase = 0; phase < upscale; ++phase) {
    double* out = phases + phase * count;
    if (phase == 0) {
      std::copy(source, source + count, out);
      continue;
    }
    if (kTableResolution % upscale == 0) {
      const double* row = kernelTable() + phase * (kTableResolution / upscale) * tapCount;
      std::copy(row, row + tapCount, taps.begin());
    } else {
      interpolationTaps(static_cast<double>(phase) / static_cast<double>(upscale),
                        -kKernelHalfLength + 1, tapCount, taps.data());
    }
    std::fill(out, out + count, 0.0);
    for (int64_t t = 0; t < tapCount; ++t) {
      const double weight = taps[t];
      const double* in = source + t - kKernelHalfLength + 1;
      for (int64_t n = 0; n < count; ++n) {
        out[n] += weight * in[n];
      }
    }
  }
}
