#pragma once

#include <optional>
#include <string>
#include <vector>

#include "VDMaskSegment.h"

// A VDMask is one limit of one time error metric from one recommendation: a single number for
// the scalar metrics (max|TE|, cTE, peak-to-peak), or a curve over the observation interval for
// MTIE and TDEV. Masks with the same id make up one check of a clock class.
struct VDMask {
  std::string id;
  std::string metric;  // max_abs_te, max_abs_te_l, cte, cte_moving, dte_h_pkpk, mtie, tdev, ...
  std::string standard;
  std::string edition;
  std::string table;
  std::string filter;
  std::string condition;
  std::string source;
  // A scalar limit has one segment over every tau.
  std::vector<VDMaskSegment> segments;
  bool curve = false;

  // The limit at tau (ns): the segment holding tau, none outside the domain.
  std::optional<double> limitAtTau(double tau) const;
  // The domain: lower end of the first segment, upper end of the last.
  double domainLower() const { return segments.front().lower; }
  double domainUpper() const { return segments.back().upper; }
  bool upperUnsure() const { return segments.back().upperUnsure; }
  // The limit as written in a definitions file ("30", "0.1 < tau <= 273: 0.275 tau + 25; ...").
  std::string limitText() const;
};
