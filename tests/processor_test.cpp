// The single time error processor with scripts captured instead of run: the steps' order, the
// files and their modes, and the factories and class-level scripts a subclass substitutes.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "VDPProcessSingleTimeError.h"
#include "VDPPythonInterpreter.h"

namespace {

namespace fs = std::filesystem;

std::vector<VDTimeErrorValue> rampValues(int count) {
  std::vector<VDTimeErrorValue> values;
  for (int i = 0; i < count; ++i) {
    values.emplace_back(1000000000ull * static_cast<uint64_t>(i), (i * 7) % 13 - 6);
  }
  return values;
}

// The text a script quotes a path as. (Built with append: GCC 12 warns falsely on "'" + string.)
std::string quoted(const fs::path& path) {
  return std::string("'").append(path.string()).append("'");
}

unsigned modeOf(const fs::path& path) {
  struct stat status;
  stat(path.c_str(), &status);
  return status.st_mode & 07777;
}

class ProcessorTest : public ::testing::Test {
 protected:
  ProcessorTest() {
    VDPPythonInterpreter::setScriptRunner(
        [this](const std::string& script) { scripts.push_back(script); });
  }
  ~ProcessorTest() override { VDPPythonInterpreter::setScriptRunner(nullptr); }

  // Runs processTimeErrors and returns what it printed.
  std::string process(VDPProcessSingleTimeError& processor) {
    const VDTimeErrorSequence sequence(rampValues(40));
    testing::internal::CaptureStdout();
    EXPECT_TRUE(processor.processTimeErrors(sequence));
    return testing::internal::GetCapturedStdout();
  }

