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
// (VDPrefixCorrelation, on the sequence and on its reverse): O(N log N) instead of O(N^2).
class VDExactLaggedDifferenceSums {
 public:
  // Nothing when the sequence's values are too large for exact sums
  // (VDExactAutocorrelation::holdsEverySum); lags and lagsDone as for
  // VDLaggedDifferenceSums::sumsOfSquares.
  static std::optional<std::vector<double>> sumsOfSquares(
      const std::vector<int64_t>& sequence, int order, const VDWindowRange& lags,
      const std::function<void(uint64_t)>& lagsDone);
};
