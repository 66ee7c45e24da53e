#include "VDDelayAcquisition.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "VDFFTCorrelator.h"

namespace {

// About 4 kHz after decimation: the band where music, speech and noise all carry most of their
// energy, and few enough lags that +-60 s of B costs tens of milliseconds a segment.
constexpr double kDecimatedRate = 4000.0;
// A little over a minute, so that an offset of a minute is found at any drift up to 1e-2.
constexpr double kRangeSeconds = 61.0;
// A second a segment: long enough for a clear peak at 10 dB, short enough that a drift of 1e-3
// smears it by four decimated samples only.
constexpr int64_t kSegmentLength = 4096;
constexpr int64_t kShortestSegment = 256;
constexpr double kSegmentSpacingSeconds = 4.0;
constexpr int kFewestSegments = 6;
constexpr int kMostSegments = 48;
constexpr size_t kPeaksPerSegment = 12;
// Lines are proposed through pairs of the few best peaks of two segments.
constexpr size_t kProposingPeaks = 3;
// Both channels go through one whitening filter, predicted from A: a linear predictor of this
// order flattens the broad shape of the spectrum (a loud kick and bass, a falling treble) so
// that every band counts, without lifting the gaps between the lines of a tone or a chord to
// the level of the lines, as whitening bin by bin would.
constexpr int kWhiteningOrder = 16;
// A peak lies on a line within this many decimated samples (its own precision plus the smear
// of a drift across the segment).
constexpr double kLineTolerance = 2.0;
// A competing line on the same segments within this fraction of the best one's score makes the
// offset ambiguous.
constexpr double kAmbiguousScore = 0.9;
constexpr size_t kMostLines = 8;

// Three moving averages of factor samples each, then every factor-th sample: what folds down
// into the lower half of the decimated band is at least 26 dB down.
std::vector<float> decimated(const float* samples, int64_t length, int64_t factor) {
  std::vector<double> smoothed(samples, samples + length);
  std::vector<double> pass(static_cast<size_t>(length));
  for (int stage = 0; stage < 3; ++stage) {
    double sum = 0.0;
    for (int64_t n = 0; n < length; ++n) {
      sum += smoothed[n] - (n >= factor ? smoothed[n - factor] : 0.0);
      pass[n] = sum / static_cast<double>(factor);
    }
    std::swap(smoothed, pass);
  }
  // Three averages delay by 3 (factor - 1) / 2 samples; B and A alike, so lags are unchanged.
  std::vector<float> out(static_cast<size_t>(length / factor));
  for (size_t i = 0; i < out.size(); ++i) {
    out[i] = static_cast<float>(smoothed[i * static_cast<size_t>(factor)]);
  }
  return out;
}

// The prediction-error filter of the given order for samples (autocorrelation method,
// Levinson-Durbin): filter[0] = 1, and samples convolved with it come out nearly white.
std::vector<double> whiteningFilter(const std::vector<float>& samples, int order) {
  std::vector<double> r(static_cast<size_t>(order + 1), 0.0);
  const auto count = static_cast<int64_t>(samples.size());
  for (int lag = 0; lag <= order; ++lag) {
    double sum = 0.0;
    for (int64_t n = lag; n < count; ++n) {
      sum += static_cast<double>(samples[n]) * samples[n - lag];
    }
    r[lag] = sum;
  }
  std::vector<double> filter(static_cast<size_t>(order + 1), 0.0);
  filter[0] = 1.0;
  // A hair of white noise keeps the recursion stable on a pure tone or digital silence.
  double error = r[0] * (1.0 + 1e-6);
  for (int i = 1; i <= order && error > 0.0; ++i) {
    double acc = r[i];
    for (int j = 1; j < i; ++j) {
      acc += filter[j] * r[i - j];
    }
    const double reflection = -acc / error;
    std::vector<double> previous(filter);
    for (int j = 1; j < i; ++j) {
      filter[j] = previous[j] + reflection * previous[i - j];
    }
    filter[i] = reflection;
    error *= 1.0 - reflection * reflection;
  }
  return filter;
}

void applyFilter(const std::vector<double>& filter, std::vector<float>& samples) {
  const auto order = static_cast<int64_t>(filter.size()) - 1;
  for (auto n = static_cast<int64_t>(samples.size()) - 1; n >= 0; --n) {
    double sum = 0.0;
    for (int64_t j = 0; j <= order && j <= n; ++j) {
      sum += filter[j] * samples[n - j];
    }
    samples[n] = static_cast<float>(sum);
  }
}

}  // namespace

