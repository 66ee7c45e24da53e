#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "VDMask.h"

// A VDMaskVerdict judges one metric against one mask. A check passes when the metric is at or
// below its limit (equality passes) at every observation interval inside the mask's domain that
// the data supports, fails otherwise, and is not evaluated when the data supports none of it.
// Every interval given is evaluated; nothing is thinned.
struct VDMaskVerdict {
  enum class Outcome { pass, fail, notEvaluated };

  // One value of a curve metric.
  struct CurvePoint {
    double tau;    // s
    double value;  // ns
  };

  Outcome outcome = Outcome::notEvaluated;
  // Where the margin (limit - value) is least: the metric, its limit and the margin, ns.
  double value = 0;
  double limit = 0;
  double margin = 0;
  std::optional<double> atTau;  // s; none for single-number metrics
  uint64_t exceeding = 0;       // evaluated taus above the limit
  uint64_t evaluated = 0;       // taus evaluated
  double firstTau = 0;          // the range evaluated, s
  double lastTau = 0;
  std::string note;  // why not evaluated, or that the mask's upper end is unsure

  // A single-number metric against its limit.
  static VDMaskVerdict ofValue(const VDMask& mask, double value);
  // A curve: the points whose tau lies in the mask's domain and at most supportedTau.
  static VDMaskVerdict ofCurve(const VDMask& mask, const std::vector<CurvePoint>& points,
                               double supportedTau);

  // "PASS", "FAIL" or "NOT EVALUATED".
  static const char* outcomeText(Outcome outcome);
};
