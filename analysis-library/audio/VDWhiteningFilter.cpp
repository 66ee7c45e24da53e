#include "VDWhiteningFilter.h"

#include <algorithm>

namespace {

// At most this many samples, in blocks of kBlock, enter the autocorrelation.
constexpr int64_t kMostSamples = int64_t{1} << 21;
constexpr int64_t kBlock = 4096;

}  // namespace

VDWhiteningFilter::VDWhiteningFilter(const float* samples, int64_t count, int order) {
  std::vector<double> r(static_cast<size_t>(order + 1), 0.0);
  const int64_t blocks = std::max<int64_t>(1, count / kBlock);
  const int64_t step = std::max<int64_t>(1, blocks / std::max<int64_t>(1, kMostSamples / kBlock));
  for (int64_t block = 0; block < blocks; block += step) {
    const int64_t begin = block * kBlock;
    const int64_t end = std::min(count, begin + kBlock);
    for (int lag = 0; lag <= order; ++lag) {
      double sum = 0.0;
      for (int64_t n = begin + lag; n < end; ++n) {
        sum += static_cast<double>(samples[n]) * samples[n - lag];
      }
      r[lag] += sum;
    }
  }
  _taps.assign(static_cast<size_t>(order + 1), 0.0);
  _taps[0] = 1.0;
  // A hair of white noise keeps the recursion stable on a pure tone or digital silence.
  double error = r[0] * (1.0 + 1e-6);
  for (int i = 1; i <= order && error > 0.0; ++i) {
    double acc = r[i];
    for (int j = 1; j < i; ++j) {
      acc += _taps[j] * r[i - j];
    }
    const double reflection = -acc / error;
    const std::vector<double> previous(_taps);
    for (int j = 1; j < i; ++j) {
      _taps[j] = previous[j] + reflection * previous[i - j];
    }
    _taps[i] = reflection;
    error *= 1.0 - reflection * reflection;
  }
}

void VDWhiteningFilter::apply(std::vector<float>& samples) const {
  const auto order = static_cast<int64_t>(_taps.size()) - 1;
  for (auto n = static_cast<int64_t>(samples.size()) - 1; n >= 0; --n) {
    double sum = 0.0;
    for (int64_t j = 0; j <= order && j <= n; ++j) {
      sum += _taps[j] * samples[n - j];
    }
    samples[n] = static_cast<float>(sum);
  }
}
