// Whole-program transcripts of the command line: the banner, the exit statuses, and every
// message of the shared option grammar with its stream, checked byte for byte.

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "VDPFileSystem.h"

using TestSupport::runTool;
using TestSupport::TempDir;
using TestSupport::ToolRun;

namespace {

const std::string kBanner = TestSupport::banner();

std::string tool() { return TestSupport::toolPath().string(); }

std::string usage(const std::string& word) {
  return "usage:\n" + tool() + " " + word + " --data path --output path [--name name]\n";
}

std::string audioUsage() {
  return "usage:\n" + tool() +
         " audio --channel-a path --channel-b path --output path [--name name] --interval interval "
         "[--upscale upscale] --length length [--type quick|resampler|post-resampler]\n";
}

std::string sourceFile(const std::string& name) {
  return (TestSupport::sourceDir() / "veridaneprobe" / name).string();
}

class CommandLineTest : public ::testing::Test {
 protected:
  CommandLineTest() {
    TestSupport::writeFile(dir / "data.csv", "index,time,error\n");
    TestSupport::writeFile(dir / "a.wav", "");
    TestSupport::writeFile(dir / "b.wav", "");
  }
  TempDir dir;
  std::string data() const { return (dir / "data.csv").string(); }
  std::string output() const { return (dir / "out").string(); }
};

TEST_F(CommandLineTest, TooFewArgumentsIsAUsageErrorWithStatusOne) {
  const std::string expected =
      "usage:\n" + tool() + " audio <arguments>\n" + tool() + " time-error <arguments>\n";
  for (const auto& arguments :
       {std::vector<std::string>{}, std::vector<std::string>{"time-error"}}) {
    const ToolRun run = runTool(arguments);
    EXPECT_EQ(run.out, kBanner);
    EXPECT_EQ(run.err, expected);
    EXPECT_EQ(run.status, 1);
  }
}

TEST_F(CommandLineTest, UnknownCommandsExitWithStatusZero) {
  for (const std::string word : {"dual-link", "Audio", "TIME-ERROR", ""}) {
    const ToolRun run = runTool({word, "--data", data()});
    EXPECT_EQ(run.out, kBanner);
    EXPECT_EQ(run.err, "unknown command \"" + word + "\"\n");
    EXPECT_EQ(run.status, 0);
  }
}

// Every row of tests/data/usage-failures.txt: a run whose initialiser fails on its options
// prints the banner only on stdout, the message and the usage on stderr, and exits with 0.
TEST_F(CommandLineTest, OptionFailuresFromTheTable) {
  std::istringstream table(
      TestSupport::readFile(TestSupport::sourceDir() / "tests" / "data" / "usage-failures.txt"));
  std::vector<std::string> arguments;
  int rows = 0;
  for (std::string line; std::getline(table, line);) {
    if (line.rfind("$ ", 0) == 0) {
      arguments.clear();
      std::istringstream fields(line.substr(2) + "|");
      for (std::string field; std::getline(fields, field, '|');) {
        arguments.push_back(field == "{data}" ? data() : field == "{output}" ? output() : field);
      }
    } else if (!arguments.empty()) {
      SCOPED_TRACE(line);
      for (size_t at; (at = line.find("\\n")) != std::string::npos;) {
        line.replace(at, 2, 1, '\n');
      }
      const bool audio = arguments[0] == "audio" || arguments[0] == "drift";
      const ToolRun run = runTool(arguments, dir.path());
      EXPECT_EQ(run.out, kBanner);
      EXPECT_EQ(run.err, line + "\n" + (audio ? audioUsage() : usage(arguments[0])));
      EXPECT_EQ(run.status, 0);
      arguments.clear();
      ++rows;
    }
  }
  EXPECT_EQ(rows, 31);
}

TEST_F(CommandLineTest, MissingDataFilePrintsTheAssertionOnStandardOutput) {
  const std::string missing = (dir / "missing.csv").string();
  const ToolRun run = runTool({"time-error", "--data", missing, "--output", output()});
  EXPECT_EQ(run.out, kBanner +
                         " veridaneprobe assertion FailIf \"![fileManager "
                         "fileExistsAtPath:_timeErrorPath]\" failed in " +
                         sourceFile("VDPAnalyseTimeError.cpp") +
                         " at line 219 goto Bail. Time error file does not exist at path \"" +
                         missing + "\"\n");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.status, 0);
  EXPECT_FALSE(std::filesystem::exists(output()));
}

