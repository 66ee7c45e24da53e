// The dual-check, marten and osprey commands end to end on small files: the console transcript,
// the values that reached each sequence (through the exported time error CSVs), the range line
// and Osprey's slave directories and names. Statistics are off to keep the runs short; the
// statistics steps are the processor's and are tested with it.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

namespace fs = std::filesystem;
using TestSupport::readFile;
using TestSupport::runTool;
using TestSupport::TempDir;
using TestSupport::ToolRun;

const std::string kBanner = TestSupport::banner();
const std::string kLoading = "Loading time errors into memory...\n";

ToolRun runCommand(const TempDir& dir, const std::string& command, const std::string& data) {
  TestSupport::writeFile(dir / "data.csv", data);
  return runTool(TestSupport::withoutStatistics({command, "--data", "data.csv", "--output", "out"}),
                 dir.path());
}

TEST(CommandsRun, DualCheckPrintsTheErrorRangeAfterTheAnalysis) {
  TempDir dir;
  ToolRun run = runCommand(dir, "dual-check",
                           "index,seq,time,corr,error\n0,5,1000,7,-3\n0,5,1000,7\n1,5,2000,7,4\n"
                           "2,5,2.5,7,99\n0,-5,1000,7,99\n3,5,3000,7,1000");
  EXPECT_EQ(run.out, kBanner + kLoading + "Analysis Done\nError range -3 to 4\n");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(readFile(dir / "out" / "dual_check_analysis_time_error.csv"),
            "time,time_error\n1000,-3\n2000,4\n");

  run = runCommand(dir, "dual-check", "");
  EXPECT_EQ(run.out,
            kBanner + kLoading +
                "Analysis Done\nError range 9223372036854775807 to -9223372036854775808\n");
  EXPECT_EQ(run.status, 1);
}

TEST(CommandsRun, MartenTakesTimestampAndErrorAsTheyStand) {
  TempDir dir;
  const ToolRun run = runCommand(dir, "marten",
                                 "timestamp,seq,error,delay,flags\n1000,0,-25,0,0\n"
                                 "1000,0,-25,0\n2000,1,30,0,0,7\n3000,2,99,0,-1\n");
  EXPECT_EQ(run.out, kBanner + kLoading + "Analysis Done\n");
  EXPECT_EQ(readFile(dir / "out" / "marten_analysis_time_error.csv"),
            "time,time_error\n1000,-25\n2000,30\n");
}

TEST(CommandsRun, OspreyAnalysesEachSlaveIntoItsOwnDirectory) {
  TempDir dir;
  const ToolRun run = runCommand(dir, "osprey",
                                 "100,0,1,0,2,0,3,0,0,0,0\n"
                                 "150,0,1,0,2,0,3,0,0,0\n"
                                 "200,0,-1,0,-2,0,-3,0,0,0,0\n");
  EXPECT_EQ(run.out, kBanner + kLoading + "Analysis Done\nAnalysis Done\nAnalysis Done\n");
  EXPECT_EQ(run.status, 1);
  for (int slave = 0; slave < 3; ++slave) {
    const fs::path directory = dir / "out" / ("Slave" + std::to_string(slave));
    const std::string name = "osprey_analysis Slave " + std::to_string(slave);
    const std::string error = std::to_string(slave + 1);
    EXPECT_EQ(readFile(directory / (name + "_time_error.csv")),
              "time,time_error\n100," + error + "\n200,-" + error + "\n");
    EXPECT_TRUE(fs::exists(directory / (name + "_time_error.png")));
    EXPECT_TRUE(fs::exists(directory / "PlotTimeError.py"));
  }
}

}  // namespace
