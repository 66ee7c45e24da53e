#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "VDNumberTheoreticTransform.h"

// A VDPrefixCorrelation sums products of an integer sequence's values a lag apart over its first
// starts: u[0] u[lag] + u[1] u[1+lag] + ... + u[starts-1] u[starts-1+lag], exactly, for many
// (lag, starts) at once, by transforms modulo three primes (VDNumberTheoreticTransform), in one
// of two ways:
// - sums: the sequence is cut into blocks; the products of whole blocks are summed as transforms,
//   so a block of lags costs one short inverse transform, but also one product per block it sums
//   (O(N^2 / 2048) for every lag of a series); only the blocks the starts cut are summed term by
//   term. Cheap for lags short against the series.
// - sumsBySplitting: the queries are halved again and again; the starts every query of a half
//   shares are summed for all its lags at once by one cross-correlation, and the half goes on
//   from there; halves small enough are summed term by term. O(N log^2 N) for every lag.
class VDPrefixCorrelation {
 public:
  struct Query {
    int64_t lag;
    int64_t starts;  // starts + lag <= sequence size
  };

  // Nothing when not every sum can be had exactly (VDExactAutocorrelation::holdsEverySum).
  static std::optional<VDPrefixCorrelation> of(std::vector<int64_t> sequence);

  // The sums for queries in ascending lag. Queries of lags in one block of 2048 are summed
  // together: their starts should lie within a block of each other, or the surplus is summed
  // term by term.
  std::vector<__int128> sums(const std::vector<Query>& queries) const;

  // The transforms and scratch room of sumsBySplitting, for a caller that sums several times
  // to keep: the transforms of a long series take a while to make.
  class Workspace {
   private:
    friend class VDPrefixCorrelation;
    std::optional<VDNumberTheoreticTransform::Plan<VDNumberTheoreticTransform::kPrime1>> _plan1;
    std::optional<VDNumberTheoreticTransform::Plan<VDNumberTheoreticTransform::kPrime2>> _plan2;
    std::optional<VDNumberTheoreticTransform::Plan<VDNumberTheoreticTransform::kPrime3>> _plan3;
    std::vector<uint32_t> _x, _y;
  };

  // The sums for queries in ascending lag, of any starts. queriesDone(count), when given, reports
  // now and then that the first count queries are summed.
  std::vector<__int128> sumsBySplitting(const std::vector<Query>& queries,
                                        const std::function<void(size_t)>& queriesDone,
                                        Workspace& workspace) const;

 private:
  explicit VDPrefixCorrelation(std::vector<int64_t> sequence);

  struct Splitting;

  // The block transforms, made when sums first needs them.
  void transformBlocks() const;
  template <uint32_t Prime>
  void transformBlocks(int primeIndex) const;
  template <uint32_t Prime>
  const VDNumberTheoreticTransform::Plan<Prime>& planFor() const {
    if constexpr (Prime == VDNumberTheoreticTransform::kPrime1) {
      return _plan1;
    } else if constexpr (Prime == VDNumberTheoreticTransform::kPrime2) {
      return _plan2;
    } else {
      return _plan3;
    }
  }
  template <uint32_t Prime>
  void sumWholeBlocks(const VDNumberTheoreticTransform::Plan<Prime>& plan, int primeIndex,
                      const std::vector<Query>& queries, size_t first, size_t end,
                      uint64_t wholeBlocks, std::vector<uint32_t>& residues) const;

  // sequence[a] sequence[b] + ... over count terms, exactly, from 21-bit limbs of the values.
  __int128 limbDotProduct(size_t a, size_t b, size_t count) const;
  // sequence[from] sequence[from + lag] + ... over count terms, exactly.
  __int128 productSum(size_t from, size_t lag, size_t count) const;

  std::vector<int64_t> _sequence;
  // The transforms of two blocks' length, made once.
  VDNumberTheoreticTransform::Plan<VDNumberTheoreticTransform::kPrime1> _plan1;
  VDNumberTheoreticTransform::Plan<VDNumberTheoreticTransform::kPrime2> _plan2;
  VDNumberTheoreticTransform::Plan<VDNumberTheoreticTransform::kPrime3> _plan3;
  uint64_t _largestSquare = 0;
  size_t _blockCount = 0;
  // Per prime, block b's transform (zero-padded to two blocks, index negated) and the transform
  // of the two blocks from b on, each kTransformSize long; empty until sums needs them.
  mutable std::vector<uint32_t> _blockTransforms[3];
  mutable std::vector<uint32_t> _pairTransforms[3];
};
