// The plot scripts: exact text of the time error and statistic scripts in their saved and
// plot-run forms, the class-level hooks a subclass inserts, and a real run of the scripts
// through the plotting wrapper to PNG files.

#include <gtest/gtest.h>

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

TEST(AnalysisScripts, TimeErrorScriptSavedAndPlotRun) {
  const VDTimeErrorSequence sequence({});
  const std::string body =
      "\n"
      "time = timeErrorRecords.time\n"
      "timeError = timeErrorRecords.time_error\n"
      "\n"
      "f1, ax1 = plt.subplots()\n"
      "ax1.plot(time, timeError, 'r-')\n"
      "ax1.set_xlabel('Time (ns)')\n"
      "ax1.set_ylabel('Time Error (ns)')\n"
      "ax1.set_title('Time Errors - run 1')\n"
      "ax1.grid(True)\n"
      "\n";
  EXPECT_EQ(sequence.generatePythonScriptWithOutputPath(std::nullopt, "run1_time_error.csv",
                                                        "run 1", std::nullopt, true),
            kHeader +
                "timeErrorRecords = "
                "mlab.csv2rec(os.path.split(sys.argv[0])[0]+'/run1_time_error.csv')\n" +
                body + "plt.show()\n");
  EXPECT_EQ(sequence.generatePythonScriptWithOutputPath("/out dir", "run1_time_error.csv", "run 1",
                                                        "/out dir/run1.png", false),
            kHeader + "timeErrorRecords = mlab.csv2rec('/out dir/run1_time_error.csv')\n" + body +
                "f1.set_size_inches(16, 9)\n"
                "f1.savefig('/out dir/run1.png')\n"
                "\n"
                "plt.close(f1)\n");
}

TEST(AnalysisScripts, StatisticScriptSavedAndPlotRun) {
  const VDAnalysisClass& adev = VDAllanDeviationAnalysis::classObject();
  const std::string body =
      "\n"
      "tau = adevRecords.tau\n"
      "adev = adevRecords.adev\n"
      "adevMin = adevRecords.adev_min\n"
      "adevMax = adevRecords.adev_max\n"
      "\n"
      "f1, ax1 = plt.subplots()\n"
      "l1, = ax1.loglog(tau, adev, 'b.-', label='ADEV')\n"
      "ax1.fill_between(tau, adevMin, adevMax, color='b', alpha=0.2, linewidth=0, zorder=1, "
      "label='68.3 % confidence')\n"
      "ax1.legend(loc='best')\n"
      "ax1.set_xlabel('Tau (s)')\n"
      "ax1.set_ylabel('ADEV')\n"
      "ax1.set_title('Allan Deviation - run1')\n"
      "ax1.grid(True, which='both')\n"
      "\n";
  EXPECT_EQ(adev.generatePythonScriptWithOutputPath(std::nullopt, "run1_adev.csv", "run1",
                                                    std::nullopt, true),
            kHeader +
                "adevRecords = mlab.csv2rec(os.path.split(sys.argv[0])[0]+'/run1_adev.csv')\n" +
                body + "plt.show()\n");
  EXPECT_EQ(adev.generatePythonScriptWithOutputPath("/o", "run1_adev.csv", "run1",
                                                    "/o/run1_adev.pdf", false),
            kHeader + "adevRecords = mlab.csv2rec('/o/run1_adev.csv')\n" + body +
                "f1.set_size_inches(16, 9)\n"
                "f1.savefig('/o/run1_adev.pdf')\n"
                "\n"
                "plt.close(f1)\n");

  // The other statistics differ only in their names, columns and labels.
  const struct {
    const VDAnalysisClass& statistic;
    const char* lines;
  } others[] = {
      {VDModifiedAllanDeviationAnalysis::classObject(),
       "tau = madevRecords.tau\nmadev = madevRecords.madev\nmadevMin = madevRecords.madev_min\n"
       "madevMax = madevRecords.madev_max\n\nf1, ax1 = plt.subplots()\n"
       "l1, = ax1.loglog(tau, madev, 'b.-', label='MDEV')\n"
       "ax1.fill_between(tau, madevMin, madevMax, color='b', alpha=0.2, linewidth=0, zorder=1, "
       "label='68.3 % confidence')\nax1.legend(loc='best')\nax1.set_xlabel('Tau (s)')\n"
       "ax1.set_ylabel('MDEV')\nax1.set_title('Modified Allan Deviation - n')\n"},
      {VDTimeDeviationAnalysis::classObject(),
       "tau = tdevRecords.tau\ntdev = tdevRecords.tdev\ntdevMin = tdevRecords.tdev_min\n"
       "tdevMax = tdevRecords.tdev_max\n\nf1, ax1 = plt.subplots()\n"
       "l1, = ax1.loglog(tau, tdev, 'b.-', label='TDEV')\n"
       "ax1.fill_between(tau, tdevMin, tdevMax, color='b', alpha=0.2, linewidth=0, zorder=1, "
       "label='68.3 % confidence')\nax1.legend(loc='best')\nax1.set_xlabel('Tau (s)')\n"
       "ax1.set_ylabel('TDEV (ns)')\nax1.set_title('Time Deviation - n')\n"},
      {VDRootMeanSquaredTimeIntervalErrorAnalysis::classObject(),
       "tau = rmstieRecords.tau\nrmstie = rmstieRecords.rmstie\n\nf1, ax1 = plt.subplots()\n"
       "l1, = ax1.loglog(tau, rmstie, 'b.-', label='RMS TIE')\nax1.set_xlabel('Tau (s)')\n"
       "ax1.set_ylabel('RMS TIE (ns)')\n"
       "ax1.set_title('Root Mean Squared Time Interval Error - n')\n"},
      {VDMaximumTimeIntervalErrorAnalysis::classObject(),
       "tau = mtieRecords.tau\nmtie = mtieRecords.mtie\n\nf1, ax1 = plt.subplots()\n"
       "l1, = ax1.loglog(tau, mtie, 'b.-', label='MTIE')\nax1.set_xlabel('Tau (s)')\n"
       "ax1.set_ylabel('MTIE (ns)')\nax1.set_title('Maximum Time Interval Error - n')\n"},
  };
  for (const auto& other : others) {
    const std::string script = other.statistic.generatePythonScriptWithOutputPath(
        std::nullopt, "n.csv", "n", std::nullopt, true);
    EXPECT_NE(script.find(other.lines), std::string::npos) << script;
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
                "\n"
                "f1, ax1 = plt.subplots()\n"
                "l1, = ax1.loglog(tau, mtie, 'b.-', label='MTIE')\n"
                "l2, = ax1.plot(tau, gPTP1HopMask, '-', color='#fac205', label='gPTP 1 Hop')\n"
                "ax1.legend(loc='best', fontsize='x-small')\n"
                "ax1.set_xlabel('Tau (s)')\n"
                "ax1.set_ylabel('MTIE (ns)')\n"
                "ax1.set_title('Maximum Time Interval Error - n')\n"
                "ax1.grid(True, which='both')\n"
                "ax1.set_ylim([10,10000])\n"
                "\n"
                "f1.set_size_inches(9.5, 9.5)\n"
                "f1.savefig('/o/n_mtie.png')\n"
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
  for (const char* hookText : {"gPTP1Hop", "legend", "set_ylim", "9.5"}) {
    EXPECT_EQ(base.find(hookText), std::string::npos) << hookText;
  }
  EXPECT_NE(base.find("\nf1.set_size_inches(16, 9)\nf1.savefig('/o/n_mtie.png')\n"),
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

}  // namespace
