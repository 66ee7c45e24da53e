#include "VDCPooledMaximumTimeIntervalErrorAnalysis.h"

#include <algorithm>

#include "VDMaximumRangeSearch.h"

std::vector<VDStatisticPoint> VDCPooledMaximumTimeIntervalErrorAnalysis::evaluateWindows(
    const VDWindowRange& windows) const {
  std::vector<VDStatisticPoint> points;
  points.reserve(windows.count());
  for (uint64_t index = 0; index < windows.count(); ++index) {
    points.push_back({windows.at(index), tauOfWindow(windows.at(index)), 0.0, 0});
  }
  _segments.forEachSegment(
      windows, largestOfSegment(),
      [&points](const std::vector<int64_t>& errors, const VDWindowRange& held) {
        const std::vector<uint64_t> ranges = VDMaximumRangeSearch(errors).largestRanges(held);
        for (uint64_t index = 0; index < ranges.size(); ++index) {
          VDStatisticPoint& point = points[index];
          point.value = std::max(point.value, static_cast<double>(ranges[index]));
          point.termCount += errors.size() - static_cast<uint64_t>(point.windowSize);
        }
      });
  return points;
}
