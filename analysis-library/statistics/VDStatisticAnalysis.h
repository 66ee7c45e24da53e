#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "VDAnalysisClass.h"
#include "VDAnalysisProgress.h"
#include "VDPlotRecords.h"
#include "VDStatisticPoint.h"
#include "VDTimeErrorValue.h"
#include "VDWindowRange.h"

// A VDStatisticAnalysis computes one stability statistic of a time error series over a range of
// window sizes and exports the results as CSV. The five statistics are its subclasses.
//
// A window of m samples has the observation interval tau = m * tau0, where tau0 is the mean
// sample interval (last timestamp - first timestamp) / (count - 1). When the series has fewer
// than two samples, or its last timestamp is not after its first, tau0 is taken as 1 s, so tau
// is never zero, negative or NaN.
class VDStatisticAnalysis {
 public:
  explicit VDStatisticAnalysis(const std::vector<VDTimeErrorValue>& timeErrorValues);
  // The same for listed values; it also makes Analysis({}), the empty series, unambiguous
  // (otherwise {} would fit the copy constructor as well).
  explicit VDStatisticAnalysis(std::initializer_list<VDTimeErrorValue> timeErrorValues)
      : VDStatisticAnalysis(std::vector<VDTimeErrorValue>(timeErrorValues)) {}
  virtual ~VDStatisticAnalysis() = default;

  // Evaluates every window size start, start+step, ... up to end that the statistic defines for
  // this series; other window sizes are skipped (a start below the smallest defined window
  // begins at the first defined window reachable in steps of step; step < 1 gives none). The
  // results replace those of any earlier call. Never fails.
  void performAnalysisFromStartWindowSize(int64_t startWindowSize, int64_t endWindowSize,
                                          int64_t stepSize);

  // The observer that later evaluations report their progress to; none (nullptr) by default. Not
  // owned: it must outlive the calls of performAnalysisFromStartWindowSize.
  void setProgressObserver(VDAnalysisProgress* observer) { _progressObserver = observer; }

  // Writes the results whose window size is in start, start+step, ... up to end as CSV into
  // directory/filename: a header "window,tau,<value column>,terms" and one row per result, the
  // window in samples, tau in seconds, the value and the number of terms behind it; for the
  // deviations with confidence bounds then "alpha,edf,<value>_min,<value>_max". Returns
  // false when the file could not be written; never throws.
  bool exportAnalysisToDirectoryURL(const std::filesystem::path& directory,
                                    const std::string& filename, int64_t startWindowSize,
                                    int64_t endWindowSize, int64_t stepSize) const;

  // The rows of that CSV that its figure draws (VDPlotReduction::rowsForPlotRun over tau and
  // the value, with the confidence bounds where there are any), for the plot run to take from
  // memory.
  VDPlotRecords plotRecords(int64_t startWindowSize, int64_t endWindowSize, int64_t stepSize) const;

  // How many counts of the time errors make a nanosecond (1 by default; 1000 for values kept to
  // the picosecond): the results are in nanoseconds whatever the unit of the counts.
  void setCountsPerNanosecond(int64_t counts) { _countsPerNanosecond = counts; }

  // The class-level operations of this object's dynamic class.
  virtual const VDAnalysisClass& analysisClass() const = 0;

  // Results in ascending window order.
  const std::vector<VDStatisticPoint>& points() const { return _points; }

 protected:
  // Largest window size the statistic defines for sampleCount samples (0 when none); the
  // smallest is always 1.
  virtual int64_t largestWindowSize(int64_t sampleCount) const = 0;
  // The statistic for each window size of windows, which lie within 1..largestWindowSize, in
  // ascending order.
  virtual std::vector<VDStatisticPoint> evaluateWindows(const VDWindowRange& windows) const = 0;

  // What a computation calls with the number of windows of windows it has finished (in their
  // order), to tell the observer; termsOf(windowSize) weighs each window's share of the work.
  std::function<void(uint64_t)> windowsDoneReporter(const VDWindowRange& windows,
                                                    std::function<double(int64_t)> termsOf) const;

  // tau of a window of windowSize samples, seconds.
  double tauOfWindow(int64_t windowSize) const { return static_cast<double>(windowSize) * _tau0; }

  std::vector<int64_t> _errors;  // ns, in file order
  double _tau0;                  // sample interval, seconds

 private:
  std::vector<VDStatisticPoint> _points;
  VDAnalysisProgress* _progressObserver = nullptr;
  int64_t _countsPerNanosecond = 1;
};
