// The plot scripts run for real through the plotting wrapper to PNG and PDF files, from one
// point to a million, and the reduction of long curves that keeps each pixel column's extremes.
// (Their text, byte for byte, is pinned by the tool's script test in processor_test.cpp.)

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "VDPlotReduction.h"
#include "VDPlotScript.h"
#include "VDTimeErrorSequence.h"

namespace {

int runPlotScript(const std::filesystem::path& script) {
  return TestSupport::shell("MPLBACKEND=Agg /usr/bin/python3 '" +
                            (TestSupport::sourceDir() / "python/veridaneprobe-plot").string() +
                            "' '" + script.string() + "' > /dev/null 2>&1")
      .status;
}

bool isPng(const std::filesystem::path& path) {
  return std::filesystem::exists(path) && TestSupport::readFile(path).rfind("\x89PNG", 0) == 0;
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

// The rows a run hands to its plots in memory, reduced where the values are, are drawn exactly
// as the script draws every row: the script's own reduction (numpy) of the rows handed over
// keeps the rows it keeps of all of them, and the count it decides the legend by stays on the
// same side of the rasterising limit. Curves with ties, values a log axis cannot show, and x
// that does not rise.
TEST(AnalysisScripts, RowsHandedToAPlotRunDrawAsEveryRow) {
  struct Case {
    int count;
    bool logAxes;
    bool rising;
  };
  const Case cases[] = {{30000, true, true}, {30000, false, true}, {12000, true, true},
                        {5000, false, true}, {9000, false, false}, {9000, true, false},
                        {400000, true, true}};
  TestSupport::TempDir dir;
  std::string check = VDPlotScript::header() + VDPlotScript::pixelColumnExtremesFunction();
  for (size_t c = 0; c < std::size(cases); ++c) {
    const Case& row = cases[c];
    std::vector<double> x, y, band;
    std::string table;
    for (int i = 0; i < row.count; ++i) {
      // Not rising: one row in the middle steps back to 0 (which no log axis shows either).
      x.push_back(row.rising || i != row.count / 2 ? 0.25 * (i + 1) : 0.0);
      // Plateaus (ties), spikes, and zeros and negatives among the values.
      y.push_back(i % 97 == 0 ? 0.0 : (i % 1009 == 0 ? -3.0 : std::floor(1.0 + (i * 31) % 17)));
      band.push_back(y.back() * (i % 3001 == 0 ? 9 : 1.5));
      table += std::to_string(x.back()) + "," + std::to_string(y.back()) + "," +
               std::to_string(band.back()) + "\n";
    }
    const auto at = [](const std::vector<double>& values) {
      return [&values](size_t i) { return values[i]; };
    };
    std::string rows;
    for (const size_t i :
         VDPlotReduction::rowsForPlotRun(x.size(), at(x), row.logAxes, {at(y), at(band)})) {
      rows += std::to_string(i) + "\n";
    }
    const std::string name = "case" + std::to_string(c);
    TestSupport::writeFile(dir / (name + ".csv"), table);
    TestSupport::writeFile(dir / (name + ".rows"), rows);
    check +=
        "x, y, band = np.loadtxt('" + (dir / (name + ".csv")).string() +
        "', delimiter=',', unpack=True)\n"
        "rows = np.loadtxt('" +
        (dir / (name + ".rows")).string() +
        "', dtype=np.int64)\n"
        "logAxes = " +
        (row.logAxes ? "True" : "False") +
        "\n"
        "every = np.arange(len(x))[pixelColumnExtremes(x, logAxes, y, band)]\n"
        "handed = rows[pixelColumnExtremes(x[rows], logAxes, y[rows], band[rows])]\n"
        "if not np.array_equal(every, handed):\n"
        "    sys.exit(" +
        std::to_string(10 + c) +
        ")\n"
        "limit = " +
        std::to_string(VDPlotScript::kRasterisedPoints) +
        "\n"
        "if (len(rows) > limit) != (len(x) > limit) or rows[0] != 0 or rows[-1] != len(x) - 1:\n"
        "    sys.exit(" +
        std::to_string(20 + c) + ")\n";
  }
  TestSupport::writeFile(dir / "Check.py", check);
  EXPECT_EQ(TestSupport::shell("/usr/bin/python3 '" + (dir / "Check.py").string() + "'").status, 0);
}

}  // namespace
