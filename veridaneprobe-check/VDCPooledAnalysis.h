#pragma once

#include <cstdint>
#include <vector>

#include "VDCGapSegments.h"

// A VDCPooledAnalysis is a statistic of a series with gaps, pooled over its continuous segments
// (VDCGapSegments): the part every pooled statistic shares, with tau0 common to the segments
// and the largest window the longest segment holds. Each statistic evaluates its windows from the
// segments its own way.
template <typename Statistic>
class VDCPooledAnalysis : public Statistic {
 public:
  VDCPooledAnalysis(const std::vector<VDTimeErrorValue>& values,
                    const std::vector<VDCContinuity::Segment>& segments)
      : Statistic(values), _segments(values, segments) {
    this->_tau0 = _segments.tau0();
  }

 protected:
  int64_t largestWindowSize(int64_t /*sampleCount*/) const override {
    return _segments.largestWindowSize(largestOfSegment());
  }

  // The statistic's own largest window for a segment of sampleCount samples.
  VDCGapSegments::LargestWindow largestOfSegment() const {
    return [this](int64_t sampleCount) { return Statistic::largestWindowSize(sampleCount); };
  }

  VDCGapSegments _segments;
};
