#pragma once

#include "VDStatisticAnalysis.h"

// A VDMaximumTimeIntervalErrorAnalysis computes the maximum time interval error (MTIE), in ns.
class VDMaximumTimeIntervalErrorAnalysis : public VDStatisticAnalysis {
 public:
  using VDStatisticAnalysis::VDStatisticAnalysis;

  static const VDAnalysisClass& classObject();
  const VDAnalysisClass& analysisClass() const override { return classObject(); }

  // The MTIE results in ascending window order; each point's value is the MTIE in ns.
  const std::vector<VDStatisticPoint>& mtie() const { return points(); }

 protected:
  int64_t largestWindowSize(int64_t sampleCount) const override;
  bool evaluateWindow(int64_t windowSize, VDStatisticPoint& point) override;
};
