// The plot scripts: exact text of the time error and statistic scripts in their saved and
// plot-run forms, the class-level hooks a subclass inserts, and a real run of the scripts
// through the plotting wrapper to PNG files.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "VDAllanDeviationAnalysis.h"
#include "VDMaximumTimeIntervalErrorAnalysis.h"
#include "VDModifiedAllanDeviationAnalysis.h"
#include "VDRootMeanSquaredTimeIntervalErrorAnalysis.h"
#include "VDTimeDeviationAnalysis.h"
#include "VDTimeErrorSequence.h"

namespace {

const std::string kHeader =
    "#!/usr/bin/python\n"
    "\n"
    "import numpy as np\n"
    "import matplotlib.pyplot as plt\n"
    "import matplotlib.mlab as mlab\n"
    "import os\n"
    "import sys\n"
    "\n";

// The marker and rasterisation switches every script sets from its array's length.
std::string curveOptions(const std::string& array) {
  return "# Markers only where the points can be told apart; long curves are rasterised in PDF\n"
         "# output (at the PNG's resolution), so axes and text stay vector.\n"
         "markerStyle = 'o' if len(" +
         array + ") <= 100 else 'None'\nrasterizeCurve = len(" + array + ") > 20000\n";
}

std::string legend(const std::string& array) {
  return "ax1.legend(loc='best' if len(" + array + ") <= 20000 else ('upper right' if " + array +
         "[0] > " + array + "[-1] else 'upper left'), fontsize=11, framealpha=0.9)\n";
}

// What a script that saves its figure draws of a long curve: each pixel column's extremes.
std::string shownPoints(const std::string& call) {
  return "# Long curves are drawn from the first, last, lowest and highest point of each of 3000\n"
         "# columns of the x range (narrower than a pixel): the plot looks the same as with every\n"
         "# point.\n"
         "def pixelColumnExtremes(x, logAxes, *series):\n"
         "    if len(x) <= 8000:\n"
         "        return slice(None)\n"
         "    with np.errstate(all='ignore'):\n"
         "        position = np.log10(x.astype(float)) if logAxes else x.astype(float)\n"
         "    span = position[-1] - position[0]\n"
         "    rising = np.all(np.isfinite(position)) and np.all(np.diff(position) >= 0)\n"
         "    if not (rising and span > 0):\n"
         "        return slice(None)\n"
         "    column = ((position - position[0]) * (2999 / span)).astype(np.int64)\n"
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
         "\n"
         "shown = pixelColumnExtremes(" +
         call + ")\n\n";
}

const std::string kDecadeGrid =
    "import matplotlib.ticker\n"
    "# Log ticks only inside the axes (the stock locator also makes ticks a decade or two beyond\n"
    "# them, which are never drawn), and minor ticks at 2 and 5 of each decade on axes spanning\n"
    "# more than two decades, at 2 to 9 on narrower ones: every tick costs a plot noticeable time.\n"
    "class InViewLogLocator(matplotlib.ticker.LogLocator):\n"
    "    def __init__(self, minor):\n"
    "        matplotlib.ticker.LogLocator.__init__(self, base=10.0, subs='auto' if minor else (1.0,), numticks=40)\n"
    "        self.minorTicks = minor\n"
    "    def tick_values(self, vmin, vmax):\n"
    "        low, high = sorted((vmin, vmax))\n"
    "        if self.minorTicks:\n"
    "            self.set_params(subs=(2.0, 5.0) if 0 < 100 * low < high else 'auto')\n"
    "        ticks = np.asarray(matplotlib.ticker.LogLocator.tick_values(self, vmin, vmax))\n"
    "        return ticks[(ticks >= low * (1 - 1e-6)) & (ticks <= high * (1 + 1e-6))]\n"
    "# Tick labels as plain text (0.4, 2, 10⁻³, 2×10⁻³), which lays out much faster than math text.\n"
    "class PlainLogFormatter(matplotlib.ticker.LogFormatterSciNotation):\n"
    "    superscripts = str.maketrans('0123456789-', '⁰¹²³⁴⁵⁶⁷⁸⁹⁻')\n"
    "    def __call__(self, value, position=None):\n"
    "        label = matplotlib.ticker.LogFormatterSciNotation.__call__(self, value, position)\n"
    "        if label and 0.1 < value < 10:\n"
    "            return '%g' % value\n"
    "        if label.startswith('$\\\\mathdefault{') and label.endswith('}$'):\n"
    "            mantissa, caret, exponent = label[14:-2].replace('\\\\times', '×').partition('^{')\n"
    "            label = mantissa + exponent.rstrip('}').translate(self.superscripts)\n"
    "        return label\n"
    "for decadeAxis in (ax1.xaxis, ax1.yaxis):\n"
    "    decadeAxis.set_major_locator(InViewLogLocator(minor=False))\n"
    "    decadeAxis.set_minor_locator(InViewLogLocator(minor=True))\n"
    "    decadeAxis.set_major_formatter(PlainLogFormatter())\n"
    "    decadeAxis.set_minor_formatter(PlainLogFormatter(labelOnlyBase=False, minor_thresholds=(2, 0.5)))\n"
    "ax1.grid(True, which='major', linestyle='-', linewidth=0.8, alpha=0.6)\n"
    "ax1.grid(True, which='minor', linestyle=':', linewidth=0.6, alpha=0.4)\n";

TEST(AnalysisScripts, TimeErrorScriptSavedAndPlotRun) {
  const VDTimeErrorSequence sequence({});
  const auto body = [](const std::string& shown, const std::string& drawnTime,
                       const std::string& drawn) {
    return "\n"
           "time = timeErrorRecords.time\n"
           "timeError = timeErrorRecords.time_error\n"
           "\n" +
           shown + curveOptions(drawnTime) + "\n" +
           "f1, ax1 = plt.subplots()\n"
           "ax1.plot(" +
           drawn +
           ", color='#b03a2e', linestyle='-', linewidth=1.0, "
           "marker=markerStyle, markersize=4, label='Time error', rasterized=rasterizeCurve)\n" +
           legend("timeError") +
           "ax1.set_xlabel('Time (ns)', fontsize=12)\n"
           "ax1.set_ylabel('Time Error (ns)', fontsize=12)\n"
           "ax1.set_title('Time Errors - run 1', fontsize=14)\n"
           "ax1.tick_params(which='both', labelsize=11)\n"
           "ax1.grid(True, linestyle='-', linewidth=0.8, alpha=0.6)\n"
           "\n";
  };
  // Shown scripts draw every point, so zooming in shows them all.
  EXPECT_EQ(sequence.generatePythonScriptWithOutputPath(std::nullopt, "run1_time_error.csv",
                                                        "run 1", std::nullopt, true),
            kHeader +
                "timeErrorRecords = "
                "mlab.csv2rec(os.path.split(sys.argv[0])[0]+'/run1_time_error.csv')\n" +
                body("", "time", "time, timeError") + "plt.show()\n");
  EXPECT_EQ(sequence.generatePythonScriptWithOutputPath("/out dir", "run1_time_error.csv", "run 1",
                                                        "/out dir/run1.png", false),
            kHeader + "timeErrorRecords = mlab.csv2rec('/out dir/run1_time_error.csv')\n" +
                body(shownPoints("time, False, timeError"), "time[shown]",
                     "time[shown], timeError[shown]") +
                "f1.set_size_inches(11.69, 6.58)\n"
                "f1.tight_layout()\n"
                "f1.savefig('/out dir/run1.png', dpi=150)\n"
                "\n"
                "plt.close(f1)\n");
}

TEST(AnalysisScripts, StatisticScriptSavedAndPlotRun) {
  const VDAnalysisClass& adev = VDAllanDeviationAnalysis::classObject();
  const auto body = [](const std::string& shown, const std::string& suffix) {
    return "\n"
           "tau = adevRecords.tau\n"
           "adev = adevRecords.adev\n"
           "adevMin = adevRecords.adev_min\n"
           "adevMax = adevRecords.adev_max\n"
           "\n" +
           shown + curveOptions("tau" + suffix) + "\n" +
           "f1, ax1 = plt.subplots()\n"
           "l1, = ax1.loglog(tau" +
           suffix + ", adev" + suffix +
           ", color='#1f4e9c', linestyle='-', linewidth=1.5, "
           "marker=markerStyle, markersize=4, label='ADEV', rasterized=rasterizeCurve, zorder=3)\n"
           "ax1.fill_between(tau" +
           suffix + ", adevMin" + suffix + ", adevMax" + suffix +
           ", color='#1f4e9c', alpha=0.25, linewidth=0, "
           "zorder=2, label='68.3 % confidence interval', rasterized=rasterizeCurve)\n" +
           legend("adev") +
           "ax1.set_xlabel('Tau (s)', fontsize=12)\n"
           "ax1.set_ylabel('ADEV (dimensionless)', fontsize=12)\n"
           "ax1.set_title('Allan Deviation - run1', fontsize=14)\n"
           "ax1.tick_params(which='both', labelsize=11)\n" +
           kDecadeGrid + "\n";
  };
  EXPECT_EQ(adev.generatePythonScriptWithOutputPath(std::nullopt, "run1_adev.csv", "run1",
                                                    std::nullopt, true),
            kHeader +
                "adevRecords = mlab.csv2rec(os.path.split(sys.argv[0])[0]+'/run1_adev.csv')\n" +
                body("", "") + "plt.show()\n");
  EXPECT_EQ(adev.generatePythonScriptWithOutputPath("/o", "run1_adev.csv", "run1",
                                                    "/o/run1_adev.pdf", false),
            kHeader + "adevRecords = mlab.csv2rec('/o/run1_adev.csv')\n" +
                body(shownPoints("tau, True, adev, adevMin, adevMax"), "[shown]") +
                "f1.set_size_inches(11.69, 6.58)\n"
                "f1.tight_layout()\n"
                "f1.savefig('/o/run1_adev.pdf', dpi=150)\n"
                "\n"
                "plt.close(f1)\n");

  // The other statistics differ only in their names, columns and labels; only the deviations
  // have a confidence band.
  const struct {
    const VDAnalysisClass& statistic;
    const char* lines;
    bool band;
  } others[] = {
      {VDModifiedAllanDeviationAnalysis::classObject(),
       "madev = madevRecords.madev\nmadevMin = madevRecords.madev_min\n"
       "madevMax = madevRecords.madev_max\n",
       true},
      {VDModifiedAllanDeviationAnalysis::classObject(),
       "l1, = ax1.loglog(tau, madev, color='#1f4e9c', linestyle='-', linewidth=1.5, "
       "marker=markerStyle, markersize=4, label='MDEV', rasterized=rasterizeCurve, zorder=3)\n"
       "ax1.fill_between(tau, madevMin, madevMax, color='#1f4e9c', alpha=0.25",
       true},
      {VDModifiedAllanDeviationAnalysis::classObject(),
       "ax1.set_ylabel('MDEV (dimensionless)', fontsize=12)\n"
       "ax1.set_title('Modified Allan Deviation - n', fontsize=14)\n",
       true},
      {VDTimeDeviationAnalysis::classObject(),
       "ax1.fill_between(tau, tdevMin, tdevMax, color='#1f4e9c', alpha=0.25", true},
      {VDTimeDeviationAnalysis::classObject(),
       "ax1.set_ylabel('TDEV (ns)', fontsize=12)\nax1.set_title('Time Deviation - n', "
       "fontsize=14)\n",
       true},
      {VDRootMeanSquaredTimeIntervalErrorAnalysis::classObject(),
       "rmstie = rmstieRecords.rmstie\n\n# Markers", false},
      {VDRootMeanSquaredTimeIntervalErrorAnalysis::classObject(),
       "label='RMS TIE', rasterized=rasterizeCurve, zorder=3)\nax1.legend(", false},
      {VDRootMeanSquaredTimeIntervalErrorAnalysis::classObject(),
       "ax1.set_ylabel('RMS TIE (ns)', fontsize=12)\n"
       "ax1.set_title('Root Mean Squared Time Interval Error - n', fontsize=14)\n",
       false},
      {VDMaximumTimeIntervalErrorAnalysis::classObject(),
       "label='MTIE', rasterized=rasterizeCurve, zorder=3)\nax1.legend(", false},
      {VDMaximumTimeIntervalErrorAnalysis::classObject(),
       "ax1.set_ylabel('MTIE (ns)', fontsize=12)\n"
       "ax1.set_title('Maximum Time Interval Error - n', fontsize=14)\n",
       false},
  };
  for (const auto& other : others) {
    const std::string script = other.statistic.generatePythonScriptWithOutputPath(
        std::nullopt, "n.csv", "n", std::nullopt, true);
    EXPECT_NE(script.find(other.lines), std::string::npos) << script;
    EXPECT_NE(script.find(kDecadeGrid), std::string::npos) << script;
    EXPECT_EQ(script.find("fill_between") != std::string::npos, other.band) << script;
  }
}

// The class-level side of the gPTP one-hop MTIE plot, as the tool's dual-link analysis has it.
class OneHopMTIEClass : public VDMaximumTimeIntervalErrorAnalysisClass {
 public:
  std::string additionalScriptInitialization() const override {
    return "def gPTP1HopMTIE(x):\n\treturn 160\n\nvGPTP1HopMTIE = np.vectorize(gPTP1HopMTIE)\n";
  }
  std::string additionalScriptRecords() const override {
    return "gPTP1HopMask = vGPTP1HopMTIE(tau)\n";
  }
  std::string additionalScriptPlots(const std::string& axesName) const override {
    return "l2, = " + axesName +
           ".plot(tau, gPTP1HopMask, '-', color='#fac205', label='gPTP 1 Hop')\n"
           "ax1.legend(loc='best', fontsize='x-small')\n";
  }
  std::string plotSize() const override { return "f1.set_size_inches(9.5, 9.5)"; }
  std::string plotYLimits(const std::string& axesName) const override {
    return axesName + ".set_ylim([10,10000])";
  }
};

class OneHopMTIEAnalysis : public VDMaximumTimeIntervalErrorAnalysis {
 public:
  using VDMaximumTimeIntervalErrorAnalysis::VDMaximumTimeIntervalErrorAnalysis;
  static const VDAnalysisClass& classObject() {
    static const OneHopMTIEClass kClass;
    return kClass;
  }
  const VDAnalysisClass& analysisClass() const override { return classObject(); }
};

TEST(AnalysisScripts, HooksOfTheAnalysisOwnClassGoInTheirPlaces) {
  const OneHopMTIEAnalysis oneHop({});
  const VDMaximumTimeIntervalErrorAnalysis plain({});
  const std::string hooked = oneHop.analysisClass().generatePythonScriptWithOutputPath(
      "/o", "n_mtie.csv", "n", "/o/n_mtie.png", false);
  EXPECT_EQ(hooked,
            kHeader +
                "def gPTP1HopMTIE(x):\n"
                "\treturn 160\n"
                "\n"
                "vGPTP1HopMTIE = np.vectorize(gPTP1HopMTIE)\n"
                "\n"
                "mtieRecords = mlab.csv2rec('/o/n_mtie.csv')\n"
                "\n"
                "tau = mtieRecords.tau\n"
                "mtie = mtieRecords.mtie\n"
                "gPTP1HopMask = vGPTP1HopMTIE(tau)\n"
                "\n" +
                shownPoints("tau, True, mtie") + curveOptions("tau[shown]") + "\n" +
                "f1, ax1 = plt.subplots()\n"
                "l1, = ax1.loglog(tau[shown], mtie[shown], color='#1f4e9c', linestyle='-', "
                "linewidth=1.5, "
                "marker=markerStyle, markersize=4, label='MTIE', rasterized=rasterizeCurve, "
                "zorder=3)\n" +
                legend("mtie") +
                "l2, = ax1.plot(tau, gPTP1HopMask, '-', color='#fac205', label='gPTP 1 Hop')\n"
                "ax1.legend(loc='best', fontsize='x-small')\n"
                "ax1.set_xlabel('Tau (s)', fontsize=12)\n"
                "ax1.set_ylabel('MTIE (ns)', fontsize=12)\n"
                "ax1.set_title('Maximum Time Interval Error - n', fontsize=14)\n"
                "ax1.tick_params(which='both', labelsize=11)\n" +
                kDecadeGrid +
                "ax1.set_ylim([10,10000])\n"
                "\n"
                "f1.set_size_inches(9.5, 9.5)\n"
                "f1.tight_layout()\n"
                "f1.savefig('/o/n_mtie.png', dpi=150)\n"
                "\n"
                "plt.close(f1)\n");
  // The saved form has no figure size: it saves nothing.
  const std::string saved = oneHop.analysisClass().generatePythonScriptWithOutputPath(
      std::nullopt, "n_mtie.csv", "n", std::nullopt, true);
  EXPECT_EQ(saved.find("set_size_inches"), std::string::npos);
  EXPECT_NE(saved.find("\nax1.set_ylim([10,10000])\n\nplt.show()\n"), std::string::npos);

  // An analysis made as the library class keeps the plain script.
  EXPECT_EQ(&plain.analysisClass(), &VDMaximumTimeIntervalErrorAnalysis::classObject());
  const std::string base = plain.analysisClass().generatePythonScriptWithOutputPath(
      "/o", "n_mtie.csv", "n", "/o/n_mtie.png", false);
  for (const char* hookText : {"gPTP1Hop", "x-small", "set_ylim", "9.5"}) {
    EXPECT_EQ(base.find(hookText), std::string::npos) << hookText;
  }
  EXPECT_NE(base.find("\nf1.set_size_inches(11.69, 6.58)\nf1.tight_layout()\n"
                      "f1.savefig('/o/n_mtie.png', dpi=150)\n"),
            std::string::npos);
}

// Runs a script through the plotting wrapper, without a display.
int runPlotScript(const std::filesystem::path& script) {
  const std::string command =
      "MPLBACKEND=Agg /usr/bin/python3 '" +
      (TestSupport::sourceDir() / "python" / "veridaneprobe-plot").string() + "' '" +
      script.string() + "' > /dev/null 2>&1";
  return std::system(command.c_str());
}

bool isPng(const std::filesystem::path& path) {
  return std::filesystem::exists(path) && TestSupport::readFile(path).rfind("\x89PNG", 0) == 0;
}

TEST(AnalysisScripts, ScriptsRunAndDrawTheirPlots) {
  TestSupport::TempDir dir;
  std::vector<VDTimeErrorValue> values;
  int64_t phase = 0;
  for (uint64_t i = 0; i < 400; ++i) {
    phase += static_cast<int64_t>((i * 7919) % 61) - 30;
    values.emplace_back(1700000000000000000ull + 125000000ull * i, phase);
  }
  const std::string out = dir.path().string();
  const VDTimeErrorSequence sequence(values);
  ASSERT_TRUE(sequence.exportTimeErrorsToDirectoryURL(dir.path(), "n_time_error.csv"));
  TestSupport::writeFile(dir / "PlotTimeError.py",
                         sequence.generatePythonScriptWithOutputPath(
                             out, "n_time_error.csv", "n", out + "/n_time_error.png", false));
  EXPECT_EQ(runPlotScript(dir / "PlotTimeError.py"), 0);
  EXPECT_TRUE(isPng(dir / "n_time_error.png"));

  constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
  VDAllanDeviationAnalysis adev(values);
  OneHopMTIEAnalysis mtie(values);
  for (VDStatisticAnalysis* analysis :
       {static_cast<VDStatisticAnalysis*>(&adev), static_cast<VDStatisticAnalysis*>(&mtie)}) {
    const std::string column = analysis->analysisClass().valueColumn();
    analysis->performAnalysisFromStartWindowSize(1, kMax, 1);
    ASSERT_TRUE(
        analysis->exportAnalysisToDirectoryURL(dir.path(), "n_" + column + ".csv", 1, kMax, 1));
    TestSupport::writeFile(
        dir / ("Plot" + column + ".py"),
        analysis->analysisClass().generatePythonScriptWithOutputPath(
            out, "n_" + column + ".csv", "n", out + "/n_" + column + ".png", false));
    EXPECT_EQ(runPlotScript(dir / ("Plot" + column + ".py")), 0) << column;
    EXPECT_TRUE(isPng(dir / ("n_" + column + ".png"))) << column;
  }

  // The saved form finds its CSV beside itself wherever it is run from.
  TestSupport::writeFile(dir / "Saved.py",
                         adev.analysisClass().generatePythonScriptWithOutputPath(
                             std::nullopt, "n_adev.csv", "n", std::nullopt, true));
  EXPECT_EQ(runPlotScript(dir / "Saved.py"), 0);
}

// The time error, a deviation with its band and MTIE render to PNG and PDF whether the CSVs hold
// one, two, three or a million points (markers on the short curves, rasterised long ones).
TEST(AnalysisScripts, PlotsRenderFromOneToAMillionPoints) {
  for (const int count : {1, 2, 3, 1000000}) {
    SCOPED_TRACE(count);
    TestSupport::TempDir dir;
    const std::string out = dir.path().string();
    std::string timeErrors = "time,time_error\n";
    std::string adev = "window,tau,adev,terms,alpha,edf,adev_min,adev_max\n";
    std::string mtie = "window,tau,mtie,terms\n";
    for (int i = 1; i <= count; ++i) {
      const std::string index = std::to_string(i);
      timeErrors +=
          std::to_string(1000000000ll * i) + "," + std::to_string((i * 7919ll) % 61) + "\n";
      const double value = 1e-9 / i;
      adev += index + "," + index + "," + std::to_string(value) + ",10,0,5," +
              std::to_string(value * 0.8) + "," + std::to_string(value * 1.3) + "\n";
      mtie += index + "," + index + "," + std::to_string(10 + i) + ",10\n";
    }
    TestSupport::writeFile(dir / "n_time_error.csv", timeErrors);
    TestSupport::writeFile(dir / "n_adev.csv", adev);
    TestSupport::writeFile(dir / "n_mtie.csv", mtie);
    // One interpreter for the six plots.
    std::string scripts;
    for (const char* extension : {".png", ".pdf"}) {
      const VDTimeErrorSequence sequence({});
      scripts += sequence.generatePythonScriptWithOutputPath(out, "n_time_error.csv", "n",
                                                             out + "/t" + extension, false);
      scripts += VDAllanDeviationAnalysis::classObject().generatePythonScriptWithOutputPath(
          out, "n_adev.csv", "n", out + "/a" + extension, false);
      scripts +=
          VDMaximumTimeIntervalErrorAnalysis::classObject().generatePythonScriptWithOutputPath(
              out, "n_mtie.csv", "n", out + "/m" + extension, false);
    }
    TestSupport::writeFile(dir / "All.py", scripts);
    EXPECT_EQ(runPlotScript(dir / "All.py"), 0);
    for (const char* plot : {"t", "a", "m"}) {
      EXPECT_TRUE(isPng(dir / (std::string(plot) + ".png"))) << plot;
      EXPECT_EQ(TestSupport::readFile(dir / (std::string(plot) + ".pdf")).rfind("%PDF", 0), 0u)
          << plot;
    }
  }
}

// A figure saved from a long curve draws it reduced, yet each of the figure's pixel columns
// still reaches every series' highest and lowest value within a pixel (the columns the script
// reduces to are narrower than a pixel but need not line up with one): a spike one sample wide
// still shows.
TEST(AnalysisScripts, ReducedCurvesKeepEachPixelColumnsExtremes) {
  TestSupport::TempDir dir;
  const std::string out = dir.path().string();
  const auto number = [](double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.9e", value);
    return std::string(text);
  };
  std::string timeErrors = "time,time_error\n";
  std::string adev = "window,tau,adev,terms,alpha,edf,adev_min,adev_max\n";
  for (int64_t i = 1; i <= 200000; ++i) {
    // Noise with rare one-sample spikes up and down.
    const int64_t spike = i % 9973 == 0 ? 5000 : (i % 7919 == 0 ? -4000 : 0);
    timeErrors +=
        std::to_string(1000000000 * i) + "," + std::to_string((i * 7919) % 61 - 30 + spike) + "\n";
    if (i <= 100000) {
      const double wobble = 1 + ((i * 7907) % 53) / 100.0 + (i % 4999 == 0 ? 3 : 0);
      // A zero, which a log axis cannot show, among the values.
      const double value = i == 60000 ? 0 : 1e-9 / std::sqrt(i) * wobble;
      adev += std::to_string(i) + "," + number(0.125 * i) + "," + number(value) + ",10,0,5," +
              number(value * (i % 3001 == 0 ? 0.1 : 0.8)) + "," + number(value * 1.3) + "\n";
    }
  }
  TestSupport::writeFile(dir / "n_time_error.csv", timeErrors);
  TestSupport::writeFile(dir / "n_adev.csv", adev);
  // Exits 3 when the curve was not reduced, 4 when a pixel column lost an extreme.
  const auto check = [](const std::string& x, const std::string& series, const char* logAxes) {
    return "\n"
           "def pixelExtremes(x, y):\n"
           "    f1.set_dpi(150)\n"
           "    pixel = ax1.transData.transform(np.column_stack([x, np.ones(len(x))]))[:, 0]\n"
           "    y = y.astype(float)\n"
           "    valid = np.isfinite(y) & ((y > 0) if " +
           std::string(logAxes) +
           " else True)\n"
           "    pixel = pixel[valid].astype(np.int64) + 1\n"
           "    low = np.full(pixel.max() + 2, np.inf)\n"
           "    high = np.full(pixel.max() + 2, -np.inf)\n"
           "    np.minimum.at(low, pixel, y[valid])\n"
           "    np.maximum.at(high, pixel, y[valid])\n"
           "    return low, high\n"
           "if len(" +
           x + "[shown]) * 5 > len(" + x +
           "):\n"
           "    sys.exit(3)\n"
           "for y in (" +
           series +
           "):\n"
           "    low, high = pixelExtremes(" +
           x +
           ", y)\n"
           "    drawnLow, drawnHigh = pixelExtremes(" +
           x +
           "[shown], y[shown])\n"
           "    near = lambda values, pick: pick(pick(values[:-2], values[1:-1]), values[2:])\n"
           "    if np.any(near(drawnLow, np.minimum) > low[1:-1]) or \\\n"
           "            np.any(near(drawnHigh, np.maximum) < high[1:-1]):\n"
           "        sys.exit(4)\n";
  };
  const std::string timeScript = VDTimeErrorSequence({}).generatePythonScriptWithOutputPath(
                                     out, "n_time_error.csv", "n", out + "/t.png", false) +
                                 check("time", "timeError,", "False");
  TestSupport::writeFile(dir / "Time.py", timeScript);
  EXPECT_EQ(runPlotScript(dir / "Time.py"), 0);
  const std::string adevScript =
      VDAllanDeviationAnalysis::classObject().generatePythonScriptWithOutputPath(
          out, "n_adev.csv", "n", out + "/a.png", false) +
      check("tau", "adev, adevMin, adevMax", "True");
  TestSupport::writeFile(dir / "Adev.py", adevScript);
  EXPECT_EQ(runPlotScript(dir / "Adev.py"), 0);
}

}  // namespace
