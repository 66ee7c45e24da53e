#include "VDCProcessSkippingGaps.h"

#include <limits>

#include "VDCPooledAllanDeviationAnalysis.h"
#include "VDCPooledMaximumTimeIntervalErrorAnalysis.h"
#include "VDCPooledModifiedAllanDeviationAnalysis.h"
#include "VDCPooledRootMeanSquaredTimeIntervalErrorAnalysis.h"
#include "VDCPooledTimeDeviationAnalysis.h"

VDCProcessSkippingGaps::VDCProcessSkippingGaps(std::string outputPath, std::string outputName,
                                               int64_t startWindowSize,
                                               std::vector<VDCContinuity::Segment> segments)
    : VDPProcessSingleTimeError(std::move(outputPath), std::move(outputName), true, true, true,
                                true, true, startWindowSize, std::numeric_limits<int64_t>::max(),
                                1),
      _segments(std::move(segments)) {}

std::unique_ptr<VDAllanDeviationAnalysis> VDCProcessSkippingGaps::adevAnalysisForTimeErrorValues(
    const std::vector<VDTimeErrorValue>& values) {
  return std::make_unique<VDCPooledAllanDeviationAnalysis>(values, _segments);
}

std::unique_ptr<VDModifiedAllanDeviationAnalysis>
VDCProcessSkippingGaps::madevAnalysisForTimeErrorValues(
    const std::vector<VDTimeErrorValue>& values) {
  return std::make_unique<VDCPooledModifiedAllanDeviationAnalysis>(values, _segments);
}

std::unique_ptr<VDTimeDeviationAnalysis> VDCProcessSkippingGaps::tdevAnalysisForTimeErrorValues(
    const std::vector<VDTimeErrorValue>& values) {
  return std::make_unique<VDCPooledTimeDeviationAnalysis>(values, _segments);
}

std::unique_ptr<VDRootMeanSquaredTimeIntervalErrorAnalysis>
VDCProcessSkippingGaps::rmstieAnalysisForTimeErrorValues(
    const std::vector<VDTimeErrorValue>& values) {
  return std::make_unique<VDCPooledRootMeanSquaredTimeIntervalErrorAnalysis>(values, _segments);
}

std::unique_ptr<VDMaximumTimeIntervalErrorAnalysis>
VDCProcessSkippingGaps::mtieAnalysisForTimeErrorValues(
    const std::vector<VDTimeErrorValue>& values) {
  return std::make_unique<VDCPooledMaximumTimeIntervalErrorAnalysis>(values, _segments);
}
