#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "VDAnalysisClass.h"
#include "VDStatisticPoint.h"
#include "VDTimeErrorValue.h"

// A VDStatisticAnalysis computes one stability statistic of a time error series over a range of
// window sizes and exports the results as CSV. The five statistics are its subclasses.
class VDStatisticAnalysis {
 public:
  explicit VDStatisticAnalysis(const std::vector<VDTimeErrorValue>& timeErrorValues);
  virtual ~VDStatisticAnalysis() = default;

  // Evaluates every window size start, start+step, ... up to end that the statistic defines for
  // this series; other window sizes are skipped. Never fails.
  void performAnalysisFromStartWindowSize(int64_t startWindowSize, int64_t endWindowSize,
                                          int64_t stepSize);

  // Writes the results within the given window range as CSV into directory/filename.
  bool exportAnalysisToDirectoryURL(const std::filesystem::path& directory,
                                    const std::string& filename, int64_t startWindowSize,
                                    int64_t endWindowSize, int64_t stepSize) const;

  // The class-level operations of this object's dynamic class.
  virtual const VDAnalysisClass& analysisClass() const = 0;

  // Results in ascending window order.
  const std::vector<VDStatisticPoint>& points() const { return _points; }

 protected:
  // Largest window size the statistic defines for sampleCount samples (0 when none).
  virtual int64_t largestWindowSize(int64_t sampleCount) const = 0;
  // The statistic for one window of windowSize samples; false when it cannot be evaluated.
  virtual bool evaluateWindow(int64_t windowSize, VDStatisticPoint& point) = 0;

  std::vector<int64_t> _errors;  // ns, in file order
  double _tau0;                  // sample interval, seconds

 private:
  std::vector<VDStatisticPoint> _points;
};
