#include "VDWindowCorrelation.h"

#include <algorithm>
#include <cmath>

#include "VDAudioTracking.h"
#include "VDCorrelationPeak.h"
#include "VDFFTCorrelator.h"
#include "VDLagSearch.h"
#include "VDPeakRefinement.h"

namespace {

constexpr int64_t kKernelHalfLength = VDResamplingKernel::kHalfLength;
constexpr double kMinimumPeakCorrelation = VDLagSearch::kMinimumPeakCorrelation;
// Samples either side of the prediction the whitened view looks at once the drift is known.
constexpr int64_t kWhitenedRadius = 4;

}  // namespace

VDWindowCorrelation::VDWindowCorrelation(const float* channelA, const float* channelB,
                                         int64_t length, int64_t correlationLength,
                                         int64_t upscaleFactor,
                                         VDAudioTimeErrorCalculator::CorrelationType type)
    : _channelA(channelA),
      _channelB(channelB),
      _length(length),
      _correlationLength(correlationLength),
      _upscaleFactor(upscaleFactor),
      _correlationType(type) {}

int64_t VDWindowCorrelation::nonZeroCount(const float* samples, int64_t length, int64_t from,
                                          int64_t count) {
  const int64_t begin = std::max<int64_t>(from, 0);
  const int64_t end = std::min(from + count, length);
  int64_t nonZero = 0;
  for (int64_t i = begin; i < end; ++i) {
    nonZero += samples[i] != 0.0f ? 1 : 0;
  }
  return nonZero;
}

