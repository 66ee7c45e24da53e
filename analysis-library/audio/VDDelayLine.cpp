#include "VDDelayLine.h"

#include <algorithm>
#include <cmath>

double VDDelayLine::toleranceOver(double distance) const {
  const double driftError = driftKnown()    ? kDriftUncertainty
                            : driftFromLine ? std::max(kDriftUncertainty, lineDriftUncertainty)
                                            : kMaximumDrift;
  const double fromLine = history.empty() ? lineTolerance : 0.0;
  return kPeakTolerance + fromLine + driftError * distance;
}

bool VDDelayLine::clearPeakNeeded(double centre) const {
  const double fromLine = history.empty() ? lineTolerance : 0.0;
  return !(driftKnown() || driftFromLine) || tolerance(centre) - fromLine > 2 * kPeakTolerance;
}

void VDDelayLine::remember(double centre, double delay) {
  history.emplace_back(centre, delay);
  if (history.size() > kHistory) {
    history.pop_front();
  }
  fitDrift();
}

void VDDelayLine::replace(double centre, double delay) {
  for (auto& [historyCentre, historyDelay] : history) {
    if (historyCentre == centre) {
      historyDelay = delay;
    }
  }
}

void VDDelayLine::fitDrift() {
  if (!driftKnown()) {
    return;
  }
  double meanX = 0, meanY = 0;
  for (const auto& [x, y] : history) {
    meanX += x;
    meanY += y;
  }
  meanX /= static_cast<double>(history.size());
  meanY /= static_cast<double>(history.size());
  double sxy = 0, sxx = 0;
  for (const auto& [x, y] : history) {
    sxy += (x - meanX) * (y - meanY);
    sxx += (x - meanX) * (x - meanX);
  }
  const double slope = sxy / sxx;
  drift = std::isfinite(slope) ? std::clamp(slope, -kMaximumDrift, kMaximumDrift) : 0.0;
}
