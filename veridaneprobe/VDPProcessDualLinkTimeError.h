#pragma once

#include <memory>
#include <vector>

#include "VDPProcessSingleTimeError.h"

// A VDPProcessDualLinkTimeError processes a sequence like its base and judges it against the
// gPTP one-hop limits: after the time error plots, whether every error stays within +-80 ns;
// after the MTIE plots, whether the MTIE stays under the one-hop mask. It prints PASS or FAIL
// and the minimum, maximum and range of each.
class VDPProcessDualLinkTimeError : public VDPProcessSingleTimeError {
 public:
  using VDPProcessSingleTimeError::VDPProcessSingleTimeError;

  void processTimeErrorFromTimeErrors(const VDTimeErrorSequence& timeErrors) override;
  std::unique_ptr<VDMaximumTimeIntervalErrorAnalysis> processMTIEFromTimeErrors(
      const VDTimeErrorSequence& timeErrors) override;
  std::unique_ptr<VDMaximumTimeIntervalErrorAnalysis> mtieAnalysisForTimeErrorValues(
      const std::vector<VDTimeErrorValue>& values) override;
};
