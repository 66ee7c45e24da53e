#include "VDCoarseOffsetSearch.h"

#include <algorithm>
#include <cmath>

#include "VDFFTCorrelator.h"

namespace {

// A millisecond per block; ten seconds per stretch, so that speech (syllables and pauses) and
// music (notes) give a loudness pattern of their own, at most half the recording, so that the
// stretch fits into B at offsets up to half the length.
constexpr double kBlockSeconds = 0.001;
constexpr double kStretchSeconds = 10.0;

}  // namespace

VDCoarseOffsetSearch::VDCoarseOffsetSearch(const float* channelA, const float* channelB,
                                           int64_t length, double samplingRate)
    : _channelA(channelA), _channelB(channelB) {
  _block = std::max<int64_t>(1, std::llround(kBlockSeconds * samplingRate));
  _blockCount = length / _block;
  _stretchBlocks = std::clamp<int64_t>(std::llround(kStretchSeconds * samplingRate) / _block, 1,
                                       std::max<int64_t>(1, _blockCount / 2));
}

VDCoarseOffsetSearch::~VDCoarseOffsetSearch() = default;

void VDCoarseOffsetSearch::computeEnvelopes() {
  const auto envelope = [this](const float* samples, double* out) {
    for (int64_t k = 0; k < _blockCount; ++k) {
      double sum = 0.0;
      const float* block = samples + k * _block;
      for (int64_t i = 0; i < _block; ++i) {
        sum += static_cast<double>(block[i]) * block[i];
      }
      out[k] = std::sqrt(sum / static_cast<double>(_block));
    }
  };
  _envelopeA.resize(static_cast<size_t>(_blockCount));
  envelope(_channelA, _envelopeA.data());
  // B's envelope is the correlator's other input for every search (the rest of it stays zero),
  // and the reference is zero beyond the stretch that each search writes.
  _correlator = std::make_unique<VDFFTCorrelator>(
      VDFFTCorrelator::fastSize(static_cast<size_t>(_blockCount + _stretchBlocks)));
  const double* envelopeB = _correlator->other();
  envelope(_channelB, _correlator->other());
  _prefixB.assign(static_cast<size_t>(_blockCount + 1), 0.0);
  _prefixSquaresB.assign(static_cast<size_t>(_blockCount + 1), 0.0);
  for (int64_t k = 0; k < _blockCount; ++k) {
    const double v = envelopeB[k];
    _prefixB[static_cast<size_t>(k + 1)] = _prefixB[static_cast<size_t>(k)] + v;
    _prefixSquaresB[static_cast<size_t>(k + 1)] = _prefixSquaresB[static_cast<size_t>(k)] + v * v;
  }
}

int64_t VDCoarseOffsetSearch::stretchStart(int64_t start) const {
  const int64_t first = std::clamp<int64_t>(start / _block, 0, _blockCount - _stretchBlocks);
  return std::max<int64_t>(0, first) * _block;
}

std::vector<int64_t> VDCoarseOffsetSearch::candidates(int64_t start, size_t maximumCount) {
  std::vector<int64_t> lags;
  if (_blockCount < 2) {
    return lags;
  }
  if (_correlator == nullptr) {
    computeEnvelopes();
  }
  const int64_t first = stretchStart(start) / _block;
  const int64_t count = _stretchBlocks;
  // A's stretch with its mean removed: its correlation with B's envelope is then the covariance,
  // whatever B's mean over the overlap.
  double mean = 0.0;
  for (int64_t k = 0; k < count; ++k) {
    mean += _envelopeA[static_cast<size_t>(first + k)];
  }
  mean /= static_cast<double>(count);
  double varianceA = 0.0;
  double* reference = _correlator->reference();
  for (int64_t k = 0; k < count; ++k) {
    reference[k] = _envelopeA[static_cast<size_t>(first + k)] - mean;
    varianceA += reference[k] * reference[k];
  }
  if (!(varianceA > 0.0)) {
    return lags;
  }
  const double* correlation = _correlator->correlate();

  // Correlation coefficient at every block position p of the stretch inside B (lag p - first).
  const int64_t positions = _blockCount - count + 1;
  std::vector<double> scores(static_cast<size_t>(positions), 0.0);
  for (int64_t p = 0; p < positions; ++p) {
    const double sum = _prefixB[static_cast<size_t>(p + count)] - _prefixB[static_cast<size_t>(p)];
    const double squares =
        _prefixSquaresB[static_cast<size_t>(p + count)] - _prefixSquaresB[static_cast<size_t>(p)];
    const double varianceB = squares - sum * sum / static_cast<double>(count);
    if (varianceB > 1e-12 * squares && varianceB > 0.0) {
      scores[static_cast<size_t>(p)] = correlation[p] / std::sqrt(varianceA * varianceB);
    }
  }
  // The highest local maxima, a few blocks apart from each other.
  std::vector<std::pair<double, int64_t>> peaks;
  for (int64_t p = 0; p < positions; ++p) {
    const double s = scores[static_cast<size_t>(p)];
    if (s >= kMinimumScore && (p == 0 || s >= scores[static_cast<size_t>(p - 1)]) &&
        (p + 1 == positions || s > scores[static_cast<size_t>(p + 1)])) {
      peaks.emplace_back(s, p);
    }
  }
  std::sort(peaks.begin(), peaks.end(), std::greater<>());
  for (const auto& [score, p] : peaks) {
    if (lags.size() >= maximumCount) {
      break;
    }
    lags.push_back((p - first) * _block);
  }
  return lags;
}
