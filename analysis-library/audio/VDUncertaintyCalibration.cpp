#include "VDUncertaintyCalibration.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

namespace {

constexpr double kTail = 0.9;
constexpr double kTailDeviations = 1.645;

using Status = VDAudioTimeErrorCalculator::WindowStatus;

double quantile(std::vector<double> values, double fraction) {
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(
                                       fraction * static_cast<double>(values.size() - 1) + 0.5);
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

double median(std::vector<double> values) { return quantile(std::move(values), 0.5); }

// Window i against the weighted least-squares line through the windows [first, end).
struct Residual {
  double size = std::numeric_limits<double>::infinity();  // |delay - line|; infinite where the
                                                          // windows are too few to say
  double allowed = 1.0;                                   // u^2 + var(line): its expected square

  double normalised() const { return size / std::sqrt(allowed); }
};

Residual residual(const std::vector<VDAudioTimeErrorCalculator::Window*>& used, std::ptrdiff_t i,
                  std::ptrdiff_t first, std::ptrdiff_t end) {
  if (end - first < 2) {
    return {};
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
    return {};
  }
  const double predicted = (sy * sxx - sx * sxy) / spread;
  const double u = used[i]->delayUncertainty;
  return {std::fabs(used[i]->refinedLag - predicted), u * u + sxx / spread};
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
  std::vector<Residual> residuals(used.size());
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    const Residual before = residual(used, i, std::max<std::ptrdiff_t>(0, i - kNeighbours), i);
    const Residual after = residual(used, i, i + 1, std::min(count, i + 1 + kNeighbours));
    residuals[i] = before.normalised() < after.normalised() ? before : after;
  }
  // Around each window, the residuals' scatter beyond what the stated uncertainties allow, in
  // two forms: a factor on the uncertainties (noise stronger than the peak showed) and a term of
  // its own (lossy coding, a room: errors that do not shrink with the window's signal-to-noise
  // ratio). Both from the 90th percentile of the residuals' sizes (1.645 standard deviations of
  // a normal distribution), as such errors have heavier tails than white noise.
  std::vector<double> calibrated(used.size());
  std::vector<double> sizes, ratios, allowed;
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    sizes.clear();
    ratios.clear();
    allowed.clear();
    for (std::ptrdiff_t j = std::max<std::ptrdiff_t>(0, i - kNeighbours);
         j <= std::min(count - 1, i + kNeighbours); ++j) {
      if (std::isfinite(residuals[j].size)) {
        sizes.push_back(residuals[j].size);
        ratios.push_back(residuals[j].normalised());
        allowed.push_back(residuals[j].allowed);
      }
    }
    const double u = used[i]->delayUncertainty;
    if (sizes.empty()) {
      calibrated[i] = u;
      continue;
    }
    const double scale = std::max(1.0, quantile(ratios, kTail) / kTailDeviations);
    const double scatter = quantile(sizes, kTail) / kTailDeviations;
    const double extra = std::max(0.0, scatter * scatter - median(allowed));
    calibrated[i] = std::max(scale * u, std::sqrt(u * u + extra));
  }
  // Judged on what the windows' own peaks showed: far more uncertain than the recording's
  // typical window (a pause, a fading note, where the delay could as well be a wrong match), or
  // off its neighbours' lines by far more than its calibrated uncertainty allows.
  std::vector<double> uncertainties;
  for (const Window* window : used) {
    uncertainties.push_back(window->delayUncertainty);
  }
  const double limit =
      std::max(kTypicalFactor * median(uncertainties), kAlwaysAcceptedSeconds * samplingRate);
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    const double scale = calibrated[i] / used[i]->delayUncertainty;
    if (used[i]->delayUncertainty > limit ||
        (std::isfinite(residuals[i].size) && residuals[i].normalised() > kOutlier * scale)) {
      used[i]->status = Status::Uncertain;
    }
    used[i]->delayUncertainty = calibrated[i];
  }
}
