#pragma once

#include <cmath>
#include <vector>

// A VDMaskSegment is one row of a mask: over lower < tau <= upper the limit is a sum of power
// terms c tau^p (ns, tau in seconds).
struct VDMaskSegment {
  struct Term {
    double coefficient;
    double power;  // 0 for a constant
  };

  double lower;
  double upper;  // may be infinite
  // The recommendation does not confirm the upper end: evaluated up to it, and said so.
  bool upperUnsure = false;
  std::vector<Term> terms;

  bool contains(double tau) const { return tau > lower && tau <= upper; }

  double limitAt(double tau) const {
    double limit = 0;
    for (const Term& term : terms) {
      limit += term.power == 0 ? term.coefficient : term.coefficient * std::pow(tau, term.power);
    }
    return limit;
  }
};
