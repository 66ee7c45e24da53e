#include "VDDelayAcquisition.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "VDFFTCorrelator.h"
#include "VDResamplingKernel.h"
#include "VDWhiteningFilter.h"

namespace {

// About 4 kHz after decimation: the band where music, speech and noise all carry most of their
// energy, and few enough lags that +-60 s of B costs tens of milliseconds a segment.
constexpr double kDecimatedRate = 4000.0;
// A little over a minute, so that an offset of a minute is found at any drift a line may have.
constexpr double kRangeSeconds = 61.0;
// A second a segment: long enough for a clear peak at 10 dB, short enough that a drift of 1e-3
// smears it by four decimated samples only.
constexpr int64_t kSegmentLength = 4096;
constexpr int64_t kShortestSegment = 256;
constexpr double kSegmentSpacingSeconds = 4.0;
constexpr int kFewestSegments = 16;
constexpr int kMostSegments = 48;
// A segment keeps its best peaks, and as many more as are tied with the best (within
// kTiedScore of it) up to kMostPeaksPerSegment: enough for every bar of a piece that repeats
// exactly, over the whole range.
constexpr size_t kPeaksPerSegment = 12;
constexpr size_t kMostPeaksPerSegment = 48;
// Lines are proposed through pairs of peaks of two segments at most kPairReach apart: each
// segment's three best, and its peaks tied with the best (a piece that repeats exactly matches
// every bar alike), at most kProposingPeaks of them.
constexpr size_t kProposingPeaks = 16;
constexpr size_t kBestPeaks = 3;
constexpr double kTiedScore = 0.9;
constexpr double kWeakestScore = 0.5;
constexpr int kPairReach = 2;
// Both channels go through one whitening filter, predicted from A: a linear predictor of this
// order flattens the broad shape of the spectrum (a loud kick and bass, a falling treble) so
// that every band counts, without lifting the gaps between the lines of a tone or a chord to
// the level of the lines, as whitening bin by bin would.
constexpr int kWhiteningOrder = 16;
// A peak lies on a line within this many decimated samples (its own precision plus the smear
// of a drift across the segment).
constexpr double kLineTolerance = 2.0;
constexpr size_t kMostLines = 8;
constexpr size_t kFinalists = 64;

// Three moving averages of factor samples each, then every factor-th sample: what folds down
// into the lower half of the decimated band is at least 26 dB down.
std::vector<float> decimated(const float* samples, int64_t length, int64_t factor) {
  // Streamed: each average keeps its last factor inputs in a ring, so that an hour of sound
  // costs no copy of itself.
  struct MovingAverage {
    std::vector<double> ring;
    double sum = 0.0;
    size_t next = 0;
    double operator()(double x) {
      sum += x - ring[next];
      ring[next] = x;
      next = next + 1 == ring.size() ? 0 : next + 1;
      return sum / static_cast<double>(ring.size());
    }
  };
  std::vector<MovingAverage> stages(3, MovingAverage{std::vector<double>(factor, 0.0)});
  // Three averages delay by 3 (factor - 1) / 2 samples; B and A alike, so lags are unchanged.
  std::vector<float> out(static_cast<size_t>(length / factor));
  for (int64_t n = 0; n < static_cast<int64_t>(out.size()) * factor; ++n) {
    const double smoothed = stages[2](stages[1](stages[0](samples[n])));
    if (n % factor == 0) {
      out[n / factor] = static_cast<float>(smoothed);
    }
  }
  return out;
}

}  // namespace

VDDelayAcquisition::VDDelayAcquisition(const float* channelA, const float* channelB, int64_t length,
                                       double samplingRate) {
  findPeaks(channelA, channelB, length, samplingRate);
  fitLines();
}

