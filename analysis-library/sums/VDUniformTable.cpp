#include "VDUniformTable.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace {

std::vector<double> sampled(double first, double last, int intervals,
                            const std::function<double(double)>& function) {
  std::vector<double> samples;
  for (double x : VDUniformTable::points(first, last, intervals)) {
    samples.push_back(function(x));
  }
  return samples;
}

}  // namespace

VDUniformTable::VDUniformTable(double first, double last, int intervals,
                               const std::function<double(double)>& function)
    : VDUniformTable(first, last, sampled(first, last, intervals, function)) {}

VDUniformTable::VDUniformTable(double first, double last, std::vector<double> samples)
    : _first(first),
      _last(last),
      _step(samples.size() > 1 ? (last - first) / static_cast<double>(samples.size() - 1) : 1),
      _samples(std::move(samples)) {}

std::vector<double> VDUniformTable::points(double first, double last, int intervals) {
  std::vector<double> result;
  const double step = (last - first) / intervals;
  for (int i = 0; i < intervals; ++i) {
    result.push_back(first + i * step);
  }
  result.push_back(last);
  return result;
}

double VDUniformTable::operator()(double x) const {
  const double position = (x - _first) / _step;
  // The four samples around x, kept inside the table at its ends.
  const auto lastStart = static_cast<std::ptrdiff_t>(_samples.size()) - 4;
  const std::ptrdiff_t start = std::clamp(static_cast<std::ptrdiff_t>(std::floor(position)) - 1,
                                          std::ptrdiff_t{0}, lastStart);
  const double u = position - static_cast<double>(start);  // 0..3 over the four samples
  const double* p = _samples.data() + start;
  // Lagrange form of the cubic through (0, p0), (1, p1), (2, p2), (3, p3).
  return -p[0] * (u - 1) * (u - 2) * (u - 3) / 6 + p[1] * u * (u - 2) * (u - 3) / 2 -
         p[2] * u * (u - 1) * (u - 3) / 2 + p[3] * u * (u - 1) * (u - 2) / 6;
}
