#pragma once

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VDPTimeErrorFileAnalyser.h"
#include "VDTimeErrorValue.h"

// The VDPAnalyseOsprey analyser runs the osprey command: lines of eleven integers carry one
// timestamp and the time errors of three slave clocks, which become three sequences processed
// into the subdirectories "Slave0" to "Slave2".
class VDPAnalyseOsprey : public VDPTimeErrorFileAnalyser {
 public:
  static constexpr size_t kSlaveCount = 3;
  using SlaveValues = std::array<std::vector<VDTimeErrorValue>, kSlaveCount>;

  static std::unique_ptr<VDPAnalyseOsprey> initWithArguments(
      const std::vector<std::string>& arguments);

  // The result of the last slave's run.
  bool execute() override;

  // The line grammar: appends one value to each slave and returns true, or returns false and
  // appends nothing, so the three slaves always have the same samples.
  static bool parseLine(std::string_view line, SlaveValues& values);

 private:
  friend class VDPTimeErrorFileAnalyser;
  VDPAnalyseOsprey();
};
