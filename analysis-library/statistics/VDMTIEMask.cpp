#include "VDMTIEMask.h"

#include "VDCSVBuffer.h"

VDMTIEMask VDMTIEMask::gPTP1Hop() {
  // IEEE 802.1AS one-hop budget: a flat 160 ns at every observation interval.
  return VDMTIEMask(160.0);
}

double VDMTIEMask::limitAtTau(double) const { return _flatLimit; }

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
