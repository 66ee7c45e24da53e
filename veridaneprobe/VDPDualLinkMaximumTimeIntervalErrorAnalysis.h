#pragma once

#include <string>

#include "VDMaximumTimeIntervalErrorAnalysis.h"

// The class-level side of VDPDualLinkMaximumTimeIntervalErrorAnalysis: hooks that draw the flat
// 160 ns gPTP one-hop mask on the MTIE plot, square it to 9.5 inches and fix its y range.
class VDPDualLinkMaximumTimeIntervalErrorAnalysisClass
    : public VDMaximumTimeIntervalErrorAnalysisClass {
 public:
  std::string additionalScriptInitialization() const override;
  std::string additionalScriptRecords() const override;
  std::string additionalScriptPlots(const std::string& axesName) const override;
  std::string plotSize() const override;
  std::string plotYLimits(const std::string& axesName) const override;
};

// A VDPDualLinkMaximumTimeIntervalErrorAnalysis is an MTIE analysis whose plots show the gPTP
// one-hop mask.
class VDPDualLinkMaximumTimeIntervalErrorAnalysis : public VDMaximumTimeIntervalErrorAnalysis {
 public:
  using VDMaximumTimeIntervalErrorAnalysis::VDMaximumTimeIntervalErrorAnalysis;

  static const VDAnalysisClass& classObject();
  const VDAnalysisClass& analysisClass() const override { return classObject(); }
};
