#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "VDAnalysisProgress.h"

// A VDPTerminalProgress shows a running statistic's progress on one line of a terminal: the
// statistic, the share of windows done, the time elapsed and an estimate of the time left. It
// appears once a statistic has run for a second, is redrawn in place at most ten times a second
// and is erased when the statistic finishes, before the next console line. When the stream is
// not a terminal it writes nothing, so transcripts in pipes and files stay as they are.
class VDPTerminalProgress : public VDAnalysisProgress {
 public:
  using Clock = std::chrono::steady_clock;

  // Shows progress on fileDescriptor when it is a terminal; now() tells the time.
  explicit VDPTerminalProgress(int fileDescriptor,
                               std::function<Clock::time_point()> now = Clock::now);

  void analysisStarted(const std::string& statisticName, uint64_t windowCount) override;
  void analysisProgressed(uint64_t windowsDone, double workDone) override;
  void analysisFinished() override;

  // "m:ss", or "h:mm:ss" from an hour on.
  static std::string durationText(double seconds);

 private:
  void write(const std::string& text) const;

  int _fileDescriptor;
  bool _terminal;
  std::function<Clock::time_point()> _now;
  std::string _statisticName;
  uint64_t _windowCount = 0;
  Clock::time_point _started;
  Clock::time_point _lastDrawn;
  size_t _drawnLength = 0;  // characters of the line on screen; 0 when none is
};
