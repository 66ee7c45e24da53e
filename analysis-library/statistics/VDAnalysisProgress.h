#pragma once

#include <cstdint>
#include <string>

// A VDAnalysisProgress hears how far a statistic's evaluation has come, so that a caller can show
// it; the library itself never prints. Calls come from the thread that runs the analysis, in the
// order started, progressed (any number of times, never backwards), finished.
class VDAnalysisProgress {
 public:
  virtual ~VDAnalysisProgress() = default;

  // Before the first window: the statistic's short name (its curve label, e.g. "ADEV") and the
  // number of windows to evaluate (at least one).
  virtual void analysisStarted(const std::string& statisticName, uint64_t windowCount) = 0;
  // windowsDone of the windows are finished; workDone (0 to 1) is the share of the whole
  // computation behind them, for estimating the time left (large windows cost less).
  virtual void analysisProgressed(uint64_t windowsDone, double workDone) = 0;
  // After the last window, before the analysis returns its results.
  virtual void analysisFinished() = 0;
};
