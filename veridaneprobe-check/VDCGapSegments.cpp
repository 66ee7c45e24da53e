#include "VDCGapSegments.h"

#include "VDConfidenceInterval.h"
#include "VDNoiseIdentification.h"

VDCGapSegments::VDCGapSegments(const std::vector<VDTimeErrorValue>& values,
                               const std::vector<VDCContinuity::Segment>& segments) {
  int64_t span = 0;  // ns
  int64_t intervals = 0;
  for (const VDCContinuity::Segment& segment : segments) {
    std::vector<int64_t>& errors = _errors.emplace_back();
    for (size_t i = segment.first; i < segment.end; ++i) {
      errors.push_back(values[i].error());
    }
    if (errors.size() > _errors[_longest].size()) {
      _longest = _errors.size() - 1;
    }
    span += static_cast<int64_t>(values[segment.end - 1].timestamp() -
                                 values[segment.first].timestamp());
    intervals += static_cast<int64_t>(segment.samples()) - 1;
  }
  // As for one series: a whole number of nanoseconds is kept exact, so that 1 PPS with gaps
  // still gives tau = m s.
  if (intervals > 0 && span > 0) {
    _tau0 = span % intervals == 0
                ? static_cast<double>(span / intervals) / 1e9
                : static_cast<double>(span) * 1e-9 / static_cast<double>(intervals);
  }
}

int64_t VDCGapSegments::largestWindowSize(const LargestWindow& largestOf) const {
  return _errors.empty() ? 0 : largestOf(static_cast<int64_t>(_errors[_longest].size()));
}

void VDCGapSegments::forEachSegment(const VDWindowRange& windows, const LargestWindow& largestOf,
                                    const SegmentVisitor& visit) const {
  for (const std::vector<int64_t>& errors : _errors) {
    const VDWindowRange held =
        VDWindowRange::clamped(windows.first(), windows.last(), windows.step(), windows.first(),
                               largestOf(static_cast<int64_t>(errors.size())));
    if (!held.empty()) {
      visit(errors, held);
    }
  }
}

VDCGapSegments::Pooled VDCGapSegments::pooledSums(
    const VDWindowRange& windows, const LargestWindow& largestOf, const SegmentSums& sumsOf,
    const std::function<int64_t(int64_t, int64_t)>& termsOf) const {
  Pooled pooled{std::vector<double>(windows.count()), std::vector<int64_t>(windows.count())};
  forEachSegment(
      windows, largestOf, [&](const std::vector<int64_t>& errors, const VDWindowRange& held) {
        const std::vector<double> sums = sumsOf(errors, held);
        for (uint64_t index = 0; index < held.count(); ++index) {
          pooled.sums[index] += sums[index];
          pooled.terms[index] += termsOf(static_cast<int64_t>(errors.size()), held.at(index));
        }
      });
  return pooled;
}

void VDCGapSegments::addConfidenceBounds(std::vector<VDStatisticPoint>& points,
                                         const VDWindowRange& windows,
                                         VDEquivalentDegreesOfFreedom::Variance variance,
                                         const LargestWindow& largestOf) const {
  if (points.empty()) {
    return;
  }
  const VDNoiseIdentification noise(_errors[_longest]);
  for (VDStatisticPoint& point : points) {
    point.alpha = noise.alphaAtWindow(point.windowSize);
    point.edf = 0;
  }
  forEachSegment(
      windows, largestOf, [&](const std::vector<int64_t>& errors, const VDWindowRange& held) {
        for (uint64_t index = 0; index < held.count(); ++index) {
          VDStatisticPoint& point = points[index];
          point.edf += VDEquivalentDegreesOfFreedom::of(variance, point.alpha, point.windowSize,
                                                        static_cast<int64_t>(errors.size()));
        }
      });
  for (VDStatisticPoint& point : points) {
    const VDConfidenceInterval interval = VDConfidenceInterval::forDegreesOfFreedom(point.edf);
    point.minimum = point.value * interval.lowerFactor;
    point.maximum = point.value * interval.upperFactor;
  }
}
