#pragma once

#include "VDCGapSegments.h"
#include "VDRootMeanSquaredTimeIntervalErrorAnalysis.h"

// A VDCPooledRootMeanSquaredTimeIntervalErrorAnalysis is the RMS time interval error of a series
// with gaps, pooled over its continuous segments (VDCGapSegments): the segments' sums of squared
// time interval errors and their term counts add up before the one division and square root.
class VDCPooledRootMeanSquaredTimeIntervalErrorAnalysis
    : public VDRootMeanSquaredTimeIntervalErrorAnalysis {
 public:
  VDCPooledRootMeanSquaredTimeIntervalErrorAnalysis(
      const std::vector<VDTimeErrorValue>& values,
      const std::vector<VDCContinuity::Segment>& segments);

 protected:
  int64_t largestWindowSize(int64_t sampleCount) const override;
  std::vector<VDStatisticPoint> evaluateWindows(const VDWindowRange& windows) const override;

 private:
  VDCGapSegments::LargestWindow largestOfSegment() const;

  VDCGapSegments _segments;
};
