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

  // Hooks, each a piece of Python inserted into the script as whole statements.
  virtual std::string additionalScriptInitialization() const;  // after the imports
  virtual std::string additionalScriptRecords() const;         // after the records and tau
  virtual std::string additionalScriptPlots(const std::string& axesName) const;  // after the curve
  virtual std::string plotSize() const;                                // one statement, no line end
  virtual std::string plotYLimits(const std::string& axesName) const;  // one statement, no line end

  // What the statistic is called and how its axis is labelled.
  virtual std::string statisticName() const = 0;   // e.g. "Allan Deviation"
  virtual std::string valueColumn() const = 0;     // CSV column of the value, e.g. "adev"
  virtual std::string valueAxisLabel() const = 0;  // e.g. "ADEV" or "MTIE (ns)"
  virtual std::string curveLabel() const = 0;      // legend entry of the curve, e.g. "MTIE"
};
