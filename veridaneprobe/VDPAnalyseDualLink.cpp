#include "VDPAnalyseDualLink.h"

#include <cstdio>

#include "VDPDualLinkTimeErrorSequence.h"
#include "VDPFileSystem.h"
#include "VDPProcessDualLinkTimeError.h"

namespace {

// ADEV and RMS TIE are off by default here; "full" and "converged" replace the output directory.
const VDPTimeErrorFileCommand kDualLinkCommand = {
    "dual-link", "dual_link_analysis",  false, true, true, false, true, __FILE__, 231,
    false,       {"full", "converged"}, true};

}  // namespace

VDPAnalyseDualLink::VDPAnalyseDualLink() : VDPTimeErrorFileAnalyser(kDualLinkCommand) {}

std::unique_ptr<VDPAnalyseDualLink> VDPAnalyseDualLink::initWithArguments(
    const std::vector<std::string>& arguments) {
  return make<VDPAnalyseDualLink>(arguments);
}

bool VDPAnalyseDualLink::parseLine(std::string_view line, Selection& selection) {
  uint64_t timestamp = 0;
  int64_t error = 0;
  if (!scanTimestampAndError(line, timestamp, error)) {
    return false;
  }
  const VDTimeErrorValue value(timestamp, error);
  selection.full.push_back(value);
  if (selection.firstValue) {
    selection.convergenceThreshold = timestamp + kConvergenceTime;  // wraps near the top
    selection.firstValue = false;
  }
  if (timestamp >= selection.convergenceThreshold) {
    selection.converged.push_back(value);
  }
  return true;
}

bool VDPAnalyseDualLink::execute() {
  Selection selection;
  loadTimeErrors([&selection](std::string_view line) { parseLine(line, selection); });
  const VDPDualLinkTimeErrorSequence full(std::move(selection.full));
  const VDPDualLinkTimeErrorSequence converged(std::move(selection.converged));

  std::printf("=== Full File Analysis ===\n");
  makeProcessor<VDPProcessDualLinkTimeError>(VDPFileSystem::joinedPath(outputPath(), "full"),
                                             _outputName)
      .processTimeErrors(full);
  std::printf("=== Converged (skip 60s) File Analysis ===\n");
  return makeProcessor<VDPProcessDualLinkTimeError>(
             VDPFileSystem::joinedPath(outputPath(), "converged"), _outputName)
      .processTimeErrors(converged);
}
