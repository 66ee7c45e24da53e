#include "VDMaskVerdict.h"

#include <cmath>

#include "VDCSVBuffer.h"

namespace {

// Adds one evaluation; a NaN value counts as exceeding and as the least margin.
void add(VDMaskVerdict& verdict, double value, double limit, std::optional<double> tau) {
  const double margin = limit - value;
  const bool exceeds = !(value <= limit);
  if (verdict.evaluated == 0 || margin < verdict.margin ||
      (std::isnan(margin) && !std::isnan(verdict.margin))) {
    verdict.value = value;
    verdict.limit = limit;
    verdict.margin = margin;
    verdict.atTau = tau;
  }
  verdict.exceeding += exceeds ? 1 : 0;
  verdict.evaluated += 1;
  verdict.outcome =
      verdict.exceeding > 0 ? VDMaskVerdict::Outcome::fail : VDMaskVerdict::Outcome::pass;
}

// tau as a window's size times the sample interval carries rounding: a tau within 1e-12 of a
// breakpoint (or of the longest tau the data supports) is taken as that value, so a window of
// exactly 273 s at 1 PPS is judged against the row that ends at 273 s.
constexpr double kTauTolerance = 1e-12;

double snapped(double tau, const VDMask& mask) {
  for (const VDMaskSegment& segment : mask.segments) {
    for (const double breakpoint : {segment.lower, segment.upper}) {
      if (std::isfinite(breakpoint) && std::abs(tau - breakpoint) <= kTauTolerance * breakpoint) {
        return breakpoint;
      }
    }
  }
  return tau;
}

}  // namespace

VDMaskVerdict VDMaskVerdict::ofValue(const VDMask& mask, double value) {
  VDMaskVerdict verdict;
  add(verdict, value, mask.segments.front().limitAt(0), std::nullopt);
  return verdict;
}

VDMaskVerdict VDMaskVerdict::ofCurve(const VDMask& mask, const std::vector<CurvePoint>& points,
                                     double supportedTau) {
  VDMaskVerdict verdict;
  for (const CurvePoint& point : points) {
    const double tau = snapped(point.tau, mask);
    if (tau > supportedTau * (1 + kTauTolerance)) {
      continue;
    }
    const std::optional<double> limit = mask.limitAtTau(tau);
    if (!limit) {
      continue;
    }
    if (verdict.evaluated == 0) {
      verdict.firstTau = point.tau;
    }
    verdict.lastTau = point.tau;
    add(verdict, point.value, *limit, point.tau);
  }
  VDCSVBuffer note;
  if (verdict.evaluated == 0) {
    note.appendText("the data supports no tau of the mask's domain (up to ");
    note.appendDouble(supportedTau);
    note.appendText(" s)");
  } else if (mask.upperUnsure()) {
    // A last row without an end is named by where it starts: "(no end)" would tell nothing.
    if (std::isinf(mask.domainUpper())) {
      note.appendText("the mask's last row (tau above ");
      note.appendDouble(mask.segments.back().lower);
      note.appendText(" s");
    } else {
      note.appendText("the mask's upper end (");
      note.appendDouble(mask.domainUpper());
      note.appendText(" s");
    }
    note.appendText(") is not confirmed by the recommendation");
  }
  verdict.note = note.text();
  return verdict;
}

const char* VDMaskVerdict::outcomeText(Outcome outcome) {
  switch (outcome) {
    case Outcome::pass:
      return "PASS";
    case Outcome::fail:
      return "FAIL";
    case Outcome::notEvaluated:
      break;
  }
  return "NOT EVALUATED";
}
