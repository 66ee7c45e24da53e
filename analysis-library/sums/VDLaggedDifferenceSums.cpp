#include "VDLaggedDifferenceSums.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "VDExactAutocorrelation.h"
#include "VDExactLaggedDifferenceSums.h"

// This file is compiled with -ffp-contract=off: the target clones below must round alike on
// every processor, so no clone may fuse a multiply and an add.

// The vector helpers below live in this file only and are inlined into their callers, so the
// way a vector is returned never has to agree with code built elsewhere.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace {

// With |y| <= 2^50 every intermediate of (y3 - y0) - 3(y2 - y1) stays within 2^53, where
// doubles hold integers exactly; the first and second differences need less.
constexpr int64_t kExactDoubleLimit = int64_t{1} << 50;

// Eight doubles: one AVX-512 register, two AVX2 or four SSE2 registers, the same arithmetic
// order in every target clone. The unaligned alias type loads them from any double.
typedef double Lanes __attribute__((vector_size(64)));
typedef double UnalignedLanes __attribute__((vector_size(64), aligned(8), may_alias));
constexpr size_t kLanes = 8;

// Lags per tile: the chunk and the three or four stretches of the sequence its lags reach (about
// 60 KB for second differences at step 1) stay in the processor's second-level cache.
constexpr size_t kTileLags = 256;

// Terms summed into one partial sum before it joins the total: keeps the rounding error of a
// million-term sum near that of a thousand-term one.
constexpr size_t kChunk = 2048;

// Everything a clone calls is forced inline: a helper left out of line is built for the baseline
// processor only, and the clone would run baseline code.
#define VD_INLINE inline __attribute__((always_inline))
#define VD_INLINE_LAMBDA __attribute__((always_inline))

// The difference of order Order at lag of the values a(0), a(lag), a(2 lag), a(3 lag).
template <int Order, typename Value, typename At>
VD_INLINE Value orderDifference(size_t lag, At a) {
  if constexpr (Order == 1) {
    return a(lag) - a(0);
  } else if constexpr (Order == 2) {
    return (a(2 * lag) + a(0)) - 2.0 * a(lag);
  } else {
    return (a(3 * lag) - a(0)) - 3.0 * (a(2 * lag) - a(lag));
  }
}

// sum += the squared difference for the eight starts y + i ... y + i + 7.
template <int Order>
VD_INLINE void addSquaredDifferences(const double* y, size_t i, size_t lag, Lanes& sum) {
  const Lanes d =
      orderDifference<Order, Lanes>(lag, [y, i](size_t offset) VD_INLINE_LAMBDA -> Lanes {
        return *reinterpret_cast<const UnalignedLanes*>(y + i + offset);
      });
  sum += d * d;
}

// sum += the squared difference for the single start y + i.
template <int Order>
VD_INLINE void addSquaredDifference(const double* y, size_t i, size_t lag, double& sum) {
  const double d = orderDifference<Order, double>(
      lag, [y, i](size_t offset) VD_INLINE_LAMBDA { return y[i + offset]; });
  sum += d * d;
}

// The sum over one chunk, starts chunkStart .. chunkEnd - 1: the summation order every window
// of every caller uses, so a sum comes out the same whether its chunks are taken one window at a
// time or tile by tile.
template <int Order>
VD_INLINE double chunkSumOfSquaredDoubleDifferences(const double* y, size_t lag, size_t chunkStart,
                                                    size_t chunkEnd) {
  // Four independent accumulators hide the latency of the additions.
  Lanes sum0 = {};
  Lanes sum1 = {};
  Lanes sum2 = {};
  Lanes sum3 = {};
  size_t i = chunkStart;
  for (; i + 4 * kLanes <= chunkEnd; i += 4 * kLanes) {
    addSquaredDifferences<Order>(y, i, lag, sum0);
    addSquaredDifferences<Order>(y, i + kLanes, lag, sum1);
    addSquaredDifferences<Order>(y, i + 2 * kLanes, lag, sum2);
    addSquaredDifferences<Order>(y, i + 3 * kLanes, lag, sum3);
  }
  for (; i + kLanes <= chunkEnd; i += kLanes) {
    addSquaredDifferences<Order>(y, i, lag, sum0);
  }
  const Lanes lanes = (sum0 + sum1) + (sum2 + sum3);
  double partial = 0.0;
  for (size_t lane = 0; lane < kLanes; ++lane) {
    partial += lanes[lane];
  }
  for (; i < chunkEnd; ++i) {
    addSquaredDifference<Order>(y, i, lag, partial);
  }
  return partial;
}