VDDelayAcquisition::VDDelayAcquisition(const float* channelA, const float* channelB,
                                       int64_t length, double samplingRate) {
  findPeaks(channelA, channelB, length, samplingRate);
  fitLines();
}

void VDDelayAcquisition::findPeaks(const float* channelA, const float* channelB, int64_t length,
                                   double samplingRate) {
  _factor = std::max<int64_t>(1, std::llround(samplingRate / kDecimatedRate));
  std::vector<float> a = decimated(channelA, length, _factor);
  std::vector<float> b = decimated(channelB, length, _factor);
  const std::vector<double> filter = whiteningFilter(a, kWhiteningOrder);
  applyFilter(filter, a);
  applyFilter(filter, b);
  const auto count = static_cast<int64_t>(a.size());
  const int64_t segment = std::min(kSegmentLength, count / 2);
  if (segment < kShortestSegment) {
    return;
  }
  const int64_t range =
      std::min<int64_t>(count, std::llround(kRangeSeconds * samplingRate / static_cast<double>(_factor)));
  const double spacing = kSegmentSpacingSeconds * samplingRate / static_cast<double>(_factor);
  _segmentCount = static_cast<int>(
      std::clamp<double>(std::floor(static_cast<double>(count) / spacing), kFewestSegments,
                         kMostSegments));
  _segmentCount = static_cast<int>(std::min<int64_t>(_segmentCount, count / segment));
  VDFFTCorrelator correlator(VDFFTCorrelator::fastSize(static_cast<size_t>(2 * range + segment)));
  const auto size = static_cast<int64_t>(correlator.size());
  std::vector<double> taper(static_cast<size_t>(segment));
  for (int64_t n = 0; n < segment; ++n) {
    taper[n] = 0.5 - 0.5 * std::cos(2.0 * M_PI * (static_cast<double>(n) + 0.5) /
                                    static_cast<double>(segment));
  }
  std::vector<Peak> found;
  _segmentCentres.assign(static_cast<size_t>(_segmentCount), 0.0);
  _segmentBestScore.assign(static_cast<size_t>(_segmentCount), 0.0);
  for (int s = 0; s < _segmentCount; ++s) {
    const int64_t start =
        _segmentCount == 1 ? 0 : s * (count - segment) / (_segmentCount - 1);
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
    for (int64_t k = 0; k < size; ++k) {
      const int64_t n = start - range + k;
      other[k] = n >= 0 && n < count && k < 2 * range + segment ? b[n] : 0.0;
    }
    const double* c = correlator.correlate();
    double sumSquares = 0.0;
    for (int64_t k = 0; k <= 2 * range; ++k) {
      sumSquares += c[k] * c[k];
    }
    const double rms = std::sqrt(sumSquares / static_cast<double>(2 * range + 1));
    if (!(rms > 0.0)) {
      continue;
    }
    found.clear();
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
      peak.segment = s;
      peak.centre = _segmentCentres[s];
      peak.lag = (static_cast<double>(k - range) + fraction) * static_cast<double>(_factor);
      peak.polarity = sign;
      peak.score = magnitude / rms;
      found.push_back(peak);
    }
    const size_t kept = std::min(found.size(), kPeaksPerSegment);
    std::partial_sort(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(kept),
                      found.end(), [](const Peak& x, const Peak& y) { return x.score > y.score; });
    _peaks.insert(_peaks.end(), found.begin(), found.begin() + static_cast<std::ptrdiff_t>(kept));
    if (kept > 0) {
      _segmentBestScore[s] = found.front().score;
    }
  }
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
  for (const Peak* peak : best) {
    if (peak != nullptr) {
      line.score += peak->score;
      line.supportedAt.push_back(peak->centre);
    }
  }
  line.netScore = line.score;
  if (!line.supportedAt.empty()) {
    for (int s = 0; s < _segmentCount; ++s) {
      if (best[s] == nullptr && _segmentCentres[s] > line.supportedAt.front() &&
          _segmentCentres[s] < line.supportedAt.back()) {
        line.netScore -= _segmentBestScore[s];
      }
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
  for (const Peak& peak : _peaks) {
    if (available[peak.segment] && peak.polarity == line.polarity &&
        std::fabs(peak.lag - line.delayAt(peak.centre)) <= tolerance) {
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
    if (available[peak.segment] && peak.polarity == fitted.polarity &&
        std::fabs(residual) <= tolerance) {
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
  // The few best peaks of each segment propose lines.
  std::vector<const Peak*> proposers;
  std::vector<size_t> perSegment(static_cast<size_t>(_segmentCount), 0);
  for (const Peak& peak : _peaks) {
    if (perSegment[peak.segment]++ < kProposingPeaks) {
      proposers.push_back(&peak);
    }
  }
  const auto better = [](const Line& x, const Line& y) { return x.netScore > y.netScore; };
  const auto strongest = [&](const std::vector<Line>& candidates) {
    return std::min_element(candidates.begin(), candidates.end(), better);
  };
  // The main line: through every pair of proposing peaks of two segments, and through each one
  // alone with no drift (a recording with one segment of signal).
  std::vector<Line> candidates;
  for (size_t i = 0; i < proposers.size(); ++i) {
    const Peak& p = *proposers[i];
    candidates.push_back(lineThrough(p.lag, 0.0, p.polarity, available));
    for (size_t j = i + 1; j < proposers.size(); ++j) {
      const Peak& q = *proposers[j];
      if (q.segment == p.segment || q.polarity != p.polarity) {
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
  Line main = refitted(*strongest(candidates), available);
  const size_t minimumSupport = _segmentCount >= 2 ? 2 : 1;
  if (main.supportedAt.size() < minimumSupport) {
    return;
  }
  // Another offset scoring as well on mostly the same segments: a signal that repeats exactly.
  for (const Line& other : candidates) {
    const double middle = main.supportedAt[main.supportedAt.size() / 2];
    if (std::fabs(other.delayAt(middle) - main.delayAt(middle)) > 2.0 * main.tolerance &&
        2 * other.supportedAt.size() >= main.supportedAt.size() &&
        other.score >= kAmbiguousScore * main.score) {
      _ambiguous = true;
    }
  }
  _lines.push_back(main);
  // Steps: lines of the same slope through the segments the lines so far do not explain.
  for (const Peak& peak : _peaks) {
    for (double centre : main.supportedAt) {
      if (peak.centre == centre) {
        available[peak.segment] = false;
      }
    }
  }
  while (_lines.size() < kMostLines) {
    candidates.clear();
    for (const Peak& peak : _peaks) {
      if (available[peak.segment]) {
        candidates.push_back(lineThrough(peak.lag - main.drift * peak.centre, main.drift,
                                         peak.polarity, available));
      }
    }
    if (candidates.empty()) {
      break;
    }
    Line step = *strongest(candidates);
    if (step.supportedAt.size() < minimumSupport || !(step.netScore > 0.0)) {
      break;
    }
    step.tolerance = main.tolerance;
    step.driftUncertainty = main.driftUncertainty;
    for (const Peak& peak : _peaks) {
      if (std::find(step.supportedAt.begin(), step.supportedAt.end(), peak.centre) !=
          step.supportedAt.end()) {
        available[peak.segment] = false;
      }
    }
    _lines.push_back(std::move(step));
  }
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
