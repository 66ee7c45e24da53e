#include "VDPDualLinkMaximumTimeIntervalErrorAnalysis.h"

std::string VDPDualLinkMaximumTimeIntervalErrorAnalysisClass::additionalScriptInitialization()
    const {
  return "def gPTP1HopMTIE(x):\n\treturn 160\n\nvGPTP1HopMTIE = np.vectorize(gPTP1HopMTIE)\n";
}

std::string VDPDualLinkMaximumTimeIntervalErrorAnalysisClass::additionalScriptRecords() const {
  return "gPTP1HopMask = vGPTP1HopMTIE(tau)\n";
}

// The mask goes on the axes passed in; the legend always on ax1.
std::string VDPDualLinkMaximumTimeIntervalErrorAnalysisClass::additionalScriptPlots(
    const std::string& axesName) const {
  return "l2, = " + axesName +
         ".plot(tau, gPTP1HopMask, '-', color='#fac205', label='gPTP 1 Hop')\n"
         "ax1.legend(loc='best', fontsize='x-small')\n";
}

std::string VDPDualLinkMaximumTimeIntervalErrorAnalysisClass::plotSize() const {
  return "f1.set_size_inches(9.5, 9.5)";
}

std::string VDPDualLinkMaximumTimeIntervalErrorAnalysisClass::plotYLimits(
    const std::string& axesName) const {
  return axesName + ".set_ylim([10,10000])";
}

const VDAnalysisClass& VDPDualLinkMaximumTimeIntervalErrorAnalysis::classObject() {
  static const VDPDualLinkMaximumTimeIntervalErrorAnalysisClass kClass;
  return kClass;
}