void VDDelayAcquisition::findPeaks(const float* channelA, const float* channelB, int64_t length,
                                   double samplingRate) {
  _factor = std::max<int64_t>(1, std::llround(samplingRate / kDecimatedRate));
  std::vector<float> a = decimated(channelA, length, _factor);
  std::vector<float> b = decimated(channelB, length, _factor);
  const VDWhiteningFilter filter(a.data(), static_cast<int64_t>(a.size()), kWhiteningOrder);
  filter.apply(a);
  filter.apply(b);
  const auto count = static_cast<int64_t>(a.size());
  const int64_t segment = std::min(kSegmentLength, count / 2);
  if (segment < kShortestSegment) {
    return;
  }
  const int64_t range = std::min<int64_t>(
      count, std::llround(kRangeSeconds * samplingRate / static_cast<double>(_factor)));
  const double spacing = kSegmentSpacingSeconds * samplingRate / static_cast<double>(_factor);
  _segmentSpan = static_cast<double>(segment * _factor);
  _length = static_cast<double>(count * _factor);
  _range = static_cast<double>(range * _factor);
  _segmentCount = static_cast<int>(std::clamp<double>(
      std::floor(static_cast<double>(count) / spacing), kFewestSegments, kMostSegments));
  _segmentCount = static_cast<int>(std::min<int64_t>(_segmentCount, count / segment));
  VDFFTCorrelator correlator(VDFFTCorrelator::fastSize(static_cast<size_t>(2 * range + segment)));
  const auto size = static_cast<int64_t>(correlator.size());
  std::vector<double> taper(static_cast<size_t>(segment));
  for (int64_t n = 0; n < segment; ++n) {
    taper[n] = 0.5 - 0.5 * std::cos(2.0 * M_PI * (static_cast<double>(n) + 0.5) /
                                    static_cast<double>(segment));
  }
  _segmentCentres.assign(static_cast<size_t>(_segmentCount), 0.0);
  _segmentBestScore.assign(static_cast<size_t>(_segmentCount), 0.0);
  for (int s = 0; s < _segmentCount; ++s) {
    const int64_t start = _segmentCount == 1 ? 0 : s * (count - segment) / (_segmentCount - 1);
    _segmentCentres[s] = (static_cast<double>(start) + static_cast<double>(segment) / 2.0) *
                         static_cast<double>(_factor);
    double mean = 0.0;
    for (int64_t n = 0; n < segment; ++n) {
      mean += a[start + n];
    }
    mean /= static_cast<double>(segment);
    double* reference = correlator.reference();
    double energy = 0.0;
    for (int64_t n = 0; n < segment; ++n) {
      reference[n] = (a[start + n] - mean) * taper[n];
      energy += reference[n] * reference[n];
    }
    if (!(energy > 0.0)) {
      continue;  // digital silence
    }
    std::fill(reference + segment, reference + size, 0.0);
    // other[k] = B[start - range + k]: lag k - range.
    double* other = correlator.other();
    VDResamplingKernel::copyZeroExtended(b.data(), count, start - range, 2 * range + segment,
                                         other);
    std::fill(other + 2 * range + segment, other + size, 0.0);
    // Two views of the same lags: the plain correlation of the filtered channels, and the
    // partially whitened one. A piece of music, or one heard through two rooms, shows its delay
    // in the whitened view, where a loud bass or the rooms' colouring no longer decide where the
    // peak lies; a sound of a few steady lines (a chord held long, test noise made of
    // sinusoids) only in the plain one, as whitening lifts the noise between its lines.
    keepPeaks(s, correlator.correlate(), range);
    keepPeaks(s, correlator.whitenedAgain(), range);
  }
}

