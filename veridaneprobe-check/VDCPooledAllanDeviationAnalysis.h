#pragma once

#include "VDAllanDeviationAnalysis.h"
#include "VDCPooledAnalysis.h"

// A VDCPooledAllanDeviationAnalysis is the overlapping Allan deviation of a series with gaps,
// pooled over its continuous segments (VDCGapSegments): the segments' sums of squared second
// differences and their term counts add up before the one division and square root.
class VDCPooledAllanDeviationAnalysis : public VDCPooledAnalysis<VDAllanDeviationAnalysis> {
 public:
  using VDCPooledAnalysis::VDCPooledAnalysis;

 protected:
  std::vector<VDStatisticPoint> evaluateWindows(const VDWindowRange& windows) const override;
};
