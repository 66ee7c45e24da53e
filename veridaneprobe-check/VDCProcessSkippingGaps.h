#pragma once

#include <vector>

#include "VDCContinuity.h"
#include "VDPProcessSingleTimeError.h"

// A VDCProcessSkippingGaps analyses a series with gaps as one (--gaps skip): the time error of
// every present sample, and each statistic pooled over the continuous segments, so that no term
// spans a gap (VDCGapSegments).
class VDCProcessSkippingGaps : public VDPProcessSingleTimeError {
 public:
  // Every statistic from startWindowSize up; segments: index ranges into the values the
  // processor is given.
  VDCProcessSkippingGaps(std::string outputPath, std::string outputName, int64_t startWindowSize,
                         std::vector<VDCContinuity::Segment> segments);

  std::unique_ptr<VDAllanDeviationAnalysis> adevAnalysisForTimeErrorValues(
      const std::vector<VDTimeErrorValue>& values) override;
  std::unique_ptr<VDModifiedAllanDeviationAnalysis> madevAnalysisForTimeErrorValues(
      const std::vector<VDTimeErrorValue>& values) override;
  std::unique_ptr<VDTimeDeviationAnalysis> tdevAnalysisForTimeErrorValues(
      const std::vector<VDTimeErrorValue>& values) override;
  std::unique_ptr<VDRootMeanSquaredTimeIntervalErrorAnalysis> rmstieAnalysisForTimeErrorValues(
      const std::vector<VDTimeErrorValue>& values) override;
  std::unique_ptr<VDMaximumTimeIntervalErrorAnalysis> mtieAnalysisForTimeErrorValues(
      const std::vector<VDTimeErrorValue>& values) override;

 private:
  std::vector<VDCContinuity::Segment> _segments;
};
