#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VDPTimeErrorFileAnalyser.h"
#include "VDTimeErrorValue.h"

// The VDPAnalyseTimeError analyser runs the time-error command: a CSV of lines "index, seconds,
// seconds" (sample index, timestamp, time error) becomes one time error sequence, processed into
// the output directory.
class VDPAnalyseTimeError : public VDPTimeErrorFileAnalyser {
 public:
  static std::unique_ptr<VDPAnalyseTimeError> initWithArguments(
      const std::vector<std::string>& arguments);

  bool execute() override;

  // The line grammar: appends the line's value and returns true, or returns false for a line
  // that does not match (it is skipped).
  static bool parseLine(std::string_view line, std::vector<VDTimeErrorValue>& values);

 private:
  friend class VDPTimeErrorFileAnalyser;
  VDPAnalyseTimeError();
};
