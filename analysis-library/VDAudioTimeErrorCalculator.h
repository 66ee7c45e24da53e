#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "VDTimeErrorValue.h"

// A VDAudioTimeErrorCalculator measures, window by window, how far channel B of two recordings
// of one signal lags channel A, by cross-correlating them, and gives the series as time errors.
//
// Parameters (all in samples except the rate):
//   interval           samples between the starts of successive windows: windows start at
//                      0, interval, 2 interval, ... as long as a whole window fits in the length.
//   correlationLength  samples per window of channel A that are correlated with channel B.
//   upscaleFactor      sub-sample resolution: the correlation peak is located on a grid of
//                      1/upscaleFactor sample, then refined by a parabola through the three grid
//                      points around the peak. Not used by the quick type.
//   samplingRate       Hz; converts samples to seconds.
//   correlationType    0 quick: FFT cross-correlation at the native rate, peak refined by a
//                        parabola through the three samples around it.
//                      1 resampler: both windows upsampled by upscaleFactor with a Kaiser-windowed
//                        sinc interpolator (40 taps, beta 11) fed by the samples around them, then
//                        correlated on the fine grid near the native peak.
//                      2 post-resampler (default): correlation at the native rate, then the same
//                        interpolator applied to the correlation itself around its peak.
//                      Any other value means 2.
//   The channels are borrowed, not copied: they must stay valid until the calculator is gone.
//
// Method. The first window with signal finds the offset by an FFT cross-correlation of two
// seconds of channel A (or the whole length, if shorter) against channel B over +-1 second
// (clamped to the length; the search range is the larger of 1 second and 2 windows' length,
// never more than the data), scored by the correlation normalised over the overlapping samples.
// Each later window then searches only +-32 samples around the previous window's peak, so an
// offset that drifts by many windows over the recording is followed; a window whose peak lands
// on the edge of that range, or whose correlation is too weak, triggers a new wide search (at
// most one per second of data), which is how jumps are recovered.
//
// Each window yields the delay of B against A in seconds, positive when B lags A, stamped at the
// window's centre, (start + (correlationLength - 1) / 2) / samplingRate seconds from the start of
// the channels. A window yields nothing, but is still listed in the diagnostic export, when:
//   silent   channel A's window, or B's matching stretch, holds no energy;
//   weak     the normalised correlation peak, sum(a b) / sqrt(sum(a^2) sum(b^2)) over the window,
//            is below 0.2 (uncorrelated noise of a 4096-sample window scores about 0.05);
//   lost     the peak stayed on the edge of the search range even after a wide search;
//   outside  less than half of B's matching stretch lies inside the recording.
//
// Limits: zero or negative length, interval, correlation length or upscale factor, a sampling
// rate that is not a positive finite number, a window longer than the data or than 4194304
// samples, more than 4194304 windows, or (resampler only) correlationLength x upscaleFactor above
// 4194304, give an empty series. Upscale factors above 2^40 work as 2^40.
class VDAudioTimeErrorCalculator {
 public:
  enum CorrelationType : int64_t { kQuick = 0, kResampler = 1, kPostResampler = 2 };

  enum class WindowStatus { Used, Silent, Weak, Lost, Outside };

  // What one window gave; the diagnostic export writes one row per window.
  struct Window {
    int64_t start = 0;           // first sample of channel A's window
    int64_t integerLag = 0;      // lag of the native correlation peak (the searched-around lag
                                 // when there is none), samples
    double refinedLag = 0;       // sub-sample lag, samples; meaningful when Used
    double peakCorrelation = 0;  // normalised correlation at the integer peak
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
  // "window_start,integer_lag,refined_lag,delay,peak_correlation,used,status": window_start and
  // integer_lag in samples, refined_lag in samples and delay in seconds (nan when not used),
  // peak_correlation, used 1 or 0, status one of used, silent, weak, lost, outside.
  // False when the file could not be written.
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
  struct Tracking;

  // The best whole-sample offset from the predicted delay and its normalised correlation.
  struct Peak {
    int64_t offset = 0;
    double correlation = 0.0;
  };

  bool parametersUsable() const;
  Tracking newTracking() const;
  double windowCentreSeconds(const Window& window) const;
  double delaySeconds(const Window& window) const;
  void measureWindow(int64_t start, Tracking& tracking, Window& window) const;
  void remeasure(Tracking& tracking, Window& window) const;
  WindowStatus correlateAround(int64_t start, double predicted, Tracking& tracking,
                               Peak& peak) const;
  double refinedDelay(int64_t start, double predicted, const Peak& peak, Tracking& tracking) const;
  std::optional<int64_t> searchOffset(int64_t start, Tracking& tracking) const;
  double refinedOffset(int64_t start, int64_t peakOffset, Tracking& tracking) const;
  double resampledPeakOffset(int64_t start, int64_t peakOffset, Tracking& tracking) const;

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
