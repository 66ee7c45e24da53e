// veridaneprobe-check as a user runs it: the exact transcript (standard output, standard error,
// exit status) of each case in tests/data/check/runs/, on small recordings made here, and the
// files a run leaves.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

namespace fs = std::filesystem;

// A ptp4l -m log at 16 Hz: two unlocked samples, a step, then locked around offset ns with a
// slow sine of amplitude ns; every 100th line a port state message.
std::string ptp4lLog(int samples, double offset, double amplitude, const std::string& tag = "") {
  std::string text = "ptp4l[99.000]: selected /dev/ptp0 as PTP clock\n";
  for (int i = 0; i < samples; ++i) {
    char line[160];
    const int state = i < 2 ? i : 2;
    const long error = i < 2 ? -1234567 : std::lround(offset + amplitude * std::sin(i / 16.0 / 40));
    std::snprintf(line, sizeof line,
                  "ptp4l[%.3f]: %smaster offset %10ld s%d freq %+7d path delay %9d\n",
                  100 + i / 16.0, tag.c_str(), error, state, -4210, 512);
    text += line;
    if (i % 100 == 50) {
      text += "ptp4l[100.000]: port 1: UNCALIBRATED to SLAVE on MASTER_CLOCK_SELECTED\n";
    }
  }
  return text;
}

struct CheckRun {
  const char* name;  // the transcript is tests/data/check/runs/NAME.txt
  std::string input;
  std::vector<std::string> arguments;  // INPUT stands for the recording's path, OUT for out/
  std::vector<const char*> files;      // files the run must leave under OUT
  const char* headFile = nullptr;      // and one whose text must begin with head
  const char* head = nullptr;
};

std::string transcriptOf(const CheckRun& run, const fs::path& work) {
  std::vector<std::string> arguments;
  std::string shown = "$ veridaneprobe-check";
  for (const std::string& argument : run.arguments) {
    arguments.push_back(argument == "INPUT" ? (work / "input.log").string()
                        : argument == "OUT" ? (work / "out").string()
                                            : argument);
    shown += " " + argument;
  }
  const TestSupport::ToolRun result =
      TestSupport::runProgram(TestSupport::checkToolPath(), arguments, work);
  std::string text = shown + "\n--- stdout\n" + result.out + "--- stderr\n" + result.err +
                     "--- exit " + std::to_string(result.status) + "\n";
  // The scratch directory's name changes from run to run.
  for (size_t at = text.find(work.string()); at != std::string::npos;
       at = text.find(work.string())) {
    text.replace(at, work.string().size(), "WORK");
  }
  return text;
}

TEST(CheckProgram, TranscriptsAndFiles) {
  std::string ticc = "# TICC\n";
  std::string phaseWithGap = "# phase in s\n";
  for (int i = 0; i < 40; ++i) {
    char line[96];
    std::snprintf(line, sizeof line, "%d.%012d chA\n%d.%012d chB\n", 1000 + i,
                  500000000 + 37 * (i * i % 11), 1000 + i, 500000000);
    ticc += line;
    if (i != 20 && i != 23) {
      std::snprintf(line, sizeof line, "%d %.12e\n", i, 1e-9 * i + 1e-12 * (i % 3));
      phaseWithGap += line;
    }
  }
  std::string twoSinks;
  for (int i = 0; i < 20; ++i) {
    twoSinks += "ts2phc[" + std::to_string(300 + i) + ".125]: eth0 offset " +
                std::to_string(i % 5) + " s2 freq +8\nts2phc[" + std::to_string(300 + i) +
                ".125]: /dev/ptp1 offset -" + std::to_string(i % 3) + " s2 freq -11\n";
  }
  const CheckRun runs[] = {
      {"help", "", {"--help"}, {}},
      {"no-recording", "", {}, {}},
      {"unknown-option", "", {"--colour", "INPUT"}, {}},
      {"bad-format", "", {"--format", "pcap", "INPUT"}, {}},
      {"unknown-mask", ptp4lLog(40, 0, 0), {"--mask", "g8273.2-e", "INPUT"}, {}},
      {"missing-file", "", {"/nonexistent/ptp4l.log"}, {}},
      {"servo-of-phase", "1e-9\n2e-9\n", {"INPUT", "--mask", "g811-prc", "--settle", "servo"}, {}},
      {"binary",
       std::string("\x7f"
                   "ELF\x02\x01\x01\0\0\0\xff\xfe\n\x01\x02",
                   16),
       {"INPUT"},
       {}},
      {"summaries-only",
       "ptp4l[1.000]: rms 12 max 34 freq -4280 +/- 5 delay 513 +/- 1\n"
       "ptp4l[2.000]: rms 11 max 30 freq -4281 +/- 4 delay 513 +/- 1\n",
       {"INPUT"},
       {}},
      {"header-only", "# phase data\n# tau0 1 s\n", {"--format", "phase", "INPUT"}, {}},
      {"absurd-time",
       "ptp4l[99999999999.000]: master offset 1 s2 freq +0 path delay 1\n",
       {"INPUT"},
       {}},
      {"one-sample",
       "ptp4l[1.000]: master offset 5 s2 freq +0 path delay 1\n",
       {"INPUT", "--output", "OUT"},
       {}},
      {"ptp4l-class-b",
       ptp4lLog(2400, 5, 12),
       {"INPUT", "--output", "OUT", "--mask", "g8273.2-b", "--settle", "servo"},
       {"input_time_error.csv", "input_mtie.png", "check.json", "check.junit.xml",
        "input_check_dte_l_mtie.csv", "input_check_time_error.png", "PlotCheckTDEV.py"}},
      {"ticc-picoseconds",
       ticc,
       {"INPUT", "--output", "OUT", "--name", "ticc"},
       {"ticc_time_error.csv", "ticc_adev.csv"},
       "ticc_time_error.csv",
       // chA - chB to the picosecond, in ns.
       "time,time_error\n1000000500000,0\n1001000500000,0.037\n1002000500000,0.148\n"},
      // A last line without its line end is left out, and said so.
      {"phase-gaps",
       phaseWithGap + "40 1e-9",
       {"INPUT", "--output", "OUT"},
       {"segment-1/input_tdev.csv", "segment-3/input_time_error.csv"},
       "gaps.csv",
       "kind,sample,time,step\n"
       "gap,20,21,2\n"
       "gap,22,24,2\n"},
      {"two-sinks",
       twoSinks,
       {"INPUT", "--output", "OUT", "--stream", "/dev/ptp1"},
       {"input_time_error.csv"}},
  };
  for (const CheckRun& run : runs) {
    // Apart per process, so that two runs of the suite do not share a scratch directory.
    const fs::path work = fs::temp_directory_path() /
                          ("vdc-" + std::string(run.name) + "-" + std::to_string(getpid()));
    fs::remove_all(work);
    fs::create_directories(work);
    TestSupport::writeFile(work / "input.log", run.input);
    const fs::path expected =
        TestSupport::sourceDir() / "tests/data/check/runs" / (std::string(run.name) + ".txt");
    EXPECT_EQ(transcriptOf(run, work), TestSupport::readFile(expected)) << run.name;
    for (const char* file : run.files) {
      EXPECT_TRUE(fs::is_regular_file(work / "out" / file)) << run.name << ": " << file;
    }
    if (run.headFile != nullptr) {
      const std::string text = TestSupport::readFile(work / "out" / run.headFile);
      EXPECT_EQ(text.substr(0, std::string(run.head).size()), run.head) << run.name;
    }
    fs::remove_all(work);
  }
}

}  // namespace
