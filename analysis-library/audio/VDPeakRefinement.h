#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

// Where a correlation peaks between its samples: the parabola through three points, and the
// grid search on a 1/upscale sample grid that the resampler types refine with.
class VDPeakRefinement {
 public:
  // Offset of the vertex of the parabola through (-1, below), (0, centre), (1, above) from 0;
  // zero when the three points do not bend downwards.
  static double parabolicOffset(double below, double centre, double above);

  static double dotProduct(const double* x, const double* y, int64_t count);

  // The peak of a function sampled on a grid of 1/upscale sample around lag 0, within one sample
  // either way: grid search, then a parabola through the three grid points at the peak.
  template <typename Value>
  static double gridPeakOffset(int64_t upscale, Value value) {
    // Values already evaluated are kept: the parabola asks again for points the scan visited.
    std::vector<std::pair<int64_t, double>> known;
    const auto memo = [&](int64_t j) {
      for (const auto& [index, v] : known) {
        if (index == j) {
          return v;
        }
      }
      const double v = value(j);
      known.emplace_back(j, v);
      return v;
    };
    const int64_t best = findGridPeak(-upscale, upscale, -upscale / 2 - 1, upscale / 2 + 1, memo);
    double fraction = 0.0;
    if (best > -upscale && best < upscale) {
      fraction = parabolicOffset(memo(best - 1), memo(best), memo(best + 1));
    }
    return (static_cast<double>(best) + fraction) / static_cast<double>(upscale);
  }

 private:
  static constexpr int kMaximumClimbSteps = 64;

  // Finds the grid index in [lowest, highest] where value peaks. Scans [scanLow, scanHigh] with a
  // stride that gives about 16 steps, climbs outward while the edge of the scan keeps rising, and
  // repeats on a 16 times finer stride around the best point until the stride is 1, so that huge
  // grids cost a few dozen evaluations per factor of 16. The correlation around a peak is smooth,
  // which is what makes the coarse strides safe.
  template <typename Value>
  static int64_t findGridPeak(int64_t lowest, int64_t highest, int64_t scanLow, int64_t scanHigh,
                              Value&& value) {
    scanLow = std::max(scanLow, lowest);
    scanHigh = std::min(scanHigh, highest);
    int64_t stride = std::max<int64_t>(1, (scanHigh - scanLow) / 16);
    int64_t best = scanLow;
    double bestValue = -std::numeric_limits<double>::infinity();
    for (;;) {
      for (int64_t j = scanLow;; j += stride) {
        j = std::min(j, scanHigh);
        const double v = value(j);
        if (v > bestValue) {
          best = j;
          bestValue = v;
        }
        if (j >= scanHigh) {
          break;
        }
      }
      // A peak on the edge of the scan may lie beyond it.
      for (int direction : {-1, 1}) {
        if (best != (direction < 0 ? scanLow : scanHigh)) {
          continue;
        }
        for (int climb = 0; climb < kMaximumClimbSteps; ++climb) {
          const int64_t next = best + direction * stride;
          if (next < lowest || next > highest) {
            break;
          }
          const double v = value(next);
          if (!(v > bestValue)) {
            break;
          }
          best = next;
          bestValue = v;
        }
      }
      if (stride == 1) {
        return best;
      }
      scanLow = std::max(lowest, best - stride);
      scanHigh = std::min(highest, best + stride);
      stride = std::max<int64_t>(1, stride / 16);
    }
  }
};
