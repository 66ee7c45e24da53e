#pragma once

#include <cstdint>
#include <vector>

#include "VDEquivalentDegreesOfFreedom.h"
#include "VDStatisticPoint.h"

// A VDConfidenceInterval is the 68.3 % confidence interval of a deviation whose variance was
// estimated with a given number of equivalent degrees of freedom (EDF): the variance estimate
// times EDF over the true variance is chi-square distributed with EDF degrees of freedom, so
// the true deviation lies in [dev sqrt(edf / q_hi), dev sqrt(edf / q_lo)] with probability
// 0.683, q_lo and q_hi the chi-square quantiles at (1 - 0.683)/2 and (1 + 0.683)/2 (NIST SP
// 1065, eq. 45). The quantiles come from Boost.Math.
struct VDConfidenceInterval {
  double lowerFactor;  // the lower bound over the deviation, below 1
  double upperFactor;  // the upper bound over the deviation, above 1

  static constexpr double kConfidence = 0.683;

  // The interval for edf > 0. Between 1/2 and 2^26 degrees of freedom the two factors are
  // interpolated in ln(edf) from Boost's quantiles at 32 points per unit (relative error below
  // 1e-7: a quantile costs microseconds, and a run needs one pair per window); elsewhere they
  // are Boost's directly.
  static VDConfidenceInterval forDegreesOfFreedom(double edf);
  static VDConfidenceInterval exactForDegreesOfFreedom(double edf);

  // Fills in the noise type, EDF and bounds of each point of a deviation of the phase errors,
  // whose variance is the given kind (TDEV's points take the modified Allan variance's).
  static void addToPoints(std::vector<VDStatisticPoint>& points, const std::vector<int64_t>& errors,
                          VDEquivalentDegreesOfFreedom::Variance variance);
};
