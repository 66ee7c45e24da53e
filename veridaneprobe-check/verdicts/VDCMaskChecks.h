#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "VDCMaskCheck.h"
#include "VDCSettledWindow.h"
#include "VDTimeErrorMetrics.h"

// VDCMaskChecks judges the metrics of one settled series against masks. Each curve metric that a
// mask asks for is computed once, for every window up to the largest tau its masks ask for and
// the data supports (MTIE up to the settled duration; TDEV up to a twelfth of it, as the clock
// standards ask for a measurement twelve times the integration time), and kept for the plots.
class VDCMaskChecks {
 public:
  struct Settings {
    int64_t average = 1;             // max|TE| over moving means of this many samples (>= 100)
    double cteWindowSeconds = 1000;  // the moving cTE's window
  };

  VDCMaskChecks(const VDTimeErrorMetrics& metrics, const VDCSettledWindow& window,
                Settings settings);

  // One check per mask, in their order.
  std::vector<VDCMaskCheck> evaluate(const std::vector<const VDMask*>& masks);

  // The largest tau the data supports for a curve metric, s.
  double supportedTau(const std::string& metric) const;
  // The curves computed so far, by metric (mtie, tdev, dte_l_mtie, dte_l_tdev).
  const std::map<std::string, std::vector<VDMaskVerdict::CurvePoint>>& curves() const {
    return _curves;
  }

 private:
  VDMaskVerdict scalarVerdict(const VDMask& mask) const;

  const VDTimeErrorMetrics& _metrics;
  VDCSettledWindow _window;
  Settings _settings;
  std::map<std::string, std::vector<VDMaskVerdict::CurvePoint>> _curves;
};
