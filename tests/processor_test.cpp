// The processors with scripts captured instead of run (whole runs, with every step's files, are
// cases of tests/data/runs): runs that cannot write, every plot script byte for byte; the
// dual-link judgement (the PASS and FAIL boundaries of both tests, the full and converged
// analyses), and its plots rendered for real.

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "VDPAnalyseDualLink.h"
#include "VDPAudioPlotScripts.h"
#include "VDPConsole.h"
#include "VDPDualLinkMaximumTimeIntervalErrorAnalysis.h"
#include "VDPDualLinkTimeErrorSequence.h"
#include "VDPProcessDualLinkTimeError.h"
#include "VDPProcessSingleTimeError.h"
#include "VDPPythonInterpreter.h"

namespace {

namespace fs = std::filesystem;

class ProcessorTest : public ::testing::Test {
 protected:
  ProcessorTest() {
    VDPPythonInterpreter::setScriptRunner(
        [this](const std::string& script) { scripts.push_back(script); });
  }
  ~ProcessorTest() override { VDPPythonInterpreter::setScriptRunner(nullptr); }

  TestSupport::TempDir dir;
  std::vector<std::string> scripts;
};

TEST_F(ProcessorTest, FailedWritesDoNotStopTheRun) {
  // Every statistic of an empty sequence into output: what the run printed.
  const auto process = [](const fs::path& output) {
    VDPProcessSingleTimeError processor(output.string(), "n", true, true, true, true, true, 2,
                                        INT64_MAX, 1);
    testing::internal::CaptureStdout();
    EXPECT_TRUE(processor.processTimeErrors(VDTimeErrorSequence(std::vector<VDTimeErrorValue>{})));
    return testing::internal::GetCapturedStdout();
  };
  // A directory that does not exist: every script is still run.
  EXPECT_NE(process(dir / "missing").find("Analysis Done\n"), std::string::npos);
  EXPECT_EQ(scripts.size(), 12u);
  // A directory where the saved script should go: the write fails, the mode is set all the same.
  fs::create_directory(dir / "PlotTimeError.py");
  fs::permissions(dir / "PlotTimeError.py", fs::perms::owner_all);
  process(dir.path());
  EXPECT_TRUE(fs::is_directory(dir / "PlotTimeError.py"));
  EXPECT_EQ(fs::status(dir / "PlotTimeError.py").permissions(), fs::perms(0744));
}

// Every plot script, saved beside its CSV (finds it there, shows the plot) or run (reads the full
// path, saves and closes the figure), byte for byte against tests/data/expected/NAME-saved.txt
// and NAME-plot.txt, the deviations' bands and the dual-link MTIE's mask, size and y range too.
TEST(PlotScripts, EveryScriptInBothFormsByteForByte) {
  using Script = std::function<std::string(bool saved)>;
  // Time error sequences and statistic classes take the same arguments.
  const auto of = [](const auto& generator, const std::string& csv) {
    return [&generator, csv](bool saved) {
      return saved ? generator.generatePythonScriptWithOutputPath(std::nullopt, csv, "link A",
                                                                  std::nullopt, true)
                   : generator.generatePythonScriptWithOutputPath("/out dir", csv, "link A",
                                                                  "/out dir/n.png", false);
    };
  };
  const VDTimeErrorSequence plain(std::vector<VDTimeErrorValue>{});
  const VDPDualLinkTimeErrorSequence dualLink(std::vector<VDTimeErrorValue>{});
  const std::pair<std::string, Script> scripts[] = {
      {"time-error", of(plain, "n_time_error.csv")},
      {"dual-link", of(dualLink, "n_time_error.csv")},
      {"adev", of(VDAllanDeviationAnalysis::classObject(), "n_adev.csv")},
      {"madev", of(VDModifiedAllanDeviationAnalysis::classObject(), "n_madev.csv")},
      {"tdev", of(VDTimeDeviationAnalysis::classObject(), "n_tdev.csv")},
      {"rmstie", of(VDRootMeanSquaredTimeIntervalErrorAnalysis::classObject(), "n_rmstie.csv")},
      {"mtie", of(VDMaximumTimeIntervalErrorAnalysis::classObject(), "n_mtie.csv")},
      {"dual-link-mtie",
       of(VDPDualLinkMaximumTimeIntervalErrorAnalysis::classObject(), "n_mtie.csv")},
      {"audio",
       [](bool saved) {
         return saved ? VDPAudioPlotScripts::savedScript("x.csv", "run 7")
                      : VDPAudioPlotScripts::plotScript("/d", "x.csv", "run 7", "/p", "x.png");
       }},
  };
  for (const auto& [name, script] : scripts) {
    for (const bool saved : {true, false}) {
      const std::string file = name + (saved ? "-saved.txt" : "-plot.txt");
      EXPECT_EQ(script(saved), TestSupport::expected(file)) << file;
    }
  }
}

class DualLinkProcessorTest : public ProcessorTest {
 protected:
  // The verdict lines printed for these errors (one per second), MTIE switched on or off.
  std::string verdicts(const std::vector<int64_t>& errors, bool mtie) {
    const VDPDualLinkTimeErrorSequence sequence(TestSupport::timeErrorValues(errors));
    VDPProcessDualLinkTimeError processor(dir.path().string(), "n", false, false, false, false,
                                          mtie, 2, INT64_MAX, 1);
    testing::internal::CaptureStdout();
    processor.processTimeErrors(sequence);
    return testing::internal::GetCapturedStdout();
  }

