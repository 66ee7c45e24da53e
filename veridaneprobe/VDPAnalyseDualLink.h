#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VDPTimeErrorFileAnalyser.h"
#include "VDTimeErrorValue.h"

// The VDPAnalyseDualLink analyser checks a dual-link recording against the gPTP one-hop limits
// twice: over the whole file into "full", and over the converged part, from 60 s after the first
// sample on, into "converged". No command word selects it yet; it is complete all the same.
class VDPAnalyseDualLink : public VDPTimeErrorFileAnalyser {
 public:
  static constexpr uint64_t kConvergenceTime = 60000000000;  // ns after the first sample

  static std::unique_ptr<VDPAnalyseDualLink> initWithArguments(
      const std::vector<std::string>& arguments);

  // The result of the converged analysis.
  bool execute() override;

  // The samples read so far, and the convergence threshold set by the first one.
  struct Selection {
    std::vector<VDTimeErrorValue> full;
    std::vector<VDTimeErrorValue> converged;
    bool firstValue = true;
    uint64_t convergenceThreshold = 0;
  };

  // The line grammar (timestamp ns, unused, time error ns, unused, unused): adds the value to
  // the full set, and to the converged set when its timestamp is at or past the threshold.
  static bool parseLine(std::string_view line, Selection& selection);

 private:
  friend class VDPTimeErrorFileAnalyser;
  VDPAnalyseDualLink();
};
