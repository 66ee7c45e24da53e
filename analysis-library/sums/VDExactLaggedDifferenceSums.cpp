#include "VDExactLaggedDifferenceSums.h"

#include <algorithm>
#include <utility>

#include "VDExactAutocorrelation.h"
#include "VDNumberTheoreticTransform.h"
#include "VDPrefixCorrelation.h"

namespace {

// The coefficients c_a of u[j + a m] in the difference of each order.
const std::vector<int64_t>& coefficientsOf(int order) {
  static const std::vector<int64_t> kFirst = {-1, 1};
  static const std::vector<int64_t> kSecond = {1, -2, 1};
  static const std::vector<int64_t> kThird = {-1, 3, -3, 1};
  return order == 1 ? kFirst : order == 2 ? kSecond : kThird;
}

// A family of prefix sums: lag lagFactor * m over the first startFactor * m starts.
using Family = std::pair<int64_t, int64_t>;

// Lags at most a series' length over this are short: their autocorrelation is summed by blocks.
constexpr int64_t kShortLagFactor = 16;

// Lags per progress report.
constexpr uint64_t kLagsPerReport = 8192;

// The prefix sums of one family for every lag of lags; queriesDone as for
// VDPrefixCorrelation::sumsBySplitting.
std::vector<__int128> prefixSums(const VDPrefixCorrelation& correlation, const Family& family,
                                 const VDWindowRange& lags,
                                 const std::function<void(size_t)>& queriesDone,
                                 VDPrefixCorrelation::Workspace& workspace) {
  std::vector<VDPrefixCorrelation::Query> queries;
  queries.reserve(lags.count());
  for (uint64_t index = 0; index < lags.count(); ++index) {
    queries.push_back({family.first * lags.at(index), family.second * lags.at(index)});
  }
  return correlation.sumsBySplitting(queries, queriesDone, workspace);
}

// The autocorrelation c[0] .. c[largestLag] (or beyond). Over every lag that is the transform of
// the whole series, or, for a series too long for one transform (over 2^25 values), the
// splitting prefix sums of every lag over every start; when only lags short against the series
// are wanted, the sums of whole blocks of the prefix correlation cost a fraction of that (a day
// at 16 Hz to 1000 s: a fifth).
// prefixCorrelation is the sequence's, where one is made already.
std::vector<__int128> autocorrelation(const std::vector<int64_t>& sequence, int64_t largestLag,
                                      const std::optional<VDPrefixCorrelation>& prefixCorrelation,
                                      VDPrefixCorrelation::Workspace& workspace) {
  const auto count = static_cast<int64_t>(sequence.size());
  const bool shortLags = largestLag * kShortLagFactor <= count;
  if (!shortLags && 2 * sequence.size() <= VDNumberTheoreticTransform::kLargestTransform) {
    return VDExactAutocorrelation::of(sequence).value();
  }
  std::vector<VDPrefixCorrelation::Query> queries;
  for (int64_t lag = 0; lag <= largestLag; ++lag) {
    queries.push_back({lag, count - lag});
  }
  std::optional<VDPrefixCorrelation> made;
  if (!prefixCorrelation) {
    made = VDPrefixCorrelation::of(sequence);
  }
  const VDPrefixCorrelation& correlation = prefixCorrelation ? *prefixCorrelation : *made;
  return shortLags ? correlation.sums(queries)
                   : correlation.sumsBySplitting(queries, {}, workspace);
}

// The exact sums of a sequence whose every sum the transforms hold.
std::vector<__int128> exactSums(const std::vector<int64_t>& sequence, int order,
                                const VDWindowRange& lags,
                                const std::function<void(uint64_t)>& lagsDone,
                                VDPrefixCorrelation::Workspace& workspace) {
  const std::vector<int64_t>& c = coefficientsOf(order);
  // X_ab = sum_j u[j+am] u[j+bm] over the N - order m starts j is the autocorrelation at lag
  // (b-a)m less the products before start am (head, on the sequence) and those after the last
  // start (tail: the first (order-b)m starts of the reversed sequence).
  std::vector<Family> heads;
  std::vector<Family> tails;
  for (int a = 0; a <= order; ++a) {
    for (int b = a + 1; b <= order; ++b) {
      if (a > 0) {
        heads.emplace_back(b - a, a);
      }
      if (order - b > 0) {
        tails.emplace_back(b - a, order - b);
      }
    }
  }
  // No lag is finished before the sums below, but a report lets a display show that the
  // statistic runs (the transforms of a long series take seconds).
  if (lagsDone) {
    lagsDone(0);
  }
  std::optional<VDPrefixCorrelation> headCorrelation;
  std::optional<VDPrefixCorrelation> tailCorrelation;
  if (!heads.empty()) {
    headCorrelation = VDPrefixCorrelation::of(sequence);
    tailCorrelation = VDPrefixCorrelation::of({sequence.rbegin(), sequence.rend()});
  }
  std::vector<__int128> correlation =
      autocorrelation(sequence, order * lags.last(), headCorrelation, workspace);
  const size_t count = sequence.size();
  std::vector<__int128> squares(count + 1, 0);  // squares[k] = u[0]^2 + ... + u[k-1]^2
  for (size_t i = 0; i < count; ++i) {
    squares[i + 1] = squares[i] + static_cast<__int128>(sequence[i]) * sequence[i];
  }
  // sums[index] = sum_a c_a^2 (squares over the starts of u[j + a m]) + 2 sum_{a<b} c_a c_b X_ab:
  // the squares and the autocorrelation's part first, then each family's prefix sums taken off
  // as they come, one family after another (each family's sums are as long as the lags).
  std::vector<__int128> sums(lags.count());
  for (uint64_t index = 0; index < lags.count(); ++index) {
    const auto m = static_cast<size_t>(lags.at(index));
    const size_t starts = count - static_cast<size_t>(order) * m;
    __int128 sum = 0;
    for (int a = 0; a <= order; ++a) {
      sum += c[a] * c[a] * (squares[a * m + starts] - squares[a * m]);
      for (int b = a + 1; b <= order; ++b) {
        sum += 2 * c[a] * c[b] * correlation[(b - a) * m];
      }
    }
    sums[index] = sum;
  }
  // Gone before the families' sums take their room.
  std::vector<__int128>().swap(correlation);
  std::vector<__int128>().swap(squares);
  // Progress in parts of kLagsPerReport lags, the families' passes reported as one.
  const uint64_t lagCount = lags.count();
  const uint64_t passes = heads.size() + tails.size();
  uint64_t nextReport = kLagsPerReport;
  const auto reportUpTo = [&](uint64_t done) {
    for (; nextReport <= done && nextReport < lagCount; nextReport += kLagsPerReport) {
      if (lagsDone) {
        lagsDone(nextReport);
      }
    }
  };
  uint64_t pass = 0;
  for (int a = 0; a <= order; ++a) {
    for (int b = a + 1; b <= order; ++b) {
      for (const bool head : {true, false}) {
        if (head ? a == 0 : order - b == 0) {
          continue;
        }
        const Family family = head ? Family{b - a, a} : Family{b - a, order - b};
        const std::vector<__int128> prefix =
            prefixSums(head ? *headCorrelation : *tailCorrelation, family, lags,
                       [&](size_t done) { reportUpTo((pass * lagCount + done) / passes); },
                       workspace);
        for (uint64_t index = 0; index < lagCount; ++index) {
          sums[index] -= 2 * c[a] * c[b] * prefix[index];
        }
        ++pass;
      }
    }
  }
  reportUpTo(lagCount);
  if (lagsDone) {
    lagsDone(lagCount);
  }
  return sums;
}

// Part 0, 1 or 2 of a sequence split at bit K, u = 2^K h + l with 0 <= l < 2^K: h, l and h + l.
std::vector<int64_t> partOf(const std::vector<int64_t>& sequence, int bits, int part) {
  std::vector<int64_t> values;
  values.reserve(sequence.size());
  for (const int64_t value : sequence) {
    const int64_t high = value >> bits;  // arithmetic shift: floor
    const int64_t low = value - high * (int64_t{1} << bits);
    values.push_back(part == 0 ? high : part == 1 ? low : high + low);
  }
  return values;
}

// The bit K that halves the bits of the largest value, when all three parts are small enough for
// exact sums. The parts are made one at a time, here and by the caller, so that a long series
// never has all three beside it.
std::optional<int> splitBits(const std::vector<int64_t>& sequence) {
  // Each part is as long as the sequence: too long for the transforms, none is made.
  if (sequence.size() > VDNumberTheoreticTransform::kLargestTransform) {
    return std::nullopt;
  }
  uint64_t largest = 0;
  for (const int64_t value : sequence) {
    largest = std::max(largest,
                       value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value));
  }
  if (largest >= (uint64_t{1} << 62)) {
    return std::nullopt;
  }
  const int bits = (64 - __builtin_clzll(largest | 1) + 1) / 2;
  for (int part = 0; part < 3; ++part) {
    if (!VDExactAutocorrelation::holdsEverySum(partOf(sequence, bits, part))) {
      return std::nullopt;
    }
  }
  return bits;
}

}  // namespace

