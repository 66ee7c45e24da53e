#include "VDExactAutocorrelation.h"

#include <cstddef>
#include <utility>

namespace {

// Primes of the form k 2^s + 1 with 3 a primitive root: each has roots of unity of every power
// of two up to 2^23, and their product (about 2^86) bounds the sums the residues can stand for.
constexpr uint32_t kPrime1 = 998244353;  // 119 * 2^23 + 1
constexpr uint32_t kPrime2 = 167772161;  // 5 * 2^25 + 1
constexpr uint32_t kPrime3 = 469762049;  // 7 * 2^26 + 1
constexpr uint32_t kPrimitiveRoot = 3;
constexpr size_t kLargestTransform = size_t{1} << 23;

template <uint32_t Prime>
uint32_t multiply(uint32_t a, uint32_t b) {
  return static_cast<uint32_t>(static_cast<uint64_t>(a) * b % Prime);
}

template <uint32_t Prime>
uint32_t power(uint32_t base, uint64_t exponent) {
  uint32_t result = 1;
  while (exponent > 0) {
    if (exponent & 1) {
      result = multiply<Prime>(result, base);
    }
    base = multiply<Prime>(base, base);
    exponent >>= 1;
  }
  return result;
}

template <uint32_t Prime>
uint32_t inverse(uint32_t value) {
  return power<Prime>(value, Prime - 2);
}

// In-place transform of a power-of-two length (iterative Cooley-Tukey, decimation in time); the
// inverse includes the division by the length.
template <uint32_t Prime>
void transform(std::vector<uint32_t>& values, bool inverted) {
  const size_t size = values.size();
  for (size_t i = 1, j = 0; i < size; ++i) {
    size_t bit = size >> 1;
    for (; j & bit; bit >>= 1) {
      j ^= bit;
    }
    j ^= bit;
    if (i < j) {
      std::swap(values[i], values[j]);
    }
  }
  std::vector<uint32_t> twiddles(size / 2);
  for (size_t length = 2; length <= size; length <<= 1) {
    const size_t half = length / 2;
    uint32_t root = power<Prime>(kPrimitiveRoot, (Prime - 1) / length);
    if (inverted) {
      root = inverse<Prime>(root);
    }
    twiddles[0] = 1;
    for (size_t k = 1; k < half; ++k) {
      twiddles[k] = multiply<Prime>(twiddles[k - 1], root);
    }
    for (size_t start = 0; start < size; start += length) {
      uint32_t* low = values.data() + start;
      uint32_t* high = low + half;
      for (size_t k = 0; k < half; ++k) {
        const uint32_t u = low[k];
        const uint32_t v = multiply<Prime>(high[k], twiddles[k]);
        low[k] = u + v >= Prime ? u + v - Prime : u + v;
        high[k] = u >= v ? u - v : u + Prime - v;
      }
    }
  }
  if (inverted) {
    const uint32_t scale = inverse<Prime>(static_cast<uint32_t>(size % Prime));
    for (uint32_t& value : values) {
      value = multiply<Prime>(value, scale);
    }
  }
}

// The autocorrelation modulo Prime at lags 0 .. N-1: with A the transform of y padded to twice
// its length, the correlation's transform is A[k] A[-k].
template <uint32_t Prime>
std::vector<uint32_t> autocorrelationModulo(const std::vector<int64_t>& sequence,
                                            size_t transformSize) {
  std::vector<uint32_t> values(transformSize, 0);
  for (size_t i = 0; i < sequence.size(); ++i) {
    const int64_t residue = sequence[i] % static_cast<int64_t>(Prime);
    values[i] = static_cast<uint32_t>(residue < 0 ? residue + Prime : residue);
  }
  transform<Prime>(values, false);
  std::vector<uint32_t> product(transformSize);
  for (size_t k = 0; k < transformSize; ++k) {
    product[k] = multiply<Prime>(values[k], values[(transformSize - k) & (transformSize - 1)]);
  }
  values = {};
  transform<Prime>(product, true);
  product.resize(sequence.size());
  return product;
}

}  // namespace

std::optional<std::vector<__int128>> VDExactAutocorrelation::of(
    const std::vector<int64_t>& sequence) {
  const size_t count = sequence.size();
  unsigned __int128 largestMagnitude = 0;
  for (const int64_t value : sequence) {
    const unsigned __int128 magnitude =
        value < 0 ? -static_cast<__int128>(value) : static_cast<__int128>(value);
    largestMagnitude = magnitude > largestMagnitude ? magnitude : largestMagnitude;
  }
  size_t transformSize = 1;
  while (transformSize < 2 * count) {
    transformSize <<= 1;
  }
  const unsigned __int128 limit = static_cast<unsigned __int128>(1) << 84;
  if (transformSize > kLargestTransform || largestMagnitude >= (uint64_t{1} << 42) ||
      count * largestMagnitude * largestMagnitude >= limit) {
    return std::nullopt;
  }
  const std::vector<uint32_t> residues1 = autocorrelationModulo<kPrime1>(sequence, transformSize);
  const std::vector<uint32_t> residues2 = autocorrelationModulo<kPrime2>(sequence, transformSize);
  const std::vector<uint32_t> residues3 = autocorrelationModulo<kPrime3>(sequence, transformSize);
  // Garner: c = x1 + p1 x2 + p1 p2 x3 with 0 <= xk < pk, then into the signed range.
  const uint32_t inverse1Modulo2 = inverse<kPrime2>(kPrime1 % kPrime2);
  const uint32_t inverse12Modulo3 =
      inverse<kPrime3>(multiply<kPrime3>(kPrime1 % kPrime3, kPrime2 % kPrime3));
  const auto product12 = static_cast<unsigned __int128>(kPrime1) * kPrime2;
  const unsigned __int128 modulus = product12 * kPrime3;
  std::vector<__int128> correlation(count);
  for (size_t lag = 0; lag < count; ++lag) {
    const uint32_t x1 = residues1[lag];
    const uint32_t x2 =
        multiply<kPrime2>((residues2[lag] + kPrime2 - x1 % kPrime2) % kPrime2, inverse1Modulo2);
    const uint64_t partial = (x1 + static_cast<uint64_t>(kPrime1) * x2) % kPrime3;
    const uint32_t x3 = multiply<kPrime3>(
        static_cast<uint32_t>((residues3[lag] + kPrime3 - partial) % kPrime3), inverse12Modulo3);
    const unsigned __int128 value =
        x1 + static_cast<unsigned __int128>(kPrime1) * x2 + product12 * x3;
    correlation[lag] = value >= modulus / 2 ? static_cast<__int128>(value - modulus)
                                            : static_cast<__int128>(value);
  }
  return correlation;
}
