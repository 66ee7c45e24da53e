#include "VDPlotScript.h"

std::string VDPlotScript::header() {
  return "#!/usr/bin/python\n"
         "\n"
         "import numpy as np\n"
         "import matplotlib.pyplot as plt\n"
         "import matplotlib.mlab as mlab\n"
         "import os\n"
         "import sys\n"
         "\n";
}

std::string VDPlotScript::csvPathExpression(const std::optional<std::string>& outputPath,
                                            const std::string& fileName) {
  if (outputPath) {
    return "'" + *outputPath + "/" + fileName + "'";
  }
  // Saved scripts travel with their CSV, so they look beside themselves.
  return "os.path.split(sys.argv[0])[0]+'/" + fileName + "'";
}

std::string VDPlotScript::curveOptions(const std::string& arrayName) {
  return "# Markers only where the points can be told apart; long curves are rasterised in PDF\n"
         "# output (at the PNG's resolution), so axes and text stay vector.\n"
         "markerStyle = 'o' if len(" +
         arrayName + ") <= " + std::to_string(kMarkedPoints) +
         " else 'None'\n"
         "rasterizeCurve = len(" +
         arrayName + ") > " + std::to_string(kRasterisedPoints) + "\n";
}

std::string VDPlotScript::pixelColumnExtremesFunction() {
  const std::string columns = std::to_string(kPixelColumns);
  const std::string lastColumn = std::to_string(kPixelColumns - 1);
  return "# Long curves are drawn from the first, last, lowest and highest point of each of " +
         columns +
         "\n"
         "# columns of the x range (narrower than a pixel): the plot looks the same as with every\n"
         "# point.\n"
         "def pixelColumnExtremes(x, logAxes, *series):\n"
         "    if len(x) <= " +
         std::to_string(kReducedPoints) +
         ":\n"
         "        return slice(None)\n"
         "    with np.errstate(all='ignore'):\n"
         "        position = np.log10(x.astype(float)) if logAxes else x.astype(float)\n"
         "    span = position[-1] - position[0]\n"
         "    rising = np.all(np.isfinite(position)) and np.all(np.diff(position) >= 0)\n"
         "    if not (rising and span > 0):\n"
         "        return slice(None)\n"
         "    column = ((position - position[0]) * (" +
         lastColumn +
         " / span)).astype(np.int64)\n"
         "    starts = np.flatnonzero(np.diff(column, prepend=-1))\n"
         "    counts = np.diff(np.append(starts, len(x)))\n"
         "    kept = [starts, starts + counts - 1]\n"
         "    for values in series:\n"
         "        values = values.astype(float)\n"
         "        if logAxes:\n"
         "            values[values <= 0] = np.nan\n"
         "        for extreme in (np.fmin, np.fmax):\n"
         "            target = np.repeat(extreme.reduceat(values, starts), counts)\n"
         "            atExtreme = np.flatnonzero(values == target)\n"
         "            kept.append(atExtreme[np.diff(column[atExtreme], prepend=-1) != 0])\n"
         "    return np.unique(np.concatenate(kept))\n"
         "\n";
}

std::string VDPlotScript::shownPoints(bool reduce, const std::string& xName, bool logAxes,
                                      const std::vector<std::string>& seriesNames) {
  if (!reduce) {
    return {};
  }
  std::string text = pixelColumnExtremesFunction() + "shown = pixelColumnExtremes(" + xName +
                     (logAxes ? ", True" : ", False");
  for (const std::string& series : seriesNames) {
    text += ", " + series;
  }
  return text + ")\n\n";
}

std::string VDPlotScript::drawn(bool reduce, const std::string& arrayName) {
  return reduce ? arrayName + "[shown]" : arrayName;
}

std::string VDPlotScript::curveStyle(const std::string& label) {
  return std::string("color='") + kCurveColour +
         "', linestyle='-', linewidth=1.5, marker=markerStyle, markersize=4, label='" + label +
         "', rasterized=rasterizeCurve, zorder=3";
}

std::string VDPlotScript::legend(const std::string& arrayName) {
  return "ax1.legend(loc='best' if len(" + arrayName + ") <= " + std::to_string(kRasterisedPoints) +
         " else ('upper right' if " + arrayName + "[0] > " + arrayName +
         "[-1] else 'upper left'), fontsize=11, framealpha=0.9)\n";
}

