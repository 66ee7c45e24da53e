#include "VDNumberTheoreticTransform.h"

__attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default"))) void
VDNumberTheoreticTransform::butterflies(uint32_t* low, size_t half, const uint32_t* twiddles,
                                        const uint32_t* quotients, uint32_t prime) {
  uint32_t* high = low + half;
  for (size_t k = 0; k < half; ++k) {
    // v = high * w mod prime: the quotient's estimate is short by at most one prime.
    const auto estimate =
        static_cast<uint32_t>((static_cast<uint64_t>(high[k]) * quotients[k]) >> 32);
    uint32_t v = high[k] * twiddles[k] - estimate * prime;
    v = v >= prime ? v - prime : v;
    const uint32_t u = low[k];
    low[k] = u + v >= prime ? u + v - prime : u + v;
    high[k] = u >= v ? u - v : u + prime - v;
  }
}