template <int Order>
VD_INLINE double sumOfSquaredDoubleDifferences(const double* y, size_t lag, size_t count) {
  double total = 0.0;
  for (size_t chunkStart = 0; chunkStart < count; chunkStart += kChunk) {
    total += chunkSumOfSquaredDoubleDifferences<Order>(y, lag, chunkStart,
                                                       std::min(count, chunkStart + kChunk));
  }
  return total;
}

// totals[k] = the sum at lags[k] over every start the sequence allows (size - Order * lag), for
// ascending lags. The chunk loop runs outside the lag loop, so one chunk of the sequence and the
// stretches the lags reach from it stay in cache while every lag of the tile uses them; each
// total still adds its chunks in the same order as sumOfSquaredDoubleDifferences.
template <int Order>
VD_INLINE void tileOfSquaredDoubleDifferences(const double* y, size_t size, const size_t* lags,
                                              size_t lagCount, double* totals) {
  const size_t largestCount = size - Order * lags[0];
  for (size_t chunkStart = 0; chunkStart < largestCount; chunkStart += kChunk) {
    for (size_t k = 0; k < lagCount; ++k) {
      const size_t count = size - Order * lags[k];
      if (chunkStart >= count) {
        break;  // later lags have fewer starts still
      }
      totals[k] += chunkSumOfSquaredDoubleDifferences<Order>(y, lags[k], chunkStart,
                                                             std::min(count, chunkStart + kChunk));
    }
  }
}

#define VD_CLONES __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))

VD_CLONES double sumOfSquaredFirstDifferences(const double* y, size_t lag, size_t count) {
  return sumOfSquaredDoubleDifferences<1>(y, lag, count);
}

VD_CLONES double sumOfSquaredSecondDifferences(const double* y, size_t lag, size_t count) {
  return sumOfSquaredDoubleDifferences<2>(y, lag, count);
}

VD_CLONES double sumOfSquaredThirdDifferences(const double* y, size_t lag, size_t count) {
  return sumOfSquaredDoubleDifferences<3>(y, lag, count);
}

VD_CLONES void tileOfSquaredFirstDifferences(const double* y, size_t size, const size_t* lags,
                                             size_t lagCount, double* totals) {
  tileOfSquaredDoubleDifferences<1>(y, size, lags, lagCount, totals);
}

VD_CLONES void tileOfSquaredSecondDifferences(const double* y, size_t size, const size_t* lags,
                                              size_t lagCount, double* totals) {
  tileOfSquaredDoubleDifferences<2>(y, size, lags, lagCount, totals);
}

VD_CLONES void tileOfSquaredThirdDifferences(const double* y, size_t size, const size_t* lags,
                                             size_t lagCount, double* totals) {
  tileOfSquaredDoubleDifferences<3>(y, size, lags, lagCount, totals);
}