bool VDExactLaggedDifferenceSums::sums(const std::vector<int64_t>& sequence) {
  return VDExactAutocorrelation::holdsEverySum(sequence) || splitBits(sequence).has_value();
}

std::optional<std::vector<double>> VDExactLaggedDifferenceSums::sumsOfSquares(
    const std::vector<int64_t>& sequence, int order, const VDWindowRange& lags,
    const std::function<void(uint64_t)>& lagsDone) {
  std::vector<double> rounded(lags.count());
  VDPrefixCorrelation::Workspace workspace;
  if (VDExactAutocorrelation::holdsEverySum(sequence)) {
    const std::vector<__int128> exact = exactSums(sequence, order, lags, lagsDone, workspace);
    std::transform(exact.begin(), exact.end(), rounded.begin(),
                   [](__int128 sum) { return static_cast<double>(sum); });
    return rounded;
  }
  const std::optional<int> split = splitBits(sequence);
  if (!split) {
    return std::nullopt;
  }
  const int bits = *split;
  // Three passes over the lags, reported as one that never repeats a count.
  std::vector<__int128> partSums[3];
  std::optional<uint64_t> reported;
  for (int part = 0; part < 3; ++part) {
    const uint64_t count = lags.count();
    partSums[part] = exactSums(partOf(sequence, bits, part), order, lags, [&](uint64_t done) {
      const uint64_t overall = (static_cast<uint64_t>(part) * count + done) / 3;
      if (lagsDone && (!reported || overall > *reported)) {
        reported = overall;
        lagsDone(overall);
      }
    }, workspace);
  }
  for (size_t index = 0; index < rounded.size(); ++index) {
    const __int128 high = partSums[0][index];
    const __int128 low = partSums[1][index];
    const __int128 cross = partSums[2][index] - high - low;  // twice the mixed sum
    // Q(u) stays below 2^127: N (8 max|u|)^2 for at most 2^26 values below 2^47.
    rounded[index] = static_cast<double>(((high << bits) + cross) * (__int128{1} << bits) + low);
  }
  return rounded;
}
