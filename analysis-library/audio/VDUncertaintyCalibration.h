#pragma once

#include <vector>

#include "VDAudioTimeErrorCalculator.h"

// A VDUncertaintyCalibration makes the windows' stated uncertainties honest after the fact. The
// peak's curvature and the window's correlation give the uncertainty of a delay disturbed by
// independent white noise; lossy coding, a room's reverberation or two different microphones
// disturb it more, with errors that follow the signal. So each window's delay is compared with a
// line through its neighbours, and where the residuals scatter more than the stated
// uncertainties allow, those uncertainties are scaled up by the scatter. Then a window whose
// uncertainty stands far above the recording's typical one (a pause, a fading note: where the
// delay could as well be a wrong match), or whose delay lies far off both its neighbours' lines,
// keeps no value.
class VDUncertaintyCalibration {
 public:
  using Window = VDAudioTimeErrorCalculator::Window;

  // Neighbours either side of a window, among the windows with a value.
  static constexpr int kNeighbours = 40;
  // A window keeps its value while its uncertainty is at most kTypicalFactor times the median
  // of the recording's, or kAlwaysAcceptedSeconds, whichever is larger.
  static constexpr double kTypicalFactor = 5.0;
  static constexpr double kAlwaysAcceptedSeconds = 0.5e-6;
  // A window off both its neighbours' lines by more than this many times its calibrated
  // uncertainty keeps no value.
  static constexpr double kOutlier = 5.0;

  static void apply(std::vector<Window>& windows, double samplingRate);
};
