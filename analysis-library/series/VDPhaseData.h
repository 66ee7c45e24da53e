#pragma once

#include <cstdint>
#include <vector>

// VDPhaseData derives the integer sequences the statistics work on from raw time errors. Each is
// computed in wrapping unsigned arithmetic, so it is exact modulo 2^64 and every difference the
// statistics take of it is exact; none depends on a constant offset of the time errors.
class VDPhaseData {
 public:
  // x[i] - x[0].
  static std::vector<int64_t> relativeToFirst(const std::vector<int64_t>& errors);

  // x[i] - x[0] - slope * i, with slope the mean step (x[N-1] - x[0]) / (N-1) rounded to an
  // integer. Second differences are unchanged, and a clock's frequency offset no longer makes
  // the values (and their prefix sums) large.
  static std::vector<int64_t> withoutDrift(const std::vector<int64_t>& errors);

  // S[0] = 0, S[k] = y[0] + ... + y[k-1] for k = 1..N (N+1 values).
  static std::vector<int64_t> prefixSums(const std::vector<int64_t>& sequence);
};
