#include "VDLagSearch.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include "VDAudioTracking.h"
#include "VDFFTCorrelator.h"
#include "VDResamplingKernel.h"

VDLagSearch::VDLagSearch(const float* channelA, const float* channelB, int64_t length)
    : _channelA(channelA), _channelB(channelB), _length(length) {}

std::optional<VDLagSearchHit> VDLagSearch::search(int64_t start, int64_t around, int64_t range,
                                                  double peakRatio,
                                                  VDAudioTracking& tracking) const {
  // Lags around - range .. around + range of B against a stretch of A from start.
  const int64_t stretch = std::min(tracking.searchLength, _length - start);
  if (stretch < 1 || range < 0) {
    return std::nullopt;
  }
  const int64_t otherLength = stretch + 2 * range;
  const size_t size =
      VDFFTCorrelator::fastSize(static_cast<size_t>(tracking.searchLength + 2 * range));
  std::unique_ptr<VDFFTCorrelator>& slot = tracking.searchCorrelators[size];
  if (slot == nullptr) {
    slot = std::make_unique<VDFFTCorrelator>(size);
  }
  VDFFTCorrelator& correlator = *slot;
  double* reference = correlator.reference();
  double* other = correlator.other();
  const int64_t otherStart = start + around - range;
  // Beyond the stretch the inputs must be zero; an earlier, longer search may have left samples.
  VDResamplingKernel::copyZeroExtended(_channelA, _length, start, stretch, reference);
  std::fill(reference + stretch, reference + correlator.size(), 0.0);
  VDResamplingKernel::copyZeroExtended(_channelB, _length, otherStart, otherLength, other);
  std::fill(other + otherLength, other + correlator.size(), 0.0);

  // Energies over any overlap, from running sums of the squares.
  std::vector<double>& prefixA = tracking.prefixA;
  std::vector<double>& prefixB = tracking.prefixB;
  prefixA.assign(static_cast<size_t>(stretch + 1), 0.0);
  prefixB.assign(static_cast<size_t>(otherLength + 1), 0.0);
  for (int64_t i = 0; i < stretch; ++i) {
    prefixA[i + 1] = prefixA[i] + reference[i] * reference[i];
  }
  for (int64_t i = 0; i < otherLength; ++i) {
    prefixB[i + 1] = prefixB[i] + other[i] * other[i];
  }

  const double* correlation = correlator.correlate();
  // Scored by magnitude: B upside down matches as well as upright.
  std::vector<double>& scores = tracking.scores;
  scores.assign(static_cast<size_t>(2 * range + 1), -std::numeric_limits<double>::infinity());
  double bestScore = -std::numeric_limits<double>::infinity();
  int64_t bestIndex = 0;
  for (int64_t index = 0; index <= 2 * range; ++index) {
    // Samples n of the stretch whose partner otherStart + index + n lies inside channel B.
    const int64_t bFirst = otherStart + index;
    const int64_t first = std::max<int64_t>(0, -bFirst);
    const int64_t last = std::min(stretch, _length - bFirst);
    if (last <= first || 2 * (last - first) < stretch) {
      continue;
    }
    const double energyA = prefixA[last] - prefixA[first];
    const double energyB = prefixB[last + index] - prefixB[first + index];
    if (!(energyA > 0.0 && energyB > 0.0)) {
      continue;
    }
    const double score = std::fabs(correlation[index]) / std::sqrt(energyA * energyB);
    scores[index] = score;
    if (score > bestScore) {
      bestScore = score;
      bestIndex = index;
    }
  }
  if (!(bestScore >= kMinimumPeakCorrelation)) {
    return std::nullopt;
  }
  // The peak must stand clear of every other: a signal that repeats itself (a held note, a
  // rhythm, a few steady tones) matches at several lags, and a wrong lag is worse than none.
  int64_t lobeBegin = bestIndex;
  int64_t lobeEnd = bestIndex;
  while (lobeBegin > 0 && scores[lobeBegin - 1] < scores[lobeBegin]) {
    --lobeBegin;
  }
  while (lobeEnd < 2 * range && scores[lobeEnd + 1] < scores[lobeEnd]) {
    ++lobeEnd;
  }
  double highestOther = 0.0;
  for (int64_t i = 0; i <= 2 * range; ++i) {
    if (i < lobeBegin || i > lobeEnd) {
      highestOther = std::max(highestOther, scores[i]);
    }
  }
  if (!(highestOther * peakRatio < bestScore)) {
    return std::nullopt;
  }
  VDLagSearchHit hit;
  hit.prominence =
      highestOther > 0.0 ? bestScore / highestOther : std::numeric_limits<double>::infinity();
  hit.lag = around - range + bestIndex;
  hit.polarity = correlation[bestIndex] < 0.0 ? -1.0 : 1.0;
  hit.centre = static_cast<double>(start) + static_cast<double>(stretch - 1) / 2.0;
  return hit;
}
