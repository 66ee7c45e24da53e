#include "VDPAnalyseTimeError.h"

#include "VDPProcessSingleTimeError.h"
#include "VDPTextScanner.h"
#include "VDTimeErrorSequence.h"

namespace {

const VDPTimeErrorFileCommand kTimeErrorCommand = {
    "time-error", "time-error_analysis", true, true, true, true, true, __FILE__, 219, false, {},
    false};

}  // namespace

VDPAnalyseTimeError::VDPAnalyseTimeError() : VDPTimeErrorFileAnalyser(kTimeErrorCommand) {}

std::unique_ptr<VDPAnalyseTimeError> VDPAnalyseTimeError::initWithArguments(
    const std::vector<std::string>& arguments) {
  return make<VDPAnalyseTimeError>(arguments);
}

bool VDPAnalyseTimeError::parseLine(std::string_view line, std::vector<VDTimeErrorValue>& values) {
  VDPTextScanner scanner(line);
  int64_t index = 0;
  double timestamp = 0;
  double error = 0;
  if (!(scanner.scanInt64(index) && scanner.scanCharacter(',') && scanner.scanDouble(timestamp) &&
        scanner.scanCharacter(',') && scanner.scanDouble(error))) {
    return false;
  }
  values.emplace_back(VDPNanoseconds::timestampFromSeconds(timestamp),
                      VDPNanoseconds::errorFromSeconds(error));
  return true;
}

bool VDPAnalyseTimeError::execute() {
  std::vector<VDTimeErrorValue> values;
  loadTimeErrors([&values](std::string_view line) { parseLine(line, values); });
  const VDTimeErrorSequence sequence(std::move(values));
  return makeProcessor<VDPProcessSingleTimeError>(outputPath(), _outputName)
      .processTimeErrors(sequence);
}
