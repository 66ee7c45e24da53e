#pragma once

#include <string>

#include "VDStatisticAnalysis.h"

// A VDMaximumTimeIntervalErrorAnalysis computes the maximum time interval error (MTIE), in ns: for
// a window of m samples, the largest peak-to-peak time error within x[k..k+m] over the N-m window
// positions k, for windows 1 <= m <= N-1.
class VDMaximumTimeIntervalErrorAnalysis : public VDStatisticAnalysis {
 public:
  using VDStatisticAnalysis::VDStatisticAnalysis;

  static const VDAnalysisClass& classObject();
  const VDAnalysisClass& analysisClass() const override { return classObject(); }

  // The MTIE results in ascending window order; each point's value is the MTIE in ns.
  const std::vector<VDStatisticPoint>& mtie() const { return points(); }

 protected:
  int64_t largestWindowSize(int64_t sampleCount) const override;
  std::vector<VDStatisticPoint> evaluateWindows(const VDWindowRange& windows) const override;
};

// The class-level side of VDMaximumTimeIntervalErrorAnalysis. A subclass may override the hooks
// to draw masks: the script defines tau (seconds), the figure f1 and its axes ax1.
class VDMaximumTimeIntervalErrorAnalysisClass : public VDAnalysisClass {
 public:
  std::string statisticName() const override { return "Maximum Time Interval Error"; }
  std::string valueColumn() const override { return "mtie"; }
  std::string valueAxisLabel() const override { return "MTIE (ns)"; }
  std::string curveLabel() const override { return "MTIE"; }
};
