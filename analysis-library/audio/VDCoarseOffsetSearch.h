#pragma once

#include <cstdint>
#include <memory>
#include <vector>

class VDFFTCorrelator;

// A VDCoarseOffsetSearch finds where a stretch of channel A turns up anywhere in channel B, however
// far apart the two recordings started. It compares loudness envelopes (RMS over blocks of about a
// millisecond) rather than samples: the envelopes are a thousandth of the data, they ignore
// polarity, and over a stretch of seconds a drift of up to 1% smears them by a few blocks only.
// The lags it gives are good to a block or two; a fine search on the samples takes it from there.
class VDCoarseOffsetSearch {
 public:
  VDCoarseOffsetSearch(const float* channelA, const float* channelB, int64_t length,
                       double samplingRate);
  ~VDCoarseOffsetSearch();
  VDCoarseOffsetSearch(const VDCoarseOffsetSearch&) = delete;
  VDCoarseOffsetSearch& operator=(const VDCoarseOffsetSearch&) = delete;

  // Samples per envelope block.
  int64_t blockLength() const { return _block; }
  // Samples of channel A compared at once.
  int64_t stretchLength() const { return _stretchBlocks * _block; }

  // The stretch of A compared for a search from sample start: it begins there, or earlier where
  // the recording ends too soon. Its first sample.
  int64_t stretchStart(int64_t start) const;

  // Lags of B against A (samples, positive when B lags) at which the stretch from start matches,
  // best first: the highest peaks of the envelopes' correlation coefficient that reach
  // kMinimumScore, at most maximumCount of them. Empty when the stretch has no loudness changes to
  // match or nothing matches.
  std::vector<int64_t> candidates(int64_t start, size_t maximumCount);

  static constexpr double kMinimumScore = 0.5;

 private:
  void computeEnvelopes();

  const float* _channelA;
  const float* _channelB;
  int64_t _block;
  int64_t _blockCount;
  int64_t _stretchBlocks;
  std::vector<double> _envelopeA;
  std::vector<double> _prefixB, _prefixSquaresB;
  std::unique_ptr<VDFFTCorrelator> _correlator;
};
