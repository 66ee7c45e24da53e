#pragma once

#include <functional>
#include <string>

#include "VDStatisticAnalysis.h"

// A VDAllanDeviationAnalysis computes the overlapping Allan deviation (ADEV) of a time error
// series: dimensionless, for windows 1 <= m <= (N-1)/2, over N-2m second differences.
class VDAllanDeviationAnalysis : public VDStatisticAnalysis {
 public:
  using VDStatisticAnalysis::VDStatisticAnalysis;

  static const VDAnalysisClass& classObject();
  const VDAnalysisClass& analysisClass() const override { return classObject(); }

  // For each window m of windows: the numerator sum_i (x[i+2m] - 2x[i+m] + x[i])^2, x in the
  // errors' unit, over allanTerms(N, m) terms; windowsDone (may be empty) hears of the windows
  // finished. Public so that an analysis of a series in parts can pool the parts' sums.
  static std::vector<double> allanSums(const std::vector<int64_t>& errors,
                                       const VDWindowRange& windows,
                                       const std::function<void(uint64_t)>& windowsDone);
  static int64_t allanTerms(int64_t sampleCount, int64_t m) { return sampleCount - 2 * m; }

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
