#include "VDAnalysisClass.h"

#include <vector>

#include "VDPlotScript.h"

namespace {

// Hooks that add whole statements get a line end when their text lacks one, so the next line
// of the script never runs into them.
std::string asStatements(const std::string& text) {
  if (text.empty() || text.back() == '\n') {
    return text;
  }
  return text + "\n";
}

}  // namespace

std::string VDAnalysisClass::generatePythonScriptWithOutputPath(
    const std::optional<std::string>& outputPath, const std::string& fileName,
    const std::string& titleName, const std::optional<std::string>& plotPath, bool showPlot) const {
  const std::string column = valueColumn();
  const std::string records = column + "Records";
  std::string script = VDPlotScript::header();
  const std::string initialization = asStatements(additionalScriptInitialization());
  if (!initialization.empty()) {
    script += initialization + "\n";
  }
  script +=
      records + " = mlab.csv2rec(" + VDPlotScript::csvPathExpression(outputPath, fileName) + ")\n";
  script += "\n";
  // The hooks rely on tau: the observation interval of each window, in seconds.
  script += "tau = " + records + ".tau\n";
  script += column + " = " + records + "." + column + "\n";
  if (hasConfidenceBand()) {
    script += column + "Min = " + records + "." + column + "_min\n";
    script += column + "Max = " + records + "." + column + "_max\n";
  }
  script += asStatements(additionalScriptRecords());
  script += "\n";
  // The hooks and the legend see every point; only the curve and band are drawn reduced, and
  // whether they get markers or are rasterised depends on what is drawn.
  const bool reduce = plotPath.has_value();
  std::vector<std::string> series{column};
  if (hasConfidenceBand()) {
    series.insert(series.end(), {column + "Min", column + "Max"});
  }
  const auto drawn = [reduce](const std::string& name) {
    return VDPlotScript::drawn(reduce, name);
  };
  script += VDPlotScript::shownPoints(reduce, "tau", true, series);
  script += VDPlotScript::curveOptions(drawn("tau"));
  script += "\n";
  script += "f1, ax1 = plt.subplots()\n";
  script += "l1, = ax1.loglog(" + drawn("tau") + ", " + drawn(column) + ", " +
            VDPlotScript::curveStyle(curveLabel()) + ")\n";
  if (hasConfidenceBand()) {
    // Behind the curve (a lower zorder), so the curve stays visible where the band is narrow.
    script += "ax1.fill_between(" + drawn("tau") + ", " + drawn(column + "Min") + ", " +
              drawn(column + "Max") + ", color='" + VDPlotScript::kCurveColour +
              "', alpha=0.25, linewidth=0, zorder=2, label='68.3 % confidence interval', "
              "rasterized=rasterizeCurve)\n";
  }
  // Before the hooks, so a subclass that draws more (a mask) may make its own legend.
  script += VDPlotScript::legend(column);
  script += asStatements(additionalScriptPlots("ax1"));
  script += VDPlotScript::labels("Tau (s)", valueAxisLabel(), statisticName() + " - " + titleName);
  script += VDPlotScript::decadeGrid("ax1");
  const std::string yLimits = plotYLimits("ax1");
  if (!yLimits.empty()) {
    script += yLimits + "\n";
  }
  script += "\n";
  script += VDPlotScript::ending(plotSize(), plotPath, showPlot);
  return script;
}

std::string VDAnalysisClass::additionalScriptInitialization() const { return {}; }

std::string VDAnalysisClass::additionalScriptRecords() const { return {}; }

std::string VDAnalysisClass::additionalScriptPlots(const std::string&) const { return {}; }

std::string VDAnalysisClass::plotSize() const { return VDPlotScript::kDefaultPlotSize; }

std::string VDAnalysisClass::plotYLimits(const std::string&) const { return {}; }
