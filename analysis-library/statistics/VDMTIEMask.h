#pragma once

#include <optional>
#include <string>
#include <vector>

#include "VDStatisticPoint.h"

// A VDMTIEMask is an upper limit on MTIE as a function of the observation interval, with a test
// of whether an MTIE curve stays under it.
class VDMTIEMask {
 public:
  // The gPTP one-hop mask: 160 ns for every observation interval.
  static VDMTIEMask gPTP1Hop();

  // The limit in ns at observation interval tau (seconds).
  double limitAtTau(double tau) const;

  // True when every point's MTIE is at most the mask (an empty list conforms). Otherwise false,
  // and when error is given it receives a description of the first offending point: its window
  // size, tau, value and the limit. error is left alone when the points conform.
  bool mtieConformsToMask(const std::vector<VDStatisticPoint>& mtie,
                          std::optional<std::string>* error) const;

 private:
  explicit VDMTIEMask(double flatLimit) : _flatLimit(flatLimit) {}
  double _flatLimit;  // ns
};
