#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "VDAudioTimeErrorCalculator.h"
#include "VDDelayAcquisition.h"
#include "VDDelayLine.h"
#include "VDFFTCorrelator.h"

// What one calculation carries from window to window: the delay being followed (its line), the
// searches' schedule, a step waiting for confirmation, and the transforms and scratch
// buffers, made once and reused.
struct VDAudioTracking : VDDelayLine {
  using Window = VDAudioTimeErrorCalculator::Window;

  double polarity = 1.0;             // -1 when B is measured upside down
  std::vector<Window*> provisional;  // windows of this track measured before the drift was known
  bool searchesAllowed = true;       // false when measuring backwards from the first match
  bool periodic = false;             // no line was found: a steady tone, followed by its phase
  double whitenedShare = 0.0;        // running share of the track's values from the whitened view

  // Whether a window of this track has been measured (its peak then places the next).
  bool windowMeasured() const { return !history.empty(); }

  // A step in the delay seen in one window, taken once the next window confirms it.
  struct Candidate {
    double delay = 0.0;
    double centre = 0.0;
    double polarity = 1.0;
    Window* window = nullptr;
  };
  std::optional<Candidate> candidate;

  // The searches' schedule, in channel A samples.
  int64_t lastUsedStart = std::numeric_limits<int64_t>::min() / 2;
  double quietEnergy = std::numeric_limits<double>::infinity();  // lowest mean square of A
  double usedEnergy = 0.0;          // running mean square of A's windows with a value
  double typicalUncertainty = 0.0;  // running geometric mean of their uncertainties
  int64_t nextNearSearch = std::numeric_limits<int64_t>::min();
  int64_t nextWideSearch = std::numeric_limits<int64_t>::min();
  int64_t wideSpacing = 0;

  int64_t searchLength = 0;  // fine searches: samples of channel A
  const VDDelayAcquisition* acquisition = nullptr;
  std::unique_ptr<VDFFTCorrelator> forwardCorrelator;                    // A's window, B sliding
  std::unique_ptr<VDFFTCorrelator> backwardCorrelator;                   // B's window, A sliding
  std::map<size_t, std::unique_ptr<VDFFTCorrelator>> searchCorrelators;  // by transform size
  std::vector<double> rawB;         // B's samples behind warpedB
  std::vector<double> warpedB;      // B around the predicted delay, through the drift estimate
  std::vector<double> correlation;  // offsets -kLagMargin..kLagMargin from the prediction
  int64_t validBegin = 0;           // the part of the window both directions sum over
  int64_t validEnd = 0;
  std::vector<double> prefixA, prefixB, scores;
  std::vector<double> extendedA, phasesA, phasesB, taps;

  void forgetDrift() {
    restartLine();
    drift = 0.0;
  }

  // A step: the drift line is fitted again from here on; its last slope stands in until then.
  void restartLine() {
    history.clear();
    provisional.clear();
    candidate.reset();
  }
};
