#pragma once

#include <cstdint>
#include <vector>

// A VDWhiteningFilter is the prediction-error filter of a recording: a short FIR filter fitted
// to its spectrum (autocorrelation method, Levinson-Durbin) that makes it come out nearly white.
// Both channels go through the same one, so that their delay is unchanged while their
// correlation no longer follows the broad shape of the sound's spectrum (a loud bass, a room's
// colouring) but its detail.
class VDWhiteningFilter {
 public:
  // Fitted to samples[0, count); a long recording is sampled in blocks spread over it.
  VDWhiteningFilter(const float* samples, int64_t count, int order);

  // samples filtered in place (the samples before the first taken as zero).
  void apply(std::vector<float>& samples) const;

 private:
  std::vector<double> _taps;  // _taps[0] = 1
};
