#pragma once

#include <memory>
#include <string>
#include <vector>

// A VDPAnalyser is what a command word selects: made from the arguments after the command word
// (its initialiser yields nothing when they are unusable), then executed once. execute is true
// when the analysis ran to its end and false when it gave up on an error.
class VDPAnalyser {
 public:
  virtual ~VDPAnalyser() = default;
  virtual bool execute() = 0;
};

// An analyser class's initialiser: the analyser, or nullptr after printing why not.
using VDPAnalyserInitialiser =
    std::unique_ptr<VDPAnalyser> (*)(const std::vector<std::string>& arguments);
