#include "VDAudioTimeErrorCalculator.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include "VDAudioTracking.h"
#include "VDAudioWindowExport.h"
#include "VDDelayAcquisition.h"
#include "VDDelayLine.h"
#include "VDFFTCorrelator.h"
#include "VDLagSearch.h"
#include "VDPeakRefinement.h"
#include "VDUncertaintyCalibration.h"
#include "VDWindowCorrelation.h"

namespace {

constexpr int64_t kTrackingRadius = VDWindowCorrelation::kTrackingRadius;
constexpr int64_t kLagMargin = VDWindowCorrelation::kLagMargin;

constexpr double kMinimumPeakCorrelation = VDLagSearch::kMinimumPeakCorrelation;
// A search for a step may settle for less, as two windows must then confirm what it found.
constexpr double kStepSearchPeakRatio = 1.15;
constexpr double kSearchStretchSeconds = 0.25;

constexpr double kPeakTolerance = VDDelayLine::kPeakTolerance;
constexpr double kMaximumDrift = VDDelayLine::kMaximumDrift;
// Only windows whose delay is known to 208 ns (a hundredth of a sample at 48 kHz), or no worse
// than the windows before them, move the drift line: a quiet syllable or a note fading into the
// noise scatters by microseconds. Once a line from the acquisition, from such windows or from a
// tone's phase places the peak, a noisier window still gets its value, with its uncertainty, up
// to 30 us; before, it gets none, as it might be a wrong match. Once every window is measured,
// VDUncertaintyCalibration judges the values against each other. The limits are times, not
// fractions of a sample, so that a recording at 96 kHz is held to the same.
constexpr double kLineUncertaintySeconds = 0.01 / 48000.0;
constexpr double kMaximumUncertaintySeconds = 30e-6;
// A window more uncertain than this many times the typical one of the windows before it does not
// move the line.
constexpr double kNoisierThanTypical = 2.0;
constexpr double kTypicalWeight = 0.1;  // of each new window in the running typical uncertainty
// A window with a value from a plain correlation below this, where a line places the delay, is
// measured on the whitened correlation too, and takes that value where it has one: a window
// correlating this weakly with noise of its own alone would be below 0 dB, where two rooms'
// reflections blur the plain peak at any level.
constexpr double kPlainTrustedCorrelation = 0.4;
// A track with more than this share of its recent values from the whitened view steps only onto
// the acquisition's lines.
constexpr double kWhitenedTrack = 0.25;
constexpr double kWhitenedShareWeight = 0.1;  // of each new value in the running share
// A window above this is measured once more, centred on its peak.
constexpr double kCentringUncertaintySeconds = 0.5e-6;

// The searches' schedule. A window that fails while a delay is followed searches
// +-kNearSearchSeconds around it (at once where A is loud or just after a measured window, else
// every kNearSearchSpacingSeconds), then +-kWideSearchSeconds (every kWideSearchSpacingSeconds,
// twice as long after each failure, at most kLongestRetrySeconds), and along the acquisition's
// other lines after kLineSearchAfterSeconds without a value. The two wider ones run where A is loud
// (kLoudOverQuiet times its quietest window's mean square, in a recording whose measured windows
// are kPausesBelowSignal times above that), or after kUnconditionalSearchSeconds without a
// value; pauses in speech cost no searches.
constexpr double kLongestRetrySeconds = 8.0;
constexpr double kNearSearchSeconds = 0.05;
constexpr double kNearSearchSpacingSeconds = 0.5;
constexpr double kWideSearchSeconds = 2.0;
constexpr double kWideSearchStretchSeconds = 1.0;
constexpr double kWideSearchSpacingSeconds = 0.5;
constexpr double kLineSearchAfterSeconds = 2.0;
constexpr double kUnconditionalSearchSeconds = 3.0;
constexpr double kLoudOverQuiet = 10.0;
constexpr double kQuietMargin = 3.0;
constexpr double kPausesBelowSignal = 30.0;
constexpr double kUsedEnergyWeight = 0.1;
constexpr int64_t kMaximumCorrelationLength = int64_t{1} << 22;
constexpr int64_t kMaximumSearchRange = int64_t{1} << 20;
constexpr int64_t kMaximumWindowCount = int64_t{1} << 22;
constexpr int64_t kMaximumUpsampledLength = int64_t{1} << 22;
constexpr int64_t kMaximumUpscaleFactor = int64_t{1} << 40;

// The first windows of a track are measured again through the drift until it moves their ends
// by less than kDriftSettled samples, at most kMaximumDriftRounds times.
constexpr int kMaximumDriftRounds = 8;
constexpr double kDriftSettled = 1e-5;

double energy(const float* samples, int64_t length, int64_t from, int64_t count) {
  const int64_t begin = std::max<int64_t>(from, 0);
  const int64_t end = std::min(from + count, length);
  double sum = 0.0;
  for (int64_t i = begin; i < end; ++i) {
    sum += static_cast<double>(samples[i]) * samples[i];
  }
  return sum;
}

}  // namespace