VDWindowCorrelation::Status VDWindowCorrelation::correlate(int64_t start, double predicted,
                                                           double polarity,
                                                           VDAudioTracking& tracking,
                                                           VDWindowPeak& peak,
                                                           bool whitened) const {
  const int64_t windowLength = _correlationLength;
  const double halfWindow = static_cast<double>(windowLength - 1) / 2.0;
  peak = VDWindowPeak{};
  // The part [validBegin, validEnd) of the window whose partners at every kept offset, and the
  // interpolator's reach around them, lie inside both recordings. Summing over that part alone
  // keeps the correlation from tapering where a sliding channel runs off the end of its
  // recording, which would pull the peak towards the side that still has samples.
  const double bStart = static_cast<double>(start) + predicted;
  const double reach = static_cast<double>(kLagMargin + kKernelHalfLength + 1) +
                       std::ceil(std::fabs(tracking.drift) * (windowLength + 2 * kLagMargin));
  const double lengthB = static_cast<double>(_length);
  const double validBegin =
      std::max({0.0, std::ceil(reach - bStart), static_cast<double>(kLagMargin - start)});
  const double validEnd =
      std::min({static_cast<double>(windowLength), std::floor(lengthB - bStart - reach),
                static_cast<double>(_length - start - kLagMargin)});
  if (!(2.0 * (validEnd - validBegin) >= static_cast<double>(windowLength))) {
    return Status::Outside;
  }
  tracking.validBegin = static_cast<int64_t>(validBegin);
  tracking.validEnd = static_cast<int64_t>(validEnd);
  const int64_t validCount = tracking.validEnd - tracking.validBegin;
  // B's matching stretch must hold signal over most of the window too.
  const int64_t wholeDelay = static_cast<int64_t>(std::floor(predicted));
  if (4 * nonZeroCount(_channelB, _length, start + wholeDelay + tracking.validBegin, validCount) <
      windowLength) {
    return Status::Silent;
  }

  const double whole = std::floor(predicted);
  const int64_t extendedLength = windowLength + 2 * kLagMargin;
  VDResamplingKernel::copyWarped(_channelB, _length,
                                 start + static_cast<int64_t>(whole) - kLagMargin,
                                 predicted - whole, extendedLength, tracking.drift,
                                 kLagMargin + halfWindow, tracking.rawB, tracking.warpedB.data());
  if (polarity < 0.0) {
    for (double& value : tracking.warpedB) {
      value = -value;
    }
  }
  VDFFTCorrelator& forward = *tracking.forwardCorrelator;
  VDFFTCorrelator& backward = *tracking.backwardCorrelator;
  std::fill(forward.reference(), forward.reference() + windowLength, 0.0);
  VDResamplingKernel::copyZeroExtended(_channelA, _length, start + tracking.validBegin, validCount,
                                       forward.reference() + tracking.validBegin);
  std::copy(tracking.warpedB.begin(), tracking.warpedB.end(), forward.other());
  std::fill(backward.reference(), backward.reference() + windowLength, 0.0);
  std::copy(tracking.warpedB.begin() + kLagMargin + tracking.validBegin,
            tracking.warpedB.begin() + kLagMargin + tracking.validEnd,
            backward.reference() + tracking.validBegin);
  VDResamplingKernel::copyZeroExtended(_channelA, _length, start - kLagMargin, extendedLength,
                                       backward.other());
  const double* forwardResult = whitened ? forward.correlateWhitened() : forward.correlate();
  const double* backwardResult = whitened ? backward.correlateWhitened() : backward.correlate();
  for (int64_t offset = -kLagMargin; offset <= kLagMargin; ++offset) {
    tracking.correlation[kLagMargin + offset] =
        forwardResult[kLagMargin + offset] + backwardResult[kLagMargin - offset];
  }
  // Once the windows place the delay, the whitened view looks only near the prediction: a
  // reflection's peak further off is no rival to the delay followed.
  const int64_t radius = tracking.periodic && tracking.windowMeasured() ? kPeriodicRadius
                         : whitened && tracking.driftKnown()            ? kWhitenedRadius
                                                                        : kTrackingRadius;
  const VDCorrelationPeak judged(tracking.correlation.data() + kLagMargin - radius, radius);
  const int64_t best = judged.best();
  peak.offset = best;
  peak.ratio = judged.ratio();
  peak.clear = judged.clear();
  peak.onEdge = judged.onEdge();
  double energyA = 0.0, energyB = 0.0, product = 0.0;
  for (int64_t n = tracking.validBegin; n < tracking.validEnd; ++n) {
    const double a = _channelA[start + n];
    const double b = tracking.warpedB[kLagMargin + best + n];
    energyA += a * a;
    energyB += b * b;
    product += a * b;
  }
  if (!(energyB > 0.0 && energyA > 0.0)) {
    return Status::Silent;
  }
  // The whitened view's values are no correlations: the plain one at its peak stands in.
  peak.correlation =
      (whitened ? product : forwardResult[kLagMargin + best]) / std::sqrt(energyA * energyB);
  // The signal-to-noise ratio shows in the correlation at the true peak, which may lie up to half
  // a sample from the whole-sample one.
  peak.uncertainty = VDCorrelationPeak::delayUncertainty(
      judged.curvature(), peak.correlation * judged.peakGain(), validCount);
  // Followed without a line, a window must show the tone clearly: unrelated noise in the other
  // channel scores below half, a tone even at 10 dB SNR near one.
  const double floor = tracking.periodic ? kPeriodicPeakCorrelation
                       : whitened        ? kMinimumWhitenedCorrelation
                                         : kMinimumPeakCorrelation;
  if (!(peak.correlation >= floor)) {
    return Status::Weak;
  }
  if (peak.onEdge) {
    return Status::Lost;
  }
  return Status::Used;
}

