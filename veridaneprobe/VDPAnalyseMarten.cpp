#include "VDPAnalyseMarten.h"

#include "VDPProcessSingleTimeError.h"
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
  uint64_t timestamp = 0;
  int64_t error = 0;
  if (!scanTimestampAndError(line, timestamp, error)) {
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
