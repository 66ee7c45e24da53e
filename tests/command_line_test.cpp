// The tool from the command line beyond the transcripts of tests/data/runs: paths relative to
// PWD and under "~", a time-error run with every result rendered and a saved script run by hand,
// and runs on bad input that must finish without a crash.

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "VDPFileSystem.h"

namespace {

namespace fs = std::filesystem;
using TestSupport::readFile;
using TestSupport::writeFile;
using TestSupport::runTool;
using TestSupport::TempDir;
using TestSupport::ToolRun;

const std::string kBanner = TestSupport::banner();
const std::string kLoading = "Loading time errors into memory...\n";

class CommandLineTest : public ::testing::Test {
 protected:
  CommandLineTest() {
    writeFile(dir / "data.csv", "index,time,error\n");
  }
  TempDir dir;
};

TEST_F(CommandLineTest, RelativePathsResolveAgainstPWD) {
  fs::create_directory(dir / "elsewhere");
  // The process runs in dir/elsewhere but PWD says dir: data.csv is found there, and the
  // output directory is made there, with redundant components removed.
  const ToolRun run = runTool(TestSupport::withoutStatistics(
                                  {"marten", "--data", "./sub/../data.csv", "--output", "out//x/"}),
                              dir / "elsewhere", {{"PWD", dir.path().string()}});
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(fs::exists(dir / "out" / "x" / "marten_analysis_time_error.csv"));
  const ToolRun missing =
      runTool({"marten", "--data", "nothing.csv"}, dir / "elsewhere", {{"PWD", "/nowhere"}});
  EXPECT_NE(missing.out.find("Time error file does not exist at path \"/nowhere/nothing.csv\""),
            std::string::npos);
  const ToolRun unset =
      runTool({"marten", "--data", "data.csv"}, dir.path(), {{"PWD", std::nullopt}});
  EXPECT_NE(unset.out.find("Time error file does not exist at path \"\""), std::string::npos);
}

TEST_F(CommandLineTest, ALeadingTildeNamesAHomeDirectory) {
  const passwd* user = getpwuid(getuid());
  ASSERT_NE(user, nullptr);
  const std::string home = user->pw_dir;
  setenv("HOME", "/home/from-environment", 1);
  EXPECT_EQ(VDPFileSystem::standardisedPath("~"), "/home/from-environment");
  EXPECT_EQ(VDPFileSystem::standardisedPath("~/runs/./a//b/"), "/home/from-environment/runs/a/b");
  EXPECT_EQ(VDPFileSystem::standardisedPath(std::string("~") + user->pw_name), home);
  EXPECT_EQ(VDPFileSystem::standardisedPath(std::string("~") + user->pw_name + "/x/../run.csv"),
            (fs::path(home) / "run.csv").lexically_normal().string());
  // An unknown user and a tilde inside the path are left as written.
  EXPECT_EQ(VDPFileSystem::standardisedPath("~no-such-user-here/run.csv"),
            "~no-such-user-here/run.csv");
  EXPECT_EQ(VDPFileSystem::standardisedPath("/data/~/run.csv"), "/data/~/run.csv");
}

std::pair<uint32_t, uint32_t> pngSize(const fs::path& path) {
  const std::string bytes = readFile(path);
  if (bytes.size() < 24 || bytes.compare(1, 3, "PNG") != 0) {
    return {0, 0};
  }
  auto bigEndian = [&bytes](size_t at) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i) {
      value = value << 8 | static_cast<uint8_t>(bytes[at + i]);
    }
    return value;
  };
  return {bigEndian(16), bigEndian(20)};
}

bool isPdf(const fs::path& path) {
  const std::string bytes = readFile(path);
  return bytes.rfind("%PDF-", 0) == 0 &&
         bytes.find("%%EOF", bytes.size() - 16) != std::string::npos;
}

