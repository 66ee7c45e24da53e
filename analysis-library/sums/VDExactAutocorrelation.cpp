#include "VDExactAutocorrelation.h"

#include <cstddef>

#include "VDNumberTheoreticTransform.h"

namespace {

using NTT = VDNumberTheoreticTransform;

// The autocorrelation modulo Prime at lags 0 .. N-1, from the transform X of y padded to at
// least twice its length: X[k] X[-k] is the transform of the cyclic correlation of y with
// itself, which the padding keeps from wrapping.
template <uint32_t Prime>
std::vector<uint32_t> autocorrelationModulo(const std::vector<int64_t>& sequence,
                                            size_t transformSize) {
  const size_t count = sequence.size();
  std::vector<uint32_t> values(transformSize, 0);
  for (size_t i = 0; i < count; ++i) {
    values[i] = NTT::residue<Prime>(sequence[i]);
  }
  const NTT::Plan<Prime> plan(transformSize);
  plan.scrambledForward(values.data(), transformSize);
  // In bit-reversed order X[0] and X[size/2] sit at 0 and 1, and within each octave
  // [2^j, 2^(j+1)) X[-k] sits at the mirror position of X[k]: the pairs are multiplied in place.
  values[0] = NTT::multiply<Prime>(values[0], values[0]);
  if (transformSize > 1) {
    values[1] = NTT::multiply<Prime>(values[1], values[1]);
  }
  for (size_t octave = 2; octave < transformSize; octave *= 2) {
    for (size_t p = octave, q = 2 * octave - 1; p <= q; ++p, --q) {
      const uint32_t product = NTT::multiply<Prime>(values[p], values[q]);
      values[p] = values[q] = product;
    }
  }
  plan.forwardOfScrambled(values.data(), transformSize);
  // transformSize times the correlation at lag l, at entry -l.
  const uint32_t scale = NTT::inverse<Prime>(static_cast<uint32_t>(transformSize % Prime));
  std::vector<uint32_t> correlation(count);
  for (size_t lag = 0; lag < count; ++lag) {
    correlation[lag] = NTT::multiply<Prime>(values[(transformSize - lag) & (transformSize - 1)],
                                            scale);
  }
  return correlation;
}

}  // namespace

bool VDExactAutocorrelation::holdsEverySum(const std::vector<int64_t>& sequence) {
  // Refused by its length before its values are scanned: a series of years at 1 PPS.
  if (sequence.size() > NTT::kLargestTransform) {
    return false;
  }
  unsigned __int128 largestMagnitude = 0;
  for (const int64_t value : sequence) {
    const unsigned __int128 magnitude =
        value < 0 ? -static_cast<__int128>(value) : static_cast<__int128>(value);
    largestMagnitude = magnitude > largestMagnitude ? magnitude : largestMagnitude;
  }
  // The first test keeps the product below from overflowing.
  return largestMagnitude < (uint64_t{1} << 42) &&
         sequence.size() * largestMagnitude * largestMagnitude < NTT::kLargestMagnitude;
}

std::optional<std::vector<__int128>> VDExactAutocorrelation::of(
    const std::vector<int64_t>& sequence) {
  if (2 * sequence.size() > NTT::kLargestTransform || !holdsEverySum(sequence)) {
    return std::nullopt;
  }
  const size_t count = sequence.size();
  size_t transformSize = 1;
  while (transformSize < 2 * count) {
    transformSize <<= 1;
  }
  const std::vector<uint32_t> residues1 =
      autocorrelationModulo<NTT::kPrime1>(sequence, transformSize);
  const std::vector<uint32_t> residues2 =
      autocorrelationModulo<NTT::kPrime2>(sequence, transformSize);
  const std::vector<uint32_t> residues3 =
      autocorrelationModulo<NTT::kPrime3>(sequence, transformSize);
  std::vector<__int128> correlation(count);
  for (size_t lag = 0; lag < count; ++lag) {
    correlation[lag] = NTT::fromResidues(residues1[lag], residues2[lag], residues3[lag]);
  }
  return correlation;
}
