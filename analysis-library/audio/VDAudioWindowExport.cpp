#include "VDAudioWindowExport.h"

#include <cmath>
#include <cstdio>
#include <limits>

#include "VDCSVBuffer.h"
#include "VDResultPath.h"

namespace {

using WindowStatus = VDAudioTimeErrorCalculator::WindowStatus;

uint64_t roundedTimestamp(double nanoseconds) {
  if (!(nanoseconds > 0.0)) {
    return 0;
  }
  if (nanoseconds >= 18446744073709551615.0) {
    return std::numeric_limits<uint64_t>::max();
  }
  return static_cast<uint64_t>(nanoseconds + 0.5);
}

int64_t roundedError(double nanoseconds) {
  if (std::isnan(nanoseconds)) {
    return 0;
  }
  if (nanoseconds >= 9.2e18) {
    return std::numeric_limits<int64_t>::max();
  }
  if (nanoseconds <= -9.2e18) {
    return std::numeric_limits<int64_t>::min();
  }
  return std::llround(nanoseconds);
}

const char* statusName(WindowStatus status) {
  switch (status) {
    case WindowStatus::Used:
      return "used";
    case WindowStatus::Silent:
      return "silent";
    case WindowStatus::Weak:
      return "weak";
    case WindowStatus::Ambiguous:
      return "ambiguous";
    case WindowStatus::Uncertain:
      return "uncertain";
    case WindowStatus::Lost:
      return "lost";
    case WindowStatus::Outside:
      return "outside";
  }
  return "";
}

void appendFormatted(VDCSVBuffer& buffer, const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  buffer.appendText(text);
}

}  // namespace

VDAudioWindowExport::VDAudioWindowExport(const std::vector<Window>& windows,
                                         int64_t correlationLength, double samplingRate)
    : _windows(windows), _correlationLength(correlationLength), _samplingRate(samplingRate) {}

double VDAudioWindowExport::centreSeconds(const Window& window) const {
  const double centre =
      static_cast<double>(window.start) + static_cast<double>(_correlationLength - 1) / 2.0;
  return centre / _samplingRate;
}

double VDAudioWindowExport::delaySeconds(const Window& window) const {
  return window.refinedLag / _samplingRate;
}

std::vector<VDTimeErrorValue> VDAudioWindowExport::timeErrors() const {
  std::vector<VDTimeErrorValue> values;
  for (const Window& window : _windows) {
    if (window.status == WindowStatus::Used) {
      values.emplace_back(roundedTimestamp(centreSeconds(window) * 1e9),
                          roundedError(delaySeconds(window) * 1e9));
    }
  }
  return values;
}

bool VDAudioWindowExport::writeSeries(const std::filesystem::path& directory,
                                      const std::string& filename) const {
  VDCSVBuffer buffer;
  buffer.appendText("time,time_error\n");
  for (const Window& window : _windows) {
    if (window.status == WindowStatus::Used) {
      appendFormatted(buffer, "%.9f", centreSeconds(window));
      buffer.appendSeparator();
      appendFormatted(buffer, "%.12f", delaySeconds(window));
      buffer.endRow();
    }
  }
  return buffer.writeToFile(VDResultPath::inDirectory(directory, filename));
}

bool VDAudioWindowExport::writeWindows(const std::filesystem::path& path) const {
  VDCSVBuffer buffer;
  buffer.appendText(
      "window_start,integer_lag,refined_lag,delay,peak_correlation,used,status,"
      "delay_uncertainty,peak_ratio,b_inverted\n");
  for (const Window& window : _windows) {
    const bool used = window.status == WindowStatus::Used;
    buffer.appendInteger(window.start);
    buffer.appendSeparator();
    buffer.appendInteger(window.integerLag);
    buffer.appendSeparator();
    if (used) {
      appendFormatted(buffer, "%.9f", window.refinedLag);
      buffer.appendSeparator();
      appendFormatted(buffer, "%.12f", delaySeconds(window));
      buffer.appendSeparator();
    } else {
      buffer.appendText("nan,nan,");
    }
    appendFormatted(buffer, "%.6f", window.peakCorrelation);
    buffer.appendText(used ? ",1," : ",0,");
    buffer.appendText(statusName(window.status));
    buffer.appendSeparator();
    // The uncertainty in seconds, with three significant digits.
    appendFormatted(buffer, "%.3g", used ? window.delayUncertainty / _samplingRate : NAN);
    buffer.appendSeparator();
    appendFormatted(buffer, "%.3f", window.peakRatio);
    buffer.appendText(window.bInverted ? ",1" : ",0");
    buffer.endRow();
  }
  return buffer.writeToFile(path);
}