TEST(TimeErrorRun, CompleteRunWritesEveryResult) {
  TempDir dir;
  // 300 samples at 8 per second: a header, then index, seconds, seconds.
  std::string data = "index,time,time_error\n";
  std::string expectedCsv = "time,time_error\n";
  for (int i = 0; i < 300; ++i) {
    const int errorNs = (i * 37) % 101 - 50;
    char line[96];
    std::snprintf(line, sizeof line, "%d,%.3f,%.10f\n", i, 100 + i / 8.0,
                  (errorNs + (errorNs < 0 ? -0.5 : 0.5)) * 1e-9);
    data += line;
    expectedCsv +=
        std::to_string(100000000000ull + 125000000ull * i) + "," + std::to_string(errorNs) + "\n";
  }
  writeFile(dir / "run.csv", data);
  const ToolRun run =
      runTool({"time-error", "--data", "run.csv", "--output", "out", "--name", "run1"}, dir.path());
  EXPECT_EQ(run.out,
            kBanner + kLoading + TestSupport::kAllStatisticsProgress);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.status, 1);

  const fs::path out = dir / "out";
  EXPECT_EQ(readFile(out / "run1_time_error.csv"), expectedCsv);
  const std::vector<std::pair<std::string, std::string>> steps = {
      {"time_error", "PlotTimeError.py"}, {"adev", "PlotADEV.py"},
      {"madev", "PlotMADEV.py"},          {"tdev", "PlotTDEV.py"},
      {"rmstie", "PlotRMSTIE.py"},        {"mtie", "PlotMTIE.py"}};
  for (const auto& [suffix, script] : steps) {
    const fs::path csv = out / ("run1_" + suffix + ".csv");
    EXPECT_TRUE(fs::exists(csv)) << csv;
    struct stat status;
    ASSERT_EQ(stat((out / script).c_str(), &status), 0) << script;
    EXPECT_EQ(status.st_mode & 07777, 0744u) << script;
    const auto [width, height] = pngSize(out / ("run1_" + suffix + ".png"));
    EXPECT_GT(width, 500u) << suffix;
    EXPECT_GT(height, 500u) << suffix;
    EXPECT_TRUE(isPdf(out / ("run1_" + suffix + ".pdf"))) << suffix;
  }
  // The library's plots are 11.69 by 6.58 inches (A4 landscape's width) at 150 dots per inch.
  EXPECT_EQ(pngSize(out / "run1_time_error.png"), (std::pair<uint32_t, uint32_t>{1753, 987}));

  // A saved script runs by hand on current matplotlib through the wrapper, from anywhere.
  const ToolRun handRun =
      TestSupport::shell("cd / && " + TestSupport::plotCommand(out / "PlotMTIE.py") + " 2>&1");
  EXPECT_EQ(handRun.status, 0) << handRun.out;
  EXPECT_EQ(handRun.out.find("Traceback"), std::string::npos) << handRun.out;
}

TEST(TimeErrorRun, BadInputFinishesWithoutACrash) {
  TempDir dir;
  std::string garbage;
  for (int i = 0; i < 100000; ++i) {
    garbage += static_cast<char>((i * 7919) % 256);
  }
  writeFile(dir / "garbage.bin", garbage);
  writeFile(dir / "empty.csv", "");
  // Lines mixed with garbage, CRLF line ends, a 3 MB line and no final line end.
  std::string mixed;
  for (int i = 0; i < 2000; ++i) {
    mixed += std::to_string(i) + "," + std::to_string(i) + ",1e-9\r\n" + "x,y,z\n\x01\x02,\n";
  }
  mixed += std::string(3000000, '9') + "\n5,5,5";
  writeFile(dir / "mixed.csv", mixed);
  fs::create_directory(dir / "directory");
  for (const std::string& input :
       std::vector<std::string>{"garbage.bin", "empty.csv", "mixed.csv", "directory"}) {
    const ToolRun run = runTool(
        TestSupport::withoutStatistics({"time-error", "--data", input, "--output", "out-" + input}),
        dir.path());
    EXPECT_EQ(run.status, 1) << input << run.err;
    EXPECT_EQ(run.out, kBanner + "Loading time errors into memory...\nAnalysis Done\n") << input;
    EXPECT_TRUE(fs::exists(dir / ("out-" + input) / "time-error_analysis_time_error.csv"));
  }
  // Only whole, well-formed lines of mixed.csv count (the 3 MB line is a valid index field
  // followed by nothing, so it is skipped too).
  const std::string csv = readFile(dir / "out-mixed.csv" / "time-error_analysis_time_error.csv");
  EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 2001);
}

}  // namespace