VDAudioTimeErrorCalculator::VDAudioTimeErrorCalculator(const float* channelA, const float* channelB,
                                                       int64_t length, int64_t interval,
                                                       int64_t correlationLength,
                                                       int64_t upscaleFactor, double samplingRate,
                                                       int64_t correlationType)
    : _channelA(channelA),
      _channelB(channelB),
      _length(length),
      _interval(interval),
      _correlationLength(correlationLength),
      _upscaleFactor(std::min(upscaleFactor, kMaximumUpscaleFactor)),
      _samplingRate(samplingRate),
      _correlationType(correlationType == kQuick || correlationType == kResampler
                           ? static_cast<CorrelationType>(correlationType)
                           : kPostResampler) {}

bool VDAudioTimeErrorCalculator::parametersUsable() const {
  if (_channelA == nullptr || _channelB == nullptr || _length < 1 || _interval < 1 ||
      _correlationLength < 1 || _upscaleFactor < 1 || !std::isfinite(_samplingRate) ||
      !(_samplingRate > 0.0)) {
    return false;
  }
  if (_correlationLength > _length || _correlationLength > kMaximumCorrelationLength) {
    return false;
  }
  if ((_length - _correlationLength) / _interval >= kMaximumWindowCount) {
    return false;
  }
  if (_correlationType == kResampler &&
      (_upscaleFactor > kMaximumUpsampledLength ||
       _correlationLength * _upscaleFactor > kMaximumUpsampledLength)) {
    return false;
  }
  return true;
}

int64_t VDAudioTimeErrorCalculator::secondsInSamples(double seconds) const {
  return static_cast<int64_t>(
      std::min(std::ceil(seconds * _samplingRate), static_cast<double>(kMaximumSearchRange)));
}

VDAudioTimeErrorCalculator::Tracking VDAudioTimeErrorCalculator::newTracking() const {
  const int64_t windowLength = _correlationLength;
  Tracking tracking;
  // A short stretch: with the clocks drifting, a long one would hold many different lags.
  tracking.searchLength =
      std::min(std::max(windowLength, secondsInSamples(kSearchStretchSeconds)), _length);
  tracking.wideSpacing = secondsInSamples(kWideSearchSpacingSeconds);
  tracking.warpedB.resize(static_cast<size_t>(windowLength + 2 * kLagMargin));
  tracking.correlation.resize(2 * kLagMargin + 1);
  return tracking;
}

