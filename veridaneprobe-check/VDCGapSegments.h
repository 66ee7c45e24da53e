#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "VDCContinuity.h"
#include "VDEquivalentDegreesOfFreedom.h"
#include "VDStatisticPoint.h"
#include "VDTimeErrorValue.h"
#include "VDWindowRange.h"

// A VDCGapSegments is a series with gaps held as its continuous segments, for the analyses that
// run over the whole span with --gaps skip. A term of a statistic is used only when every sample
// it spans is present, i.e. when it lies wholly inside one segment: across a gap the clock's
// phase is unknown (a servo step or a missed edge may hide there). So a statistic at window m
// pools the terms of every segment that holds m, short segments included.
//
// The statistics' rule for the largest window of N samples grows with N, so the longest segment
// holds every window that any segment holds.
class VDCGapSegments {
 public:
  // The largest window a statistic defines for a segment of that many samples.
  using LargestWindow = std::function<int64_t(int64_t sampleCount)>;
  // One segment's errors and the windows it holds: the first ones of the windows asked for, so
  // the segment's i-th window is their i-th.
  using SegmentVisitor =
      std::function<void(const std::vector<int64_t>& errors, const VDWindowRange& windows)>;
  using SegmentSums = std::function<std::vector<double>(const std::vector<int64_t>& errors,
                                                        const VDWindowRange& windows)>;

  // values: the present samples in file order; segments: index ranges into them.
  VDCGapSegments(const std::vector<VDTimeErrorValue>& values,
                 const std::vector<VDCContinuity::Segment>& segments);

  // The sample interval common to the segments, s: their spans together over their steps
  // together (1 s when no segment has two samples, as for a single series).
  double tau0() const { return _tau0; }

  int64_t largestWindowSize(const LargestWindow& largestOf) const;

  void forEachSegment(const VDWindowRange& windows, const LargestWindow& largestOf,
                      const SegmentVisitor& visit) const;

  // For each window of windows, the sums over the segments that hold it of their sums of
  // squared terms (sumsOf) and of their term counts (termsOf).
  struct Pooled {
    std::vector<double> sums;
    std::vector<int64_t> terms;
  };
  Pooled pooledSums(const VDWindowRange& windows, const LargestWindow& largestOf,
                    const SegmentSums& sumsOf,
                    const std::function<int64_t(int64_t sampleCount, int64_t m)>& termsOf) const;

  // Fills in the noise type, EDF and 68.3 % bounds of pooled deviations, one point for each
  // window of windows. Segments are
  // independent, so their equivalent degrees of freedom add: each segment that holds the window
  // gives the EDF of its own length, all for the noise identified on the longest segment, which
  // has the most samples to tell it from.
  void addConfidenceBounds(std::vector<VDStatisticPoint>& points, const VDWindowRange& windows,
                           VDEquivalentDegreesOfFreedom::Variance variance,
                           const LargestWindow& largestOf) const;

 private:
  std::vector<std::vector<int64_t>> _errors;  // each segment's, in the values' unit
  size_t _longest = 0;
  double _tau0 = 1.0;
};
