#pragma once

#include <cstdint>
#include <optional>

struct VDAudioTracking;

// A lag found by a search: the lag at the centre of the stretch of A searched with.
struct VDLagSearchHit {
  int64_t lag = 0;
  double polarity = 1.0;
  double centre = 0.0;
  double prominence = 0.0;  // the peak's score over the highest other
};

// The audio calculator's sample-level search: a stretch of channel A correlated with B over a
// range of lags, each lag scored by the magnitude of the correlation normalised over the
// overlapping samples (so B upside down is found too), and the best lag kept only when it stands
// clear of every other peak.
class VDLagSearch {
 public:
  // The lowest normalised correlation taken as a match.
  static constexpr double kMinimumPeakCorrelation = 0.2;

  // The channels are borrowed: they must outlive the search.
  VDLagSearch(const float* channelA, const float* channelB, int64_t length);

  // Lags around - range .. around + range of B against tracking.searchLength samples of A from
  // start; the best must score at least kMinimumPeakCorrelation and peakRatio times any peak
  // outside its own lobe. Uses the tracking's correlators and scratch buffers.
  std::optional<VDLagSearchHit> search(int64_t start, int64_t around, int64_t range,
                                       double peakRatio, VDAudioTracking& tracking) const;

 private:
  const float* _channelA;
  const float* _channelB;
  int64_t _length;
};