void VDAudioTimeErrorCalculator::calculateTimeError() {
  _windows.clear();
  if (!parametersUsable()) {
    return;
  }
  const VDDelayAcquisition acquisition(_channelA, _channelB, _length, _samplingRate);
  // The transforms are planned once here and lent to the backward pass.
  Tracking tracking = newTracking();
  tracking.acquisition = &acquisition;
  const size_t transformSize =
      VDFFTCorrelator::fastSize(static_cast<size_t>(_correlationLength + 2 * kLagMargin));
  tracking.forwardCorrelator = std::make_unique<VDFFTCorrelator>(transformSize);
  tracking.backwardCorrelator = std::make_unique<VDFFTCorrelator>(transformSize);
  const int64_t windowCount = (_length - _correlationLength) / _interval + 1;
  _windows.resize(static_cast<size_t>(windowCount));
  // The first window with a value, while the windows before it wait to be measured backwards
  // from it; that waits until the drift is known, so that they are read through it. The window
  // where the delay was found may itself give no value (a search stretch beside a pause).
  int64_t firstUsed = -1;
  bool anyUsed = false;
  for (int64_t index = 0; index < windowCount; ++index) {
    measureWindow(index * _interval, tracking, _windows[static_cast<size_t>(index)]);
    if (!anyUsed && _windows[static_cast<size_t>(index)].status == WindowStatus::Used) {
      anyUsed = true;
      firstUsed = index > 0 ? index : -1;
    }
    if (firstUsed > 0 && (tracking.lineFull() || index + 1 == windowCount)) {
      measureBackwards(firstUsed, tracking);
      firstUsed = -1;
    }
  }
  VDUncertaintyCalibration::apply(_windows, _samplingRate);
}

void VDAudioTimeErrorCalculator::measureBackwards(int64_t firstUsed, Tracking& tracking) {
  // The first delay was found only at window firstUsed (the start had no match, or B's partner
  // stretch did not exist yet): the windows before are measured backwards from it.
  const Window& first = _windows[static_cast<size_t>(firstUsed)];
  if (first.status != WindowStatus::Used) {
    return;
  }
  Tracking backwards = newTracking();
  backwards.anchor(windowCentre(first.start), first.refinedLag);
  backwards.drift = tracking.drift;
  backwards.polarity = first.bInverted ? -1.0 : 1.0;
  backwards.periodic = tracking.periodic;
  backwards.history = tracking.history;
  backwards.searchesAllowed = false;
  std::swap(backwards.forwardCorrelator, tracking.forwardCorrelator);
  std::swap(backwards.backwardCorrelator, tracking.backwardCorrelator);
  for (int64_t earlier = firstUsed - 1; earlier >= 0; --earlier) {
    measureWindow(earlier * _interval, backwards, _windows[static_cast<size_t>(earlier)]);
  }
  std::swap(backwards.forwardCorrelator, tracking.forwardCorrelator);
  std::swap(backwards.backwardCorrelator, tracking.backwardCorrelator);
}

VDWindowCorrelation VDAudioTimeErrorCalculator::correlation() const {
  return {_channelA, _channelB, _length, _correlationLength, _upscaleFactor, _correlationType};
}

double VDAudioTimeErrorCalculator::windowCentre(int64_t start) const {
  return static_cast<double>(start) + static_cast<double>(_correlationLength - 1) / 2.0;
}

