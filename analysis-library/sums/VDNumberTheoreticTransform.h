#pragma once

#include <algorithm>
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
  // Primes of the form k 2^s + 1 below 2^31 (the butterflies' reductions need 2p < 2^32): each
  // has roots of unity of every power of two up to 2^26, so sequences of up to 2^25 values (a
  // year of 1 PPS) are autocorrelated exactly by one transform, and up to 2^26 by transforms of
  // parts (VDPrefixCorrelation). The largest such primes, for the widest sums.
  static constexpr uint32_t kPrime1 = 2013265921;  // 15 * 2^27 + 1, primitive root 31
  static constexpr uint32_t kPrime2 = 1811939329;  // 27 * 2^26 + 1, primitive root 13
  static constexpr uint32_t kPrime3 = 469762049;   // 7 * 2^26 + 1, primitive root 3
  static constexpr size_t kLargestTransform = size_t{1} << 26;
  // Integers whose magnitude stays below this (half the product of the primes is about 2^89.5)
  // are recovered from their residues.
  static constexpr unsigned __int128 kLargestMagnitude = static_cast<unsigned __int128>(1) << 89;

  // A primitive root of each prime: its powers make the roots of unity.
  template <uint32_t Prime>
  static constexpr uint32_t primitiveRoot() {
    if constexpr (Prime == kPrime1) {
      return 31;
    } else if constexpr (Prime == kPrime2) {
      return 13;
    } else {
      return 3;
    }
  }

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

  // A Plan transforms sequences of one power-of-two length modulo Prime (iterative
  // Cooley-Tukey, decimation in time). Its twiddle factors are made once, each with the
  // quotient that lets a product be reduced by multiplications alone (Shoup's method), so the
  // butterflies vectorise.
  template <uint32_t Prime>
  class Plan {
   public:
    explicit Plan(size_t size) : _size(size), _twiddles(size), _quotients(size) {
      // The factors of the stage with half-length h are at h .. 2h-1: root_2h^k. The last
      // stage's are powers of its root; every earlier stage takes every second one of the next.
      const size_t half = size / 2;
      if (half == 0) {
        return;
      }
      const uint32_t root = power<Prime>(primitiveRoot<Prime>(), (Prime - 1) / size);
      _twiddles[half] = 1;
      for (size_t k = 1; k < half; ++k) {
        _twiddles[half + k] = multiply<Prime>(_twiddles[half + k - 1], root);
      }
      for (size_t h = half / 2; h >= 1; h /= 2) {
        for (size_t k = 0; k < h; ++k) {
          _twiddles[h + k] = _twiddles[2 * h + 2 * k];
        }
      }
      for (size_t k = 1; k < size; ++k) {
        _quotients[k] = static_cast<uint32_t>((static_cast<uint64_t>(_twiddles[k]) << 32) / Prime);
      }
    }

    // values.size() must be the plan's size.
    void forward(std::vector<uint32_t>& values) const { forward(values.data(), _size); }

    // The inverse, with the division by the length: the forward transform read backwards.
    void inverse(std::vector<uint32_t>& values) const { inverse(values.data(), _size); }

    // The transforms of any power-of-two length up to the plan's: a stage's factors do not
    // depend on the length, so a plan holds those of every shorter one.
    void forward(uint32_t* values, size_t size) const {
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
      forwardOfScrambled(values, size);
    }

    void inverse(uint32_t* values, size_t size) const {
      forward(values, size);
      std::reverse(values + 1, values + size);
      const uint32_t scale =
          VDNumberTheoreticTransform::inverse<Prime>(static_cast<uint32_t>(size % Prime));
      for (size_t k = 0; k < size; ++k) {
        values[k] = multiply<Prime>(values[k], scale);
      }
    }

    size_t size() const { return _size; }

    // For convolutions, where only products of transforms are taken, two transforms that skip
    // the reordering (an index's bits reversed) and run in stretches that stay in cache:
    // scrambledForward leaves the transform in bit-reversed order (decimation in frequency);
    // forwardOfScrambled takes a sequence in bit-reversed order and gives the transform of the
    // sequence in natural order (decimation in time). So forwardOfScrambled(X Y), for X and Y
    // from scrambledForward, is size times the cyclic convolution at negated index: entry
    // (size - n) mod size for n.
    void scrambledForward(uint32_t* values, size_t size) const {
      const size_t local = std::min(size, kLocalStages);
      for (size_t half = size / 2; half >= local; half /= 2) {
        frequencyStage(values, size, half, _twiddles.data() + half, _quotients.data() + half,
                       Prime);
      }
      for (size_t start = 0; start < size; start += local) {
        for (size_t half = local / 2; half >= 1; half /= 2) {
          frequencyStage(values + start, local, half, _twiddles.data() + half,
                         _quotients.data() + half, Prime);
        }
      }
    }

    void forwardOfScrambled(uint32_t* values, size_t size) const {
      const size_t local = std::min(size, kLocalStages);
      for (size_t start = 0; start < size; start += local) {
        for (size_t half = 1; half < local; half *= 2) {
          timeStage(values + start, local, half, _twiddles.data() + half,
                    _quotients.data() + half, Prime);
        }
      }
      for (size_t half = local; half < size; half *= 2) {
        timeStage(values, size, half, _twiddles.data() + half, _quotients.data() + half, Prime);
      }
    }

   private:
    size_t _size;
    std::vector<uint32_t> _twiddles;
    std::vector<uint32_t> _quotients;
  };

  // Values a transform's stages take in cache-sized stretches once their blocks fit (128 KB).
  static constexpr size_t kLocalStages = size_t{1} << 15;

  // One stage over every block of 2 half values of size, modulo prime < 2^31 (one function for
  // every prime, built for several instruction sets), with w_k = twiddles[k] and its Shoup
  // quotient: low[k], high[k] = low[k] +- high[k] w_k (decimation in time), or
  // low[k] + high[k], (low[k] - high[k]) w_k (decimation in frequency); high = low + half.
  static void timeStage(uint32_t* values, size_t size, size_t half, const uint32_t* twiddles,
                        const uint32_t* quotients, uint32_t prime);
  static void frequencyStage(uint32_t* values, size_t size, size_t half, const uint32_t* twiddles,
                             const uint32_t* quotients, uint32_t prime);

  // y[k] = x[k] y[k] modulo prime, for residues below prime < 2^31; vectorised.
  static void multiplyResidues(uint32_t* y, const uint32_t* x, size_t count, uint32_t prime);

  // The integer of magnitude below kLargestMagnitude with these residues (Garner's method).
  static __int128 fromResidues(uint32_t residue1, uint32_t residue2, uint32_t residue3) {
    static const uint32_t inverse1Modulo2 = inverse<kPrime2>(kPrime1 % kPrime2);
    static const uint32_t inverse12Modulo3 =
        inverse<kPrime3>(multiply<kPrime3>(kPrime1 % kPrime3, kPrime2 % kPrime3));
    constexpr auto product12 = static_cast<unsigned __int128>(kPrime1) * kPrime2;
    constexpr unsigned __int128 modulus = product12 * kPrime3;
    const uint32_t x2 =
        multiply<kPrime2>((residue2 + kPrime2 - residue1 % kPrime2) % kPrime2, inverse1Modulo2);
    const uint64_t partial = (residue1 + static_cast<uint64_t>(kPrime1) * x2) % kPrime3;
    const uint32_t x3 = multiply<kPrime3>(
        static_cast<uint32_t>((residue3 + kPrime3 - partial) % kPrime3), inverse12Modulo3);
    const unsigned __int128 value =
        residue1 + static_cast<unsigned __int128>(kPrime1) * x2 + product12 * x3;
    return value >= modulus / 2 ? static_cast<__int128>(value - modulus)
                                : static_cast<__int128>(value);
  }
};
