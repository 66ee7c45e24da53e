#include "VDPhaseData.h"

#include <cstddef>

std::vector<int64_t> VDPhaseData::relativeToFirst(const std::vector<int64_t>& errors) {
  std::vector<int64_t> relative(errors.size());
  if (errors.empty()) {
    return relative;
  }
  const auto first = static_cast<uint64_t>(errors.front());
  for (size_t i = 0; i < errors.size(); ++i) {
    relative[i] = static_cast<int64_t>(static_cast<uint64_t>(errors[i]) - first);
  }
  return relative;
}

std::vector<int64_t> VDPhaseData::withoutDrift(const std::vector<int64_t>& errors) {
  if (errors.size() < 2) {
    return relativeToFirst(errors);
  }
  // Nearest integer to the mean step, from the true (128-bit) span.
  const __int128 span = static_cast<__int128>(errors.back()) - errors.front();
  const auto intervals = static_cast<__int128>(errors.size() - 1);
  __int128 slope = span / intervals;
  const __int128 remainder = span % intervals;
  if (2 * (remainder < 0 ? -remainder : remainder) >= intervals) {
    slope += span < 0 ? -1 : 1;
  }
  const auto wrappedSlope = static_cast<uint64_t>(slope);
  const auto first = static_cast<uint64_t>(errors.front());
  std::vector<int64_t> residual(errors.size());
  uint64_t trend = 0;
  for (size_t i = 0; i < errors.size(); ++i) {
    residual[i] = static_cast<int64_t>(static_cast<uint64_t>(errors[i]) - first - trend);
    trend += wrappedSlope;
  }
  return residual;
}

std::vector<int64_t> VDPhaseData::prefixSums(const std::vector<int64_t>& sequence) {
  std::vector<int64_t> sums(sequence.size() + 1);
  uint64_t running = 0;
  sums[0] = 0;
  for (size_t i = 0; i < sequence.size(); ++i) {
    running += static_cast<uint64_t>(sequence[i]);
    sums[i + 1] = static_cast<int64_t>(running);
  }
  return sums;
}
