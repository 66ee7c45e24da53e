#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "VDWindowRange.h"

// VDExactLaggedDifferenceSums computes what VDLaggedDifferenceSums::sumsOfSquares does, the sums
// of squared lag-m differences of order 1, 2 or 3 over every start, for all lags at once and
// exactly (only the result is rounded to double). Expanding the square of
// sum_a c_a u[j + a m] leaves sums of squares (prefix sums), sums of products a lag apart over
// every start (the autocorrelation) and, near both ends, over the first starts only
// (VDPrefixCorrelation::sumsBySplitting, on the sequence and on its reverse): O(N log^2 N)
// instead of O(N^2), for series of up to 2^26 values.
//
// Values too large for the transforms' sums are split, u = 2^K h + l: the sums are a quadratic
// form Q, and Q(u) = 2^2K Q(h) + 2^K (Q(h + l) - Q(h) - Q(l)) + Q(l), three sums of values of
// half the bits (a year of 1 PPS phase, whose running sums reach 2^50 and more).
class VDExactLaggedDifferenceSums {
 public:
  // Nothing when the sequence's values are too large for exact sums
  // (VDExactAutocorrelation::holdsEverySum); lags and lagsDone as for
  // VDLaggedDifferenceSums::sumsOfSquares.
  static std::optional<std::vector<double>> sumsOfSquares(
      const std::vector<int64_t>& sequence, int order, const VDWindowRange& lags,
      const std::function<void(uint64_t)>& lagsDone);

  // Whether sumsOfSquares gives the sums of this sequence, whole or split.
  static bool sums(const std::vector<int64_t>& sequence);
};
