#include "VDPProcessDualLinkTimeError.h"

#include <cinttypes>
#include <cstdio>
#include <limits>

#include "VDMTIEMask.h"
#include "VDPDualLinkMaximumTimeIntervalErrorAnalysis.h"

void VDPProcessDualLinkTimeError::processTimeErrorFromTimeErrors(
    const VDTimeErrorSequence& timeErrors) {
  VDPProcessSingleTimeError::processTimeErrorFromTimeErrors(timeErrors);
  const double limit = VDMTIEMask::gPTP1HopTimeErrorLimit();  // ns, magnitude
  bool conforms = true;
  int64_t minimum = std::numeric_limits<int64_t>::max();
  int64_t maximum = std::numeric_limits<int64_t>::min();
  for (const VDTimeErrorValue& value : timeErrors.timeErrors()) {
    const int64_t error = value.error();
    // Two's-complement magnitude: the most negative error has none and stays negative, so it
    // counts as within the limit.
    const auto magnitude =
        error >= 0 ? error : static_cast<int64_t>(0 - static_cast<uint64_t>(error));
    if (static_cast<double>(magnitude) > limit) {
      conforms = false;
    }
    minimum = std::min(minimum, error);
    maximum = std::max(maximum, error);
  }
  std::printf(conforms ? "PASS: Time Error conforms to 1 hop gPTP limit\n"
                       : "FAIL: Time Error DOES NOT conform to 1 hop gPTP limit.\n");
  // The range wraps, as signed 64-bit arithmetic does.
  const auto range =
      static_cast<int64_t>(static_cast<uint64_t>(maximum) - static_cast<uint64_t>(minimum));
  std::printf("TimeError: min %" PRId64 " max %" PRId64 " range %" PRId64 "\n", minimum, maximum,
              range);
}

std::unique_ptr<VDMaximumTimeIntervalErrorAnalysis>
VDPProcessDualLinkTimeError::processMTIEFromTimeErrors(const VDTimeErrorSequence& timeErrors) {
  std::unique_ptr<VDMaximumTimeIntervalErrorAnalysis> analysis =
      VDPProcessSingleTimeError::processMTIEFromTimeErrors(timeErrors);
  const VDMTIEMask mask = VDMTIEMask::gPTP1Hop();
  const std::vector<VDStatisticPoint>& mtie = analysis->mtie();
  std::optional<std::string> errors;
  std::printf(mask.mtieConformsToMask(mtie, &errors)
                  ? "PASS: MTIE conforms to 1 hop gPTP Mask\n"
                  : "FAIL: MTIE DOES NOT conform to 1 hop gPTP Mask.\n");
  // Not searched: the library's list is in ascending window order and MTIE never decreases.
  const double first = mtie.empty() ? 0.0 : mtie.front().value;
  const double last = mtie.empty() ? 0.0 : mtie.back().value;
  std::printf("MTIE: min %.0f max %.0f range %.0f\n", first, last, last - first);
  return analysis;
}

std::unique_ptr<VDMaximumTimeIntervalErrorAnalysis>
VDPProcessDualLinkTimeError::mtieAnalysisForTimeErrorValues(
    const std::vector<VDTimeErrorValue>& values) {
  return std::make_unique<VDPDualLinkMaximumTimeIntervalErrorAnalysis>(values);
}
