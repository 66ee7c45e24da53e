#pragma once

#include <string>

#include "VDStatisticAnalysis.h"

// A VDTimeDeviationAnalysis computes the time deviation (TDEV) of a time error series, in ns:
// tau/sqrt(3) times the modified Allan deviation, for windows 1 <= m <= N/3.
class VDTimeDeviationAnalysis : public VDStatisticAnalysis {
 public:
  using VDStatisticAnalysis::VDStatisticAnalysis;

  static const VDAnalysisClass& classObject();
  const VDAnalysisClass& analysisClass() const override { return classObject(); }

 protected:
  int64_t largestWindowSize(int64_t sampleCount) const override;
  std::vector<VDStatisticPoint> evaluateWindows(const VDWindowRange& windows) const override;
};

// The class-level side of VDTimeDeviationAnalysis: its plot script names and labels.
class VDTimeDeviationAnalysisClass : public VDAnalysisClass {
 public:
  std::string statisticName() const override { return "Time Deviation"; }
  std::string valueColumn() const override { return "tdev"; }
  std::string valueAxisLabel() const override { return "TDEV (ns)"; }
  bool hasConfidenceBand() const override { return true; }
  std::string curveLabel() const override { return "TDEV"; }
};
