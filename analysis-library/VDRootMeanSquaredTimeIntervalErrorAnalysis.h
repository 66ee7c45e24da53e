#pragma once

#include "VDStatisticAnalysis.h"

// A VDRootMeanSquaredTimeIntervalErrorAnalysis computes the RMS of the time interval error (RMS TIE), in ns.
class VDRootMeanSquaredTimeIntervalErrorAnalysis : public VDStatisticAnalysis {
 public:
  using VDStatisticAnalysis::VDStatisticAnalysis;

  static const VDAnalysisClass& classObject();
  const VDAnalysisClass& analysisClass() const override { return classObject(); }

 protected:
  int64_t largestWindowSize(int64_t sampleCount) const override;
  bool evaluateWindow(int64_t windowSize, VDStatisticPoint& point) override;
};
