#pragma once

#include "VDCPooledAnalysis.h"
#include "VDRootMeanSquaredTimeIntervalErrorAnalysis.h"

// A VDCPooledRootMeanSquaredTimeIntervalErrorAnalysis is the RMS time interval error of a series
// with gaps, pooled over its continuous segments (VDCGapSegments): the segments' sums of squared
// time interval errors and their term counts add up before the one division and square root.
class VDCPooledRootMeanSquaredTimeIntervalErrorAnalysis
    : public VDCPooledAnalysis<VDRootMeanSquaredTimeIntervalErrorAnalysis> {
 public:
  using VDCPooledAnalysis::VDCPooledAnalysis;

 protected:
  std::vector<VDStatisticPoint> evaluateWindows(const VDWindowRange& windows) const override;
};
