#pragma once

#include <cstdint>
#include <vector>

// A VDDelayAcquisition finds, before any window is measured, where B's delay against A runs over
// the whole recording: a few dozen segments of A, spread over it, are correlated with B over
// +-60 s (early and late alike) on a decimated, whitened correlation, each keeping its highest
// peaks of either sign, of the plain correlation and of a partially whitened one; a straight line,
// offset + drift x position, is then fitted robustly through the peaks that line up across
// segments. A repeating bar or a held note gives every segment peaks at wrong lags too, but those
// differ from segment to segment and do not line up with a drift below 1 %, while the true delay
// does. Steps and dropouts show as further lines of the same slope, each supported by the segments
// after (or before) the step.
class VDDelayAcquisition {
 public:
  // One line of the delay, in channel A samples: delay(position) = offset + drift position.
  struct Line {
    double offset = 0.0;
    double drift = 0.0;
    double polarity = 1.0;          // -1 when B is upside down along this line
    double tolerance = 0.0;         // how far the true delay may lie from the line, samples
    double driftUncertainty = 0.0;  // of the drift: a decimated sample over the line's span
    // Over its best run of consecutive segments: its peaks' scores less the best peaks of the
    // segments that could show a peak on it but have theirs elsewhere. A line across a staircase
    // of steps meets a few segments of each stair, and every segment it passes by speaks
    // against it.
    double netScore = 0.0;
    std::vector<double> supportedAt;  // centres of the segments whose peaks lie on it
    std::vector<double> scores;       // per segment: the score of its peak on it, else 0

    double delayAt(double position) const { return offset + drift * position; }
  };

  // The channels are borrowed; the search runs in the constructor.
  VDDelayAcquisition(const float* channelA, const float* channelB, int64_t length,
                     double samplingRate);

  // Strongest first; empty when no two segments agree (or, in a recording too short for two,
  // the one segment found nothing).
  const std::vector<Line>& lines() const { return _lines; }

  // The line whose supporting segments lie nearest to position; nullptr without lines.
  const Line* lineAt(double position) const;

  // Peaks below this many times the correlation's RMS over all lags are not kept: unrelated
  // signals over 480,000 lags reach about 5.
  static constexpr double kMinimumScore = 6.0;
  // Lines steeper than this are not proposed: clocks drift by a few hundred ppm at most, while a
  // line from one repeated bar to another across a few seconds would be far steeper.
  static constexpr double kMaximumDrift = 2e-3;

 private:
  struct Peak {
    int segment = 0;
    double centre = 0.0;  // channel A samples
    double lag = 0.0;     // samples
    double polarity = 1.0;
    double score = 0.0;
    bool proposes = false;  // among the lines' proposers: its view's best, or tied with it
  };

  void findPeaks(const float* channelA, const float* channelB, int64_t length, double samplingRate);
  // Adds the segment's highest peaks of one view of its correlation: c[k] at lag k - range,
  // k = 0 .. 2 range.
  void keepPeaks(int segment, const double* c, int64_t range);
  // The segments' best peaks on the line through offset and drift, one per segment.
  Line lineThrough(double offset, double drift, double polarity,
                   const std::vector<bool>& available) const;
  Line refitted(const Line& line, const std::vector<bool>& available) const;
  // Whether segment s could show a peak on the line: its match lies inside B and the range.
  bool checkable(const Line& line, int s) const;
  // The strongest of the candidates (not empty) that no other beats; sorts them.
  const Line& strongestUnbeaten(std::vector<Line>& candidates) const;
  // Whether x scores higher than y on y's segments where x could show a peak too, at least half
  // of y's.
  bool beats(const Line& x, const Line& y) const;
  void fitLines();

  int64_t _factor = 1;  // native samples per decimated sample
  int _segmentCount = 0;
  std::vector<Peak> _peaks;
  std::vector<double> _segmentCentres;    // channel A samples
  double _segmentSpan = 0.0;              // channel A samples
  double _length = 0.0;                   // channel B samples
  double _range = 0.0;                    // lags searched either way, samples
  std::vector<double> _segmentBestScore;  // 0 for a segment without peaks
  std::vector<Line> _lines;
};