double VDWindowCorrelation::refinedOffset(int64_t start, int64_t peakOffset,
                                          VDAudioTracking& tracking) const {
  const auto at = [&](int64_t offset) { return tracking.correlation[kLagMargin + offset]; };
  switch (_correlationType) {
    case VDAudioTimeErrorCalculator::kQuick:
      return static_cast<double>(peakOffset) +
             VDPeakRefinement::parabolicOffset(at(peakOffset - 1), at(peakOffset),
                                               at(peakOffset + 1));
    case VDAudioTimeErrorCalculator::kResampler:
      return static_cast<double>(peakOffset) + resampledPeakOffset(start, peakOffset, tracking);
    case VDAudioTimeErrorCalculator::kPostResampler:
      break;
  }
  // The correlation is as band-limited as the signal, so the interpolator rebuilds it between
  // the offsets; the offsets within its reach are all inside the kept margin.
  const int64_t upscale = _upscaleFactor;
  const auto interpolated = [&](int64_t step) {
    const double x = static_cast<double>(step) / static_cast<double>(upscale);
    const double whole = std::floor(x);
    return VDResamplingKernel::interpolatedValue(
        tracking.correlation.data() + kLagMargin + peakOffset + static_cast<int64_t>(whole),
        x - whole);
  };
  return static_cast<double>(peakOffset) + VDPeakRefinement::gridPeakOffset(upscale, interpolated);
}

double VDWindowCorrelation::resampledPeakOffset(int64_t start, int64_t peakOffset,
                                                VDAudioTracking& tracking) const {
  // Upsampled: channel A from the recording itself, so its window edges see their real
  // neighbours, and B from the drift-following copy the window was correlated with; each over
  // its window plus the stretch the other window meets one sample either side of the peak.
  const int64_t upscale = _upscaleFactor;
  const int64_t windowLength = _correlationLength;
  const int64_t firstA = std::min<int64_t>(0, -peakOffset - 1);
  const int64_t countA = std::max(windowLength, windowLength - peakOffset + 1) - firstA;
  const int64_t firstB = std::min<int64_t>(0, peakOffset - 1);
  const int64_t countB = std::max(windowLength, windowLength + peakOffset + 1) - firstB;
  tracking.extendedA.resize(static_cast<size_t>(countA + 2 * kKernelHalfLength));
  tracking.phasesA.resize(static_cast<size_t>(upscale * countA));
  tracking.phasesB.resize(static_cast<size_t>(upscale * countB));
  VDResamplingKernel::copyZeroExtended(_channelA, _length, start + firstA - kKernelHalfLength + 1,
                                       countA + 2 * kKernelHalfLength - 1,
                                       tracking.extendedA.data());
  VDResamplingKernel::upsample(tracking.extendedA.data() + kKernelHalfLength - 1, countA, upscale,
                               tracking.taps, tracking.phasesA.data());
  VDResamplingKernel::upsample(tracking.warpedB.data() + kLagMargin + firstB, countB, upscale,
                               tracking.taps, tracking.phasesB.data());

  // The symmetric correlation at offset peakOffset + step/upscale, phase by phase: A's fine
  // samples against B's shifted by the offset, plus B's against A's shifted back by it.
  const double* phasesA = tracking.phasesA.data();
  const double* phasesB = tracking.phasesB.data();
  const int64_t validBegin = tracking.validBegin;
  const int64_t validCount = tracking.validEnd - tracking.validBegin;
  const auto phaseOf = [upscale](int64_t fine, int64_t& carry) {
    carry = fine >= 0 ? fine / upscale : -((-fine + upscale - 1) / upscale);
    return fine - carry * upscale;
  };
  const auto correlation = [&](int64_t step) {
    double sum = 0.0;
    int64_t carry = 0;
    for (int64_t phase = 0; phase < upscale; ++phase) {
      const int64_t forwardPhase = phaseOf(phase + step, carry);
      sum += VDPeakRefinement::dotProduct(
          phasesA + phase * countA - firstA + validBegin,
          phasesB + forwardPhase * countB + peakOffset + carry - firstB + validBegin, validCount);
      const int64_t backwardPhase = phaseOf(phase - step, carry);
      sum += VDPeakRefinement::dotProduct(
          phasesB + phase * countB - firstB + validBegin,
          phasesA + backwardPhase * countA - peakOffset + carry - firstA + validBegin, validCount);
    }
    return sum;
  };
  return VDPeakRefinement::gridPeakOffset(upscale, correlation);
}
