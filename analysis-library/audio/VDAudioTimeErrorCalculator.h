#pragma once

#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "VDLagSearch.h"
#include "VDTimeErrorValue.h"

struct VDAudioTracking;
struct VDWindowPeak;
class VDWindowCorrelation;

// A VDAudioTimeErrorCalculator measures, window by window, how far channel B of two recordings
// of one signal lags channel A, by cross-correlating them, and gives the series as time errors.
//
// Parameters (all in samples except the rate):
//   interval           samples between the starts of successive windows: windows start at
//                      0, interval, 2 interval, ... as long as a whole window fits in the length.
//   correlationLength  samples per window.
//   upscaleFactor      sub-sample resolution: the correlation peak is located on a grid of
//                      1/upscaleFactor sample, then refined by a parabola through the three grid
//                      points around it. Not used by the quick type.
//   samplingRate       Hz; converts samples to seconds.
//   correlationType    0 quick: correlation at the native rate (FFT), peak refined by a parabola
//                        through the three samples around it.
//                      1 resampler: both windows upsampled by upscaleFactor with a Kaiser-windowed
//                        sinc interpolator (40 taps, beta 11) fed by the samples around them, then
//                        correlated on the fine grid within a sample of the native peak.
//                      2 post-resampler (default): correlation at the native rate (FFT), then the
//                        same interpolator applied to the correlation around its peak.
//                      Any other value means 2.
// The channels are borrowed, not copied: they must stay valid while the calculator is used.
//
// What a window gives: the delay of B against A, positive when B lags A, in seconds, at the
// window's centre, (start + (correlationLength - 1) / 2) / samplingRate seconds from the first
// sample of the channels. timeErrors() gives timestamp and delay in whole nanoseconds, rounded.
//
// How the delay is followed:
//   - Before any window, VDDelayAcquisition fits lines of the delay across the whole recording
//     from whitened, decimated correlations of segments of A with B over +-61 s. The first
//     window with signal starts from the line nearest to it (on a whole sample); windows before
//     the first one with a value are measured backwards from it, as soon as the drift line is
//     full. Where no line is found (one steady tone, which the whitening takes out), the first
//     window takes its highest peak near no delay and every later one the peak within 4 samples
//     of the one before: the offset is then known modulo the tone's period.
//   - Every later window is correlated only +-32 samples around the delay predicted from the
//     windows before it. A window gives a value only when its best peak is clearly the best
//     (VDCorrelationPeak): within 2 samples of the prediction (plus, for the first window, how
//     far the line may miss; plus 2e-5 of the distance to the last measured window once the
//     drift is known from windows or a line, 1% before), and, while the drift is not known yet
//     or after a long gap, at least 1.25 times every other peak in range.
//   - A window that fails while A holds signal looks for a step in the delay: a search of B
//     +-50 ms around the prediction (at once where A is loud or a value came just before, else at
//     most every half second of data), then +-2 s (every half second, twice as long after each
//     failure) and along the acquisition's other lines (after two seconds without a value);
//     failing those, a clear peak elsewhere in range. What it finds is a candidate; when the
//     next window does not fit the old delay but fits the candidate, the step is taken, both
//     windows get their values, and the drift line is fitted again from the step on (its last slope
//     standing in until four windows are in). In a recording with pauses the wider searches wait
//     for A to be loud.
//   - The drift, a straight line through the delays of the last 16 windows (from 4 on), is
//     followed inside each window too: B is read through it, so a window measures the delay at
//     its centre rather than an average weighted by where the signal is loud. The first windows
//     of a track are measured again, until the drift settles, when it becomes known and when its
//     line is full.
//   - Each window's correlation and its refinement below a sample are VDWindowCorrelation's.
//   - Once a line or the windows place the delay, a window the plain correlation gives no value,
//     or one from a correlation below 0.4 (through two rooms, reflections move or blur its peak,
//     and A and B correlate less), is measured again on the partially whitened correlation,
//     where every band counts nearly alike; it takes that value when the peak there is clear
//     and near the prediction (within 4 samples once the drift is known), with a correlation
//     floor of 0.1 instead of 0.2. A track that gets a quarter of its values so steps only onto
//     one of the acquisition's lines: through two rooms the plain correlation peaks steadily at
//     reflections' lags too, which would otherwise pass for a step.
//
// A window yields no value, but is listed in the diagnostic export, when it is
//   silent     fewer than a quarter of channel A's window samples, or of B's matching stretch,
//              are non-zero (a few samples at the edge of digital silence say nothing reliable);
//   weak       its normalised correlation, sum(a b) / sqrt(sum(a^2) sum(b^2)) over the window at
//              the best whole-sample lag, is below 0.2 (unrelated noise in a 4096-sample window
//              scores about 0.05, a clean match about 1), or no delay has been found yet;
//   ambiguous  its best peak is not clearly the best: another peak comes close while the drift
//              is not known yet, or the best peak lies away from the prediction (a step that the
//              next window has not confirmed, or a wrong match);
//   uncertain  the delay's standard uncertainty, estimated from the peak's curvature and the
//              window's signal-to-noise ratio (VDCorrelationPeak), exceeds 208 ns while no line
//              is known, 30 us once one is; or, after VDUncertaintyCalibration has raised the
//              uncertainties by the values' own scatter, five times the recording's median (and
//              0.5 us), or its value lies far off its neighbours' lines;
//   lost       its peak lies on the edge of the +-32 sample range;
//   outside    less than half of it has both channels' neighbourhoods inside the recordings (its
//              match in B lies beyond B's start or end).
//
// Limits: zero or negative length, interval, correlation length or upscale factor, null channels,
// a sampling rate that is not a positive finite number, a window longer than the data or than
// 4194304 samples, more than 4194304 windows, or (resampler only) correlationLength x
// upscaleFactor above 4194304, give an empty series; upscale factors above 2^40 work as 2^40.
// Drifts beyond 1% are followed as 1% inside a window.
class VDAudioTimeErrorCalculator {
 public:
  enum CorrelationType : int64_t { kQuick = 0, kResampler = 1, kPostResampler = 2 };

