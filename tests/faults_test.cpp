// The built tool under faults a user meets: Ctrl-C during a run, input without line ends.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "TestSupport.h"
#include "VDCSVBuffer.h"

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

using TestSupport::BackgroundRun;
using TestSupport::withoutStatistics;

// A marten file of count samples.
std::string martenData(int count) {
  std::string data;
  for (int sample = 0; sample < count; ++sample) {
    data += std::to_string(1000000000LL * sample) + ",0," + std::to_string((sample * 7) % 13) +
            ",0,0\n";
  }
  return data;
}

bool endedBySignal(const std::optional<int>& status, int signalNumber) {
  return status && WIFSIGNALED(*status) && WTERMSIG(*status) == signalNumber;
}

// The exit status of a run that ends within the timeout, or -1.
int exitStatus(BackgroundRun& run, std::chrono::seconds timeout) {
  const std::optional<int> status = run.waitFor(timeout);
  return status && WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
}

TEST(Faults, CtrlCEndsARunAtOnceButAClosedOutputDoesNot) {
  TestSupport::TempDir dir;
  {
    // Loading: a FIFO that never ends, its writer kept open. Opening it for writing succeeds
    // once the tool reads it, which is after the interpreter has started.
    const fs::path fifo = dir / "endless.csv";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    BackgroundRun run({"marten", "--data", fifo.string(), "--output", "loading"}, dir.path());
    int writer = -1;
    for (int attempt = 0; attempt < 1000 && writer < 0; ++attempt) {
      writer = open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
      std::this_thread::sleep_for(10ms);
    }
    ASSERT_GE(writer, 0) << "the tool never opened its data";
    const std::string lines = "1000,0,5,0,0\n2000,0,6,0,0\n";
    ASSERT_EQ(write(writer, lines.data(), lines.size()), static_cast<ssize_t>(lines.size()));
    kill(run.pid(), SIGINT);
    EXPECT_TRUE(endedBySignal(run.waitFor(2s), SIGINT));
    close(writer);
  }
  {
    // Later: once the time error plots exist the interpreter has loaded matplotlib (which
    // imports Python's signal module), and the interrupt comes during the ADEV step.
    TestSupport::writeFile(dir / "long.csv", martenData(50000));
    BackgroundRun run({"marten", "--data", "long.csv", "--output", "computing", "--no-madev",
                       "--no-tdev", "--no-rmstie", "--no-mtie"},
                      dir.path());
    const fs::path lastPlot = dir / "computing" / "marten_analysis_time_error.pdf";
    for (int attempt = 0; attempt < 3000 && !fs::exists(lastPlot); ++attempt) {
      std::this_thread::sleep_for(10ms);
    }
    ASSERT_TRUE(fs::exists(lastPlot));
    ASSERT_FALSE(run.waitFor(0ms)) << "ADEV ended too soon to be interrupted";
    kill(run.pid(), SIGINT);
    EXPECT_TRUE(endedBySignal(run.waitFor(2s), SIGINT));
  }
  {
    // A standard output whose reader goes away after the banner does not end the run.
    TestSupport::writeFile(dir / "short.csv", "1000,0,5,0,0\n2000,0,6,0,0\n");
    int output[2];
    ASSERT_EQ(pipe2(output, O_CLOEXEC), 0);
    BackgroundRun run(withoutStatistics({"marten", "--data", "short.csv", "--output", "closed"}),
                      dir.path(), [&output] { dup2(output[1], STDOUT_FILENO); });
    close(output[1]);
    std::string banner(TestSupport::banner().size(), '\0');
    EXPECT_EQ(read(output[0], banner.data(), banner.size()), static_cast<ssize_t>(banner.size()));
    EXPECT_EQ(banner, TestSupport::banner());
    close(output[0]);
    EXPECT_EQ(exitStatus(run, 120s), 1);
    EXPECT_TRUE(fs::exists(dir / "closed" / "marten_analysis_time_error.pdf"));
  }
}

constexpr uint64_t kMiB = 1 << 20;

