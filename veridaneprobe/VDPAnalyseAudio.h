#pragma once

#include <memory>
#include <string>
#include <vector>

#include "VDPCommonOptions.h"

// The VDPAnalyseAudio analyser runs the audio and drift commands: the time error between two
// recordings of one signal, measured by correlating them, then processed like any time error.
class VDPAnalyseAudio : public VDPCommonOptions {
 public:
  static std::unique_ptr<VDPAnalyseAudio> initWithArguments(
      const std::vector<std::string>& arguments);
  bool execute() override;

 private:
  VDPAnalyseAudio();
};
