#pragma once

#include <string>

#include "VDStatisticAnalysis.h"

// A VDRootMeanSquaredTimeIntervalErrorAnalysis computes the RMS of the time interval error (RMS
// TIE) in ns: the RMS of x[i+m] - x[i] over the N-m window positions, for windows 1 <= m <= N-1.
class VDRootMeanSquaredTimeIntervalErrorAnalysis : public VDStatisticAnalysis {
 public:
  using VDStatisticAnalysis::VDStatisticAnalysis;

  static const VDAnalysisClass& classObject();
  const VDAnalysisClass& analysisClass() const override { return classObject(); }

 protected:
  int64_t largestWindowSize(int64_t sampleCount) const override;
  std::vector<VDStatisticPoint> evaluateWindows(const VDWindowRange& windows) const override;
};

// The class-level side of VDRootMeanSquaredTimeIntervalErrorAnalysis: its plot script names and
// labels.
class VDRootMeanSquaredTimeIntervalErrorAnalysisClass : public VDAnalysisClass {
 public:
  std::string statisticName() const override { return "Root Mean Squared Time Interval Error"; }
  std::string valueColumn() const override { return "rmstie"; }
  std::string valueAxisLabel() const override { return "RMS TIE (ns)"; }
  std::string curveLabel() const override { return "RMS TIE"; }
};