TEST(Faults, InputWithoutLineEndsKeepsMemoryBounded) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "AddressSanitizer reserves more address space than the limit allows";
#endif
  TestSupport::TempDir dir;
  {
    // /dev/zero never ends: under a 512 MiB address space limit the run keeps reading instead of
    // growing until it aborts. The unfinished line grows to its 64 MiB capacity (twice that for
    // a moment while the buffer doubles) and is given back once it is known to be overlong.
    BackgroundRun run(withoutStatistics({"marten", "--data", "/dev/zero", "--output", "zero"}),
                      dir.path(), [] {
                        const rlimit limit{512 * kMiB, 512 * kMiB};
                        setrlimit(RLIMIT_AS, &limit);
                      });
    while (run.procFigure("io", "rchar") < 192 * kMiB && !run.waitFor(10ms)) {
    }
    ASSERT_FALSE(run.waitFor(0ms)) << TestSupport::readFile(dir / "stderr");
    const uint64_t peak = run.procFigure("status", "VmHWM") * 1024;
    EXPECT_GT(peak, 64 * kMiB);
    EXPECT_LT(peak, 192 * kMiB);
    EXPECT_LT(run.procFigure("status", "VmRSS") * 1024, 64 * kMiB);
  }
  {
    // 128 MiB of NUL bytes (a sparse file), then a line end and one sample: the overlong line is
    // skipped, the sample after it read, and the run's memory never holds the whole line.
    const fs::path data = dir / "zeros.csv";
    TestSupport::writeFile(data, "");
    fs::resize_file(data, 128 * kMiB);
    std::ofstream(data, std::ios::app) << "\n1000,0,5,0,0\n";
    BackgroundRun run(withoutStatistics({"marten", "--data", "zeros.csv", "--output", "sparse"}),
                      dir.path());
    EXPECT_EQ(exitStatus(run, 60s), 1);
    EXPECT_EQ(TestSupport::readFile(dir / "stdout"),
              TestSupport::banner() + "Loading time errors into memory...\nAnalysis Done\n");
    EXPECT_EQ(TestSupport::readFile(dir / "sparse" / "marten_analysis_time_error.csv"),
              "time,time_error\n1000,5\n");
    EXPECT_LT(run.peakResidentBytes(), 192 * kMiB);
  }
}

// Every file in directory by name, with its content.
std::map<std::string, std::string> filesIn(const fs::path& directory) {
  std::map<std::string, std::string> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
    files[entry.path().filename().string()] = TestSupport::readFile(entry.path());
  }
  return files;
}

// A small tmpfs mounted for the life of the object (root only).
struct SmallFileSystem {
  SmallFileSystem(const fs::path& at, const std::string& size) : at(at) {
    fs::create_directories(at);
    mounted = mount("tmpfs", at.c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0;
  }
  ~SmallFileSystem() {
    if (mounted) {
      umount2(at.c_str(), MNT_DETACH);
    }
  }
  fs::path at;
  bool mounted = false;
};

TEST(Faults, AFullDiskKeepsTheEarlierCompleteResults) {
  TestSupport::TempDir dir;
  SmallFileSystem disk(dir / "disk", "4m");
  if (!disk.mounted) {
    GTEST_SKIP() << "mounting a tmpfs needs root";
  }
  const fs::path output = dir / "disk" / "out";
  TestSupport::writeFile(dir / "short.csv", martenData(300));
  TestSupport::writeFile(dir / "long.csv", martenData(3000));
  std::vector<std::string> arguments = {"marten",        "--data",     "short.csv", "--output",
                                        output.string(), "--no-madev", "--no-tdev", "--no-rmstie"};
  const TestSupport::ToolRun first = TestSupport::runTool(arguments, dir.path());
  ASSERT_EQ(first.status, 1) << first.err;
  const std::map<std::string, std::string> complete = filesIn(output);
  ASSERT_EQ(complete.size(), 12u);

  // A second run with ten times the data: no result file fits in the last 8 KiB. Each keeps its
  // earlier content; each CSV says so in one line, each plot in the interpreter's traceback.
  const int filler = open((disk.at / "filler").c_str(), O_WRONLY | O_CREAT, 0600);
  const auto room = static_cast<off_t>(fs::space(disk.at).available);
  EXPECT_EQ(posix_fallocate(filler, 0, room - 8192), 0);
  close(filler);
  arguments[2] = "long.csv";
  const TestSupport::ToolRun second = TestSupport::runTool(arguments, dir.path());
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(second.out, TestSupport::banner() +
                            "Loading time errors into memory...\n"
                            "Running Allan Deviation Analysis...\n"
                            "Running Maximum Time Interval Error Analysis...\n"
                            "Analysis Done\n");
  const std::map<std::string, std::string> after = filesIn(output);
  ASSERT_EQ(after.size(), complete.size());
  for (const auto& [name, content] : complete) {
    EXPECT_TRUE(after.count(name) != 0 && after.at(name) == content) << name << " changed";
  }
  std::string failures;
  for (const char* step : {"time_error", "adev", "mtie"}) {
    failures += "Failed to write \"" + output.string() + "/marten_analysis_" + step +
                ".csv\" with error No space left on device.\n";
  }
  std::string reported;
  std::istringstream lines(second.err);
  for (std::string line; std::getline(lines, line);) {
    reported += line.starts_with("Failed to write") ? line + "\n" : "";
  }
  EXPECT_EQ(reported, failures);
  EXPECT_NE(second.err.find("OSError: [Errno 28] No space left on device"), std::string::npos);
}

// An export replaces its file only once complete (collected, or streamed while its megabytes of
// rows are made), leaves no temporary file, and names the file and the system's error when it
// fails.
TEST(Faults, AnExportReplacesTheFileOnlyWhenComplete) {
  TestSupport::TempDir dir;
  TestSupport::writeFile(dir / "kept.csv", "earlier\n");
  const std::string failure = "Failed to write \"" + (dir / "missing" / "new.csv").string() +
                              "\" with error No such file or directory.\n";
  VDCSVBuffer csv;
  csv.appendText("time,time_error\n");
  testing::internal::CaptureStderr();
  EXPECT_FALSE(csv.writeToFile(dir / "missing" / "new.csv"));
  EXPECT_FALSE(VDCSVBuffer(dir / "missing" / "new.csv").finish());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), failure + failure);
  EXPECT_TRUE(csv.writeToFile(dir / "kept.csv"));
  EXPECT_EQ(TestSupport::readFile(dir / "kept.csv"), "time,time_error\n");
  // With standard input closed (as a service may start the tool) the file written next gets
  // descriptor 0, and is written all the same.
  const int input = dup(STDIN_FILENO);
  close(STDIN_FILENO);
  csv.appendText("0,1\n");
  const bool written = csv.writeToFile(dir / "kept.csv");
  dup2(input, STDIN_FILENO);
  close(input);
  EXPECT_TRUE(written);
  EXPECT_EQ(TestSupport::readFile(dir / "kept.csv"), "time,time_error\n0,1\n");

  VDCSVBuffer collected;
  {
    VDCSVBuffer streamed(dir / "kept.csv");
    VDCSVBuffer abandoned(dir / "abandoned.csv");
    for (int64_t row = 0; row < 600000; ++row) {
      for (VDCSVBuffer* rows : {&collected, &streamed, &abandoned}) {
        rows->appendInteger(row);
        rows->appendSeparator();
        rows->appendDouble(static_cast<double>(row) / 7.0);
        rows->endRow();
      }
    }
    EXPECT_EQ(TestSupport::readFile(dir / "kept.csv"), "time,time_error\n0,1\n");
    EXPECT_TRUE(streamed.finish());
  }
  EXPECT_EQ(TestSupport::readFile(dir / "kept.csv"), collected.text());
  EXPECT_EQ(filesIn(dir.path()).size(), 1u);  // the abandoned one left nothing
}