  TestSupport::TempDir dir;
  std::vector<std::string> scripts;
};

TEST_F(ProcessorTest, WithEveryStatisticOffOnlyTheTimeErrorStepRuns) {
  VDPProcessSingleTimeError processor(dir.path().string(), "run1", false, false, false, false,
                                      false, 2, 100, 1);
  EXPECT_EQ(process(processor), "Analysis Done\n");
  std::vector<std::string> files;
  for (const auto& entry : fs::directory_iterator(dir.path())) {
    files.push_back(entry.path().filename().string());
  }
  std::sort(files.begin(), files.end());
  EXPECT_EQ(files, (std::vector<std::string>{"PlotTimeError.py", "run1_time_error.csv"}));
  EXPECT_EQ(modeOf(dir / "PlotTimeError.py"), 0744u);
  // The saved script finds its CSV beside itself and shows the plot; the runs save PNG then PDF.
  const std::string saved = TestSupport::readFile(dir / "PlotTimeError.py");
  EXPECT_NE(saved.find("os.path.split(sys.argv[0])[0]+'/run1_time_error.csv'"), std::string::npos);
  EXPECT_NE(saved.find("plt.show()"), std::string::npos);
  ASSERT_EQ(scripts.size(), 2u);
  EXPECT_NE(scripts[0].find(quoted(dir / "run1_time_error.png")), std::string::npos);
  EXPECT_NE(scripts[1].find(quoted(dir / "run1_time_error.pdf")), std::string::npos);
  EXPECT_NE(scripts[0].find(quoted(dir / "run1_time_error.csv")), std::string::npos);
}

TEST_F(ProcessorTest, StepsRunInTheFixedOrderWithTheirFiles) {
  // A stale script of the same name, not executable, is replaced and made executable.
  TestSupport::writeFile(dir / "PlotADEV.py", "stale");
  fs::permissions(dir / "PlotADEV.py", fs::perms::owner_read | fs::perms::owner_write);
  VDPProcessSingleTimeError processor(dir.path().string(), "run1", true, true, true, true, true, 2,
                                      100, 1);
  EXPECT_EQ(process(processor), TestSupport::kAllStatisticsProgress);
  const std::vector<std::pair<std::string, std::string>> steps = {
      {"time_error", "PlotTimeError.py"}, {"adev", "PlotADEV.py"},
      {"madev", "PlotMADEV.py"},          {"tdev", "PlotTDEV.py"},
      {"rmstie", "PlotRMSTIE.py"},        {"mtie", "PlotMTIE.py"}};
  ASSERT_EQ(scripts.size(), 2 * steps.size());
  for (size_t step = 0; step < steps.size(); ++step) {
    const auto& [suffix, scriptName] = steps[step];
    EXPECT_TRUE(fs::exists(dir / ("run1_" + suffix + ".csv"))) << suffix;
    EXPECT_EQ(modeOf(dir / scriptName), 0744u) << scriptName;
    EXPECT_NE(TestSupport::readFile(dir / scriptName).find("run1_" + suffix + ".csv"),
              std::string::npos);
    EXPECT_NE(scripts[2 * step].find("run1_" + suffix + ".png"), std::string::npos);
    EXPECT_NE(scripts[2 * step + 1].find("run1_" + suffix + ".pdf"), std::string::npos);
  }
}

// A statistic class whose plots carry a marker, to see whose class-level script a step uses.
class MarkedMTIEClass : public VDMaximumTimeIntervalErrorAnalysisClass {
 public:
  std::string plotYLimits(const std::string& axesName) const override {
    return axesName + ".set_ylim([1,2])  # marked";
  }
};

class MarkedMTIEAnalysis : public VDMaximumTimeIntervalErrorAnalysis {
 public:
  using VDMaximumTimeIntervalErrorAnalysis::VDMaximumTimeIntervalErrorAnalysis;
  const VDAnalysisClass& analysisClass() const override {
    static const MarkedMTIEClass kClass;
    return kClass;
  }
};

class MarkedProcessor : public VDPProcessSingleTimeError {
 public:
  using VDPProcessSingleTimeError::VDPProcessSingleTimeError;
  std::unique_ptr<VDMaximumTimeIntervalErrorAnalysis> mtieAnalysisForTimeErrorValues(
      const std::vector<VDTimeErrorValue>& values) override {
    return std::make_unique<MarkedMTIEAnalysis>(values);
  }
};

TEST_F(ProcessorTest, ScriptsComeFromTheClassOfTheAnalysisTheFactoryMade) {
  MarkedProcessor processor(dir.path().string(), "n", true, false, false, false, true, 2, 100, 1);
  process(processor);
  EXPECT_NE(TestSupport::readFile(dir / "PlotMTIE.py").find("ax1.set_ylim([1,2])  # marked\n"),
            std::string::npos);
  EXPECT_EQ(TestSupport::readFile(dir / "PlotADEV.py").find("# marked"), std::string::npos);
  ASSERT_EQ(scripts.size(), 6u);
  EXPECT_NE(scripts[4].find("# marked"), std::string::npos);
  EXPECT_NE(scripts[5].find("# marked"), std::string::npos);
}

TEST_F(ProcessorTest, AnEmptySequenceAndAnUnwritableDirectoryDoNotStopTheRun) {
  VDPProcessSingleTimeError processor((dir / "missing").string(), "n", true, true, true, true, true,
                                      2, std::numeric_limits<int64_t>::max(), 1);
  const VDTimeErrorSequence empty(std::vector<VDTimeErrorValue>{});
  testing::internal::CaptureStdout();
  EXPECT_TRUE(processor.processTimeErrors(empty));
  EXPECT_NE(testing::internal::GetCapturedStdout().find("Analysis Done\n"), std::string::npos);
  EXPECT_EQ(scripts.size(), 12u);
}

TEST_F(ProcessorTest, ScriptPermissionsAreSetEvenWhenTheWriteFails) {
  // A directory where the saved script should go: the write fails, the mode is set all the same.
  fs::create_directory(dir / "PlotTimeError.py");
  fs::permissions(dir / "PlotTimeError.py", fs::perms::owner_all);
  VDPProcessSingleTimeError processor(dir.path().string(), "n", false, false, false, false, false,
                                      2, std::numeric_limits<int64_t>::max(), 1);
  process(processor);
  EXPECT_TRUE(fs::is_directory(dir / "PlotTimeError.py"));
  EXPECT_EQ(modeOf(dir / "PlotTimeError.py"), 0744u);
}

}  // namespace
