#pragma once

#include <cstdint>
#include <optional>
#include <vector>

// VDExactAutocorrelation computes the autocorrelation of an integer sequence y at every lag,
// c[lag] = y[0] y[lag] + y[1] y[lag+1] + ... + y[N-1-lag] y[N-1], exactly: by number-theoretic
// transforms modulo three primes, whose residues the Chinese remainder theorem joins into the
// integer. That is O(N log N) where summing lag by lag is O(N^2).
class VDExactAutocorrelation {
 public:
  // c[0] .. c[N-1]; nothing when the sequence is too long for the transforms (over 2^25
  // values) or its values too large for the three primes to hold every sum (N max|y|^2 must
  // stay below 2^89).
  static std::optional<std::vector<__int128>> of(const std::vector<int64_t>& sequence);

  // True when every sum of products of the sequence's values, at any lag and over any stretch,
  // can be had exactly by VDPrefixCorrelation: the bounds of of() on the values, up to 2^26
  // values (the longest transform; its splitting never takes a longer one).
  static bool holdsEverySum(const std::vector<int64_t>& sequence);
};
