#include "VDPTerminalProgress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

namespace {

// A statistic quicker than this never shows its progress; redraws are at least this far apart.
constexpr std::chrono::milliseconds kQuietStart(1000);
constexpr std::chrono::milliseconds kRedrawInterval(100);

double secondsBetween(VDPTerminalProgress::Clock::time_point from,
                      VDPTerminalProgress::Clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

// Columns of the terminal; a line as long as that would wrap, and a carriage return would
// then no longer bring the cursor back to its start.
size_t terminalColumns(int fileDescriptor) {
  winsize size{};
  if (ioctl(fileDescriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
    return size.ws_col;
  }
  return 80;
}

}  // namespace

VDPTerminalProgress::VDPTerminalProgress(int fileDescriptor, std::function<Clock::time_point()> now)
    : _fileDescriptor(fileDescriptor),
      _terminal(isatty(fileDescriptor) == 1),
      _now(std::move(now)) {}

void VDPTerminalProgress::analysisStarted(const std::string& statisticName, uint64_t windowCount) {
  _statisticName = statisticName;
  _windowCount = windowCount;
  _started = _now();
  _drawnLength = 0;
}

void VDPTerminalProgress::analysisProgressed(uint64_t windowsDone, double workDone) {
  if (!_terminal) {
    return;
  }
  const Clock::time_point now = _now();
  if (now - _started < kQuietStart || (_drawnLength > 0 && now - _lastDrawn < kRedrawInterval)) {
    return;
  }
  const double elapsed = secondsBetween(_started, now);
  const auto percent = static_cast<int>(100.0 * static_cast<double>(windowsDone) /
                                        static_cast<double>(std::max<uint64_t>(_windowCount, 1)));
  std::string line = _statisticName + ": " + std::to_string(percent) + "% of windows, " +
                     durationText(elapsed) + " elapsed";
  if (workDone > 0.0) {
    line += ", " + durationText(elapsed * (1.0 - std::min(workDone, 1.0)) / workDone) + " left";
  }
  line.resize(std::min(line.size(), terminalColumns(_fileDescriptor) - 1));
  // Spaces cover what is left of a longer previous line.
  const size_t length = line.size();
  line.append(_drawnLength > length ? _drawnLength - length : 0, ' ');
  write("\r" + line);
  _drawnLength = length;
  _lastDrawn = now;
}

void VDPTerminalProgress::analysisFinished() {
  if (_drawnLength > 0) {
    std::string blank(_drawnLength + 2, ' ');
    blank.front() = '\r';
    blank.back() = '\r';
    write(blank);
    _drawnLength = 0;
  }
}

std::string VDPTerminalProgress::durationText(double seconds) {
  const auto whole = static_cast<long long>(std::max(0.0, std::round(seconds)));
  char text[32];
  if (whole >= 3600) {
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60,
                  whole % 60);
  } else {
    std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
  }
  return text;
}

void VDPTerminalProgress::write(const std::string& text) const {
  // Unbuffered and all at once, so the line never mixes with half of another.
  size_t written = 0;
  while (written < text.size()) {
    const ssize_t result = ::write(_fileDescriptor, text.data() + written, text.size() - written);
    if (result <= 0) {
      return;  // a progress line is not worth failing for
    }
    written += static_cast<size_t>(result);
  }
}
