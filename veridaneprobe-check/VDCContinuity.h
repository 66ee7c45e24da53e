#pragma once

#include <cstddef>
#include <string>
#include <vector>

// A VDCContinuity says where a stream's samples are not evenly spaced: a step of more than 1.5
// sample intervals (the median step) is a gap, a repeated or earlier timestamp is disorder.
// Both break the stream into continuous segments; nothing is filled in or dropped.
struct VDCContinuity {
  struct Break {
    size_t sample;  // the first sample after the break
    double step;    // s: the gap's length, or how far the time went back (0 or less)
  };
  struct Segment {
    size_t first;
    size_t end;  // one past the last sample
    size_t samples() const { return end - first; }
  };

  // The smallest segment worth its own analysis.
  static constexpr size_t kShortestSegment = 16;

  double tau0 = 0;          // the median step, s: what a gap is measured against
  double meanInterval = 0;  // the mean of the steps that are neither gaps nor disorder, s
  std::vector<Break> gaps;
  std::vector<Break> disorder;
  std::vector<Segment> segments;
  double missingShare = 0;  // of the span from the first to the last sample

  static VDCContinuity of(const std::vector<double>& times);

  bool continuous() const { return gaps.empty() && disorder.empty(); }
  // One line for the console: the samples, the interval, the gaps and the disorder.
  std::string summary(const std::string& stream, const std::vector<double>& times) const;
  // Every break as a CSV row, in the order of the samples: "kind,sample,time,step" with kind gap
  // or disorder, the sample after the break, its time after the first sample and the step, s.
  std::string breaksCSV(const std::vector<double>& times) const;
};
