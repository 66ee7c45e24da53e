#include "VDPAnalyseOsprey.h"

#include "VDPFileSystem.h"
#include "VDPProcessSingleTimeError.h"
#include "VDPTextScanner.h"
#include "VDTimeErrorSequence.h"

namespace {

const VDPTimeErrorFileCommand kOspreyCommand = {"osprey",
                                                "osprey_analysis",
                                                true,
                                                true,
                                                true,
                                                true,
                                                true,
                                                __FILE__,
                                                219,
                                                false,
                                                {"Slave0", "Slave1", "Slave2"},
                                                false};

}  // namespace

VDPAnalyseOsprey::VDPAnalyseOsprey() : VDPTimeErrorFileAnalyser(kOspreyCommand) {}

std::unique_ptr<VDPAnalyseOsprey> VDPAnalyseOsprey::initWithArguments(
    const std::vector<std::string>& arguments) {
  return make<VDPAnalyseOsprey>(arguments);
}

bool VDPAnalyseOsprey::parseLine(std::string_view line, SlaveValues& values) {
  // Fields: timestamp, then for each slave an ignored field and its error, then four ignored.
  VDPTextScanner scanner(line);
  uint64_t timestamp = 0;
  uint64_t unused = 0;
  int64_t errors[kSlaveCount] = {};
  if (!scanner.scanUInt64(timestamp)) {
    return false;
  }
  for (int64_t& error : errors) {
    if (!(scanner.scanCharacter(',') && scanner.scanUInt64(unused) && scanner.scanCharacter(',') &&
          scanner.scanInt64(error))) {
      return false;
    }
  }
  for (int field = 0; field < 4; ++field) {
    if (!(scanner.scanCharacter(',') && scanner.scanUInt64(unused))) {
      return false;
    }
  }
  for (size_t slave = 0; slave < kSlaveCount; ++slave) {
    values[slave].emplace_back(timestamp, errors[slave]);
  }
  return true;
}

bool VDPAnalyseOsprey::execute() {
  SlaveValues values;
  loadTimeErrors([&values](std::string_view line) { parseLine(line, values); });
  std::vector<VDTimeErrorSequence> sequences;
  for (std::vector<VDTimeErrorValue>& slaveValues : values) {
    sequences.emplace_back(std::move(slaveValues));
  }
  // Only the last slave's result counts; the earlier runs' results are not looked at.
  bool result = false;
  for (size_t slave = 0; slave < kSlaveCount; ++slave) {
    const std::string index = std::to_string(slave);
    result = makeProcessor<VDPProcessSingleTimeError>(
                 VDPFileSystem::joinedPath(outputPath(), "Slave" + index),
                 _outputName + " Slave " + index)
                 .processTimeErrors(sequences[slave]);
  }
  return result;
}
