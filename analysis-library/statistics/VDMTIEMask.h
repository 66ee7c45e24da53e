#pragma once

#include <optional>
#include <string>
#include <vector>

#include "VDMask.h"
#include "VDStatisticPoint.h"

// A VDMTIEMask is an upper limit on MTIE as a function of the observation interval, with a test
// of whether an MTIE curve stays under it. Its limits are a curve mask of the library's mask
// table (VDMaskTable), so the dual-link check and the standards' checks share one definition.
class VDMTIEMask {
 public:
  // The gPTP one-hop mask: 160 ns for every observation interval (gptp-one-hop, mtie).
  static VDMTIEMask gPTP1Hop();
  // The gPTP one-hop limit on the time error's magnitude, ns (gptp-one-hop, max_abs_te).
  static double gPTP1HopTimeErrorLimit();

  // The limit in ns at observation interval tau (seconds); below the mask's first segment the
  // first segment's limit, above its last the last's.
  double limitAtTau(double tau) const;

  // True when every point's MTIE is at most the mask (an empty list conforms). Otherwise false,
  // and when error is given it receives a description of the first offending point: its window
  // size, tau, value and the limit. error is left alone when the points conform.
  bool mtieConformsToMask(const std::vector<VDStatisticPoint>& mtie,
                          std::optional<std::string>* error) const;

 private:
  explicit VDMTIEMask(const VDMask& mask) : _mask(mask) {}
  const VDMask& _mask;  // a curve mask of the built-in table, which lives as long as the program
};
