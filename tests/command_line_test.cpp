// The tool from the command line beyond the transcripts of tests/data/runs: paths relative to
// PWD and under "~", and runs on bad input that must finish without a crash.

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