void VDAudioTimeErrorCalculator::measureWindow(int64_t start, Tracking& tracking,
                                               Window& window) const {
  const int64_t windowLength = _correlationLength;
  const double centre = windowCentre(start);
  window = Window{};
  window.start = start;
  window.integerLag = tracking.haveDelay ? std::llround(tracking.predictedDelay(centre)) : 0;
  window.bInverted = tracking.polarity < 0.0;
  // A window is judged on the part that holds signal: a few samples at the edge of digital
  // silence correlate well at almost any lag.
  if (4 * VDWindowCorrelation::nonZeroCount(_channelA, _length, start, windowLength) <
      windowLength) {
    window.status = WindowStatus::Silent;
    return;
  }
  const double meanSquare =
      energy(_channelA, _length, start, windowLength) / static_cast<double>(windowLength);
  tracking.quietEnergy = std::min(tracking.quietEnergy, meanSquare);
  if (!tracking.haveDelay && !(tracking.searchesAllowed && findFirstOffset(start, tracking))) {
    window.status = WindowStatus::Weak;
    return;
  }

  double predicted = tracking.predictedDelay(centre);
  Peak peak;
  WindowStatus status =
      measureAt(start, predicted, tracking.polarity, tracking.tolerance(centre),
                tracking.clearPeakNeeded(centre) && !tracking.periodic, tracking, peak);
  status = measureWhitened(start, status, predicted, tracking, peak, window);
  fillWindow(predicted, tracking.polarity, peak, window);
  if (status == WindowStatus::Used) {
    acceptWindow(start, predicted, peak, meanSquare, tracking, window);
    return;
  }
  window.status = status;
  if (!tracking.searchesAllowed || status == WindowStatus::Uncertain) {
    // A window that fits the delay followed, if too noisy to give a value, is no step.
    tracking.candidate.reset();
    return;
  }
  if (tracking.candidate && tracking.candidate->window != &window &&
      takeStep(start, meanSquare, tracking, window)) {
    return;
  }
  tracking.candidate.reset();
  if (status != WindowStatus::Weak && status != WindowStatus::Lost &&
      status != WindowStatus::Ambiguous) {
    return;
  }
  // A step in the delay? A search of B around the prediction compares a quarter second, which
  // tells a step from a sustained note's echo at another lag within this window's range. What it
  // finds is a candidate for the next window to confirm.
  // Loud and quiet against the recording's pauses, where it has any (its windows with a value
  // are far above its quietest); without pauses every window counts as loud.
  const bool hasPauses = tracking.usedEnergy > kPausesBelowSignal * tracking.quietEnergy;
  const bool loud = !hasPauses || meanSquare >= kLoudOverQuiet * tracking.quietEnergy;
  const bool quiet = hasPauses && meanSquare < kQuietMargin * tracking.quietEnergy;
  if (std::optional<SearchHit> hit = searchStep(start, predicted, loud, quiet, tracking)) {
    // The match must hold at this window too before it is a candidate.
    Peak candidatePeak;
    double found = static_cast<double>(hit->lag);
    const double allowed = kPeakTolerance + kMaximumDrift * std::fabs(centre - hit->centre);
    if (measureAt(start, found, hit->polarity, allowed, true, tracking, candidatePeak) ==
        WindowStatus::Used) {
      tracking.candidate = Tracking::Candidate{found + static_cast<double>(candidatePeak.offset),
                                               centre, hit->polarity, &window};
      return;
    }
  }
  // Failing that, a clear peak elsewhere in this window's range (a sustained note can make a
  // quarter second match at several lags; the next window still has to confirm it).
  if (peak.correlation >= kMinimumPeakCorrelation && peak.clear && !peak.onEdge &&
      std::fabs(static_cast<double>(peak.offset)) > tracking.tolerance(centre)) {
    tracking.candidate = Tracking::Candidate{predicted + static_cast<double>(peak.offset), centre,
                                             tracking.polarity, &window};
  }
}

VDAudioTimeErrorCalculator::WindowStatus VDAudioTimeErrorCalculator::measureWhitened(
    int64_t start, WindowStatus status, double& predicted, Tracking& tracking, Peak& peak,
    Window& window) const {
  // A window whose plain correlation stays below the whitened view's floor at every lag (a
  // pause) would not reach it there either: not measured again. One whose plain value comes
  // from a weak correlation is: through two rooms, its peak may be a reflection's. A clear peak
  // away from the prediction is a step for the next window to confirm, not a value to rescue.
  // A track that is not a tone's has the acquisition's line (or, measured backwards, the
  // windows' drift) to place the delay, as this view holds no ambiguity of its own.
  if ((status == WindowStatus::Used && peak.correlation >= kPlainTrustedCorrelation) ||
      (status == WindowStatus::Ambiguous && peak.clear) || status == WindowStatus::Silent ||
      status == WindowStatus::Outside || tracking.periodic ||
      !(peak.correlation >= VDWindowCorrelation::kMinimumWhitenedCorrelation)) {
    return status;
  }
  const double centre = windowCentre(start);
  double whitenedPredicted = tracking.predictedDelay(centre);
  Peak whitenedPeak;
  const WindowStatus whitenedStatus =
      measureAt(start, whitenedPredicted, tracking.polarity, tracking.tolerance(centre), true,
                tracking, whitenedPeak, true);
  if (whitenedStatus != WindowStatus::Used) {
    return status;
  }
  predicted = whitenedPredicted;
  peak = whitenedPeak;
  window.whitened = true;
  return whitenedStatus;
}