std::string VDPlotScript::labels(const std::string& xLabel, const std::string& yLabel,
                                 const std::string& title) {
  return "ax1.set_xlabel('" + xLabel + "', fontsize=12)\n" + "ax1.set_ylabel('" + yLabel +
         "', fontsize=12)\n" + "ax1.set_title('" + title + "', fontsize=14)\n" +
         "ax1.tick_params(which='both', labelsize=11)\n";
}

std::string VDPlotScript::decadeGrid(const std::string& axesName) {
  return "import matplotlib.ticker\n"
         "# Log ticks only inside the axes (the stock locator also makes ticks a decade or two\n"
         "# beyond them, never drawn), minor ticks at 2 and 5 of each decade on axes wider than\n"
         "# two decades, at 2 to 9 on narrower ones: every tick costs a plot noticeable time.\n"
         "class InViewLogLocator(matplotlib.ticker.LogLocator):\n"
         "    def __init__(self, minor):\n"
         "        subs = 'auto' if minor else (1.0,)\n"
         "        matplotlib.ticker.LogLocator.__init__(self, base=10.0, subs=subs, numticks=40)\n"
         "        self.minorTicks = minor\n"
         "    def tick_values(self, vmin, vmax):\n"
         "        low, high = sorted((vmin, vmax))\n"
         "        if self.minorTicks:\n"
         "            self.set_params(subs=(2.0, 5.0) if 0 < 100 * low < high else 'auto')\n"
         "        ticks = np.asarray(matplotlib.ticker.LogLocator.tick_values(self, vmin, vmax))\n"
         "        return ticks[(ticks >= low * (1 - 1e-6)) & (ticks <= high * (1 + 1e-6))]\n"
         "# Tick labels as plain text, faster to lay out than math text: decades as 10⁻³ (but 1),\n"
         "# values between them as 0.02, 90 or 2000, smaller or larger ones as 2×10⁻³.\n"
         "class PlainLogFormatter(matplotlib.ticker.LogFormatterSciNotation):\n"
         "    superscripts = str.maketrans('0123456789-', '⁰¹²³⁴⁵⁶⁷⁸⁹⁻')\n"
         "    def __call__(self, value, position=None):\n"
         "        sciNotation = matplotlib.ticker.LogFormatterSciNotation\n"
         "        label = sciNotation.__call__(self, value, position)\n"
         "        between = '\\\\times' in label and 0.01 <= value < 1e4\n"
         "        if between or label and value == 1:\n"
         "            return '%g' % value\n"
         "        if label.startswith('$\\\\mathdefault{') and label.endswith('}$'):\n"
         "            label = label[14:-2].replace('\\\\times', '×')\n"
         "            mantissa, caret, exponent = label.partition('^{')\n"
         "            label = mantissa + exponent.rstrip('}').translate(self.superscripts)\n"
         "        return label\n"
         "for decadeAxis in (" +
         axesName + ".xaxis, " + axesName +
         ".yaxis):\n"
         "    decadeAxis.set_major_locator(InViewLogLocator(minor=False))\n"
         "    decadeAxis.set_minor_locator(InViewLogLocator(minor=True))\n"
         "    decadeAxis.set_major_formatter(PlainLogFormatter())\n"
         "    minorFormatter = PlainLogFormatter(labelOnlyBase=False, minor_thresholds=(2, 0.5))\n"
         "    decadeAxis.set_minor_formatter(minorFormatter)\n" +
         axesName + ".grid(True, which='major', linestyle='-', linewidth=0.8, alpha=0.6)\n" +
         axesName + ".grid(True, which='minor', linestyle=':', linewidth=0.6, alpha=0.4)\n";
}

std::string VDPlotScript::ending(const std::string& plotSizeStatement,
                                 const std::optional<std::string>& plotPath, bool showPlot) {
  std::string text;
  if (plotPath) {
    text += plotSizeStatement + "\n";
    text += "f1.tight_layout()\n";
    text += "f1.savefig('" + *plotPath + "', dpi=" + std::to_string(kDotsPerInch) + ")\n";
    text += "\n";
  }
  text += showPlot ? "plt.show()\n" : "plt.close(f1)\n";
  return text;
}
