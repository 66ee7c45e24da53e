// The embedded interpreter: console order across the hand-over when standard output is a file,
// errors that print a traceback without stopping the run (records refused by the compatibility
// layer among them), the classic matplotlib API that the compatibility layer supplies, and its
// fonts read from memory with a font subsetter imported only when a PDF needs it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "TestSupport.h"
#include "VDPPythonInterpreter.h"

namespace {

class PythonInterpreterTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { VDPPythonInterpreter::start("python_interpreter_test"); }
  static void TearDownTestSuite() { VDPPythonInterpreter::finalise(); }

  // Runs the script, then writes the value of the expression: what the script saw.
  std::string written(const std::string& script, const std::string& expression) {
    VDPPythonInterpreter::runScript(script + "\nopen('" + (dir / "result").string() +
                                    "', 'w').write(" + expression + ")\n");
    return TestSupport::readFile(dir / "result");
  }

  TestSupport::TempDir dir;
};

TEST_F(PythonInterpreterTest, ConsoleLinesKeepTheirOrderAcrossScripts) {
  // Standard output and error both go to one file, fully buffered on both sides.
  const std::string path = (dir / "console").string();
  std::fflush(stdout);
  std::fflush(stderr);
  const int savedOut = dup(STDOUT_FILENO);
  const int savedErr = dup(STDERR_FILENO);
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  dup2(file, STDOUT_FILENO);
  dup2(file, STDERR_FILENO);
  std::printf("one\n");
  VDPPythonInterpreter::runScript("print('two')\n");
  std::printf("three\n");
  VDPPythonInterpreter::runScript("raise ValueError('four')\n");
  std::printf("five\n");
  std::fflush(stdout);
  dup2(savedOut, STDOUT_FILENO);
  dup2(savedErr, STDERR_FILENO);
  close(file);
  close(savedOut);
  close(savedErr);
  EXPECT_EQ(TestSupport::readFile(path),
            "one\ntwo\nthree\nTraceback (most recent call last):\n"
            "  File \"<string>\", line 1, in <module>\nValueError: four\nfive\n");
}

TEST_F(PythonInterpreterTest, ClassicMatplotlibApiIsSupplied) {
  TestSupport::writeFile(dir / "data.csv", "Time,Time Error,tau\n1,-2,0.5\n3,4,1e-3\n");
  EXPECT_EQ(written("import matplotlib, matplotlib.pyplot as plt, matplotlib.mlab as mlab\n"
                    "plt.hold(True)\nrecords = mlab.csv2rec('" +
                        (dir / "data.csv").string() + "')",
                    "'%s %s %s %s %s' % (matplotlib.get_backend(), records.dtype.names,\n"
                    "    list(records.time), list(records.time_error), list(records.tau))"),
            "agg ('time', 'time_error', 'tau') [1, 3] [-2, 4] [0.5, 0.001]");
}

TEST_F(PythonInterpreterTest, ColumnTypesComeFromEveryValueOfTheColumn) {
  // A statistic's CSV whose first tau is whole: tau stays a float column, window an integer one.
  // So is a tau of 1 PPS written 1e+05 (shortest form) below 99999, however late it comes.
  // Timestamps beyond 2^53 and beyond 2^63 keep every digit; 1.0 written as such is a float.
  TestSupport::writeFile(dir / "adev.csv",
                         "window,tau,adev,terms\n2,1,3e-09,10\n3,1.5,2e-09,9\n4,2,1e-09,8\n"
                         "5,2.5,5e-10,7\n");
  std::string pps = "window,tau,adev,terms\n";
  for (int window = 99990; window <= 100000; ++window) {
    pps += std::to_string(window) + "," + (window < 100000 ? std::to_string(window) : "1e+05") +
           ",1e-12,1\n";
  }
  TestSupport::writeFile(dir / "pps.csv", pps);
  TestSupport::writeFile(dir / "time.csv",
                         "time,time_error,level\n1700000000000000001,-5,1\n"
                         "18446744073709551615,7,1.0\n");
  EXPECT_EQ(
      written("import matplotlib.mlab as mlab\na, t, p = (mlab.csv2rec('" + dir.path().string() +
                  "/' + name) for name in ('adev.csv', 'time.csv', 'pps.csv'))",
              "repr((a.dtype.descr, list(a.tau), list(a.window), t.dtype.descr,\n"
              "    [int(x) for x in t.time], list(t.level), p.dtype.descr[:2], p.tau[-1]))"),
      "([('window', '<i8'), ('tau', '<f8'), ('adev', '<f8'), ('terms', '<i8')], "
      "[1.0, 1.5, 2.0, 2.5], [2, 3, 4, 5], "
      "[('time', '<u8'), ('time_error', '<i8'), ('level', '<f8')], "
      "[1700000000000000001, 18446744073709551615], [1.0, 1.0], "
      "[('window', '<i8'), ('tau', '<f8')], 100000.0)");
}

TEST_F(PythonInterpreterTest, RecordsAreReadUntilWithdrawnAndThoseRefusedLeaveATraceback) {
  // Columns of different lengths are refused with the layer's traceback; the script reads the
  // CSV itself.
  const std::string csv = (dir / "n_adev.csv").string();
  const std::string read = "import matplotlib.mlab as mlab";
  const std::string tau = "repr(list(mlab.csv2rec('" + csv + "').tau))";
  TestSupport::writeFile(csv, "window,tau\n7,7.5\n");
  VDPlotRecords records;
  records.columns = {{"window", true, {1}, {}}, {"tau", false, {}, {0.5, 0.25}}};
  testing::internal::CaptureStderr();
  VDPPythonInterpreter::provideRecords(csv, records);
  const std::string traceback = testing::internal::GetCapturedStderr();
  EXPECT_EQ(traceback.rfind("Traceback (most recent call last):\n", 0), 0u) << traceback;
  EXPECT_NE(traceback.find("\nValueError: "), std::string::npos) << traceback;
  EXPECT_EQ(written(read, tau), "[7.5]");
  // Records handed over are what the script reads, until they are withdrawn.
  records.columns = {{"window", true, {3}, {}}, {"tau", false, {}, {2.25}}};
  VDPPythonInterpreter::provideRecords(csv, records);
  EXPECT_EQ(written(read, tau), "[2.25]");
  VDPPythonInterpreter::withdrawRecords(csv);
  EXPECT_EQ(written(read, tau), "[7.5]");
}

TEST_F(PythonInterpreterTest, FontsReadFromMemoryStillEmbedInPdf) {
  // Fonts are handed to FreeType from memory, under their file's name; the font subsetter is
  // imported lazily. A PDF that embeds TrueType fonts still gets them.
  const std::string pdf = (dir / "fonts.pdf").string();
  VDPPythonInterpreter::runScript(
      "import sys, matplotlib, matplotlib.pyplot as plt\n"
      "from matplotlib import font_manager\n"
      "import matplotlib.backends.backend_pdf\n"
      "assert type(sys.modules['fontTools.subset']).__name__ == '_LazyModule'\n"
      "path = font_manager.findfont('DejaVu Sans')\n"
      "assert font_manager.get_font(path).fname == path\n"
      "matplotlib.rcParams['pdf.fonttype'] = 42\n"
      "f, ax = plt.subplots()\n"
      "ax.set_title('Allan Deviation')\n"
      "f.savefig('" +
      pdf + "')\n");
  const std::string text = TestSupport::readFile(pdf);
  EXPECT_EQ(text.substr(0, 5), "%PDF-");
  EXPECT_NE(text.find("/FontFile2"), std::string::npos);
}

}  // namespace