  // The converged analysis's time error CSV after a run over the given data lines.
  std::string convergedTimeErrors(const std::string& lines) {
    TestSupport::writeFile(dir / "link.csv", lines);
    const std::unique_ptr<VDPAnalyseDualLink> analyser = VDPAnalyseDualLink::initWithArguments(
        {"--data", (dir / "link.csv").string(), "--output", (dir / "out").string(), "--name", "L",
         "--no-madev", "--no-tdev", "--no-mtie"});
    testing::internal::CaptureStdout();
    EXPECT_TRUE(analyser != nullptr && analyser->execute());
    testing::internal::GetCapturedStdout();
    return TestSupport::readFile(dir / "out" / "converged" / "L_time_error.csv");
  }
};

TEST_F(DualLinkProcessorTest, TimeErrorWithinEightyNanosecondsAndMTIEWithinTheOneHopMaskPass) {
  const std::string pass = "PASS: Time Error conforms to 1 hop gPTP limit\nTimeError: ";
  const std::string fail = "FAIL: Time Error DOES NOT conform to 1 hop gPTP limit.\nTimeError: ";
  const std::string mtie = "Running Maximum Time Interval Error Analysis...\n";
  const std::string mtiePass = mtie + "PASS: MTIE conforms to 1 hop gPTP Mask\nMTIE: ";
  const std::string mtieFail = mtie + "FAIL: MTIE DOES NOT conform to 1 hop gPTP Mask.\nMTIE: ";
  const std::string empty = "min 9223372036854775807 max -9223372036854775808 range 1\n";
  const std::string done = "Analysis Done\n";
  const struct {
    std::vector<int64_t> errors;
    bool mtie;
    std::string expected;
  } rows[] = {
      {{80, -80, 3}, false, pass + "min -80 max 80 range 160\n" + done},
      {{0, 81, 0}, false, fail + "min 0 max 81 range 81\n" + done},
      {{-81, 0}, false, fail + "min -81 max 0 range 81\n" + done},
      // The most negative error has no positive magnitude and passes; the range wraps.
      {{INT64_MIN, 1},
       false,
       pass + "min -9223372036854775808 max 1 range -9223372036854775807\n" + done},
      {{}, false, pass + empty + done},
      {{0, 10, 20, 30, 40},
       true,
       pass + "min 0 max 40 range 40\n" + mtiePass + "min 20 max 40 range 20\n" + done},
      {{0, 0, 161, 0, 0},
       true,
       fail + "min 0 max 161 range 161\n" + mtieFail + "min 161 max 161 range 0\n" + done},
      {{}, true, pass + empty + mtiePass + "min 0 max 0 range 0\n" + done},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(verdicts(row.errors, row.mtie), row.expected);
  }
}

TEST_F(DualLinkProcessorTest, ConvergenceStartsExactlySixtySecondsAfterTheFirstSample) {
  // One nanosecond early is out, exactly 60 s is in, and a later line with a smaller timestamp
  // is out: the threshold compares timestamps, not positions in the file. A short line is no
  // sample at all.
  EXPECT_EQ(convergedTimeErrors("1000000000,0,1,0,0\n"
                                "60999999999,1,2,0,0\n"
                                "61000000000,2,3,0,0\n"
                                "30000000000,3,4,0,0\n"
                                "70000000000,4,5,0,0\n"
                                "80000000000,5,6,0\n"),
            "time,time_error\n61000000000,3\n70000000000,5\n");
  // A first timestamp within 60 s of the top of the range: the threshold wraps past zero, so
  // the first sample itself and every timestamp from 30 s on count as converged.
  EXPECT_EQ(convergedTimeErrors("18446744043709551616,0,1,0,0\n"
                                "29999999999,1,2,0,0\n"
                                "30000000000,2,3,0,0\n"),
            "time,time_error\n18446744043709551616,1\n30000000000,3\n");
}

TEST_F(DualLinkProcessorTest, InitialiserPreparesFullAndConverged) {
  TestSupport::writeFile(dir / "link.csv", "");
  VDPConsole::setProgramPath("vdp");
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_EQ(VDPAnalyseDualLink::initWithArguments({"--data", (dir / "link.csv").string(), "--bad"}),
            nullptr);
  TestSupport::writeFile(dir / "file", "");
  EXPECT_EQ(VDPAnalyseDualLink::initWithArguments(
                {"--data", (dir / "link.csv").string(), "--output", (dir / "file").string()}),
            nullptr);
  EXPECT_EQ(VDPAnalyseDualLink::initWithArguments({"--data", (dir / "nothing").string()}), nullptr);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "unknown argument \"--bad\"\nusage:\nvdp dual-link --data path --output path [--name "
            "name]\n");
  EXPECT_EQ(out.substr(0, out.find(" veridaneprobe")), "Failed to create directory \"" +
                                                           (dir / "file" / "full").string() +
                                                           "\" with error Not a directory.\n");
  EXPECT_NE(out.find("VDPAnalyseDualLink.cpp at line 231 goto Bail. Time error file does not"),
            std::string::npos);
}

