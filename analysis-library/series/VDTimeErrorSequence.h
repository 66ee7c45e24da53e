#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "VDPlotRecords.h"
#include "VDTimeErrorValue.h"

// A VDTimeErrorSequence holds the time error values of one series in the order they were
// recorded, exports them as CSV and writes the script that plots them.
class VDTimeErrorSequence {
 public:
  // countsPerNanosecond: the unit of the values' errors (1: ns; 1000: ps, for inputs that
  // resolve less than a nanosecond).
  explicit VDTimeErrorSequence(std::vector<VDTimeErrorValue> timeErrors,
                               int64_t countsPerNanosecond = 1);
  virtual ~VDTimeErrorSequence() = default;

  const std::vector<VDTimeErrorValue>& timeErrors() const { return _timeErrors; }
  int64_t countsPerNanosecond() const { return _countsPerNanosecond; }

  // Writes "time,time_error" and one row per value into directory/filename, the time in
  // nanoseconds and the error in nanoseconds, with decimals where the counts are finer. Returns
  // false when the file could not be written; never throws.
  bool exportTimeErrorsToDirectoryURL(const std::filesystem::path& directory,
                                      const std::string& filename) const;

  // The rows of that CSV that its figure draws (VDPlotReduction::rowsForPlotRun), for the plot
  // run to take from memory.
  VDPlotRecords plotRecords() const;

  // The matplotlib script that plots the CSV written by exportTimeErrorsToDirectoryURL. With no
  // outputPath the script reads the CSV from beside itself; with a plotPath it saves the
  // figure there; showPlot ends it with plt.show(), otherwise with plt.close(f1).
  virtual std::string generatePythonScriptWithOutputPath(
      const std::optional<std::string>& outputPath, const std::string& fileName,
      const std::string& titleName, const std::optional<std::string>& plotPath,
      bool showPlot) const;

 private:
  std::vector<VDTimeErrorValue> _timeErrors;
  int64_t _countsPerNanosecond;
};
