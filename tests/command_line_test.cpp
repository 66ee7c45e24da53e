// The tool from the command line beyond the transcripts of tests/data/runs: paths relative to
// PWD and under "~", runs on bad input that must finish without a crash, FLAC headers that lie
// about the length, the sample recordings through the audio and drift commands, and the audio
// command's own plot scripts.

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "AudioFileWriter.h"
#include "TestSupport.h"
#include "VDPAudioPlotScripts.h"
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

// A three-second FLAC tone whose stream information claims claimedFrames frames (36 bits from
// bit 4 of byte 18; 0 means unknown, as in a stream written to a pipe).
void writeFlacClaiming(const fs::path& flac, uint64_t claimedFrames) {
  AudioFileWriterRef writer = nullptr;
  ASSERT_EQ(AudioFileWriterCreate(flac, {AudioFileContainer::FLAC, AudioSampleEncoding::PCM16,
                                         48000, 1}, &writer), kAudioFileWriterNoError);
  std::vector<float> samples(3 * 48000);
  for (size_t i = 0; i < samples.size(); ++i) {
    samples[i] = 0.5f * static_cast<float>(std::sin(2 * M_PI * 997.0 * i / 48000));
  }
  ASSERT_EQ(AudioFileWriterWrite(writer, samples.data(), samples.size()), kAudioFileWriterNoError);
  ASSERT_EQ(AudioFileWriterDispose(writer), kAudioFileWriterNoError);
  std::string bytes = TestSupport::readFile(flac);
  bytes[21] = static_cast<char>((bytes[21] & 0xF0) | (claimedFrames >> 32));
  for (int i = 0; i < 4; ++i) {
    bytes[22 + i] = static_cast<char>(claimedFrames >> (24 - 8 * i));
  }
  TestSupport::writeFile(flac, bytes);
}

TEST(AudioRun, FlacLengthsAreWhatTheDataHolds) {
  // Three seconds each: a header claiming a billion frames would have the command allocate 8 GB,
  // and one claiming nothing, the largest count.
  TempDir dir;
  writeFlacClaiming(dir / "billion.flac", 1000000000);
  writeFlacClaiming(dir / "unknown.flac", 0);
  const ToolRun run = runTool(TestSupport::withoutStatistics(
      {"audio", "--channel-a", "billion.flac", "--channel-b", "unknown.flac", "--output", "out",
       "--interval", "48000", "--length", "4096"}), dir.path());
  EXPECT_EQ(run.out, kBanner +
                         "Using 144000 samples of audio from 0.00 to 3.00 seconds\n"
                         "Loading audio into memory...\n"
                         "Running Audio Time Error Calculation...\nAnalysis Done\n");
  EXPECT_EQ(run.status, 1);
}

TEST(AudioRun, SampleRecordingsGiveTheSameResultsAsAudioAndAsDrift) {
  TempDir dir;
  const fs::path examples = TestSupport::sourceDir() / "examples" / "audio";
  std::string firstCsv;
  for (const std::string word : {"audio", "drift"}) {
    const ToolRun run = runTool({word, "--channel-a", (examples / "channel-a.flac").string(),
                                 "--channel-b", (examples / "channel-b.flac").string(), "--output",
                                 word, "--interval", "4800", "--length", "4096", "--upscale", "16"},
                                dir.path());
    EXPECT_EQ(run.out, kBanner +
                           "Using 480000 samples of audio from 0.00 to 10.00 seconds\n"
                           "Loading audio into memory...\n"
                           "Running Audio Time Error Calculation...\n" +
                           TestSupport::kAllStatisticsProgress);
    EXPECT_EQ(run.status, 1);
    const std::string csv = TestSupport::readFile(dir / word / "audio_analysis_time_error.csv");
    firstCsv = firstCsv.empty() ? csv : firstCsv;
    EXPECT_EQ(csv, firstCsv);
  }
  // Channel B lags by 12.5 ms plus 30 ppm of the elapsed time: 100 windows on that line.
  std::istringstream rows(firstCsv);
  std::string row;
  std::getline(rows, row);
  EXPECT_EQ(row, "time,time_error");
  int count = 0;
  while (std::getline(rows, row)) {
    const double time = std::stod(row.substr(0, row.find(',')));
    const double error = std::stod(row.substr(row.find(',') + 1));
    EXPECT_NEAR(error, 12.5e6 + 30e-6 * time, 20) << row;
    ++count;
  }
  EXPECT_EQ(count, 100);
  for (const char* file : {"audio_analysis_audio_time_error.png", "audio_analysis_adev.csv",
                           "audio_analysis_mtie.pdf", "PlotMTIE.py"}) {
    EXPECT_TRUE(fs::exists(dir / "drift" / file)) << file;
  }
}

TEST(AudioPlotScripts, BothTemplatesByteForByte) {
  EXPECT_EQ(VDPAudioPlotScripts::savedScript("x.csv", "run 7"),
            TestSupport::expected("audio-saved.txt"));
  EXPECT_EQ(VDPAudioPlotScripts::plotScript("/d", "x.csv", "run 7", "/p", "x.png"),
            TestSupport::expected("audio-plot.txt"));
}

}  // namespace
