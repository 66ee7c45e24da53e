#pragma once

#include "VDCPooledAnalysis.h"
#include "VDMaximumTimeIntervalErrorAnalysis.h"

// A VDCPooledMaximumTimeIntervalErrorAnalysis is the maximum time interval error of a series with
// gaps, pooled over its continuous segments (VDCGapSegments): the largest of the segments' MTIE at
// each window, over all their window positions.
class VDCPooledMaximumTimeIntervalErrorAnalysis : public VDCPooledAnalysis<VDMaximumTimeIntervalErrorAnalysis> {
 public:
  using VDCPooledAnalysis::VDCPooledAnalysis;

 protected:
  std::vector<VDStatisticPoint> evaluateWindows(const VDWindowRange& windows) const override;
};
