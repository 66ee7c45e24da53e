#include "VDPAnalyseAudio.h"

VDPAnalyseAudio::VDPAnalyseAudio() : VDPCommonOptions("audio_analysis", true, true, true, true, true) {}

std::unique_ptr<VDPAnalyseAudio> VDPAnalyseAudio::initWithArguments(
    const std::vector<std::string>&) {
  return nullptr;
}

bool VDPAnalyseAudio::execute() { return false; }
