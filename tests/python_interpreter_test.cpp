// The embedded interpreter: console order across the hand-over when standard output is a file,
// errors that print a traceback without stopping the run, and the classic matplotlib API that
// the compatibility layer supplies.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "TestSupport.h"
#include "VDPPythonInterpreter.h"

namespace {

class PythonInterpreterTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { VDPPythonInterpreter::start("python_interpreter_test"); }
  static void TearDownTestSuite() { VDPPythonInterpreter::finalise(); }

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
  const std::string result = (dir / "result").string();
  VDPPythonInterpreter::runScript(
      "import matplotlib\n"
      "import matplotlib.pyplot as plt\n"
      "import matplotlib.mlab as mlab\n"
      "plt.hold(True)\n"
      "records = mlab.csv2rec('" +
      (dir / "data.csv").string() +
      "')\n"
      "open('" +
      result +
      "', 'w').write('%s %s %s %s %s' % (matplotlib.get_backend(),\n"
      "    records.dtype.names, list(records.time), list(records.time_error),\n"
      "    list(records.tau)))\n");
  EXPECT_EQ(TestSupport::readFile(result),
            "agg ('time', 'time_error', 'tau') [1, 3] [-2, 4] [0.5, 0.001]");
}

}  // namespace
