#pragma once

#include <cstdint>
#include <optional>
#include <vector>

// A VDNoiseIdentification finds the dominant power-law noise of a time error series at each
// averaging factor m, as the exponent alpha of its frequency spectrum S_y(f) ~ f^alpha: 2 white
// PM, 1 flicker PM, 0 white FM, -1 flicker FM, -2 random-walk FM.
//
// The phase is averaged to tau = m tau0 by decimation, x[0], x[m], x[2m], ... (n points):
// - n >= 30: the lag-1 autocorrelation method (W. J. Riley and C. A. Greenhall, "Power law noise
//   identification using the lag 1 autocorrelation", EFTF 2004): difference the series d = 0, 1,
//   2 times until delta = r1 / (1 + r1) < 0.25 (or d = 2), then alpha = 2 - 2d - round(2 delta).
// - 4 <= n < 30: the B1 bias ratio (the standard variance of the frequencies averaged over
//   consecutive windows over the overlapping Allan variance) against its expected values for each
//   noise, and, where B1 cannot tell white from flicker PM, the ratio R(n) of the modified to the
//   Allan variance (NIST SP 1065, sec. 5.6).
// - n < 4: no estimate is meaningful (B1 of two frequencies is 1 for every noise); these windows
//   take the noise identified at the longest window with n >= 4, or white FM (0) when the series
//   has fewer than 4 samples.
// Each window costs O(N/m), so all windows together cost O(N log N). Phase that does not vary
// at a window shows no correlation and is reported as white PM.
class VDNoiseIdentification {
 public:
  explicit VDNoiseIdentification(const std::vector<int64_t>& errors);

  int alphaAtWindow(int64_t window) const;

  // The decimated series length below which the autocorrelation method gives way to B1.
  static constexpr int64_t kLagOnePoints = 30;

 private:
  int lagOneAlpha(int64_t window, int64_t points) const;
  int biasRatioAlpha(int64_t window, int64_t points) const;
  int whiteOrFlickerPhase(int64_t window) const;
  // The sum of squared second differences x[i+2m] - 2x[i+m] + x[i] over the starts i = 0,
  // stride, 2 stride, ..., and how many there are.
  struct SquareSum {
    double sum = 0;
    int64_t terms = 0;
  };
  SquareSum secondDifferenceSquares(int64_t window, int64_t stride) const;

  std::vector<double> _phase;        // ns, without its mean frequency offset
  std::vector<int64_t> _prefixSums;  // of that phase, for the averages of the modified variance
  int _alphaOfLongWindows = 0;       // for windows with fewer than 4 decimated points
};
