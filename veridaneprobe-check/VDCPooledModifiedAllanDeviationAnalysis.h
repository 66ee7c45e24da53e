#pragma once

#include "VDCPooledAnalysis.h"
#include "VDModifiedAllanDeviationAnalysis.h"

// A VDCPooledModifiedAllanDeviationAnalysis is the modified Allan deviation of a series with gaps,
// pooled over its continuous segments (VDCGapSegments): the segments' sums of squared averaged
// second differences and their term counts add up before the one division and square root.
class VDCPooledModifiedAllanDeviationAnalysis : public VDCPooledAnalysis<VDModifiedAllanDeviationAnalysis> {
 public:
  using VDCPooledAnalysis::VDCPooledAnalysis;

  // The sums of one segment (without its bounds), for the time deviation too.
  static std::vector<double> modifiedSumsOnly(const std::vector<int64_t>& errors,
                                              const VDWindowRange& windows);

 protected:
  std::vector<VDStatisticPoint> evaluateWindows(const VDWindowRange& windows) const override;
};
