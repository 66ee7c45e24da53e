#pragma once

#include "VDCGapSegments.h"
#include "VDTimeDeviationAnalysis.h"

// A VDCPooledTimeDeviationAnalysis is the time deviation of a series with gaps, pooled over its
// continuous segments (VDCGapSegments): tau/sqrt(3) times the pooled modified Allan deviation, with
// its bounds.
class VDCPooledTimeDeviationAnalysis : public VDTimeDeviationAnalysis {
 public:
  VDCPooledTimeDeviationAnalysis(const std::vector<VDTimeErrorValue>& values,
                                 const std::vector<VDCContinuity::Segment>& segments);

 protected:
  int64_t largestWindowSize(int64_t sampleCount) const override;
  std::vector<VDStatisticPoint> evaluateWindows(const VDWindowRange& windows) const override;

 private:
  VDCGapSegments::LargestWindow largestOfSegment() const;

  VDCGapSegments _segments;
};
