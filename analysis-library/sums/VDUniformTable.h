#pragma once

#include <functional>
#include <vector>

// A VDUniformTable holds a smooth function sampled at evenly spaced points of an interval and
// gives its value anywhere in that interval by the cubic through the four nearest samples. It
// replaces a costly function that is needed at many points (one per window) by a few thousand
// evaluations made once.
class VDUniformTable {
 public:
  // Samples function at first, first + h, ..., last with h = (last - first) / intervals
  // (intervals >= 3).
  VDUniformTable(double first, double last, int intervals,
                 const std::function<double(double)>& function);
  // The same from the samples at those points (intervals + 1 of them).
  VDUniformTable(double first, double last, std::vector<double> samples);
  // The points at which a table of intervals over [first, last] samples its function.
  static std::vector<double> points(double first, double last, int intervals);

  bool covers(double x) const { return x >= _first && x <= _last; }
  // The interpolated value at x; x must be covered.
  double operator()(double x) const;

 private:
  double _first;
  double _last;
  double _step;
  std::vector<double> _samples;
};
