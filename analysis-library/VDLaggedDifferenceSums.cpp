#include "VDLaggedDifferenceSums.h"

#include <algorithm>
#include <utility>

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
    return (a(2 * lag) - a(lag)) - (a(lag) - a(0));
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

template <int Order>
VD_INLINE double sumOfSquaredDoubleDifferences(const double* y, size_t lag, size_t count) {
  double total = 0.0;
  for (size_t chunkStart = 0; chunkStart < count; chunkStart += kChunk) {
    const size_t chunkEnd = std::min(count, chunkStart + kChunk);
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
    total += partial;
  }
  return total;
}

__attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default"))) double
sumOfSquaredFirstDifferences(const double* y, size_t lag, size_t count) {
  return sumOfSquaredDoubleDifferences<1>(y, lag, count);
}

__attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default"))) double
sumOfSquaredSecondDifferences(const double* y, size_t lag, size_t count) {
  return sumOfSquaredDoubleDifferences<2>(y, lag, count);
}

__attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default"))) double
sumOfSquaredThirdDifferences(const double* y, size_t lag, size_t count) {
  return sumOfSquaredDoubleDifferences<3>(y, lag, count);
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
    : _order(order) {
  const bool exactInDoubles = std::all_of(sequence.begin(), sequence.end(), [](int64_t value) {
    return value >= -kExactDoubleLimit && value <= kExactDoubleLimit;
  });
  if (exactInDoubles) {
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