void VDAudioTimeErrorCalculator::fillWindow(double predicted, double polarity, const Peak& peak,
                                            Window& window) const {
  window.integerLag = std::llround(predicted + static_cast<double>(peak.offset));
  window.peakCorrelation = peak.correlation;
  window.peakRatio = peak.ratio;
  window.bInverted = polarity < 0.0;
}

bool VDAudioTimeErrorCalculator::takeStep(int64_t start, double meanSquare, Tracking& tracking,
                                          Window& window) const {
  // The delay followed failed again: if the candidate holds here as well, the step is real.
  const Tracking::Candidate candidate = *tracking.candidate;
  tracking.candidate.reset();
  // Where the whitened view gives many of the values (two rooms), the plain correlation peaks
  // at reflections too, steadily, window after window: a step is taken only onto one of the
  // acquisition's lines.
  const auto& lines = tracking.acquisition->lines();
  if (tracking.whitenedShare > kWhitenedTrack &&
      std::none_of(lines.begin(), lines.end(), [&](const VDDelayAcquisition::Line& line) {
        return line.polarity == candidate.polarity &&
               std::fabs(line.delayAt(candidate.centre) - candidate.delay) <=
                   line.tolerance + kPeakTolerance;
      })) {
    return false;
  }
  const double centre = windowCentre(start);
  double predicted = candidate.delay + tracking.drift * (centre - candidate.centre);
  const double allowed = tracking.toleranceOver(std::fabs(centre - candidate.centre));
  Peak peak;
  if (measureAt(start, predicted, candidate.polarity, allowed, true, tracking, peak) !=
      WindowStatus::Used) {
    return false;
  }
  tracking.anchor(candidate.centre, candidate.delay);
  tracking.polarity = candidate.polarity;
  tracking.restartLine();
  fillWindow(predicted, candidate.polarity, peak, window);
  acceptWindow(start, predicted, peak, meanSquare, tracking, window);
  // The window that first showed the step is measured again on the new delay.
  if (Window* earlier = candidate.window) {
    const double earlierCentre = windowCentre(earlier->start);
    double earlierPredicted = tracking.predictedDelay(earlierCentre);
    Peak earlierPeak;
    if (measureAt(earlier->start, earlierPredicted, tracking.polarity,
                  tracking.tolerance(earlierCentre), true, tracking,
                  earlierPeak) == WindowStatus::Used) {
      fillWindow(earlierPredicted, tracking.polarity, earlierPeak, *earlier);
      earlier->status = WindowStatus::Used;
      earlier->refinedLag = refinedDelay(earlier->start, earlierPredicted, earlierPeak, tracking);
      earlier->delayUncertainty = earlierPeak.uncertainty;
      tracking.remember(earlierCentre, earlier->refinedLag);
      if (!tracking.driftKnown()) {
        tracking.provisional.push_back(earlier);
      }
    }
    tracking.anchor(centre, window.refinedLag);
  }
  return true;
}

