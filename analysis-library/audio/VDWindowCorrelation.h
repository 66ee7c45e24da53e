#pragma once

#include <cstdint>
#include <limits>

#include "VDAudioTimeErrorCalculator.h"
#include "VDResamplingKernel.h"

struct VDAudioTracking;

// What one window's correlation shows around the predicted delay: its best whole-sample offset
// from the prediction and how it was judged.
struct VDWindowPeak {
  int64_t offset = 0;
  double correlation = 0.0;  // normalised, at the offset
  double ratio = 1.0;        // highest other peak over the best
  bool clear = false;
  bool onEdge = false;
  double uncertainty = std::numeric_limits<double>::infinity();  // samples
};

// A VDWindowCorrelation correlates one window of channel A with channel B around a predicted
// delay, B read through the tracked drift, judges the peak (VDCorrelationPeak) and places it
// between samples by the calculator's correlation type. The correlation is the sum of A's
// window against B sliding and B's matching window against A sliding, each over the part of the
// window whose neighbourhood lies inside both recordings: either direction alone has its peak
// pulled by whatever differs between its window's ends (a note starting, a level falling); in
// the sum the pulls cancel.
class VDWindowCorrelation {
 public:
  using Status = VDAudioTimeErrorCalculator::WindowStatus;

  // Window-to-window search range around the previous peak, samples each way. Drift moves the
  // peak by a small fraction of a sample per window; the margin absorbs jitter and fast drift.
  static constexpr int64_t kTrackingRadius = 32;
  // A signal that repeats exactly (a steady tone) correlates alike a period apart: it is
  // followed by the peak nearest to the prediction, judged within this many samples, and a
  // window must then correlate by at least kPeriodicPeakCorrelation (unrelated noise in the
  // other channel scores below half, a tone even at 10 dB SNR near one).
  static constexpr int64_t kPeriodicRadius = 4;
  static constexpr double kPeriodicPeakCorrelation = 0.5;
  // Through two rooms the channels correlate less even where both are loud; the whitened view is
  // only taken along a known line, so half of the plain floor is enough there.
  static constexpr double kMinimumWhitenedCorrelation = 0.1;
  // Correlation lags kept around the tracked lag: the search range, the interpolator's reach
  // and the parabola's neighbours.
  static constexpr int64_t kLagMargin = kTrackingRadius + VDResamplingKernel::kHalfLength + 2;

  // The channels are borrowed; upscaleFactor and type as the calculator has them.
  VDWindowCorrelation(const float* channelA, const float* channelB, int64_t length,
                      int64_t correlationLength, int64_t upscaleFactor,
                      VDAudioTimeErrorCalculator::CorrelationType type);

  // Correlates the window from start around predicted (B upside down where polarity is
  // negative) into tracking.correlation, on the partially whitened view where whitened (its
  // floor kMinimumWhitenedCorrelation), and judges its peak: Used, or why not (Silent, Weak,
  // Lost, Outside).
  Status correlate(int64_t start, double predicted, double polarity, VDAudioTracking& tracking,
                   VDWindowPeak& peak, bool whitened = false) const;

  // The peak's offset from the prediction below a sample, from the last correlation.
  double refinedOffset(int64_t start, int64_t peakOffset, VDAudioTracking& tracking) const;

  // Samples of samples[from, from + count) that are not zero (those outside count as zero).
  static int64_t nonZeroCount(const float* samples, int64_t length, int64_t from, int64_t count);

 private:
  double resampledPeakOffset(int64_t start, int64_t peakOffset, VDAudioTracking& tracking) const;

  const float* _channelA;
  const float* _channelB;
  int64_t _length;
  int64_t _correlationLength;
  int64_t _upscaleFactor;
  VDAudioTimeErrorCalculator::CorrelationType _correlationType;
};
