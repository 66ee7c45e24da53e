#pragma once

#include <cstdint>

// VDEquivalentDegreesOfFreedom gives the equivalent degrees of freedom (EDF) of the overlapping
// Allan variance and of the modified Allan variance estimated from N phase samples: the number
// of degrees of freedom of the chi-square distribution that describes how the estimate scatters
// around the true variance, for power-law noise of exponent alpha (2 white PM, 1 flicker PM,
// 0 white FM, -1 flicker FM, -2 random-walk FM).
//
// Method: the generalised algorithm of C. A. Greenhall and W. J. Riley, "Uncertainty of
// stability variances based on finite differences", 35th PTTI Meeting, 2003 (eqs. 7-13 and its
// cases 1-4), with second differences (d = 2), stride 1 (S = m) and the filter factor F = m for
// the Allan variance and F = 1 for the modified one. Where the paper replaces a long sum by its
// 100-term approximation (J > 100 and r = M/S <= d + 1), that sum depends on r alone; it is
// tabulated once per noise type and interpolated (relative error below 2e-5, far inside the
// precision of the paper's own fitted coefficients). For white PM and the Allan variance the
// exact EDF of independent samples is used at every window (the paper's case 4, K <= d
// included).
class VDEquivalentDegreesOfFreedom {
 public:
  enum class Variance { kOverlappingAllan, kModifiedAllan };

  // EDF at window m of sampleCount phase samples; the window must have at least one term
  // (m <= (N-1)/2 for the Allan variance, m <= N/3 for the modified one). alpha outside 2..-2 is
  // taken as the nearest of them.
  static double of(Variance variance, int alpha, int64_t window, int64_t sampleCount);

  // The same without the tables: every sum evaluated directly.
  static double direct(Variance variance, int alpha, int64_t window, int64_t sampleCount);
};