// The slow path for sequences too large for exact doubles: the difference in wrapping unsigned
// arithmetic, exact whenever its true value fits in int64, then rounded once to double.
double sumOfSquaredIntegerDifferences(const int64_t* y, int order, size_t lag, size_t count) {
  const auto at = [y](size_t index) { return static_cast<uint64_t>(y[index]); };
  double total = 0.0;
  for (size_t chunkStart = 0; chunkStart < count; chunkStart += kChunk) {
    const size_t chunkEnd = std::min(count, chunkStart + kChunk);
    double partial = 0.0;
    for (size_t i = chunkStart; i < chunkEnd; ++i) {
      uint64_t wrapped;
      if (order == 1) {
        wrapped = at(i + lag) - at(i);
      } else if (order == 2) {
        wrapped = at(i + 2 * lag) - 2 * at(i + lag) + at(i);
      } else {
        wrapped = at(i + 3 * lag) - 3 * at(i + 2 * lag) + 3 * at(i + lag) - at(i);
      }
      const auto d = static_cast<double>(static_cast<int64_t>(wrapped));
      partial += d * d;
    }
    total += partial;
  }
  return total;
}

}  // namespace

VDLaggedDifferenceSums::VDLaggedDifferenceSums(std::vector<int64_t> sequence, int order)
    : _order(order), _exact(VDExactLaggedDifferenceSums::sums(sequence)) {
  const bool exactInDoubles = std::all_of(sequence.begin(), sequence.end(), [](int64_t value) {
    return value >= -kExactDoubleLimit && value <= kExactDoubleLimit;
  });
  // The exact sums need no doubles: one copy of a long series is enough.
  if (exactInDoubles && !_exact) {
    _values.assign(sequence.begin(), sequence.end());
  } else {
    _integers = std::move(sequence);
  }
}

double VDLaggedDifferenceSums::sumOfSquares(int64_t lag, int64_t count) const {
  if (lag < 0 || count <= 0) {
    return 0.0;
  }
  const auto unsignedLag = static_cast<size_t>(lag);
  const auto unsignedCount = static_cast<size_t>(count);
  if (!_integers.empty()) {
    return sumOfSquaredIntegerDifferences(_integers.data(), _order, unsignedLag, unsignedCount);
  }
  switch (_order) {
    case 1:
      return sumOfSquaredFirstDifferences(_values.data(), unsignedLag, unsignedCount);
    case 2:
      return sumOfSquaredSecondDifferences(_values.data(), unsignedLag, unsignedCount);
    default:
      return sumOfSquaredThirdDifferences(_values.data(), unsignedLag, unsignedCount);
  }
}

std::vector<double> VDLaggedDifferenceSums::sumsOfSquares(
    const VDWindowRange& lags, const std::function<void(uint64_t)>& lagsDone) const {
  const uint64_t lagCount = lags.count();
  if (_exact && lagCount > 0) {
    std::optional<std::vector<double>> exact =
        VDExactLaggedDifferenceSums::sumsOfSquares(_integers, _order, lags, lagsDone);
    if (exact) {
      return std::move(*exact);
    }
  }
  std::vector<double> totals(lagCount, 0.0);
  std::vector<size_t> tileLags;
  tileLags.reserve(kTileLags);
  for (uint64_t tileStart = 0; tileStart < lagCount; tileStart += kTileLags) {
    const uint64_t tileEnd = std::min<uint64_t>(lagCount, tileStart + kTileLags);
    tileLags.clear();
    for (uint64_t index = tileStart; index < tileEnd; ++index) {
      tileLags.push_back(static_cast<size_t>(lags.at(index)));
    }
    double* tileTotals = totals.data() + tileStart;
    if (!_integers.empty()) {
      for (size_t k = 0; k < tileLags.size(); ++k) {
        tileTotals[k] = sumOfSquaredIntegerDifferences(_integers.data(), _order, tileLags[k],
                                                       _integers.size() - _order * tileLags[k]);
      }
    } else if (_order == 1) {
      tileOfSquaredFirstDifferences(_values.data(), _values.size(), tileLags.data(),
                                    tileLags.size(), tileTotals);
    } else if (_order == 2) {
      tileOfSquaredSecondDifferences(_values.data(), _values.size(), tileLags.data(),
                                     tileLags.size(), tileTotals);
    } else {
      tileOfSquaredThirdDifferences(_values.data(), _values.size(), tileLags.data(),
                                    tileLags.size(), tileTotals);
    }
    if (lagsDone) {
      lagsDone(tileEnd);
    }
  }
  return totals;
}
