#pragma once

#include "VDCPooledAnalysis.h"
#include "VDTimeDeviationAnalysis.h"

// A VDCPooledTimeDeviationAnalysis is the time deviation of a series with gaps, pooled over its
// continuous segments (VDCGapSegments): tau/sqrt(3) times the pooled modified Allan deviation, with
// its bounds.
class VDCPooledTimeDeviationAnalysis : public VDCPooledAnalysis<VDTimeDeviationAnalysis> {
 public:
  using VDCPooledAnalysis::VDCPooledAnalysis;

 protected:
  std::vector<VDStatisticPoint> evaluateWindows(const VDWindowRange& windows) const override;
};
