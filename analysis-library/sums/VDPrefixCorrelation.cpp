#include "VDPrefixCorrelation.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "VDExactAutocorrelation.h"
#include "VDNumberTheoreticTransform.h"

namespace {

using NTT = VDNumberTheoreticTransform;

// Values per block; a transform covers two blocks, so that a block's products with the values
// up to a block of lags further never wrap around.
constexpr size_t kBlock = 2048;
constexpr size_t kTransformSize = 2 * kBlock;

// Terms summed term by term that cost about as much as one butterfly step of a split's
// transforms (three primes, two forward and one inverse transform each).
constexpr uint64_t kTermsPerTransformStep = 32;

#define VD_CLONES __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))

// sums[k] += a[k] b[k], each kept below 2^63 by taking off multiple, a multiple of the prime in
// [2^62, 2^63): a product of residues below 2^31 is below 2^62, so the sum never wraps, and the
// sums stay congruent to the true ones while the loop vectorises (no division).
VD_CLONES void addProducts(uint64_t* sums, const uint32_t* a, const uint32_t* b, size_t count,
                           uint64_t multiple) {
  for (size_t k = 0; k < count; ++k) {
    const uint64_t sum = sums[k] + static_cast<uint64_t>(a[k]) * b[k];
    sums[k] = sum >= (uint64_t{1} << 63) ? sum - multiple : sum;
  }
}

// The multiple of Prime in [2^62, 2^63) that addProducts takes off.
template <uint32_t Prime>
constexpr uint64_t largeMultiple() {
  uint64_t multiple = Prime;
  while (multiple < (uint64_t{1} << 62)) {
    multiple <<= 1;
  }
  return multiple;
}

// Exact when every partial sum fits in int64 (the caller checks).
VD_CLONES int64_t dotProduct(const int64_t* a, const int64_t* b, size_t count) {
  int64_t sum = 0;
  for (size_t k = 0; k < count; ++k) {
    sum += a[k] * b[k];
  }
  return sum;
}

// Values below 2^42 split into 21-bit limbs, v = high 2^21 + low with 0 <= low < 2^21, as they
// are read: the limb products stay below 2^43, so 2^16 of them add up in int64 with room to
// spare, and the 32-bit multiplies vectorise where 64-bit ones by 64-bit ones do not.
constexpr int kLimbBits = 21;
constexpr size_t kLimbTermsPerChunk = size_t{1} << 16;

VD_CLONES void addLimbProducts(const int64_t* a, const int64_t* b, size_t count, int64_t& high,
                               int64_t& middle, int64_t& low) {
  constexpr int64_t kLowMask = (int64_t{1} << kLimbBits) - 1;
  int64_t sumHigh = 0, sumMiddle = 0, sumLow = 0;
  for (size_t k = 0; k < count; ++k) {
    // Arithmetic shifts: the high limbs are floors.
    const auto aHigh = static_cast<int32_t>(a[k] >> kLimbBits);
    const auto aLow = static_cast<int32_t>(a[k] & kLowMask);
    const auto bHigh = static_cast<int32_t>(b[k] >> kLimbBits);
    const auto bLow = static_cast<int32_t>(b[k] & kLowMask);
    sumHigh += static_cast<int64_t>(aHigh) * bHigh;
    sumMiddle += static_cast<int64_t>(aHigh) * bLow + static_cast<int64_t>(aLow) * bHigh;
    sumLow += static_cast<int64_t>(aLow) * bLow;
  }
  high = sumHigh;
  middle = sumMiddle;
  low = sumLow;
}

// The residues of values of magnitude below prime.
VD_CLONES void smallResidues(uint32_t* residues, const int64_t* values, size_t count,
                             uint32_t prime) {
  for (size_t k = 0; k < count; ++k) {
    residues[k] = static_cast<uint32_t>(values[k] + (values[k] < 0 ? prime : 0));
  }
}

template <uint32_t Prime>
void reduce(std::vector<uint64_t>& sums) {
  for (uint64_t& sum : sums) {
    sum %= Prime;
  }
}

}  // namespace

std::optional<VDPrefixCorrelation> VDPrefixCorrelation::of(std::vector<int64_t> sequence) {
  if (!VDExactAutocorrelation::holdsEverySum(sequence)) {
    return std::nullopt;
  }
  return VDPrefixCorrelation(std::move(sequence));
}

VDPrefixCorrelation::VDPrefixCorrelation(std::vector<int64_t> sequence)
    : _sequence(std::move(sequence)),
      _plan1(kTransformSize),
      _plan2(kTransformSize),
      _plan3(kTransformSize) {
  for (const int64_t value : _sequence) {
    // Below 2^42 (holdsEverySum), so the square fits.
    const auto magnitude = static_cast<uint64_t>(value < 0 ? -value : value);
    _largestSquare = std::max(_largestSquare, magnitude * magnitude);
  }
  _blockCount = (_sequence.size() + kBlock - 1) / kBlock;
}

