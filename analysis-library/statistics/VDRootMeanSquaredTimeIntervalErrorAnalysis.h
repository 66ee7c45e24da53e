#pragma once

#include <functional>
#include <string>

#include "VDStatisticAnalysis.h"

// A VDRootMeanSquaredTimeIntervalErrorAnalysis computes the RMS of the time interval error (RMS
// TIE) in ns: the RMS of x[i+m] - x[i] over the N-m window positions, for windows 1 <= m <= N-1.
class VDRootMeanSquaredTimeIntervalErrorAnalysis : public VDStatisticAnalysis {
 public:
  using VDStatisticAnalysis::VDStatisticAnalysis;

  static const VDAnalysisClass& classObject();
  const VDAnalysisClass& analysisClass() const override { return classObject(); }

  // For each window m of windows: the numerator sum_i (x[i+m] - x[i])^2, x in the errors' unit,
  // over intervalErrorTerms(N, m) terms; windowsDone (may be empty) hears of the windows
  // finished. Public so that an analysis of a series in parts can pool the parts' sums.
  static std::vector<double> intervalErrorSums(const std::vector<int64_t>& errors,
                                               const VDWindowRange& windows,
                                               const std::function<void(uint64_t)>& windowsDone);
  static int64_t intervalErrorTerms(int64_t sampleCount, int64_t m) { return sampleCount - m; }

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
