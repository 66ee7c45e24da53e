#include "VDStatisticAnalysis.h"

#include <limits>
#include <memory>
#include <utility>

#include "VDCSVBuffer.h"
#include "VDPlotReduction.h"
#include "VDResultPath.h"

namespace {

double sampleIntervalOf(const std::vector<VDTimeErrorValue>& values) {
  if (values.size() < 2) {
    return 1.0;
  }
  // Timestamps before the epoch arrive two's-complement wrapped, so the unsigned difference
  // read as signed is the true span.
  const auto span = static_cast<int64_t>(values.back().timestamp() - values.front().timestamp());
  if (span <= 0) {
    return 1.0;
  }
  // Evenly spaced in whole nanoseconds (1 PPS, 16 Hz): the interval exactly, so that 1 PPS gives
  // tau = m s, not m times 1.0000000000000002.
  const auto intervals = static_cast<int64_t>(values.size() - 1);
  if (span % intervals == 0) {
    return static_cast<double>(span / intervals) / 1e9;
  }
  return static_cast<double>(span) * 1e-9 / static_cast<double>(intervals);
}

}  // namespace

VDStatisticAnalysis::VDStatisticAnalysis(const std::vector<VDTimeErrorValue>& timeErrorValues)
    : _tau0(sampleIntervalOf(timeErrorValues)) {
  _errors.reserve(timeErrorValues.size());
  for (const VDTimeErrorValue& value : timeErrorValues) {
    _errors.push_back(value.error());
  }
}

void VDStatisticAnalysis::performAnalysisFromStartWindowSize(int64_t startWindowSize,
                                                             int64_t endWindowSize,
                                                             int64_t stepSize) {
  _points.clear();
  const auto sampleCount = static_cast<int64_t>(_errors.size());
  const VDWindowRange windows = VDWindowRange::clamped(startWindowSize, endWindowSize, stepSize, 1,
                                                       largestWindowSize(sampleCount));
  if (windows.empty()) {
    return;
  }
  if (_progressObserver != nullptr) {
    _progressObserver->analysisStarted(analysisClass().curveLabel(), windows.count());
  }
  _points = evaluateWindows(windows);
  // Every statistic is linear in the time errors, so values counted in a finer unit than the
  // nanosecond come out in nanoseconds (ADEV and MDEV: as fractions) by one division.
  if (_countsPerNanosecond != 1) {
    const auto counts = static_cast<double>(_countsPerNanosecond);
    for (VDStatisticPoint& point : _points) {
      point.value /= counts;
      point.minimum /= counts;
      point.maximum /= counts;
    }
  }
  if (_progressObserver != nullptr) {
    _progressObserver->analysisFinished();
  }
}

std::function<void(uint64_t)> VDStatisticAnalysis::windowsDoneReporter(
    const VDWindowRange& windows, std::function<double(int64_t)> termsOf) const {
  if (_progressObserver == nullptr) {
    return {};
  }
  // The work of the windows done so far grows as the reports come in, so all of them together
  // walk the windows once.
  struct Tally {
    uint64_t windowsCounted = 0;
    double workCounted = 0.0;
    double workInAll = 0.0;
  };
  auto tally = std::make_shared<Tally>();
  for (uint64_t index = 0; index < windows.count(); ++index) {
    tally->workInAll += termsOf(windows.at(index));
  }
  return [this, windows, termsOf = std::move(termsOf), tally](uint64_t windowsDone) {
    for (; tally->windowsCounted < windowsDone; ++tally->windowsCounted) {
      tally->workCounted += termsOf(windows.at(tally->windowsCounted));
    }
    const double share = tally->workInAll > 0.0 ? tally->workCounted / tally->workInAll : 1.0;
    _progressObserver->analysisProgressed(windowsDone, share);
  };
}