void VDPrefixCorrelation::transformBlocks() const {
  if (_blockCount == 0 || !_blockTransforms[0].empty()) {
    return;
  }
  transformBlocks<NTT::kPrime1>(0);
  transformBlocks<NTT::kPrime2>(1);
  transformBlocks<NTT::kPrime3>(2);
}

template <uint32_t Prime>
void VDPrefixCorrelation::transformBlocks(int primeIndex) const {
  std::vector<uint32_t>& blocks = _blockTransforms[primeIndex];
  std::vector<uint32_t>& pairs = _pairTransforms[primeIndex];
  blocks.resize(_blockCount * kTransformSize);
  pairs.resize(_blockCount * kTransformSize);
  const NTT::Plan<Prime>& plan = planFor<Prime>();
  // Each block is transformed once, last first. The two blocks from b on are block b plus block
  // b+1 shifted by half the transform, whose transform is block b+1's times (-1)^k.
  std::vector<uint32_t> values(kTransformSize);
  std::vector<uint32_t> next(kTransformSize, 0);  // block b+1's transform; none past the end
  for (size_t block = _blockCount; block-- > 0;) {
    const size_t start = block * kBlock;
    for (size_t i = 0; i < kTransformSize; ++i) {
      values[i] = i < kBlock && start + i < _sequence.size()
                      ? NTT::residue<Prime>(_sequence[start + i])
                      : 0;
    }
    plan.forward(values);
    uint32_t* pair = pairs.data() + block * kTransformSize;
    for (size_t k = 0; k < kTransformSize; k += 2) {
      pair[k] = (values[k] + next[k]) % Prime;
      pair[k + 1] = (values[k + 1] + Prime - next[k + 1]) % Prime;
    }
    // The correlation's transform is X[-k] Y[k]: the block's is stored at negated index.
    uint32_t* negated = blocks.data() + block * kTransformSize;
    for (size_t k = 0; k < kTransformSize; ++k) {
      negated[k] = values[(kTransformSize - k) & (kTransformSize - 1)];
    }
    std::swap(values, next);
  }
}

// residues[q] for the queries first .. end-1, whose lags lie in one block of lags: the sum over
// the wholeBlocks first blocks, modulo Prime.
template <uint32_t Prime>
void VDPrefixCorrelation::sumWholeBlocks(const VDNumberTheoreticTransform::Plan<Prime>& plan,
                                         int primeIndex, const std::vector<Query>& queries,
                                         size_t first, size_t end, uint64_t wholeBlocks,
                                         std::vector<uint32_t>& residues) const {
  const auto lagBlock = static_cast<size_t>(queries[first].lag) / kBlock;
  std::vector<uint64_t> sums(kTransformSize, 0);
  for (size_t block = 0; block < wholeBlocks && block + lagBlock < _blockCount; ++block) {
    addProducts(sums.data(), _blockTransforms[primeIndex].data() + block * kTransformSize,
                _pairTransforms[primeIndex].data() + (block + lagBlock) * kTransformSize,
                kTransformSize, largeMultiple<Prime>());
  }
  reduce<Prime>(sums);
  std::vector<uint32_t> correlation(sums.begin(), sums.end());
  plan.inverse(correlation);
  for (size_t q = first; q < end; ++q) {
    residues[q] = correlation[static_cast<size_t>(queries[q].lag) - lagBlock * kBlock];
  }
}

__int128 VDPrefixCorrelation::limbDotProduct(size_t a, size_t b, size_t count) const {
  __int128 sum = 0;
  for (size_t done = 0; done < count; done += kLimbTermsPerChunk) {
    const size_t chunk = std::min(kLimbTermsPerChunk, count - done);
    int64_t high = 0, middle = 0, low = 0;
    addLimbProducts(_sequence.data() + a + done, _sequence.data() + b + done, chunk, high, middle,
                    low);
    constexpr __int128 kLimb = __int128{1} << kLimbBits;
    sum += (static_cast<__int128>(high) * kLimb + middle) * kLimb + low;
  }
  return sum;
}

__int128 VDPrefixCorrelation::productSum(size_t from, size_t lag, size_t count) const {
  if (count == 0) {
    return 0;
  }
  if (static_cast<unsigned __int128>(_largestSquare) * count <
      (static_cast<unsigned __int128>(1) << 63)) {
    return dotProduct(_sequence.data() + from, _sequence.data() + from + lag, count);
  }
  return limbDotProduct(from, from + lag, count);
}

