#pragma once

#include <string>

#include "VDStatisticAnalysis.h"

// A VDAllanDeviationAnalysis computes the overlapping Allan deviation (ADEV) of a time error
// series: dimensionless, for windows 1 <= m <= (N-1)/2, over N-2m second differences.
class VDAllanDeviationAnalysis : public VDStatisticAnalysis {
 public:
  using VDStatisticAnalysis::VDStatisticAnalysis;

  static const VDAnalysisClass& classObject();
  const VDAnalysisClass& analysisClass() const override { return classObject(); }

 protected:
  int64_t largestWindowSize(int64_t sampleCount) const override;
  std::vector<VDStatisticPoint> evaluateWindows(const VDWindowRange& windows) const override;
};

// The class-level side of VDAllanDeviationAnalysis: its plot script names and labels.
class VDAllanDeviationAnalysisClass : public VDAnalysisClass {
 public:
  std::string statisticName() const override { return "Allan Deviation"; }
  std::string valueColumn() const override { return "adev"; }
  std::string valueAxisLabel() const override { return "ADEV (dimensionless)"; }
  bool hasConfidenceBand() const override { return true; }
  std::string curveLabel() const override { return "ADEV"; }
};
