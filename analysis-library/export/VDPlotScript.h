#pragma once

#include <optional>
#include <string>
#include <vector>

// VDPlotScript holds the pieces every generated matplotlib script shares: the interpreter line
// and imports, where the script finds its CSV, and how it saves, shows or closes its figure.
class VDPlotScript {
 public:
  // The figure size of scripts whose class does not choose one: the width of A4 landscape, so
  // the PDF prints at its own size and the fonts below stay readable.
  static constexpr const char* kDefaultPlotSize = "f1.set_size_inches(11.69, 6.58)";
  // The resolution of the PNG, and of the curves a PDF rasterises.
  static constexpr int kDotsPerInch = 150;
  // The colour of a statistic's curve and band.
  static constexpr const char* kCurveColour = "#1f4e9c";
  // Curves with more points than this are rasterised in PDF output and get no markers.
  static constexpr int kRasterisedPoints = 20000;
  static constexpr int kMarkedPoints = 100;
  // Saved figures draw curves longer than this reduced to their extremes per pixel column.
  static constexpr int kReducedPoints = 8000;
  static constexpr int kPixelColumns = 3000;

  // "#!/usr/bin/python", a blank line and the imports, each on its own line.
  static std::string header();

  // The argument of mlab.csv2rec: 'OUTPUT/FILE' when an output path is given, otherwise the
  // file beside the running script. Inserted without escaping.
  static std::string csvPathExpression(const std::optional<std::string>& outputPath,
                                       const std::string& fileName);

  // Statements that set markerStyle ('o' where there are at most kMarkedPoints points, so
  // single points show; 'None' otherwise) and rasterizeCurve (true beyond kRasterisedPoints)
  // from the length of the named array (the drawn one, so a curve reduced to its pixel
  // columns' extremes stays vector in a PDF).
  static std::string curveOptions(const std::string& arrayName);
  // For a script that saves its figure (reduce): the statements that define shown, the indices
  // of the points worth drawing. Of curves longer than kReducedPoints, x being finite and
  // rising, it keeps in each of kPixelColumns columns of the x range (narrower than the saved
  // figure's pixels; spaced logarithmically on log-log axes) the first and last point and the
  // lowest and highest of each named series, so the drawing looks the same as with every point
  // at a fraction of the cost. Ends with a blank line. Empty when not reducing: shown scripts
  // keep every point for zooming in.
  static std::string shownPoints(bool reduce, const std::string& xName, bool logAxes,
                                 const std::vector<std::string>& seriesNames);
  // The definition of pixelColumnExtremes(x, logAxes, *series) that shownPoints calls, for a
  // script that reduces several curves; ends with a blank line.
  static std::string pixelColumnExtremesFunction();
  // The array as drawn: "name[shown]" when reducing, else the name.
  static std::string drawn(bool reduce, const std::string& arrayName);
  // The keyword arguments of a statistic's curve: colour, line, markerStyle, the legend label,
  // rasterizeCurve, drawn above a band.
  static std::string curveStyle(const std::string& label);
  // The legend of ax1: the best place while that is cheap to find, else a corner away from a
  // falling (upper right) or rising (upper left) curve of the named array.
  static std::string legend(const std::string& arrayName);
  // Axis labels and title of ax1 with the fonts of every plot.
  static std::string labels(const std::string& xLabel, const std::string& yLabel,
                            const std::string& title);
  // Log-log axes: a major tick and solid grid line at every decade, dotted lines between; an
  // axis spanning less than two decades also labels some of the ticks between. Ticks beyond
  // the axes are not made (matplotlib would make and then hide them).
  static std::string decadeGrid(const std::string& axesName);

  // With a plot path: the size statement, the layout, the savefig line (at kDotsPerInch) and a
  // blank line. Then plt.show()
  // when showPlot, else plt.close(f1), which leaves no figure open in a long-lived interpreter.
  static std::string ending(const std::string& plotSizeStatement,
                            const std::optional<std::string>& plotPath, bool showPlot);
};
