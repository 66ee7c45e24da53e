#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VDPTimeErrorFileAnalyser.h"
#include "VDTimeErrorValue.h"

// The VDPAnalyseDualCheck analyser runs the dual-check command: lines of five integers (index,
// unused, timestamp ns, unused, time error ns) become one sequence, processed as time-error's
// is, followed by the range of the errors read.
class VDPAnalyseDualCheck : public VDPTimeErrorFileAnalyser {
 public:
  static std::unique_ptr<VDPAnalyseDualCheck> initWithArguments(
      const std::vector<std::string>& arguments);

  bool execute() override;

  // The smallest and largest error taken; they start from the opposite extremes, so an empty
  // file reports them unchanged.
  struct ErrorRange {
    int64_t minimum = std::numeric_limits<int64_t>::max();
    int64_t maximum = std::numeric_limits<int64_t>::min();
  };

  // The line grammar: appends the line's value and widens range, or returns false.
  static bool parseLine(std::string_view line, std::vector<VDTimeErrorValue>& values,
                        ErrorRange& range);

 private:
  friend class VDPTimeErrorFileAnalyser;
  VDPAnalyseDualCheck();
};