  enum class WindowStatus { Used, Silent, Weak, Ambiguous, Uncertain, Lost, Outside };

  // What one window gave; the diagnostic export writes one row per window.
  struct Window {
    int64_t start = 0;           // first sample of channel A's window
    int64_t integerLag = 0;      // lag of the native correlation peak (the searched-around lag
                                 // when there is none), samples
    double refinedLag = 0;       // sub-sample lag, samples; meaningful when Used
    double peakCorrelation = 0;  // normalised correlation at the integer peak
    double peakRatio = 0;        // the highest other peak in range over the best one
    double delayUncertainty = std::numeric_limits<double>::quiet_NaN();  // standard, samples
    bool bInverted = false;  // B was measured upside down
    bool whitened = false;   // measured on the partially whitened correlation
    WindowStatus status = WindowStatus::Silent;
  };

  // The diagnostic export's file name, written by exportTimeErrorToPath into its directory.
  static constexpr const char* kWindowExportFileName = "audio_time_error_windows.csv";

  VDAudioTimeErrorCalculator(const float* channelA, const float* channelB, int64_t length,
                             int64_t interval, int64_t correlationLength, int64_t upscaleFactor,
                             double samplingRate, int64_t correlationType);

  // Measures every window; a second call measures afresh.
  void calculateTimeError();

  // Writes kWindowExportFileName into directoryPath, one row per window with the header
  // "window_start,integer_lag,refined_lag,delay,peak_correlation,used,status,delay_uncertainty,
  // peak_ratio,b_inverted": window_start and integer_lag in samples, refined_lag in samples and
  // delay in seconds (nan when not used), peak_correlation, used 1 or 0, status one of used,
  // silent, weak, ambiguous, uncertain, lost, outside, delay_uncertainty the delay's standard
  // uncertainty in seconds (nan when not used), peak_ratio the highest other peak over the best,
  // b_inverted 1 when B was measured upside down. False when the file could not be written.
  bool exportTimeErrorToPath(const std::string& directoryPath) const;

  // Writes directory/filename: the header "time,time_error" and one row per used window, the
  // window's centre and the delay, both in seconds (time to the nanosecond, delay to the
  // picosecond). False when the file could not be written.
  bool exportTimeErrorToDirectoryURL(const std::filesystem::path& directory,
                                     const std::string& filename) const;

  // One value per used window: timestamp and error in whole nanoseconds, rounded.
  std::vector<VDTimeErrorValue> timeErrors() const;

  // Every window of the last calculation, in order.
  const std::vector<Window>& windows() const { return _windows; }

  // The correlation type in effect (unknown codes replaced by kPostResampler).
  CorrelationType correlationType() const { return _correlationType; }

 private:
  using Tracking = VDAudioTracking;

  using Peak = VDWindowPeak;

  using SearchHit = VDLagSearchHit;

  bool parametersUsable() const;
  Tracking newTracking() const;
  int64_t secondsInSamples(double seconds) const;
  double windowCentre(int64_t start) const;
  void measureWindow(int64_t start, Tracking& tracking, Window& window) const;
  void measureBackwards(int64_t firstUsed, Tracking& tracking);
  // Correlates around predicted (on the whitened view where whitened) and judges the peak; may
  // move predicted to where the peak lies.
  WindowStatus measureAt(int64_t start, double& predicted, double polarity, double tolerance,
                         bool requireClear, Tracking& tracking, Peak& peak,
                         bool whitened = false) const;
  // The same on the partially whitened correlation, where the plain one gave status: for
  // channels whose colourings differ (two rooms), whose plain peak a reflection moves or
  // blurs. Only once a line places the delay, as this view holds no ambiguity of its own.
  WindowStatus measureWhitened(int64_t start, WindowStatus status, double& predicted,
                               Tracking& tracking, Peak& peak, Window& window) const;
  void fillWindow(double predicted, double polarity, const Peak& peak, Window& window) const;
  // meanSquare: of A over the window.
  void acceptWindow(int64_t start, double predicted, const Peak& peak, double meanSquare,
                    Tracking& tracking, Window& window) const;
  bool takeStep(int64_t start, double meanSquare, Tracking& tracking, Window& window) const;
  void remeasure(Tracking& tracking, Window& window) const;
  VDWindowCorrelation correlation() const;
  double refinedDelay(int64_t start, double predicted, const Peak& peak, Tracking& tracking) const;
  bool findFirstOffset(int64_t start, Tracking& tracking) const;
  std::optional<SearchHit> searchLines(int64_t start, double predicted, Tracking& tracking) const;
  std::optional<SearchHit> searchStep(int64_t start, double predicted, bool loud, bool quiet,
                                      Tracking& tracking) const;
  std::optional<SearchHit> searchOffset(int64_t start, int64_t around, int64_t range,
                                        double peakRatio, Tracking& tracking) const;

  const float* _channelA;
  const float* _channelB;
  int64_t _length;
  int64_t _interval;
  int64_t _correlationLength;
  int64_t _upscaleFactor;
  double _samplingRate;
  CorrelationType _correlationType;
  std::vector<Window> _windows;
};
