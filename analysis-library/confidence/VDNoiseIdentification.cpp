#include "VDNoiseIdentification.h"

#include <algorithm>
#include <cmath>

#include "VDPhaseData.h"

namespace {

constexpr int64_t kBiasRatioPoints = 4;  // B1 needs at least three averaged frequencies

// Lag-1 autocorrelation r1 = sum (a_i - mean)(a_i+1 - mean) / sum (a_i - mean)^2 of one
// series, accumulated point by point; a series without variation has r1 = 0.
struct LagOneSums {
  double mean = 0;
  double squares = 0;
  double products = 0;
  double previous = 0;
  bool started = false;

  void add(double value) {
    const double centred = value - mean;
    squares += centred * centred;
    if (started) {
      products += previous * centred;
    }
    previous = centred;
    started = true;
  }
  double autocorrelation() const { return squares > 0 ? products / squares : 0.0; }
};

// The expected B1 ratio of n averaged frequencies for sigma_y^2 ~ tau^mu (D. W. Allan's bias
// function, NIST SP 1065 eq. 70): n (1 - n^mu) / (2 (n-1) (1 - 2^mu)), with its limit at mu = 0.
double expectedBiasRatio(double n, int mu) {
  if (mu == 0) {
    return n * std::log(n) / (2 * (n - 1) * std::log(2.0));
  }
  return n * (1 - std::pow(n, mu)) / (2 * (n - 1) * (1 - std::pow(2.0, mu)));
}

}  // namespace

VDNoiseIdentification::VDNoiseIdentification(const std::vector<int64_t>& errors) {
  const std::vector<int64_t> phase = VDPhaseData::withoutDrift(errors);
  _phase.assign(phase.begin(), phase.end());
  _prefixSums = VDPhaseData::prefixSums(phase);
  const auto count = static_cast<int64_t>(errors.size());
  if (count >= kBiasRatioPoints) {
    // The longest window whose decimated series has four points.
    const int64_t window = (count - 1) / (kBiasRatioPoints - 1);
    _alphaOfLongWindows = alphaAtWindow(window);
  }
}

int VDNoiseIdentification::alphaAtWindow(int64_t window) const {
  const auto count = static_cast<int64_t>(_phase.size());
  if (window < 1 || count < 1) {
    return _alphaOfLongWindows;
  }
  const int64_t points = (count - 1) / window + 1;
  if (points >= kLagOnePoints) {
    return lagOneAlpha(window, points);
  }
  if (points >= kBiasRatioPoints) {
    return biasRatioAlpha(window, points);
  }
  return _alphaOfLongWindows;
}

int VDNoiseIdentification::lagOneAlpha(int64_t window, int64_t points) const {
  const double* phase = _phase.data();
  const auto at = [&](int64_t k) { return phase[k * window]; };
  // The means of the series and of its first and second differences; the latter two telescope.
  double sum = 0;
  for (int64_t k = 0; k < points; ++k) {
    sum += at(k);
  }
  LagOneSums orders[3];
  orders[0].mean = sum / static_cast<double>(points);
  orders[1].mean = (at(points - 1) - at(0)) / static_cast<double>(points - 1);
  orders[2].mean =
      (at(points - 1) - at(points - 2) - at(1) + at(0)) / static_cast<double>(points - 2);
  // One sweep accumulates all three differencing depths.
  double previous = 0;
  double previousDifference = 0;
  for (int64_t k = 0; k < points; ++k) {
    const double value = at(k);
    orders[0].add(value);
    if (k >= 1) {
      const double difference = value - previous;
      orders[1].add(difference);
      if (k >= 2) {
        orders[2].add(difference - previousDifference);
      }
      previousDifference = difference;
    }
    previous = value;
  }
  constexpr int kDeepest = 2;  // enough for random-walk FM in phase data
  for (int depth = 0;; ++depth) {
    const double r1 = orders[depth].autocorrelation();
    const double delta = r1 / (1 + r1);
    if (delta < 0.25 || depth == kDeepest) {
      const int alpha = 2 - 2 * depth - static_cast<int>(std::lround(2 * delta));
      return std::clamp(alpha, -2, 2);
    }
  }
}