void VDDelayAcquisition::keepPeaks(int segment, const double* c, int64_t range) {
  double sumSquares = 0.0;
  for (int64_t k = 0; k <= 2 * range; ++k) {
    sumSquares += c[k] * c[k];
  }
  const double rms = std::sqrt(sumSquares / static_cast<double>(2 * range + 1));
  if (!(rms > 0.0)) {
    return;
  }
  std::vector<Peak> found;
  for (int64_t k = 1; k < 2 * range; ++k) {
    const double magnitude = std::fabs(c[k]);
    if (magnitude < kMinimumScore * rms || magnitude < std::fabs(c[k - 1]) ||
        magnitude < std::fabs(c[k + 1])) {
      continue;
    }
    const double sign = c[k] < 0.0 ? -1.0 : 1.0;
    const double below = sign * c[k - 1], here = sign * c[k], above = sign * c[k + 1];
    const double bend = below - 2.0 * here + above;
    const double fraction = bend < 0.0 ? std::clamp(0.5 * (below - above) / bend, -0.5, 0.5) : 0;
    Peak peak;
    peak.segment = segment;
    peak.centre = _segmentCentres[segment];
    peak.lag = (static_cast<double>(k - range) + fraction) * static_cast<double>(_factor);
    peak.polarity = sign;
    peak.score = magnitude / rms;
    found.push_back(peak);
  }
  size_t kept = std::min(found.size(), kMostPeaksPerSegment);
  std::partial_sort(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(kept), found.end(),
                    [](const Peak& x, const Peak& y) { return x.score > y.score; });
  // Beyond the best few, only peaks tied with the best, and none below a fraction of it: a
  // line through weak peaks would claim far segments that say nothing of it.
  while (kept > 0 &&
         (found[kept - 1].score < kWeakestScore * found.front().score ||
          (kept > kPeaksPerSegment && found[kept - 1].score < kTiedScore * found.front().score))) {
    --kept;
  }
  // A segment that matches alike at more lags than it may keep (drums repeating exactly, bar
  // after bar) cannot tell the delay from its repeats: it speaks neither for nor against any
  // line, and the windows' own searches place the delay there.
  const double best = kept > 0 ? found.front().score : 0.0;
  if (std::count_if(found.begin(), found.end(), [best](const Peak& peak) {
        return peak.score >= kTiedScore * best;
      }) > static_cast<std::ptrdiff_t>(kMostPeaksPerSegment)) {
    return;
  }
  for (size_t rank = 0; rank < kept; ++rank) {
    // Each view's best few, and its peaks tied with its best, propose lines.
    found[rank].proposes =
        rank < kBestPeaks || (rank < kProposingPeaks && found[rank].score >= kTiedScore * best);
  }
  _peaks.insert(_peaks.end(), found.begin(), found.begin() + static_cast<std::ptrdiff_t>(kept));
  _segmentBestScore[segment] = std::max(_segmentBestScore[segment], best);
}

VDDelayAcquisition::Line VDDelayAcquisition::lineThrough(double offset, double drift,
                                                         double polarity,
                                                         const std::vector<bool>& available) const {
  Line line;
  line.offset = offset;
  line.drift = drift;
  line.polarity = polarity;
  const double tolerance = kLineTolerance * static_cast<double>(_factor);
  std::vector<const Peak*> best(static_cast<size_t>(_segmentCount), nullptr);
  for (const Peak& peak : _peaks) {
    if (!available[peak.segment] || peak.polarity != polarity ||
        std::fabs(peak.lag - line.delayAt(peak.centre)) > tolerance) {
      continue;
    }
    const Peak*& slot = best[peak.segment];
    if (slot == nullptr || peak.score > slot->score) {
      slot = &peak;
    }
  }
  // The run of consecutive segments where the line is best supported: each segment with a peak
  // on the line counts that peak's score, each one that could show a peak on it but has its
  // peaks elsewhere counts against it, others (silence, a match outside B) count nothing. A line
  // across a staircase of dropouts, or through a stray peak far from where it holds, is
  // credited only with the stretch where it holds.
  double sum = 0.0;
  int runStart = 0;
  line.netScore = 0.0;
  int bestStart = 0, bestEnd = -1;
  for (int s = 0; s < _segmentCount; ++s) {
    const double value = best[s] != nullptr   ? best[s]->score
                         : checkable(line, s) ? -_segmentBestScore[s]
                                              : 0.0;
    if (sum <= 0.0) {
      sum = 0.0;
      runStart = s;
    }
    sum += value;
    if (sum > line.netScore) {
      line.netScore = sum;
      bestStart = runStart;
      bestEnd = s;
    }
  }
  line.scores.assign(static_cast<size_t>(_segmentCount), 0.0);
  for (int s = bestStart; s <= bestEnd; ++s) {
    if (best[s] != nullptr) {
      line.scores[s] = best[s]->score;
      line.supportedAt.push_back(best[s]->centre);
    }
  }
  return line;
}

