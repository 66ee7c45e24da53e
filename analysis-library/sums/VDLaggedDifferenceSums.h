#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "VDWindowRange.h"

// A VDLaggedDifferenceSums sums the squares of the lag-m differences of one order over an
// integer sequence y: first y[i+m] - y[i], second y[i+2m] - 2y[i+m] + y[i], third
// y[i+3m] - 3y[i+2m] + 3y[i+m] - y[i]. Every difference is exact. sumsOfSquares sums exactly
// and rounds once when the values are small enough (VDExactLaggedDifferenceSums); otherwise,
// like sumOfSquares always, it rounds only each square and the running sums.
class VDLaggedDifferenceSums {
 public:
  // order is 1, 2 or 3. The sequence is read as wrapping two's-complement integers: a
  // difference whose true value fits in int64 comes out exact even where y itself wrapped.
  VDLaggedDifferenceSums(std::vector<int64_t> sequence, int order);

  // sum over i = 0 .. count-1 of the squared difference at lag; needs
  // count - 1 + order * lag < sequence size.
  double sumOfSquares(int64_t lag, int64_t count) const;

  // sumOfSquares(lag, size - order * lag), every start the sequence allows, for each lag of lags
  // (all >= 1 with order * lag < size), in their order; the same values as one call per lag.
  // lagsDone(count) reports how many lags are finished, now and then.
  std::vector<double> sumsOfSquares(const VDWindowRange& lags,
                                    const std::function<void(uint64_t)>& lagsDone) const;

 private:
  int _order;
  // True when the values are small enough for exact sums by transforms
  // (VDExactLaggedDifferenceSums), which sumsOfSquares then takes from the integers.
  bool _exact;
  // Otherwise doubles hold the sequence when every value is small enough for the differences to
  // be exact in double arithmetic (the fast, vectorised path), and the integers when not.
  std::vector<double> _values;
  std::vector<int64_t> _integers;
};