int VDNoiseIdentification::biasRatioAlpha(int64_t window, int64_t points) const {
  // The frequencies averaged over consecutive windows, in ns per sample (the scale cancels). A
  // shorter last average over the samples left over joins them when it spans at least half a
  // window, so few-point windows use nearly all the data; a shorter one would be too noisy.
  const auto count = static_cast<int64_t>(_phase.size());
  std::vector<double> frequencies;
  frequencies.reserve(static_cast<size_t>(points));
  for (int64_t k = 0; k + 1 < points; ++k) {
    frequencies.push_back((_phase[(k + 1) * window] - _phase[k * window]) / window);
  }
  const int64_t leftOver = count - 1 - (points - 1) * window;
  if (2 * leftOver >= window) {
    frequencies.push_back((_phase[count - 1] - _phase[(points - 1) * window]) / leftOver);
  }
  double sum = 0;
  for (const double frequency : frequencies) {
    sum += frequency;
  }
  const auto n = static_cast<double>(frequencies.size());
  const double mean = sum / n;
  double deviations = 0;
  for (const double frequency : frequencies) {
    deviations += (frequency - mean) * (frequency - mean);
  }
  const double standardVariance = deviations / (n - 1);
  // The overlapping Allan variance (the estimate ADEV reports), from 16 evenly spaced starts per
  // window: nearly all of its precision at O(N/m) cost.
  const SquareSum steps = secondDifferenceSquares(window, (window + 15) / 16);
  const double allanVariance =
      steps.sum / (2.0 * static_cast<double>(steps.terms) * static_cast<double>(window) *
                   static_cast<double>(window));
  if (!(allanVariance > 0)) {
    return 2;
  }
  const double ratio = standardVariance / allanVariance;
  // mu = -2 (white or flicker PM), -1 (white FM), 0 (flicker FM), 1 (random-walk FM); the
  // boundaries lie at the geometric means of neighbouring expected values.
  const int mus[] = {-2, -1, 0, 1};
  int chosen = 3;
  for (int i = 0; i < 3; ++i) {
    const double boundary =
        std::sqrt(expectedBiasRatio(n, mus[i]) * expectedBiasRatio(n, mus[i + 1]));
    if (ratio < boundary) {
      chosen = i;
      break;
    }
  }
  if (chosen == 0) {
    return whiteOrFlickerPhase(window);
  }
  return 1 - chosen;  // mu -1, 0, 1 is alpha 0, -1, -2
}

VDNoiseIdentification::SquareSum VDNoiseIdentification::secondDifferenceSquares(
    int64_t window, int64_t stride) const {
  const auto count = static_cast<int64_t>(_phase.size());
  SquareSum result;
  for (int64_t i = 0; i + 2 * window < count; i += stride) {
    const double second = _phase[i + 2 * window] - 2 * _phase[i + window] + _phase[i];
    result.sum += second * second;
    ++result.terms;
  }
  return result;
}

int VDNoiseIdentification::whiteOrFlickerPhase(int64_t window) const {
  // R(n) = Mod sigma^2 / sigma^2 at this window, both from non-overlapping terms: the inner sums
  // of the modified variance are third differences of the prefix sums.
  const auto count = static_cast<int64_t>(_phase.size());
  double modified = 0;
  int64_t modifiedTerms = 0;
  for (int64_t j = 0; j + 3 * window <= count; j += window) {
    const auto inner = static_cast<int64_t>(static_cast<uint64_t>(_prefixSums[j + 3 * window]) -
                                            3 * static_cast<uint64_t>(_prefixSums[j + 2 * window]) +
                                            3 * static_cast<uint64_t>(_prefixSums[j + window]) -
                                            static_cast<uint64_t>(_prefixSums[j]));
    const double average = static_cast<double>(inner) / static_cast<double>(window);
    modified += average * average;
    ++modifiedTerms;
  }
  const SquareSum allan = secondDifferenceSquares(window, window);
  if (modifiedTerms == 0 || !(allan.sum > 0)) {
    return 2;
  }
  const double ratio = (modified / static_cast<double>(modifiedTerms)) /
                       (allan.sum / static_cast<double>(allan.terms));
  // Expected R(n): 1/m for white PM; for flicker PM with the bandwidth at the Nyquist
  // frequency, 3 ln(256/27) / (2 (1.038 + 3 ln(pi m))) (NIST SP 1065, sec. 5.2.3 and table 4).
  const auto m = static_cast<double>(window);
  const double white = 1.0 / m;
  const double flicker =
      3.0 * std::log(256.0 / 27.0) / (2.0 * (1.038 + 3.0 * std::log(std::acos(-1.0) * m)));
  return ratio < std::sqrt(white * flicker) ? 2 : 1;
}
