#pragma once

#include <optional>
#include <string>

// A VDAnalysisClass is the class-level side of an analysis class: the generator of its plot
// script and the hooks that generator asks for. Every analysis reports the VDAnalysisClass of
// its own dynamic class (VDStatisticAnalysis::analysisClass), so a subclass that overrides the
// hooks changes the scripts of exactly the analyses made as that subclass.
class VDAnalysisClass {
 public:
  virtual ~VDAnalysisClass() = default;

  // The matplotlib script that plots the statistic's CSV (same arguments as
  // VDTimeErrorSequence::generatePythonScriptWithOutputPath).
  std::string generatePythonScriptWithOutputPath(const std::optional<std::string>& outputPath,
                                                 const std::string& fileName,
                                                 const std::string& titleName,
                                                 const std::optional<std::string>& plotPath,
                                                 bool showPlot) const;

  // Hooks, each a piece of Python the generator asks of the class it runs for. The script
  // imports numpy as np, reads its CSV into records, defines tau (the observation intervals in
  // seconds, a numpy array) and the value column, draws the value curve on axes ax1 of figure
  // f1 (labelled, so a legend can show it), labels, titles and grids the axes, then saves,
  // shows or closes the figure. Where each hook goes:
  //   additionalScriptInitialization  whole statements after the imports
  //   additionalScriptRecords         whole statements once the records and tau are read
  //   additionalScriptPlots(axes)     whole statements right after the curve is drawn on axes
  //   plotYLimits(axes)               one statement (no line end) after the grid; empty: none
  //   plotSize                        one statement (no line end) before the figure is saved,
  //                                   only in scripts that save it
  // Statement hooks without a final line end get one. The base class adds nothing and sizes
  // the figure 16 by 9 inches.
  virtual std::string additionalScriptInitialization() const;
  virtual std::string additionalScriptRecords() const;
  virtual std::string additionalScriptPlots(const std::string& axesName) const;
  virtual std::string plotSize() const;
  virtual std::string plotYLimits(const std::string& axesName) const;

  // True for the deviations whose CSV carries the 68.3 % confidence bounds (columns
  // <value>_min and <value>_max): their plots draw the band behind the curve, with a legend.
  virtual bool hasConfidenceBand() const { return false; }

  // What the statistic is called and how its axis is labelled.
  virtual std::string statisticName() const = 0;   // e.g. "Allan Deviation"
  virtual std::string valueColumn() const = 0;     // CSV column of the value, e.g. "adev"
  virtual std::string valueAxisLabel() const = 0;  // e.g. "ADEV" or "MTIE (ns)"
  virtual std::string curveLabel() const = 0;      // legend entry of the curve, e.g. "MTIE"
};