VDDelayAcquisition::Line VDDelayAcquisition::refitted(const Line& line,
                                                      const std::vector<bool>& available) const {
  // Least squares through the line's peaks, weighted by score; the slope stays where the peaks
  // span too little to set one.
  const double tolerance = kLineTolerance * static_cast<double>(_factor);
  double sw = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
  const auto onLine = [&](const Peak& peak) {
    return available[peak.segment] && peak.polarity == line.polarity &&
           std::fabs(peak.lag - line.delayAt(peak.centre)) <= tolerance &&
           line.scores[peak.segment] > 0.0;
  };
  for (const Peak& peak : _peaks) {
    if (onLine(peak)) {
      sw += peak.score;
      sx += peak.score * peak.centre;
      sy += peak.score * peak.lag;
      sxx += peak.score * peak.centre * peak.centre;
      sxy += peak.score * peak.centre * peak.lag;
    }
  }
  if (!(sw > 0.0)) {
    return line;
  }
  const double meanX = sx / sw, meanY = sy / sw;
  const double spread = sxx / sw - meanX * meanX;
  double drift = line.drift;
  if (line.supportedAt.size() >= 2 && spread > 0.0) {
    drift = std::clamp((sxy / sw - meanX * meanY) / spread, -kMaximumDrift, kMaximumDrift);
  }
  Line fitted = lineThrough(meanY - drift * meanX, drift, line.polarity, available);
  // The peaks' scatter about the fitted line: what a window may expect of its prediction.
  double scatter = 0.0;
  for (const Peak& peak : _peaks) {
    const double residual = peak.lag - fitted.delayAt(peak.centre);
    if (peak.polarity == fitted.polarity && std::fabs(residual) <= tolerance &&
        fitted.scores[peak.segment] > 0.0) {
      scatter = std::max(scatter, std::fabs(residual));
    }
  }
  fitted.tolerance = scatter + static_cast<double>(_factor);
  const auto [first, last] =
      std::minmax_element(fitted.supportedAt.begin(), fitted.supportedAt.end());
  fitted.driftUncertainty =
      fitted.supportedAt.empty() || *last == *first
          ? kMaximumDrift
          : std::min(kMaximumDrift, static_cast<double>(_factor) / (*last - *first));
  return fitted;
}

void VDDelayAcquisition::fitLines() {
  std::vector<bool> available(static_cast<size_t>(_segmentCount), true);
  std::vector<const Peak*> proposers;
  for (const Peak& peak : _peaks) {
    if (peak.proposes) {
      proposers.push_back(&peak);
    }
  }
  // The main line: through every pair of proposing peaks of two segments, and through each one
  // alone with no drift (a recording with one segment of signal).
  std::vector<Line> candidates;
  for (size_t i = 0; i < proposers.size(); ++i) {
    const Peak& p = *proposers[i];
    candidates.push_back(lineThrough(p.lag, 0.0, p.polarity, available));
    for (size_t j = i + 1; j < proposers.size(); ++j) {
      const Peak& q = *proposers[j];
      if (q.segment == p.segment || std::abs(q.segment - p.segment) > kPairReach ||
          q.polarity != p.polarity) {
        continue;
      }
      const double drift = (q.lag - p.lag) / (q.centre - p.centre);
      if (std::fabs(drift) <= kMaximumDrift) {
        candidates.push_back(lineThrough(p.lag - drift * p.centre, drift, p.polarity, available));
      }
    }
  }
  if (candidates.empty()) {
    return;
  }
  Line main = refitted(strongestUnbeaten(candidates), available);
  const size_t minimumSupport = _segmentCount >= 2 ? 2 : 1;
  if (main.supportedAt.size() < minimumSupport) {
    return;
  }
  _lines.push_back(main);
  // Steps: lines of the same slope and polarity (a dropout or a restart does not turn the
  // sound upside down) through the segments the lines so far do not explain. A segment whose
  // match on the main line lies outside B says nothing of a step: it would only match some
  // repeated bar.
  for (int s = 0; s < _segmentCount; ++s) {
    available[s] = checkable(main, s) && main.scores[s] == 0.0;
  }
  while (_lines.size() < kMostLines) {
    candidates.clear();
    for (const Peak& peak : _peaks) {
      if (available[peak.segment] && peak.polarity == main.polarity) {
        candidates.push_back(
            lineThrough(peak.lag - main.drift * peak.centre, main.drift, peak.polarity, available));
      }
    }
    if (candidates.empty()) {
      break;
    }
    Line step = strongestUnbeaten(candidates);
    if (step.supportedAt.size() < minimumSupport || !(step.netScore > 0.0)) {
      break;
    }
    step.tolerance = main.tolerance;
    step.driftUncertainty = main.driftUncertainty;
    for (int s = 0; s < _segmentCount; ++s) {
      available[s] = available[s] && step.scores[s] == 0.0;
    }
    _lines.push_back(std::move(step));
  }
}