size_t rowsOf(const std::string& csv) {
  return static_cast<size_t>(std::count(csv.begin(), csv.end(), '\n')) - 1;  // less the header
}

TEST(Faults, RunsIntoOneDirectoryTakeTurns) {
  TestSupport::TempDir dir;
  const fs::path output = dir / "out";
  fs::create_directory(output);
  TestSupport::writeFile(dir / "a.csv", martenData(1000));
  TestSupport::writeFile(dir / "b.csv", martenData(2001));
  const auto runOn = [&](const char* data, const char* logDirectory,
                         std::vector<std::string> options) {
    fs::create_directory(dir / logDirectory);
    options.insert(options.begin(), {"marten", "--data", dir / data, "--output", output});
    return std::make_unique<BackgroundRun>(options, dir / logDirectory);
  };
  {
    // While another process holds the directory, a run waits without writing anything, then
    // does its whole run once the directory is free.
    const int held = open(output.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    std::unique_ptr<BackgroundRun> run = runOn("a.csv", "waiting", withoutStatistics());
    EXPECT_FALSE(run->waitFor(1500ms));
    EXPECT_TRUE(fs::is_empty(output));
    {
      // The audio command waits alike (and is stopped here, having shown that).
      const fs::path audio = TestSupport::sourceDir() / "examples" / "audio";
      fs::create_directory(dir / "audio");
      BackgroundRun audioRun({"audio", "--channel-a", (audio / "channel-a.flac").string(),
                              "--channel-b", (audio / "channel-b.flac").string(), "--output",
                              output.string(), "--interval", "4800", "--length", "4096"},
                             dir / "audio");
      EXPECT_FALSE(audioRun.waitFor(1500ms));
      EXPECT_TRUE(fs::is_empty(output));
    }
    close(held);
    EXPECT_EQ(exitStatus(*run, 120s), 1);
    EXPECT_EQ(TestSupport::readFile(dir / "waiting" / "stdout"),
              TestSupport::banner() + "Loading time errors into memory...\nAnalysis Done\n");
    EXPECT_EQ(rowsOf(TestSupport::readFile(output / "marten_analysis_time_error.csv")), 1000u);
  }
  {
    // Two runs at once: whichever goes second, the directory ends with one run's complete set.
    const std::vector<std::string> adevOnly = {"--no-madev", "--no-tdev", "--no-rmstie",
                                               "--no-mtie"};
    std::unique_ptr<BackgroundRun> first = runOn("a.csv", "first", adevOnly);
    std::unique_ptr<BackgroundRun> second = runOn("b.csv", "second", adevOnly);
    ASSERT_TRUE(first->waitFor(120s));
    ASSERT_TRUE(second->waitFor(120s));
    const size_t samples = rowsOf(TestSupport::readFile(output / "marten_analysis_time_error.csv"));
    ASSERT_TRUE(samples == 1000u || samples == 2001u) << samples;
    // ADEV has a window for every m from 2 to (N-1)/2.
    EXPECT_EQ(rowsOf(TestSupport::readFile(output / "marten_analysis_adev.csv")),
              (samples - 1) / 2 - 1);
  }
}

}  // namespace
