#include "VDCMaskChecks.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "VDCSVBuffer.h"

namespace {

// How many of the settled samples the clock standards want per integration time of TDEV.
constexpr double kTDEVDurationFactor = 12;

VDMaskVerdict notEvaluated(const std::string& note) {
  VDMaskVerdict verdict;
  verdict.note = note;
  return verdict;
}

}  // namespace

VDCMaskChecks::VDCMaskChecks(const VDTimeErrorMetrics& metrics, const VDCSettledWindow& window,
                             Settings settings)
    : _metrics(metrics), _window(window), _settings(settings) {}

double VDCMaskChecks::supportedTau(const std::string& metric) const {
  const double duration = _window.samples() < 2 ? 0 : _metrics.settledDuration();
  return metric == "tdev" || metric == "dte_l_tdev" ? duration / kTDEVDurationFactor : duration;
}

VDMaskVerdict VDCMaskChecks::scalarVerdict(const VDMask& mask) const {
  const std::string& metric = mask.metric;
  VDCSVBuffer note;
  std::optional<double> value;
  if (metric == "max_abs_te") {
    value = _metrics.maxAbsTe(_settings.average);
    if (_settings.average > 1) {
      note.appendText("moving mean of ");
      note.appendInteger(_settings.average);
      note.appendText(" samples");
    }
  } else if (metric == "cte_moving") {
    value = _metrics.cteMoving(_settings.cteWindowSeconds);
    note.appendText("largest mean over ");
    note.appendDouble(_settings.cteWindowSeconds);
    note.appendText(" s");
  } else if (metric == "max_abs_te_l") {
    value = _metrics.maxAbsTeL();
  } else if (metric == "cte") {
    value = _metrics.cte();
  } else {
    value = _metrics.dteHPeakToPeak();
  }
  if (!value) {
    return notEvaluated(note.text() + (note.text().empty() ? "" : ": ") +
                        "longer than the settled data");
  }
  VDMaskVerdict verdict = VDMaskVerdict::ofValue(mask, *value);
  verdict.note = note.text();
  return verdict;
}

std::vector<VDCMaskCheck> VDCMaskChecks::evaluate(const std::vector<const VDMask*>& masks) {
  // Each curve is computed once, as far as the furthest mask on it reaches.
  std::map<std::string, double> reach;
  for (const VDMask* mask : masks) {
    if (mask->curve) {
      const double furthest = std::min(mask->domainUpper(), supportedTau(mask->metric));
      reach[mask->metric] = std::max(reach[mask->metric], furthest);
    }
  }
  if (_window.samples() >= 2) {
    for (const auto& [metric, largestTau] : reach) {
      const bool ofLowPass = metric.rfind("dte_l_", 0) == 0;
      _curves[metric] = metric.find("mtie") != std::string::npos
                            ? _metrics.mtie(ofLowPass, largestTau)
                            : _metrics.tdev(ofLowPass, largestTau);
    }
  }

  std::vector<VDCMaskCheck> checks;
  for (const VDMask* mask : masks) {
    VDMaskVerdict verdict;
    if (_window.samples() < 2) {
      verdict = notEvaluated("no settled samples");
    } else if (mask->curve) {
      verdict = VDMaskVerdict::ofCurve(*mask, _curves[mask->metric], supportedTau(mask->metric));
    } else {
      verdict = scalarVerdict(*mask);
    }
    if (_window.lostLock) {
      verdict.note = verdict.note.empty() ? "loss of lock" : "loss of lock; " + verdict.note;
    }
    checks.push_back({mask, verdict});
  }
  return checks;
}