std::vector<__int128> VDPrefixCorrelation::sums(const std::vector<Query>& queries) const {
  transformBlocks();
  std::vector<__int128> results(queries.size(), 0);
  std::vector<uint32_t> residues[3];
  for (std::vector<uint32_t>& residue : residues) {
    residue.assign(queries.size(), 0);
  }
  size_t first = 0;
  while (first < queries.size()) {
    // The queries whose lags share a block of lags; the fewest starts among them says how many
    // blocks all of them take whole.
    const auto lagBlock = static_cast<size_t>(queries[first].lag) / kBlock;
    size_t end = first;
    while (end < queries.size() && static_cast<size_t>(queries[end].lag) / kBlock == lagBlock) {
      ++end;
    }
    int64_t fewestStarts = queries[first].starts;
    for (size_t q = first; q < end; ++q) {
      fewestStarts = std::min(fewestStarts, queries[q].starts);
    }
    const uint64_t wholeBlocks = static_cast<uint64_t>(fewestStarts) / kBlock;
    if (wholeBlocks > 0) {
      sumWholeBlocks<NTT::kPrime1>(_plan1, 0, queries, first, end, wholeBlocks, residues[0]);
      sumWholeBlocks<NTT::kPrime2>(_plan2, 1, queries, first, end, wholeBlocks, residues[1]);
      sumWholeBlocks<NTT::kPrime3>(_plan3, 2, queries, first, end, wholeBlocks, residues[2]);
    }
    for (size_t q = first; q < end; ++q) {
      const size_t from = wholeBlocks * kBlock;
      const auto to = static_cast<size_t>(queries[q].starts);
      const auto lag = static_cast<size_t>(queries[q].lag);
      const __int128 rest = productSum(from, lag, to > from ? to - from : 0);
      results[q] =
          rest +
          (wholeBlocks > 0 ? NTT::fromResidues(residues[0][q], residues[1][q], residues[2][q]) : 0);
    }
    first = end;
  }
  return results;
}

// The queries first .. end-1 of a split all sum from the same start on, base: the products before
// base are summed already (as residues, or term by term). Either each is summed term by term from
// base to its starts, or the starts all of them share, base .. least-1, are summed for all their
// lags by one cross-correlation of base .. least-1 with the values their lags reach, and both
// halves go on from least.
struct VDPrefixCorrelation::Splitting {
  const VDPrefixCorrelation& correlation;
  const std::vector<Query>& queries;
  const std::function<void(size_t)>& queriesDone;
  // The transforms of the longest length taken so far (a plan holds every shorter one), and room
  // for two sequences of that length.
  Workspace& workspace;
  std::vector<__int128> results;
  std::vector<uint32_t> residues[3];
  // The splitting runs once per prime, so that only one prime's transforms are held (at a year of
  // 1 PPS each is 256 MB); the first pass also sums the small halves term by term.
  int pass = 0;

  Splitting(const VDPrefixCorrelation& correlation, const std::vector<Query>& queries,
            const std::function<void(size_t)>& queriesDone, Workspace& workspace)
      : correlation(correlation),
        queries(queries),
        queriesDone(queriesDone),
        workspace(workspace),
        results(queries.size(), 0) {
    for (std::vector<uint32_t>& residue : residues) {
      residue.assign(queries.size(), 0);
    }
  }

  void split(size_t first, size_t end, size_t base) {
    auto least = static_cast<size_t>(queries[first].starts);
    uint64_t terms = 0;
    for (size_t q = first; q < end; ++q) {
      least = std::min(least, static_cast<size_t>(queries[q].starts));
      terms += static_cast<uint64_t>(queries[q].starts) - base;
    }
    const auto firstLag = static_cast<size_t>(queries[first].lag);
    const size_t lagSpan = static_cast<size_t>(queries[end - 1].lag) - firstLag;
    const size_t length = (least - base) + lagSpan;
    // A product summed term by term costs a fraction of a butterfly: a half is summed so when
    // that costs less than a few transforms of its length.
    const uint64_t transformWork = kTermsPerTransformStep * length * (std::bit_width(length) + 1);
    if (end - first == 1 || terms <= transformWork) {
      for (size_t q = first; q < end && pass == 0; ++q) {
        results[q] += correlation.productSum(base, static_cast<size_t>(queries[q].lag),
                                             static_cast<size_t>(queries[q].starts) - base);
      }
      if (queriesDone) {
        queriesDone((static_cast<size_t>(pass) * queries.size() + end) / 3);
      }
      return;
    }
    if (least > base) {
      if (pass == 0) {
        crossCorrelate<NTT::kPrime1>(0, first, end, base, least);
      } else if (pass == 1) {
        crossCorrelate<NTT::kPrime2>(1, first, end, base, least);
      } else {
        crossCorrelate<NTT::kPrime3>(2, first, end, base, least);
      }
    }
    const size_t middle = first + (end - first) / 2;
    split(first, middle, least);
    split(middle, end, least);
  }

