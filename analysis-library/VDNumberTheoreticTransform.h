#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

// VDNumberTheoreticTransform holds the modular arithmetic behind the exact sums of products:
// transforms modulo three primes, whose residues the Chinese remainder theorem joins into an
// integer. Sums of products of integers come out exact, where floating-point transforms round.
// The operations are templates on the prime, so every reduction is by a constant.
class VDNumberTheoreticTransform {
 public:
  // Primes of the form k 2^s + 1 with 3 a primitive root: each has roots of unity of every power
  // of two up to 2^23.
  static constexpr uint32_t kPrime1 = 998244353;  // 119 * 2^23 + 1
  static constexpr uint32_t kPrime2 = 167772161;  // 5 * 2^25 + 1
  static constexpr uint32_t kPrime3 = 469762049;  // 7 * 2^26 + 1
  static constexpr size_t kLargestTransform = size_t{1} << 23;
  // Integers whose magnitude stays below this (about 2^85, half the product of the primes) are
  // recovered from their residues.
  static constexpr unsigned __int128 kLargestMagnitude = static_cast<unsigned __int128>(1) << 84;

  template <uint32_t Prime>
  static uint32_t multiply(uint32_t a, uint32_t b) {
    return static_cast<uint32_t>(static_cast<uint64_t>(a) * b % Prime);
  }

  template <uint32_t Prime>
  static uint32_t power(uint32_t base, uint64_t exponent) {
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
  static uint32_t inverse(uint32_t value) {
    return power<Prime>(value, Prime - 2);
  }

  template <uint32_t Prime>
  static uint32_t residue(int64_t value) {
    const int64_t remainder = value % static_cast<int64_t>(Prime);
    return static_cast<uint32_t>(remainder < 0 ? remainder + Prime : remainder);
  }

  // In-place transform of a power-of-two length (iterative Cooley-Tukey, decimation in time);
  // the inverse includes the division by the length.
  template <uint32_t Prime>
  static void transform(std::vector<uint32_t>& values, bool inverted) {
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
    std::vector<uint32_t> twiddles(size / 2 + 1);
    for (size_t length = 2; length <= size; length <<= 1) {
      const size_t half = length / 2;
      uint32_t root = power<Prime>(3, (Prime - 1) / length);
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

  // The integer of magnitude below kLargestMagnitude with these residues (Garner's method).
  static __int128 fromResidues(uint32_t residue1, uint32_t residue2, uint32_t residue3) {
    static const uint32_t inverse1Modulo2 = inverse<kPrime2>(kPrime1 % kPrime2);
    static const uint32_t inverse12Modulo3 =
        inverse<kPrime3>(multiply<kPrime3>(kPrime1 % kPrime3, kPrime2 % kPrime3));
    constexpr auto product12 = static_cast<unsigned __int128>(kPrime1) * kPrime2;
    constexpr unsigned __int128 modulus = product12 * kPrime3;
    const uint32_t x2 = multiply<kPrime2>((residue2 + kPrime2 - residue1 % kPrime2) % kPrime2,
                                          inverse1Modulo2);
    const uint64_t partial = (residue1 + static_cast<uint64_t>(kPrime1) * x2) % kPrime3;
    const uint32_t x3 = multiply<kPrime3>(
        static_cast<uint32_t>((residue3 + kPrime3 - partial) % kPrime3), inverse12Modulo3);
    const unsigned __int128 value =
        residue1 + static_cast<unsigned __int128>(kPrime1) * x2 + product12 * x3;
    return value >= modulus / 2 ? static_cast<__int128>(value - modulus)
                                : static_cast<__int128>(value);
  }
};
