#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VDPTimeErrorFileAnalyser.h"
#include "VDTimeErrorValue.h"

// The VDPAnalyseMarten analyser runs the marten command: lines of five integers (timestamp ns,
// unused, time error ns, unused, unused) become one time error sequence.
class VDPAnalyseMarten : public VDPTimeErrorFileAnalyser {
 public:
  static std::unique_ptr<VDPAnalyseMarten> initWithArguments(
      const std::vector<std::string>& arguments);

  bool execute() override;

  // The line grammar: appends the line's value and returns true, or returns false.
  static bool parseLine(std::string_view line, std::vector<VDTimeErrorValue>& values);

 private:
  friend class VDPTimeErrorFileAnalyser;
  VDPAnalyseMarten();
};