bool VDStatisticAnalysis::exportAnalysisToDirectoryURL(const std::filesystem::path& directory,
                                                       const std::string& filename,
                                                       int64_t startWindowSize,
                                                       int64_t endWindowSize,
                                                       int64_t stepSize) const {
  try {
    const VDWindowRange range = VDWindowRange::clamped(startWindowSize, endWindowSize, stepSize, 1,
                                                       std::numeric_limits<int64_t>::max());
    VDCSVBuffer csv(VDResultPath::inDirectory(directory, filename));
    csv.appendText("window,tau,");
    csv.appendText(analysisClass().valueColumn());
    csv.appendText(",terms");
    const bool withBounds = analysisClass().hasConfidenceBand();
    if (withBounds) {
      const std::string column = analysisClass().valueColumn();
      csv.appendText(",alpha,edf," + column + "_min," + column + "_max");
    }
    csv.endRow();
    for (const VDStatisticPoint& point : _points) {
      if (!range.contains(point.windowSize)) {
        continue;
      }
      csv.appendInteger(point.windowSize);
      csv.appendSeparator();
      csv.appendDouble(point.tau);
      csv.appendSeparator();
      csv.appendDouble(point.value);
      csv.appendSeparator();
      csv.appendUnsigned(point.termCount);
      if (withBounds) {
        csv.appendSeparator();
        csv.appendInteger(point.alpha);
        csv.appendSeparator();
        csv.appendDouble(point.edf);
        csv.appendSeparator();
        csv.appendDouble(point.minimum);
        csv.appendSeparator();
        csv.appendDouble(point.maximum);
      }
      csv.endRow();
    }
    return csv.finish();
  } catch (...) {
    // Out of memory: reported like any other failed write.
    return false;
  }
}

VDPlotRecords VDStatisticAnalysis::plotRecords(int64_t startWindowSize, int64_t endWindowSize,
                                               int64_t stepSize) const {
  const VDWindowRange range = VDWindowRange::clamped(startWindowSize, endWindowSize, stepSize, 1,
                                                     std::numeric_limits<int64_t>::max());
  std::vector<const VDStatisticPoint*> exported;
  for (const VDStatisticPoint& point : _points) {
    if (range.contains(point.windowSize)) {
      exported.push_back(&point);
    }
  }
  const bool withBounds = analysisClass().hasConfidenceBand();
  const auto column = [&exported](double VDStatisticPoint::*field) {
    return [&exported, field](size_t i) { return exported[i]->*field; };
  };
  std::vector<VDPlotReduction::Column> series{column(&VDStatisticPoint::value)};
  if (withBounds) {
    series.insert(series.end(),
                  {column(&VDStatisticPoint::minimum), column(&VDStatisticPoint::maximum)});
  }
  const std::vector<size_t> rows = VDPlotReduction::rowsForPlotRun(
      exported.size(), column(&VDStatisticPoint::tau), true, series);
  // The columns of the CSV, in its order.
  const std::string value = analysisClass().valueColumn();
  VDPlotRecords records;
  const auto integers = [&](const std::string& name, auto of) {
    VDPlotRecords::Column& out = records.columns.emplace_back();
    out.name = name;
    out.integral = true;
    for (const size_t row : rows) {
      out.integers.push_back(static_cast<int64_t>(of(*exported[row])));
    }
  };
  const auto reals = [&](const std::string& name, double VDStatisticPoint::*field) {
    VDPlotRecords::Column& out = records.columns.emplace_back();
    out.name = name;
    for (const size_t row : rows) {
      out.reals.push_back(exported[row]->*field);
    }
  };
  integers("window", [](const VDStatisticPoint& point) { return point.windowSize; });
  reals("tau", &VDStatisticPoint::tau);
  reals(value, &VDStatisticPoint::value);
  integers("terms", [](const VDStatisticPoint& point) { return point.termCount; });
  if (withBounds) {
    integers("alpha", [](const VDStatisticPoint& point) { return point.alpha; });
    reals("edf", &VDStatisticPoint::edf);
    reals(value + "_min", &VDStatisticPoint::minimum);
    reals(value + "_max", &VDStatisticPoint::maximum);
  }
  return records;
}
