#include "VDUniformTable.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

VDUniformTable::VDUniformTable(double first, double last, int intervals,
                               const std::function<double(double)>& function)
    : _first(first), _last(last), _step((last - first) / intervals) {
  _samples.reserve(static_cast<size_t>(intervals) + 1);
  for (int i = 0; i <= intervals; ++i) {
    _samples.push_back(function(i == intervals ? last : first + i * _step));
  }
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
