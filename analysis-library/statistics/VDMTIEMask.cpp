#include "VDMTIEMask.h"

#include <algorithm>
#include <cmath>

#include "VDCSVBuffer.h"
#include "VDMaskTable.h"

VDMTIEMask VDMTIEMask::gPTP1Hop() {
  return VDMTIEMask(*VDMaskTable::builtIn().find("gptp-one-hop", "mtie"));
}

double VDMTIEMask::gPTP1HopTimeErrorLimit() {
  return VDMaskTable::builtIn().find("gptp-one-hop", "max_abs_te")->limitAtTau(0).value();
}

double VDMTIEMask::limitAtTau(double tau) const {
  const double clamped = std::clamp(tau, std::nextafter(_mask.domainLower(), _mask.domainUpper()),
                                    _mask.domainUpper());
  return _mask.limitAtTau(clamped).value();
}

bool VDMTIEMask::mtieConformsToMask(const std::vector<VDStatisticPoint>& mtie,
                                    std::optional<std::string>* error) const {
  for (const VDStatisticPoint& point : mtie) {
    const double limit = limitAtTau(point.tau);
    // Written so that a NaN value fails too.
    if (point.value <= limit) {
      continue;
    }
    if (error != nullptr) {
      VDCSVBuffer text;
      text.appendText("MTIE exceeds the mask at window size ");
      text.appendInteger(point.windowSize);
      text.appendText(" (tau ");
      text.appendDouble(point.tau);
      text.appendText(" s): ");
      text.appendDouble(point.value);
      text.appendText(" ns > ");
      text.appendDouble(limit);
      text.appendText(" ns");
      *error = text.text();
    }
    return false;
  }
  return true;
}
