#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VDPCommonOptions.h"

class VDPProcessSingleTimeError;

// The VDPAnalyseAudio analyser runs the audio and drift commands: two recordings of one signal
// are loaded as mono floats over the requested stretch, correlated into the time error between
// the two recorders' clocks, plotted, and processed like any time error series.
class VDPAnalyseAudio : public VDPCommonOptions {
 public:
  // Correlation type codes, the values of --type.
  static constexpr int64_t kCorrelationQuick = 0;
  static constexpr int64_t kCorrelationResampler = 1;
  static constexpr int64_t kCorrelationPostResampler = 2;

  static std::unique_ptr<VDPAnalyseAudio> initWithArguments(
      const std::vector<std::string>& arguments);

  // False when loading the recordings failed, else the processor's result.
  bool execute() override;

 private:
  VDPAnalyseAudio();
  bool initialise(const std::vector<std::string>& arguments);
  bool failWithUsage() const;
  void resolvePaths();
  // Loads both channels and runs the calculation and the processor (the body of execute).
  bool loadAndAnalyse(VDPProcessSingleTimeError& processor);

  int64_t _interval;
  int64_t _upscaleFactor;
  int64_t _correlationLength;
  std::optional<std::string> _channelAPath;
  std::optional<std::string> _channelBPath;
  int64_t _audioStart;  // seconds, then frames once execute has converted it
  int64_t _audioEnd;    // likewise; the default means the end of the shorter file
  int64_t _correlationType;
};
