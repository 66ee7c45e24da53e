#include "VDUncertaintyCalibration.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace {

using Status = VDAudioTimeErrorCalculator::WindowStatus;

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// |delay - line| / sqrt(u^2 + var(line)) of window i against the weighted least-squares line
// through the windows [first, end); infinite where they are too few to say.
double residual(const std::vector<VDAudioTimeErrorCalculator::Window*>& used, std::ptrdiff_t i,
                std::ptrdiff_t first, std::ptrdiff_t end) {
  if (end - first < 2) {
    return std::numeric_limits<double>::infinity();
  }
  const double x0 = static_cast<double>(used[i]->start);
  double sw = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
  for (std::ptrdiff_t j = first; j < end; ++j) {
    const double w = 1.0 / (used[j]->delayUncertainty * used[j]->delayUncertainty);
    const double x = static_cast<double>(used[j]->start) - x0;
    sw += w;
    sx += w * x;
    sy += w * used[j]->refinedLag;
    sxx += w * x * x;
    sxy += w * x * used[j]->refinedLag;
  }
  // The line's value at the window (x = 0) and its variance.
  const double spread = sw * sxx - sx * sx;
  if (!(spread > 0.0)) {
    return std::numeric_limits<double>::infinity();
  }
  const double predicted = (sy * sxx - sx * sxy) / spread;
  const double variance = sxx / spread;
  const double u = used[i]->delayUncertainty;
  return std::fabs(used[i]->refinedLag - predicted) / std::sqrt(u * u + variance);
}

}  // namespace

void VDUncertaintyCalibration::apply(std::vector<Window>& windows, double samplingRate) {
  std::vector<Window*> used;
  for (Window& window : windows) {
    if (window.status == Status::Used && std::isfinite(window.delayUncertainty) &&
        window.delayUncertainty > 0.0) {
      used.push_back(&window);
    }
  }
  const auto count = static_cast<std::ptrdiff_t>(used.size());
  if (count < 3) {
    return;
  }
  // Each window against the weighted lines through its neighbours before it and after it: the
  // residual over what the uncertainties together allow, the smaller of the two, so that a step
  // in the delay, which one side of every window does not cross, shows in no residual.
  std::vector<double> normalised(used.size(), 0.0);
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    const double before = residual(used, i, std::max<std::ptrdiff_t>(0, i - kNeighbours), i);
    const double after = residual(used, i, i + 1, std::min(count, i + 1 + kNeighbours));
    normalised[i] = std::min(before, after);
  }
  // The scatter of the normalised residuals around each window, robustly (a median of absolute
  // values over 0.6745 is the standard deviation of a normal distribution); never below one.
  std::vector<double> scale(used.size(), 1.0);
  std::vector<double> around;
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    const std::ptrdiff_t first = std::max<std::ptrdiff_t>(0, i - kNeighbours);
    const std::ptrdiff_t last = std::min(count - 1, i + kNeighbours);
    around.clear();
    for (std::ptrdiff_t j = first; j <= last; ++j) {
      if (std::isfinite(normalised[j])) {
        around.push_back(normalised[j]);
      }
    }
    scale[i] = around.empty() ? 1.0 : std::max(1.0, median(around) / 0.6745);
  }
  std::vector<double> uncertainties;
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    used[i]->delayUncertainty *= scale[i];
    uncertainties.push_back(used[i]->delayUncertainty);
  }
  const double limit =
      std::max(kTypicalFactor * median(uncertainties), kAlwaysAcceptedSeconds * samplingRate);
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    // Too uncertain beside the others, or off its neighbours' line by far more than its
    // uncertainty allows: a wrong match, or a window that the noise model does not describe.
    if (used[i]->delayUncertainty > limit ||
        (std::isfinite(normalised[i]) && normalised[i] > kOutlier * scale[i])) {
      used[i]->status = Status::Uncertain;
    }
  }
}
