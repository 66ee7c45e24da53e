// Progress of a running statistic: drawn on a pseudo-terminal with a clock the test sets (when it
// appears, how often it is redrawn, how it is erased, the width it keeps to); and the whole tool
// on a terminal (under script) and in a pipe, where nothing of it is written.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>

#include "TestSupport.h"
#include "VDPTerminalProgress.h"

namespace {

using Clock = VDPTerminalProgress::Clock;
using std::chrono::milliseconds;

// Everything written to the other end of a terminal so far.
std::string drain(int fileDescriptor) {
  fcntl(fileDescriptor, F_SETFL, fcntl(fileDescriptor, F_GETFL) | O_NONBLOCK);
  std::string text;
  char buffer[4096];
  ssize_t count;
  while ((count = read(fileDescriptor, buffer, sizeof buffer)) > 0) {
    text.append(buffer, static_cast<size_t>(count));
  }
  return text;
}

class TerminalProgressTest : public ::testing::Test {
 protected:
  VDPTerminalProgress progressOn(int fileDescriptor) {
    return VDPTerminalProgress(fileDescriptor, [this] { return now; });
  }
  void at(int milliseconds) { now = Clock::time_point(std::chrono::milliseconds(milliseconds)); }

  Clock::time_point now;
};

TEST_F(TerminalProgressTest, DrawnAfterASecondAtMostTenTimesASecondAndErased) {
  int controller = -1;
  int terminal = -1;
  winsize size{};
  size.ws_col = 100;
  ASSERT_EQ(openpty(&controller, &terminal, nullptr, nullptr, &size), 0);
  VDPTerminalProgress progress = progressOn(terminal);
  at(0);
  progress.analysisStarted("ADEV", 200);
  at(999);
  progress.analysisProgressed(10, 0.05);  // quiet during the first second
  EXPECT_EQ(drain(controller), "");
  at(1000);
  progress.analysisProgressed(20, 0.1);
  EXPECT_EQ(drain(controller), "\rADEV: 10% of windows, 0:01 elapsed, 0:09 left");
  at(1099);
  progress.analysisProgressed(30, 0.2);  // too soon
  EXPECT_EQ(drain(controller), "");
  // Without a share of the work done there is no estimate; spaces cover the rest of the
  // longer line before.
  at(1100);
  progress.analysisProgressed(100, 0.0);
  EXPECT_EQ(drain(controller), "\rADEV: 50% of windows, 0:01 elapsed" + std::string(11, ' '));
  at(62000);
  progress.analysisProgressed(200, 1.0);
  EXPECT_EQ(drain(controller), "\rADEV: 100% of windows, 1:02 elapsed, 0:00 left");
  progress.analysisFinished();
  EXPECT_EQ(drain(controller), '\r' + std::string(46, ' ') + '\r');

  // The next statistic starts quiet again; one that never drew erases nothing.
  progress.analysisStarted("MDEV", 5);
  at(62500);
  progress.analysisProgressed(5, 1.0);
  progress.analysisFinished();
  EXPECT_EQ(drain(controller), "");

  // A narrow terminal cuts the line short.
  size.ws_col = 30;
  ioctl(terminal, TIOCSWINSZ, &size);
  at(70000);
  progress.analysisStarted("RMS TIE", 7);
  at(72000);
  progress.analysisProgressed(0, 0.0);
  EXPECT_EQ(drain(controller), "\rRMS TIE: 0% of windows, 0:02 ");
  at(72200);
  progress.analysisProgressed(3, 0.5);
  EXPECT_EQ(drain(controller), "\rRMS TIE: 42% of windows, 0:02");
  close(terminal);
  close(controller);
}

TEST(TerminalProgress, DurationsReadAsMinutesAndSecondsOrHours) {
  EXPECT_EQ(VDPTerminalProgress::durationText(0.0), "0:00");
  EXPECT_EQ(VDPTerminalProgress::durationText(59.6), "1:00");
  EXPECT_EQ(VDPTerminalProgress::durationText(754.0), "12:34");
  EXPECT_EQ(VDPTerminalProgress::durationText(3725.0), "1:02:05");
  EXPECT_EQ(VDPTerminalProgress::durationText(-3.0), "0:00");
}

TEST(TerminalProgress, TheToolShowsProgressOnATerminalOnlyAndErasesIt) {
  // A statistic that runs for seconds on any current processor: MDEV of every window of
  // 400,000 samples (some 2.5 s here, where progress appears after the first second).
  TestSupport::TempDir dir;
  std::string data;
  for (int i = 0; i < 400000; ++i) {
    char line[64];
    std::snprintf(line, sizeof line, "%d,%d,%s5000.%09d\n", i, i, i % 2 == 0 ? "" : "-",
                  i * 7 % 101);
    data += line;
  }
  TestSupport::writeFile(dir / "long.csv", data);
  const std::string run = TestSupport::toolPath().string() + " time-error --data " +
                          (dir / "long.csv").string() + " --output " + (dir / "out").string() +
                          " --no-adev --no-tdev --no-rmstie --no-mtie";
  // In a pipe, standard error too: the transcript alone.
  const TestSupport::ToolRun piped = TestSupport::shell(run + " 2>&1");
  EXPECT_EQ(piped.out, TestSupport::banner() +
                           "Loading time errors into memory...\n"
                           "Running Modified Allan Deviation Analysis...\n"
                           "Analysis Done\n");
  EXPECT_EQ(piped.status, 1);

  // On a terminal (script gives the tool one and copies it to its own standard output, with
  // line ends as the terminal sends them): the same lines, and between the MDEV line and the
  // end the progress, drawn and erased (spaces over the last line drawn, the cursor back at the
  // line's start).
  const std::string onTerminal = TestSupport::shell("script -q -e -c '" + run + "' /dev/null").out;
  EXPECT_TRUE(std::regex_search(
      onTerminal, std::regex("\nRunning Modified Allan Deviation Analysis\\.\\.\\.\r\n"
                             "(\rMDEV: [0-9]+% of windows, [^\r]* elapsed[^\r]*)+\r +\r"
                             "Analysis Done\r\n")))
      << onTerminal;
}

}  // namespace
