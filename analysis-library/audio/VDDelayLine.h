#pragma once

#include <cmath>
#include <cstddef>
#include <deque>
#include <utility>

// A VDDelayLine is the delay that the audio time error calculator follows: anchored at the last
// measured window, continued by a drift fitted as a straight line through the recent windows'
// delays, with the tolerance within which a new peak still counts as the same delay.
// Positions and delays are in channel A samples.
class VDDelayLine {
 public:
  // The drift line: the last kHistory windows, fitted from kMinimumHistory on; anything beyond
  // kMaximumDrift is taken as kMaximumDrift.
  static constexpr size_t kHistory = 16;
  static constexpr size_t kMinimumHistory = 4;
  static constexpr double kMaximumDrift = 1e-2;
  // A peak within kPeakTolerance samples of the prediction is the delay followed, plus
  // kDriftUncertainty of the distance to the last measured window once the drift is known (the
  // largest drift followed, before).
  static constexpr double kPeakTolerance = 2.0;
  static constexpr double kDriftUncertainty = 2e-5;

  bool haveDelay = false;
  double anchorDelay = 0.0;   // delay measured or found at anchorCentre
  double anchorCentre = 0.0;  // channel A sample position
  double drift = 0.0;         // estimate of d(delay)/d(time), dimensionless
  // Set where the delay and drift came from the acquisition's line rather than from windows:
  // the drift is then good to lineDriftUncertainty from the start, and the first window's peak
  // may lie up to lineTolerance from the line.
  bool driftFromLine = false;
  double lineTolerance = 0.0;
  double lineDriftUncertainty = kMaximumDrift;
  std::deque<std::pair<double, double>> history;  // (window centre, delay) of recent windows

  double predictedDelay(double centre) const {
    return anchorDelay + drift * (centre - anchorCentre);
  }

  bool driftKnown() const { return history.size() >= kMinimumHistory; }
  bool lineFull() const { return history.size() >= kHistory; }

  // Whether a peak at centre must also stand clear of the others in range: while the drift is
  // not known yet, or after a gap long enough for its error to matter.
  bool clearPeakNeeded(double centre) const;

  // How far from the prediction at centre a peak may lie and still be the delay followed.
  double tolerance(double centre) const { return toleranceOver(std::fabs(centre - anchorCentre)); }
  // The same for a prediction distance samples from where the delay was measured.
  double toleranceOver(double distance) const;

  void anchor(double centre, double delay) {
    haveDelay = true;
    anchorCentre = centre;
    anchorDelay = delay;
  }

  // Adds a measured window; the drift is fitted again from the last kHistory windows.
  void remember(double centre, double delay);

  // Sets the delay of the remembered window at centre, measured again.
  void replace(double centre, double delay);

  // Least-squares slope of the recent delays. The calculator reads B through it, so that a
  // window's correlation follows the drift inside the window instead of averaging it with
  // weights set by where the signal happens to be loud. Until enough windows are in, the last
  // slope stands.
  void fitDrift();
};
