#pragma once

#include "VDAllanDeviationAnalysis.h"
#include "VDCGapSegments.h"

// A VDCPooledAllanDeviationAnalysis is the overlapping Allan deviation of a series with gaps,
// pooled over its continuous segments (VDCGapSegments): the segments' sums of squared second
// differences and their term counts add up before the one division and square root.
class VDCPooledAllanDeviationAnalysis : public VDAllanDeviationAnalysis {
 public:
  VDCPooledAllanDeviationAnalysis(const std::vector<VDTimeErrorValue>& values,
                                  const std::vector<VDCContinuity::Segment>& segments);

 protected:
  int64_t largestWindowSize(int64_t sampleCount) const override;
  std::vector<VDStatisticPoint> evaluateWindows(const VDWindowRange& windows) const override;

 private:
  VDCGapSegments::LargestWindow largestOfSegment() const;

  VDCGapSegments _segments;
};
