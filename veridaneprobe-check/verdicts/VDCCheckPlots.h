#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "VDCSettledWindow.h"
#include "VDMask.h"
#include "VDMaskVerdict.h"

// VDCCheckPlots draws what the verdicts were judged on, each as a CSV, a saved script and PNG
// and PDF plots: the time error with its 0.1 Hz low-pass over it, the max|TE| limits and the
// settled window shaded (PlotCheckTimeError.py), and the MTIE and TDEV of both with every
// selected mask as a line and the taus beyond a mask marked (PlotCheckMTIE.py,
// PlotCheckTDEV.py).
class VDCCheckPlots {
 public:
  // Saves a script under a path (made executable); runs a script's text.
  using ScriptSaver = std::function<void(const std::string& path, const std::string& text)>;
  using ScriptRunner = std::function<void(const std::string& text)>;

  VDCCheckPlots(std::string outputPath, std::string outputName, ScriptSaver save, ScriptRunner run);

  // times in s, x and its low-pass y in ns. The CSV's time is counted from the first sample.
  void plotTimeError(const std::vector<double>& times, const std::vector<double>& errors,
                     const std::vector<double>& lowPassed, const VDCSettledWindow& window,
                     const std::vector<const VDMask*>& masks) const;
  // curves by metric (mtie, dte_l_mtie, tdev, dte_l_tdev), as VDCMaskChecks computed them.
  void plotCurves(const std::map<std::string, std::vector<VDMaskVerdict::CurvePoint>>& curves,
                  const std::vector<const VDMask*>& masks) const;

  // The mask as a polyline over its domain within [firstTau, lastTau]: every breakpoint (a step
  // shows as a vertical line) and 64 points a decade between them.
  static std::vector<VDMaskVerdict::CurvePoint> maskLine(const VDMask& mask, double firstTau,
                                                         double lastTau);

 private:
  void plotCurve(const std::string& kind,
                 const std::map<std::string, std::vector<VDMaskVerdict::CurvePoint>>& curves,
                 const std::vector<const VDMask*>& masks) const;
  // Saves the script that shows the plot, then runs it once to save the PNG and the PDF;
  // scriptFor gives the script up to its ending.
  void render(const std::string& scriptName, const std::string& stem,
              const std::function<std::string(bool saving)>& scriptFor) const;

  std::string _outputPath;
  std::string _outputName;
  ScriptSaver _save;
  ScriptRunner _run;
};