bool VDDelayAcquisition::checkable(const Line& line, int s) const {
  const double lag = line.delayAt(_segmentCentres[s]);
  return std::fabs(lag) <= _range && _segmentCentres[s] - _segmentSpan / 2 + lag >= 0.0 &&
         _segmentCentres[s] + _segmentSpan / 2 + lag <= _length;
}

const VDDelayAcquisition::Line& VDDelayAcquisition::strongestUnbeaten(
    std::vector<Line>& candidates) const {
  // A line through a repeated bar scores nearly as well as the delay where both can be seen,
  // and at an offset of many seconds it may be seen on more segments (fewer of the delay's
  // matches lie inside B): so of the strongest candidates of distinct offsets, each one that
  // another outscores on the segments where both could show a peak is out, and the strongest of
  // the rest is the delay. Lines on different segments (the two sides of a step) both stay.
  std::sort(candidates.begin(), candidates.end(),
            [](const Line& x, const Line& y) { return x.netScore > y.netScore; });
  std::vector<const Line*> finalists;
  for (const Line& candidate : candidates) {
    const bool distinct = std::none_of(finalists.begin(), finalists.end(), [&](const Line* f) {
      return candidate.polarity == f->polarity &&
             std::fabs(candidate.delayAt(_length / 2) - f->delayAt(_length / 2)) <
                 kLineTolerance * static_cast<double>(_factor);
    });
    if (distinct && finalists.size() < kFinalists) {
      finalists.push_back(&candidate);
    }
  }
  for (const Line* finalist : finalists) {
    if (std::none_of(finalists.begin(), finalists.end(), [&](const Line* other) {
          return other != finalist && beats(*other, *finalist);
        })) {
      return *finalist;
    }
  }
  return *finalists.front();
}

bool VDDelayAcquisition::beats(const Line& x, const Line& y) const {
  // On y's segments where x could show a peak too: a line through a repeated bar many seconds
  // off has matches inside B where the delay has none, and those say nothing of which is the
  // delay; segments where y has no peak say nothing of y.
  double scoreX = 0.0, scoreY = 0.0;
  size_t shared = 0;
  for (int s = 0; s < _segmentCount; ++s) {
    if (y.scores[s] > 0.0 && checkable(x, s)) {
      scoreX += x.scores[s];
      scoreY += y.scores[s];
      ++shared;
    }
  }
  // On at least half of y's segments: a line that merely crosses y says nothing of it.
  return shared > 0 && 2 * shared >= y.supportedAt.size() && scoreX > scoreY;
}

const VDDelayAcquisition::Line* VDDelayAcquisition::lineAt(double position) const {
  const Line* nearest = nullptr;
  double distance = std::numeric_limits<double>::infinity();
  for (const Line& line : _lines) {
    for (double centre : line.supportedAt) {
      if (std::fabs(centre - position) < distance) {
        distance = std::fabs(centre - position);
        nearest = &line;
      }
    }
  }
  return nearest;
}
