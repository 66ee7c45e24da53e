#pragma once

#include "VDCGapSegments.h"
#include "VDMaximumTimeIntervalErrorAnalysis.h"

// A VDCPooledMaximumTimeIntervalErrorAnalysis is the maximum time interval error of a series with
// gaps, pooled over its continuous segments (VDCGapSegments): the largest of the segments' MTIE at
// each window, over all their window positions.
class VDCPooledMaximumTimeIntervalErrorAnalysis : public VDMaximumTimeIntervalErrorAnalysis {
 public:
  VDCPooledMaximumTimeIntervalErrorAnalysis(const std::vector<VDTimeErrorValue>& values,
                                            const std::vector<VDCContinuity::Segment>& segments);

 protected:
  int64_t largestWindowSize(int64_t sampleCount) const override;
  std::vector<VDStatisticPoint> evaluateWindows(const VDWindowRange& windows) const override;

 private:
  VDCGapSegments::LargestWindow largestOfSegment() const;

  VDCGapSegments _segments;
};
