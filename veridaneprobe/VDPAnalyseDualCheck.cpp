#include "VDPAnalyseDualCheck.h"

#include <cinttypes>
#include <cstdio>

#include "VDPProcessSingleTimeError.h"
#include "VDPTextScanner.h"
#include "VDTimeErrorSequence.h"

namespace {

// Its two output-directory messages go to standard error, unlike the other commands'.
const VDPTimeErrorFileCommand kDualCheckCommand = {
    "dual-check", "dual_check_analysis", true, true, true, true, true, __FILE__, 219, true, {},
    false};

}  // namespace

VDPAnalyseDualCheck::VDPAnalyseDualCheck() : VDPTimeErrorFileAnalyser(kDualCheckCommand) {}

std::unique_ptr<VDPAnalyseDualCheck> VDPAnalyseDualCheck::initWithArguments(
    const std::vector<std::string>& arguments) {
  return make<VDPAnalyseDualCheck>(arguments);
}

bool VDPAnalyseDualCheck::parseLine(std::string_view line, std::vector<VDTimeErrorValue>& values,
                                    ErrorRange& range) {
  VDPTextScanner scanner(line);
  int32_t index = 0;
  uint64_t unused = 0;
  uint64_t timestamp = 0;
  int64_t error = 0;
  if (!(scanner.scanInt32(index) && scanner.scanCharacter(',') && scanner.scanUInt64(unused) &&
        scanner.scanCharacter(',') && scanner.scanUInt64(timestamp) && scanner.scanCharacter(',') &&
        scanner.scanUInt64(unused) && scanner.scanCharacter(',') && scanner.scanInt64(error))) {
    return false;
  }
  values.emplace_back(timestamp, error);
  if (error >= range.maximum) {
    range.maximum = error;
  }
  if (error <= range.minimum) {
    range.minimum = error;
  }
  return true;
}

bool VDPAnalyseDualCheck::execute() {
  std::vector<VDTimeErrorValue> values;
  ErrorRange range;
  loadTimeErrors([&](std::string_view line) { parseLine(line, values, range); });
  const VDTimeErrorSequence sequence(std::move(values));
  const bool result = makeProcessor<VDPProcessSingleTimeError>(outputPath(), _outputName)
                          .processTimeErrors(sequence);
  std::printf("Error range %" PRId64 " to %" PRId64 "\n", range.minimum, range.maximum);
  return result;
}