VDAudioTimeErrorCalculator::WindowStatus VDAudioTimeErrorCalculator::measureAt(
    int64_t start, double& predicted, double polarity, double tolerance, bool requireClear,
    Tracking& tracking, Peak& peak, bool whitened) const {
  WindowStatus status =
      correlation().correlate(start, predicted, polarity, tracking, peak, whitened);
  if (status == WindowStatus::Used &&
      (std::fabs(static_cast<double>(peak.offset)) > tolerance || (requireClear && !peak.clear))) {
    status = WindowStatus::Ambiguous;
  }
  // Until the drift is known, a window at a high drift is smeared by it; its uncertainty is
  // judged once it has been measured again through the drift.
  const bool lineKnown = tracking.driftKnown() || tracking.driftFromLine;
  const bool judgeUncertainty = lineKnown || !tracking.searchesAllowed;
  const double limit =
      (lineKnown ? kMaximumUncertaintySeconds : kLineUncertaintySeconds) * _samplingRate;
  const double centringLimit = std::min(limit, kCentringUncertaintySeconds * _samplingRate);
  if (status == WindowStatus::Used && judgeUncertainty && !(peak.uncertainty <= centringLimit)) {
    // Far from a whole sample, a sound reaching near the Nyquist frequency correlates markedly
    // less at the whole-sample peak than at the true one, which would make it look noisy: once
    // more, centred between the samples where the peak lies.
    const double* c = tracking.correlation.data() + kLagMargin + peak.offset;
    const double centred = predicted + static_cast<double>(peak.offset) +
                           VDPeakRefinement::parabolicOffset(c[-1], c[0], c[1]);
    Peak again;
    if (correlation().correlate(start, centred, polarity, tracking, again, whitened) ==
            WindowStatus::Used &&
        again.offset == 0) {
      predicted = centred;
      peak = again;
    }
    if (!(peak.uncertainty <= limit)) {
      status = WindowStatus::Uncertain;
    }
  }
  return status;
}

void VDAudioTimeErrorCalculator::acceptWindow(int64_t start, double predicted, const Peak& peak,
                                              double meanSquare, Tracking& tracking,
                                              Window& window) const {
  const double centre = windowCentre(start);
  window.status = WindowStatus::Used;
  window.refinedLag = refinedDelay(start, predicted, peak, tracking);
  window.delayUncertainty = peak.uncertainty;
  tracking.candidate.reset();
  tracking.lastUsedStart = start;
  // The first failing window after a value may search widely at once: a step shows there.
  tracking.wideSpacing = secondsInSamples(kWideSearchSpacingSeconds);
  tracking.nextWideSearch = start;
  tracking.whitenedShare +=
      kWhitenedShareWeight * ((window.whitened ? 1.0 : 0.0) - tracking.whitenedShare);
  tracking.usedEnergy =
      tracking.usedEnergy == 0.0
          ? meanSquare
          : tracking.usedEnergy + kUsedEnergyWeight * (meanSquare - tracking.usedEnergy);
  // Measured, but too noisy to move the line: far above the windows before it, and above what
  // a window must reach while the drift is found.
  const bool typical = !(peak.uncertainty > kNoisierThanTypical * tracking.typicalUncertainty);
  tracking.typicalUncertainty =
      tracking.typicalUncertainty == 0.0
          ? peak.uncertainty
          : tracking.typicalUncertainty *
                std::pow(peak.uncertainty / tracking.typicalUncertainty, kTypicalWeight);
  if (!(peak.uncertainty <= kLineUncertaintySeconds * _samplingRate) && !typical &&
      (!tracking.history.empty() || tracking.driftFromLine)) {
    return;
  }
  if (tracking.history.empty()) {
    // The prediction was a whole-sample lag from a search (or a step), so the two directions'
    // windows met the signal up to half a sample apart and their pulls cancelled only in part.
    // Once more, centred on what this window measured.
    tracking.anchor(centre, window.refinedLag);
    remeasure(tracking, window);
  }
  tracking.anchor(centre, window.refinedLag);
  tracking.remember(centre, window.refinedLag);
  // The windows measured before the drift line was full are measured again through it, and the
  // drift is fitted to what they give now, until it settles (a long window at a high drift needs
  // a few rounds): once when the drift becomes known, and once when its line is full.
  const bool lineFull = tracking.lineFull();
  if (!lineFull) {
    tracking.provisional.push_back(&window);
  }
  if (tracking.history.size() == VDDelayLine::kMinimumHistory ||
      (lineFull && !tracking.provisional.empty())) {
    if (lineFull) {
      tracking.provisional.push_back(&window);
    }
    for (int round = 0; round < kMaximumDriftRounds; ++round) {
      const double before = tracking.drift;
      for (Window* earlier : tracking.provisional) {
        tracking.anchor(centre, window.refinedLag);
        remeasure(tracking, *earlier);
        tracking.replace(windowCentre(earlier->start), earlier->refinedLag);
      }
      tracking.fitDrift();
      if (std::fabs(tracking.drift - before) * static_cast<double>(_correlationLength) <
          kDriftSettled) {
        break;
      }
    }
    for (Window* earlier : tracking.provisional) {
      // Once a line or a tone's phase places the peak, a noisier window keeps its value too.
      const double limit = tracking.driftFromLine || tracking.periodic ? kMaximumUncertaintySeconds
                                                                       : kLineUncertaintySeconds;
      if (!(earlier->delayUncertainty <= limit * _samplingRate)) {
        earlier->status = WindowStatus::Uncertain;
      }
    }
    if (lineFull) {
      tracking.provisional.clear();
    }
    tracking.anchor(centre, window.refinedLag);
  }
}

