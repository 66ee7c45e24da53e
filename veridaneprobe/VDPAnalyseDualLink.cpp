#include "VDPAnalyseDualLink.h"

#include <cstdio>

#include "VDPDualLinkTimeErrorSequence.h"
#include "VDPFileSystem.h"
#include "VDPProcessDualLinkTimeError.h"
#include "VDPTextScanner.h"

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
  VDPTextScanner scanner(line);
  uint64_t timestamp = 0;
  uint64_t unused = 0;
  int64_t error = 0;
  if (!(scanner.scanUInt64(timestamp) && scanner.scanCharacter(',') && scanner.scanUInt64(unused) &&
        scanner.scanCharacter(',') && scanner.scanInt64(error) && scanner.scanCharacter(',') &&
        scanner.scanUInt64(unused) && scanner.scanCharacter(',') && scanner.scanUInt64(unused))) {
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