// The dual-link analysis rendered for real on the sample recording: the console verdicts, and
// the limit lines and the one-hop mask present in the PNGs (found by their colour).
// Counts the pixels of the limit colour #fac205 in a PNG, with the embedded interpreter.
int limitColourPixels(const fs::path& png) {
  VDPPythonInterpreter::runScript("png = '" + png.string() + "'\n" +
                                  "import matplotlib.image, numpy\n"
                                  "pixels = matplotlib.image.imread(png)[:, :, :3]\n"
                                  "limit = numpy.array([0xfa, 0xc2, 0x05]) / 255.0\n"
                                  "found = numpy.all(numpy.abs(pixels - limit) < 0.02, axis=2)\n"
                                  "open(png + '.count', 'w').write(str(found.sum()))\n");
  return std::stoi(TestSupport::readFile(png.string() + ".count"));
}

TEST(DualLinkRender, SampleRecordingFailsInFullAndPassesConverged) {
  TestSupport::TempDir dir;
  VDPPythonInterpreter::start("processor_test");
  std::unique_ptr<VDPAnalyseDualLink> analyser = VDPAnalyseDualLink::initWithArguments(
      {"--data", (TestSupport::sourceDir() / "examples" / "dual-link.csv").string(), "--output",
       dir.path().string()});
  ASSERT_NE(analyser, nullptr);
  testing::internal::CaptureStdout();
  EXPECT_TRUE(analyser->execute());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), TestSupport::expected("dual-link-run.txt"));
  for (const char* sub : {"full", "converged"}) {
    const fs::path directory = dir / sub;
    EXPECT_GT(limitColourPixels(directory / "dual_link_analysis_time_error.png"), 1000) << sub;
    EXPECT_GT(limitColourPixels(directory / "dual_link_analysis_mtie.png"), 300) << sub;
    // MDEV, TDEV and MTIE unless told otherwise; ADEV and RMS TIE only when asked for.
    EXPECT_TRUE(fs::exists(directory / "PlotMADEV.py"));
    for (const char* absent : {"dual_link_analysis_adev.csv", "dual_link_analysis_rmstie.csv"}) {
      EXPECT_FALSE(fs::exists(directory / absent)) << absent;
    }
  }
  // The saved MTIE script carries the mask too.
  EXPECT_NE(TestSupport::readFile(dir / "converged" / "PlotMTIE.py").find("gPTP1HopMTIE"),
            std::string::npos);
  VDPPythonInterpreter::finalise();
}

}  // namespace