TEST_F(CommandLineTest, RelativePathsResolveAgainstPWD) {
  std::filesystem::create_directory(dir / "elsewhere");
  // The process runs in dir/elsewhere but PWD says dir: data.csv is found there, and the
  // output directory is made there, with redundant components removed.
  const ToolRun run = runTool(TestSupport::withoutStatistics(
                                  {"marten", "--data", "./sub/../data.csv", "--output", "out//x/"}),
                              dir / "elsewhere", {{"PWD", dir.path().string()}});
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(std::filesystem::exists(dir / "out" / "x" / "marten_analysis_time_error.csv"));
  const ToolRun missing =
      runTool({"marten", "--data", "nothing.csv"}, dir / "elsewhere", {{"PWD", "/nowhere"}});
  EXPECT_NE(missing.out.find("Time error file does not exist at path \"/nowhere/nothing.csv\""),
            std::string::npos);
  const ToolRun unset =
      runTool({"marten", "--data", "data.csv"}, dir.path(), {{"PWD", std::nullopt}});
  EXPECT_NE(unset.out.find("Time error file does not exist at path \"\""), std::string::npos);
}

TEST_F(CommandLineTest, OutputPreparation) {
  // An existing file in the way: refused without usage text, on stdout (stderr for dual-check).
  TestSupport::writeFile(dir / "file", "x");
  const std::string file = (dir / "file").string();
  const std::string notADirectory =
      "\"" + file + "\" is not a directory. Please use a different path.\n";
  ToolRun run = runTool({"time-error", "--data", data(), "--output", file});
  EXPECT_EQ(run.out, kBanner + notADirectory);
  EXPECT_EQ(run.err, "");
  run = runTool({"dual-check", "--data", data(), "--output", file});
  EXPECT_EQ(run.out, kBanner);
  EXPECT_EQ(run.err, notADirectory);

  // A directory that cannot be created names the system's reason.
  const std::string blocked = file + "/sub";
  run = runTool({"marten", "--data", data(), "--output", blocked});
  EXPECT_EQ(run.out, kBanner + "Failed to create directory \"" + blocked +
                         "\" with error Not a directory.\n");
  EXPECT_EQ(run.status, 0);

  // Osprey prepares its slave directories; one blocked by a file is refused.
  std::filesystem::create_directories(dir / "osprey");
  TestSupport::writeFile(dir / "osprey" / "Slave1", "");
  run = runTool({"osprey", "--data", data(), "--output", (dir / "osprey").string()});
  EXPECT_EQ(run.out, kBanner + "\"" + (dir / "osprey" / "Slave1").string() +
                         "\" is not a directory. Please use a different path.\n");
  EXPECT_TRUE(std::filesystem::is_directory(dir / "osprey" / "Slave0"));
}

TEST_F(CommandLineTest, ConsoleLinesReachASharedPipeInTheOrderWritten) {
  // As "2>&1 | cat" with Python's own buffering in force: the banner comes before every message
  // on standard error, and each message before the lines written after it.
  TestSupport::writeFile(dir / "file", "x");
  const std::vector<std::vector<std::string>> cases = {
      {},
      {"time-error", "--bogus"},
      {"dual-link", "--data", "x"},
      {"audio", "--interval", "0"},
      {"dual-check", "--data", data(), "--output", (dir / "file").string()},
      {"time-error", "--window-lower", "1"},
  };
  for (const std::vector<std::string>& arguments : cases) {
    const ToolRun separate = runTool(arguments, {}, {{"PYTHONUNBUFFERED", std::nullopt}});
    const ToolRun shared = runTool(arguments, {}, {{"PYTHONUNBUFFERED", std::nullopt}}, true);
    EXPECT_EQ(separate.out, kBanner);
    EXPECT_NE(separate.err, "");
    EXPECT_EQ(shared.out, separate.out + separate.err);
    EXPECT_EQ(shared.status, separate.status);
  }
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
            (std::filesystem::path(home) / "run.csv").lexically_normal().string());
  // An unknown user and a tilde inside the path are left as written.
  EXPECT_EQ(VDPFileSystem::standardisedPath("~no-such-user-here/run.csv"),
            "~no-such-user-here/run.csv");
  EXPECT_EQ(VDPFileSystem::standardisedPath("/data/~/run.csv"), "/data/~/run.csv");
}

TEST_F(CommandLineTest, TheOutputNameIsTextAppendedToTheOutputDirectory) {
  // A name that starts with "/" is not a path of its own: the files go under the output
  // directory (here into its subdirectory "nested"), never into /nested.
  TestSupport::writeFile(dir / "data.csv", "index,time,error\n0,0.0,1e-9\n1,0.5,3e-9\n");
  std::filesystem::create_directories(dir / "out" / "nested");
  const ToolRun run = runTool(TestSupport::withoutStatistics(
      {"time-error", "--data", data(), "--output", output(), "--name", "/nested/run"}));
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "");
  for (const char* file : {"run_time_error.csv", "run_time_error.png", "run_time_error.pdf"}) {
    EXPECT_TRUE(std::filesystem::exists(dir / "out" / "nested" / file)) << file;
  }
  EXPECT_FALSE(std::filesystem::exists("/nested"));
}

}  // namespace