void VDAudioTimeErrorCalculator::remeasure(Tracking& tracking, Window& window) const {
  const double predicted = tracking.predictedDelay(windowCentre(window.start));
  Peak peak;
  if (correlation().correlate(window.start, predicted, tracking.polarity, tracking, peak,
                              window.whitened) == WindowStatus::Used &&
      std::fabs(static_cast<double>(peak.offset)) <= kPeakTolerance) {
    fillWindow(predicted, tracking.polarity, peak, window);
    window.refinedLag = refinedDelay(window.start, predicted, peak, tracking);
    window.delayUncertainty = peak.uncertainty;
  }
}

double VDAudioTimeErrorCalculator::refinedDelay(int64_t start, double predicted, const Peak& peak,
                                                Tracking& tracking) const {
  // B was read through the drift estimate, centred on the window's centre, so an offset k there
  // stands for k (1 + drift) samples of B's own.
  return predicted +
         correlation().refinedOffset(start, peak.offset, tracking) * (1.0 + tracking.drift);
}

bool VDAudioTimeErrorCalculator::findFirstOffset(int64_t start, Tracking& tracking) const {
  const double centre = windowCentre(start);
  const VDDelayAcquisition::Line* line = tracking.acquisition->lineAt(centre);
  tracking.forgetDrift();
  if (line == nullptr) {
    // Nothing lines up across the recording, yet both channels may hold one steady tone, which
    // the acquisition's whitening takes out: its delay is known modulo its period only, so the
    // first window takes the highest peak near no delay at all, and the windows after it the
    // peak nearest to the one before.
    tracking.anchor(centre, 0.0);
    tracking.polarity = 1.0;
    tracking.drift = 0.0;
    tracking.periodic = true;
    tracking.lineTolerance = static_cast<double>(kTrackingRadius);
    return true;
  }
  // On a whole sample, as the local searches give it: the window then measures the fraction.
  tracking.anchor(centre, std::round(line->delayAt(centre)));
  tracking.polarity = line->polarity;
  // A drift the line cannot tell from none is taken as none until the windows measure it.
  tracking.drift = std::fabs(line->drift) > 2.0 * line->driftUncertainty ? line->drift : 0.0;
  tracking.driftFromLine = true;
  tracking.lineTolerance = line->tolerance;
  tracking.lineDriftUncertainty = line->driftUncertainty;
  return true;
}

std::optional<VDAudioTimeErrorCalculator::SearchHit> VDAudioTimeErrorCalculator::searchLines(
    int64_t start, double predicted, Tracking& tracking) const {
  // The acquisition's lines, nearest first: after a step the delay lies on another one.
  const double centre = windowCentre(start);
  std::vector<const VDDelayAcquisition::Line*> lines;
  for (const VDDelayAcquisition::Line& line : tracking.acquisition->lines()) {
    lines.push_back(&line);
  }
  const auto distance = [centre](const VDDelayAcquisition::Line* line) {
    double nearest = std::numeric_limits<double>::infinity();
    for (double at : line->supportedAt) {
      nearest = std::min(nearest, std::fabs(at - centre));
    }
    return nearest;
  };
  std::stable_sort(lines.begin(), lines.end(),
                   [&](const auto* x, const auto* y) { return distance(x) < distance(y); });
  for (const VDDelayAcquisition::Line* line : lines) {
    const double delay = line->delayAt(centre);
    if (std::fabs(delay - predicted) <= kPeakTolerance && line->polarity == tracking.polarity) {
      continue;
    }
    const int64_t range = static_cast<int64_t>(std::ceil(line->tolerance)) + kTrackingRadius;
    if (std::optional<SearchHit> hit =
            searchOffset(start, std::llround(delay), range, kStepSearchPeakRatio, tracking)) {
      return hit;
    }
  }
  return std::nullopt;
}