  template <uint32_t Prime>
  std::optional<NTT::Plan<Prime>>& planFor() {
    if constexpr (Prime == NTT::kPrime1) {
      return workspace._plan1;
    } else if constexpr (Prime == NTT::kPrime2) {
      return workspace._plan2;
    } else {
      return workspace._plan3;
    }
  }

  // residues[primeIndex][q] += sum over j in base .. least-1 of u[j] u[j + lag q], modulo Prime,
  // for the queries first .. end-1.
  template <uint32_t Prime>
  void crossCorrelate(int primeIndex, size_t first, size_t end, size_t base, size_t least) {
    const std::vector<int64_t>& sequence = correlation._sequence;
    const size_t count = least - base;
    const auto firstLag = static_cast<size_t>(queries[first].lag);
    const size_t lagSpan = static_cast<size_t>(queries[end - 1].lag) - firstLag;
    // The correlation as a convolution: x = u[base ..], count values, reversed; y =
    // u[base + firstLag ..], count + lagSpan values. The lag firstLag + d is the convolution's
    // entry count - 1 + d, which no product wraps onto.
    size_t size = 1;
    while (size < count + lagSpan) {
      size <<= 1;
    }
    std::optional<NTT::Plan<Prime>>& plan = planFor<Prime>();
    if (!plan || plan->size() < size) {
      plan.reset();
      plan.emplace(size);
    }
    std::vector<uint32_t>& x = workspace._x;
    std::vector<uint32_t>& y = workspace._y;
    if (x.size() < size) {
      x.resize(size);
      y.resize(size);
    }
    // Values below the prime (the halves of split series) need no division.
    const bool small = correlation._largestSquare < static_cast<uint64_t>(Prime) * Prime;
    const int64_t* xValues = sequence.data() + base;
    if (small) {
      smallResidues(x.data(), xValues, count, Prime);
    } else {
      for (size_t i = 0; i < count; ++i) {
        x[i] = NTT::residue<Prime>(xValues[i]);
      }
    }
    std::reverse(x.begin(), x.begin() + static_cast<ptrdiff_t>(count));
    std::fill(x.begin() + static_cast<ptrdiff_t>(count),
              x.begin() + static_cast<ptrdiff_t>(size), 0);
    const size_t yStart = base + firstLag;
    const size_t yCount = std::min(count + lagSpan, sequence.size() - yStart);
    if (small) {
      smallResidues(y.data(), sequence.data() + yStart, yCount, Prime);
    } else {
      for (size_t i = 0; i < yCount; ++i) {
        y[i] = NTT::residue<Prime>(sequence[yStart + i]);
      }
    }
    std::fill(y.begin() + static_cast<ptrdiff_t>(yCount),
              y.begin() + static_cast<ptrdiff_t>(size), 0);
    plan->scrambledForward(x.data(), size);
    plan->scrambledForward(y.data(), size);
    NTT::multiplyResidues(y.data(), x.data(), size, Prime);
    plan->forwardOfScrambled(y.data(), size);
    // size times the convolution, at negated index.
    const uint32_t scale = NTT::inverse<Prime>(static_cast<uint32_t>(size % Prime));
    std::vector<uint32_t>& residue = residues[primeIndex];
    for (size_t q = first; q < end; ++q) {
      const size_t entry = count - 1 + static_cast<size_t>(queries[q].lag) - firstLag;
      const uint32_t sum =
          residue[q] + NTT::multiply<Prime>(y[(size - entry) & (size - 1)], scale);
      residue[q] = sum >= Prime ? sum - Prime : sum;
    }
  }
};

std::vector<__int128> VDPrefixCorrelation::sumsBySplitting(
    const std::vector<Query>& queries, const std::function<void(size_t)>& queriesDone,
    Workspace& workspace) const {
  if (queries.empty()) {
    return {};
  }
  Splitting splitting(*this, queries, queriesDone, workspace);
  for (; splitting.pass < 3; ++splitting.pass) {
    // The other primes' transforms go before this one's take their room.
    if (splitting.pass != 0) {
      workspace._plan1.reset();
    }
    if (splitting.pass != 1) {
      workspace._plan2.reset();
    }
    if (splitting.pass != 2) {
      workspace._plan3.reset();
    }
    splitting.split(0, queries.size(), 0);
  }
  for (size_t q = 0; q < queries.size(); ++q) {
    splitting.results[q] += NTT::fromResidues(
        splitting.residues[0][q], splitting.residues[1][q], splitting.residues[2][q]);
  }
  return std::move(splitting.results);
}
