#pragma once

#include <optional>
#include <string>

#include "VDTimeErrorSequence.h"

// A VDPDualLinkTimeErrorSequence is a time error sequence whose plot also draws the gPTP one-hop
// time error limits, +80 and -80 ns.
class VDPDualLinkTimeErrorSequence : public VDTimeErrorSequence {
 public:
  using VDTimeErrorSequence::VDTimeErrorSequence;

  std::string generatePythonScriptWithOutputPath(const std::optional<std::string>& outputPath,
                                                 const std::string& fileName,
                                                 const std::string& titleName,
                                                 const std::optional<std::string>& plotPath,
                                                 bool showPlot) const override;
};
