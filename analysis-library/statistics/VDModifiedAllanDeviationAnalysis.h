#pragma once

#include <string>

#include "VDStatisticAnalysis.h"

// A VDModifiedAllanDeviationAnalysis computes the modified Allan deviation (MDEV) of a time error
// series: dimensionless, for windows 1 <= m <= N/3, over N-3m+1 averaged second differences.
class VDModifiedAllanDeviationAnalysis : public VDStatisticAnalysis {
 public:
  using VDStatisticAnalysis::VDStatisticAnalysis;

  static const VDAnalysisClass& classObject();
  const VDAnalysisClass& analysisClass() const override { return classObject(); }

  // What the modified Allan and time deviations share, for each window m: the numerator
  // sum_j (sum_{i=j}^{j+m-1} x[i+2m] - 2x[i+m] + x[i])^2 with x in ns, over N-3m+1 terms, and
  // the noise type, EDF and confidence bounds of the modified variance (the bounds as factors of
  // the deviation, so both deviations scale them alike).
  struct ModifiedSum {
    int64_t windowSize;
    int64_t terms;
    double sum;
    int alpha;
    double edf;
    double lowerFactor;
    double upperFactor;

    // The result for this window with the given tau and deviation.
    VDStatisticPoint point(double tau, double deviation) const {
      return {windowSize,
              tau,
              deviation,
              static_cast<uint64_t>(terms),
              alpha,
              edf,
              deviation * lowerFactor,
              deviation * upperFactor};
    }
  };
  // The sums and bounds for windows; windowsDone (may be empty) hears of the windows finished.
  // The result is also kept until the next call, which takes it instead of computing it again
  // when it asks for the same errors and windows: a time deviation that follows a modified
  // Allan deviation of the same series costs nothing more.
  static std::vector<ModifiedSum> modifiedSums(const std::vector<int64_t>& errors,
                                               const VDWindowRange& windows,
                                               const std::function<void(uint64_t)>& windowsDone);
  // Terms of the sum for window m of sampleCount samples.
  static int64_t modifiedTerms(int64_t sampleCount, int64_t m) { return sampleCount - 3 * m + 1; }

 protected:
  int64_t largestWindowSize(int64_t sampleCount) const override;
  std::vector<VDStatisticPoint> evaluateWindows(const VDWindowRange& windows) const override;
};

// The class-level side of VDModifiedAllanDeviationAnalysis: its plot script names and labels.
class VDModifiedAllanDeviationAnalysisClass : public VDAnalysisClass {
 public:
  std::string statisticName() const override { return "Modified Allan Deviation"; }
  std::string valueColumn() const override { return "madev"; }
  std::string valueAxisLabel() const override { return "MDEV (dimensionless)"; }
  bool hasConfidenceBand() const override { return true; }
  std::string curveLabel() const override { return "MDEV"; }
};
