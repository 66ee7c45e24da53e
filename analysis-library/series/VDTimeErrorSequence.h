#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "VDTimeErrorValue.h"

// A VDTimeErrorSequence holds the time error values of one series in the order they were
// recorded, exports them as CSV and writes the script that plots them.
class VDTimeErrorSequence {
 public:
  explicit VDTimeErrorSequence(std::vector<VDTimeErrorValue> timeErrors);
  virtual ~VDTimeErrorSequence() = default;

  const std::vector<VDTimeErrorValue>& timeErrors() const { return _timeErrors; }

  // Writes "time,time_error" and one row of integer nanoseconds per value into
  // directory/filename. Returns false when the file could not be written; never throws.
  bool exportTimeErrorsToDirectoryURL(const std::filesystem::path& directory,
                                      const std::string& filename) const;

  // The matplotlib script that plots the CSV written by exportTimeErrorsToDirectoryURL. With no
  // outputPath the script reads the CSV from beside itself; with a plotPath it saves the
  // figure there; showPlot ends it with plt.show(), otherwise with plt.close(f1).
  virtual std::string generatePythonScriptWithOutputPath(
      const std::optional<std::string>& outputPath, const std::string& fileName,
      const std::string& titleName, const std::optional<std::string>& plotPath,
      bool showPlot) const;

 private:
  std::vector<VDTimeErrorValue> _timeErrors;
};