std::optional<VDAudioTimeErrorCalculator::SearchHit> VDAudioTimeErrorCalculator::searchStep(
    int64_t start, double predicted, bool loud, bool quiet, Tracking& tracking) const {
  const int64_t around = std::llround(predicted);
  const auto differs = [&](const std::optional<SearchHit>& hit) {
    return hit && (std::fabs(static_cast<double>(hit->lag) - predicted) > kPeakTolerance ||
                   hit->polarity != tracking.polarity);
  };
  // Near: dropouts and inserted blocks of up to 50 ms, looked for at once where A is not quiet
  // just after a measured window, else at most every half second.
  const bool recent = start - tracking.lastUsedStart <= 2 * _interval;
  if (loud || (recent && !quiet) || start >= tracking.nextNearSearch) {
    tracking.nextNearSearch = start + secondsInSamples(kNearSearchSpacingSeconds);
    std::optional<SearchHit> hit = searchOffset(start, around, secondsInSamples(kNearSearchSeconds),
                                                kStepSearchPeakRatio, tracking);
    if (differs(hit)) {
      return hit;
    }
  }
  const int64_t sinceUsed = start - tracking.lastUsedStart;
  const bool due = loud || sinceUsed >= secondsInSamples(kUnconditionalSearchSeconds);
  if (due && start >= tracking.nextWideSearch) {
    tracking.nextWideSearch = start + tracking.wideSpacing;
    tracking.wideSpacing =
        std::min(2 * tracking.wideSpacing, secondsInSamples(kLongestRetrySeconds));
    // A longer stretch: over a second the pitch of speech moves, so that no lag a pitch period
    // away matches nearly as well as the true one.
    const int64_t shortStretch = tracking.searchLength;
    tracking.searchLength =
        std::min(std::max(shortStretch, secondsInSamples(kWideSearchStretchSeconds)), _length);
    std::optional<SearchHit> hit = searchOffset(start, around, secondsInSamples(kWideSearchSeconds),
                                                kStepSearchPeakRatio, tracking);
    tracking.searchLength = shortStretch;
    if (differs(hit)) {
      return hit;
    }
  }
  if (due && sinceUsed >= secondsInSamples(kLineSearchAfterSeconds)) {
    std::optional<SearchHit> hit = searchLines(start, predicted, tracking);
    if (differs(hit)) {
      return hit;
    }
  }
  return std::nullopt;
}

std::optional<VDAudioTimeErrorCalculator::SearchHit> VDAudioTimeErrorCalculator::searchOffset(
    int64_t start, int64_t around, int64_t range, double peakRatio, Tracking& tracking) const {
  return VDLagSearch(_channelA, _channelB, _length)
      .search(start, around, range, peakRatio, tracking);
}

std::vector<VDTimeErrorValue> VDAudioTimeErrorCalculator::timeErrors() const {
  return VDAudioWindowExport(_windows, _correlationLength, _samplingRate).timeErrors();
}

bool VDAudioTimeErrorCalculator::exportTimeErrorToDirectoryURL(
    const std::filesystem::path& directory, const std::string& filename) const {
  return VDAudioWindowExport(_windows, _correlationLength, _samplingRate)
      .writeSeries(directory, filename);
}

bool VDAudioTimeErrorCalculator::exportTimeErrorToPath(const std::string& directoryPath) const {
  return VDAudioWindowExport(_windows, _correlationLength, _samplingRate)
      .writeWindows(std::filesystem::path(directoryPath) / kWindowExportFileName);
}
