#include "VDPAnalyseMarten.h"

#include "VDPProcessSingleTimeError.h"
#include "VDPTextScanner.h"
#include "VDTimeErrorSequence.h"

namespace {

const VDPTimeErrorFileCommand kMartenCommand = {
    "marten", "marten_analysis", true, true, true, true, true, __FILE__, 219, false, {}, false};

}  // namespace

VDPAnalyseMarten::VDPAnalyseMarten() : VDPTimeErrorFileAnalyser(kMartenCommand) {}

std::unique_ptr<VDPAnalyseMarten> VDPAnalyseMarten::initWithArguments(
    const std::vector<std::string>& arguments) {
  return make<VDPAnalyseMarten>(arguments);
}

bool VDPAnalyseMarten::parseLine(std::string_view line, std::vector<VDTimeErrorValue>& values) {
  VDPTextScanner scanner(line);
  uint64_t timestamp = 0;
  uint64_t unused = 0;
  int64_t error = 0;
  if (!(scanner.scanUInt64(timestamp) && scanner.scanCharacter(',') && scanner.scanUInt64(unused) &&
        scanner.scanCharacter(',') && scanner.scanInt64(error) && scanner.scanCharacter(',') &&
        scanner.scanUInt64(unused) && scanner.scanCharacter(',') && scanner.scanUInt64(unused))) {
    return false;
  }
  values.emplace_back(timestamp, error);
  return true;
}

bool VDPAnalyseMarten::execute() {
  std::vector<VDTimeErrorValue> values;
  loadTimeErrors([&values](std::string_view line) { parseLine(line, values); });
  const VDTimeErrorSequence sequence(std::move(values));
  return makeProcessor<VDPProcessSingleTimeError>(outputPath(), _outputName)
      .processTimeErrors(sequence);
}
