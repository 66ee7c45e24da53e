#pragma once

#include "VDStatisticAnalysis.h"

// A VDModifiedAllanDeviationAnalysis computes the modified Allan deviation (MDEV) of a time error series.
class VDModifiedAllanDeviationAnalysis : public VDStatisticAnalysis {
 public:
  using VDStatisticAnalysis::VDStatisticAnalysis;

  static const VDAnalysisClass& classObject();
  const VDAnalysisClass& analysisClass() const override { return classObject(); }

 protected:
  int64_t largestWindowSize(int64_t sampleCount) const override;
  bool evaluateWindow(int64_t windowSize, VDStatisticPoint& point) override;
};
