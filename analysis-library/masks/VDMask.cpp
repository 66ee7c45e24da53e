#include "VDMask.h"

#include <cmath>

#include "VDCSVBuffer.h"

std::optional<double> VDMask::limitAtTau(double tau) const {
  for (const VDMaskSegment& segment : segments) {
    if (segment.contains(tau)) {
      return segment.limitAt(tau);
    }
  }
  return std::nullopt;
}

namespace {

void appendNumber(VDCSVBuffer& text, double number) {
  if (std::isinf(number)) {
    text.appendText("inf");
  } else {
    text.appendDouble(number);
  }
}

void appendTerms(VDCSVBuffer& text, const VDMaskSegment& segment) {
  for (size_t i = 0; i < segment.terms.size(); ++i) {
    const VDMaskSegment::Term& term = segment.terms[i];
    if (i > 0) {
      text.appendText(" + ");
    }
    appendNumber(text, term.coefficient);
    if (term.power == 1) {
      text.appendText(" tau");
    } else if (term.power != 0) {
      text.appendText(" tau^");
      appendNumber(text, term.power);
    }
  }
}

}  // namespace

std::string VDMask::limitText() const {
  VDCSVBuffer text;
  if (!curve) {
    appendTerms(text, segments.front());
    return text.text();
  }
  for (size_t i = 0; i < segments.size(); ++i) {
    const VDMaskSegment& segment = segments[i];
    if (i > 0) {
      text.appendText("; ");
    }
    appendNumber(text, segment.lower);
    text.appendText(" < tau <= ");
    appendNumber(text, segment.upper);
    text.appendText(segment.upperUnsure ? "?: " : ": ");
    appendTerms(text, segment);
  }
  return text.text();
}
