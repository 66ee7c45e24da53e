#include "VDTimeErrorSequence.h"

#include <cstdint>
#include <utility>

#include "VDCSVBuffer.h"
#include "VDPlotReduction.h"
#include "VDPlotScript.h"
#include "VDResultPath.h"

VDTimeErrorSequence::VDTimeErrorSequence(std::vector<VDTimeErrorValue> timeErrors,
                                         int64_t countsPerNanosecond)
    : _timeErrors(std::move(timeErrors)), _countsPerNanosecond(countsPerNanosecond) {}

bool VDTimeErrorSequence::exportTimeErrorsToDirectoryURL(const std::filesystem::path& directory,
                                                         const std::string& filename) const {
  try {
    VDCSVBuffer csv(VDResultPath::inDirectory(directory, filename));
    csv.appendText("time,time_error\n");
    for (const VDTimeErrorValue& value : _timeErrors) {
      csv.appendUnsigned(value.timestamp());
      csv.appendSeparator();
      if (_countsPerNanosecond == 1) {
        csv.appendInteger(value.error());
      } else {
        // A division by the power of ten rounds once: 1234 ps read back as 1.234 ns.
        csv.appendDouble(static_cast<double>(value.error()) /
                         static_cast<double>(_countsPerNanosecond));
      }
      csv.endRow();
    }
    return csv.finish();
  } catch (...) {
    // Out of memory: reported like any other failed write.
    return false;
  }
}

VDPlotRecords VDTimeErrorSequence::plotRecords() const {
  const double countsPerNanosecond = static_cast<double>(_countsPerNanosecond);
  const auto error = [&](size_t i) {
    return static_cast<double>(_timeErrors[i].error()) / countsPerNanosecond;
  };
  const std::vector<size_t> rows = VDPlotReduction::rowsForPlotRun(
      _timeErrors.size(),
      [this](size_t i) { return static_cast<double>(_timeErrors[i].timestamp()); }, false, {error});
  // Typed as the CSV reader types the columns: integers unless a value is not one (a time
  // beyond int64, which the CSV prints unsigned, or an error with decimals).
  VDPlotRecords records;
  VDPlotRecords::Column time{"time", true, {}, {}};
  VDPlotRecords::Column timeError{"time_error", _countsPerNanosecond == 1, {}, {}};
  for (const size_t row : rows) {
    time.integral = time.integral && _timeErrors[row].timestamp() <= uint64_t{INT64_MAX};
  }
  for (const size_t row : rows) {
    const VDTimeErrorValue& value = _timeErrors[row];
    if (time.integral) {
      time.integers.push_back(static_cast<int64_t>(value.timestamp()));
    } else {
      time.reals.push_back(static_cast<double>(value.timestamp()));
    }
    if (timeError.integral) {
      timeError.integers.push_back(value.error());
    } else {
      timeError.reals.push_back(error(row));
    }
  }
  records.columns = {std::move(time), std::move(timeError)};
  return records;
}

std::string VDTimeErrorSequence::generatePythonScriptWithOutputPath(
    const std::optional<std::string>& outputPath, const std::string& fileName,
    const std::string& titleName, const std::optional<std::string>& plotPath, bool showPlot) const {
  std::string script = VDPlotScript::header();
  script += "timeErrorRecords = mlab.csv2rec(" +
            VDPlotScript::csvPathExpression(outputPath, fileName) +
            ")\n"
            "\n"
            "time = timeErrorRecords.time\n"
            "timeError = timeErrorRecords.time_error\n"
            "\n";
  const bool reduce = plotPath.has_value();
  script += VDPlotScript::shownPoints(reduce, "time", false, {"timeError"});
  script += VDPlotScript::curveOptions(VDPlotScript::drawn(reduce, "time"));
  script += "\n";
  script += "f1, ax1 = plt.subplots()\n";
  script += "ax1.plot(" + VDPlotScript::drawn(reduce, "time") + ", " +
            VDPlotScript::drawn(reduce, "timeError") +
            ", color='#b03a2e', linestyle='-', linewidth=1.0, marker=markerStyle, markersize=4, "
            "label='Time error', rasterized=rasterizeCurve)\n";
  script += VDPlotScript::legend("timeError");
  script += VDPlotScript::labels("Time (ns)", "Time Error (ns)", "Time Errors - " + titleName);
  script += "ax1.grid(True, linestyle='-', linewidth=0.8, alpha=0.6)\n";
  script += "\n";
  script += VDPlotScript::ending(VDPlotScript::kDefaultPlotSize, plotPath, showPlot);
  return script;
}
