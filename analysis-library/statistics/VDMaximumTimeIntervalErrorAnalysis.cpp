#include "VDMaximumTimeIntervalErrorAnalysis.h"

#include "VDMaximumRangeSearch.h"

const VDAnalysisClass& VDMaximumTimeIntervalErrorAnalysis::classObject() {
  static const VDMaximumTimeIntervalErrorAnalysisClass kClass;
  return kClass;
}

int64_t VDMaximumTimeIntervalErrorAnalysis::largestWindowSize(int64_t sampleCount) const {
  return sampleCount < 2 ? 0 : sampleCount - 1;
}

std::vector<VDStatisticPoint> VDMaximumTimeIntervalErrorAnalysis::evaluateWindows(
    const VDWindowRange& windows) const {
  const auto sampleCount = static_cast<int64_t>(_errors.size());
  // MTIE as defined in NIST SP 1065 and ITU-T G.810: the largest max - min of x over the
  // windows x[k..k+m]. The raw errors serve: a range is a difference, exact in unsigned 64-bit.
  const VDMaximumRangeSearch search(_errors);
  const std::vector<uint64_t> ranges = search.largestRanges(windows);
  std::vector<VDStatisticPoint> points;
  points.reserve(ranges.size());
  for (uint64_t index = 0; index < ranges.size(); ++index) {
    const int64_t m = windows.at(index);
    points.push_back({m, tauOfWindow(m), static_cast<double>(ranges[index]),
                      static_cast<uint64_t>(sampleCount - m)});
  }
  return points;
}
