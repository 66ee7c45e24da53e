#include "VDNumberTheoreticTransform.h"

#define VD_CLONES __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))

namespace {

#define VD_INLINE inline __attribute__((always_inline))

// v w mod prime for v < 2^32: the quotient's estimate is short by at most one prime.
VD_INLINE uint32_t multiplyByTwiddle(uint32_t v, uint32_t twiddle, uint32_t quotient,
                                     uint32_t prime) {
  const auto estimate = static_cast<uint32_t>((static_cast<uint64_t>(v) * quotient) >> 32);
  const uint32_t product = v * twiddle - estimate * prime;
  return product >= prime ? product - prime : product;
}

VD_INLINE void timeButterflies(uint32_t* low, size_t half, const uint32_t* twiddles,
                               const uint32_t* quotients, uint32_t prime) {
  uint32_t* high = low + half;
  for (size_t k = 0; k < half; ++k) {
    const uint32_t v = multiplyByTwiddle(high[k], twiddles[k], quotients[k], prime);
    const uint32_t u = low[k];
    low[k] = u + v >= prime ? u + v - prime : u + v;
    high[k] = u >= v ? u - v : u + prime - v;
  }
}

VD_INLINE void frequencyButterflies(uint32_t* low, size_t half, const uint32_t* twiddles,
                                    const uint32_t* quotients, uint32_t prime) {
  uint32_t* high = low + half;
  for (size_t k = 0; k < half; ++k) {
    const uint32_t u = low[k];
    const uint32_t v = high[k];
    low[k] = u + v >= prime ? u + v - prime : u + v;
    // u - v + prime < 2 prime < 2^32.
    high[k] = multiplyByTwiddle(u - v + prime, twiddles[k], quotients[k], prime);
  }
}

// The stages of halves 1 to 8 as loops of a fixed length, which the compiler unrolls.
template <size_t Half, bool InTime>
VD_INLINE void smallStage(uint32_t* values, size_t size, const uint32_t* twiddles,
                          const uint32_t* quotients, uint32_t prime) {
  for (size_t start = 0; start < size; start += 2 * Half) {
    if constexpr (InTime) {
      timeButterflies(values + start, Half, twiddles, quotients, prime);
    } else {
      frequencyButterflies(values + start, Half, twiddles, quotients, prime);
    }
  }
}

template <bool InTime>
VD_INLINE void stage(uint32_t* values, size_t size, size_t half, const uint32_t* twiddles,
                     const uint32_t* quotients, uint32_t prime) {
  switch (half) {
    case 1:
      smallStage<1, InTime>(values, size, twiddles, quotients, prime);
      return;
    case 2:
      smallStage<2, InTime>(values, size, twiddles, quotients, prime);
      return;
    case 4:
      smallStage<4, InTime>(values, size, twiddles, quotients, prime);
      return;
    case 8:
      smallStage<8, InTime>(values, size, twiddles, quotients, prime);
      return;
    default:
      for (size_t start = 0; start < size; start += 2 * half) {
        if constexpr (InTime) {
          timeButterflies(values + start, half, twiddles, quotients, prime);
        } else {
          frequencyButterflies(values + start, half, twiddles, quotients, prime);
        }
      }
  }
}

}  // namespace

VD_CLONES void VDNumberTheoreticTransform::timeStage(uint32_t* values, size_t size, size_t half,
                                                     const uint32_t* twiddles,
                                                     const uint32_t* quotients, uint32_t prime) {
  stage<true>(values, size, half, twiddles, quotients, prime);
}

VD_CLONES void VDNumberTheoreticTransform::frequencyStage(uint32_t* values, size_t size,
                                                          size_t half, const uint32_t* twiddles,
                                                          const uint32_t* quotients,
                                                          uint32_t prime) {
  stage<false>(values, size, half, twiddles, quotients, prime);
}

// y[k] = x[k] y[k] modulo prime for residues below prime < 2^31: the quotient from the product in
// doubles is off by at most one (the product's relative error is 2^-52), which the remainder's
// two corrections take back; every step vectorises, where a 64-bit division does not.
VD_CLONES void VDNumberTheoreticTransform::multiplyResidues(uint32_t* y, const uint32_t* x,
                                                            size_t count, uint32_t prime) {
  const double inversePrime = 1.0 / prime;
  for (size_t k = 0; k < count; ++k) {
    const uint64_t product = static_cast<uint64_t>(x[k]) * y[k];
    const auto quotient = static_cast<int32_t>(static_cast<double>(x[k]) *
                                               static_cast<double>(y[k]) * inversePrime);
    auto remainder = static_cast<int64_t>(product - static_cast<uint64_t>(quotient) * prime);
    remainder += remainder < 0 ? prime : 0;
    remainder -= remainder >= prime ? prime : 0;
    y[k] = static_cast<uint32_t>(remainder);
  }
}
