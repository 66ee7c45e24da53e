// The audio and drift commands from the command line (their option messages are rows of
// tests/data/usage-failures.txt, run by the command line test): the channel checks, and the loading
// of the two recordings with its failure messages, on recordings the tests write themselves.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "AudioFileWriter.h"
#include "TestSupport.h"
#include "VDPAudioPlotScripts.h"

namespace {

namespace fs = std::filesystem;
using TestSupport::runTool;
using TestSupport::TempDir;
using TestSupport::ToolRun;

const std::string kBanner = TestSupport::banner();

std::string assertion(const char* form, const char* condition, int line) {
  return std::string(" veridaneprobe assertion ") + form + " \"" + condition + "\" failed in " +
         (TestSupport::sourceDir() / "veridaneprobe").string() + "/" + "VDPAnalyseAudio.cpp" +
         " at line " + std::to_string(line) + " goto Bail. ";
}

// A mono 16-bit WAV (or other container) of seconds of a 997 Hz tone at rate.
void writeTone(const fs::path& path, uint32_t rate, double seconds,
               AudioFileContainer container = AudioFileContainer::WAV) {
  AudioFileWriterRef writer = nullptr;
  ASSERT_EQ(AudioFileWriterCreate(path, {container, AudioSampleEncoding::PCM16, rate, 1}, &writer),
            kAudioFileWriterNoError);
  std::vector<float> samples(static_cast<size_t>(seconds * rate));
  for (size_t i = 0; i < samples.size(); ++i) {
    samples[i] = 0.5f * static_cast<float>(std::sin(2 * M_PI * 997.0 * i / rate));
  }
  ASSERT_EQ(AudioFileWriterWrite(writer, samples.data(), samples.size()), kAudioFileWriterNoError);
  ASSERT_EQ(AudioFileWriterDispose(writer), kAudioFileWriterNoError);
}

class AudioCommandTest : public ::testing::Test {
 protected:
  ToolRun audio(std::vector<std::string> arguments, const std::string& word = "audio") {
    arguments.insert(arguments.begin(), word);
    return runTool(arguments, dir.path());
  }
  TempDir dir;
};

TEST_F(AudioCommandTest, MissingChannelFilesAreReportedWithoutThePath) {
  TestSupport::writeFile(dir / "a.wav", "");
  const std::vector<std::string> common = {"--interval", "4800",     "--length",
                                           "4096",       "--output", "out"};
  std::vector<std::string> arguments = common;
  arguments.insert(arguments.end(), {"--channel-a", "none.wav", "--channel-b", "a.wav"});
  ToolRun run = audio(arguments);
  EXPECT_EQ(run.out, kBanner +
                         assertion("FailIf", "![fileManager fileExistsAtPath:_channelAPath]", 377) +
                         "Channel A audio file does not exist at path\n");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.status, 0);
  arguments = common;
  arguments.insert(arguments.end(), {"--channel-a", "a.wav", "--channel-b", "none.wav"});
  run = audio(arguments);
  EXPECT_EQ(run.out, kBanner +
                         assertion("FailIf", "![fileManager fileExistsAtPath:_channelBPath]", 378) +
                         "Channel B audio file does not exist at path\n");
  EXPECT_FALSE(fs::exists(dir / "out"));
}

class AudioLoadingTest : public AudioCommandTest {
 protected:
  ToolRun load(const std::string& a, const std::string& b, std::vector<std::string> more = {}) {
    std::vector<std::string> arguments = {"--channel-a", a,     "--channel-b", b,
                                          "--output",    "out", "--interval",  "48000",
                                          "--length",    "4096"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return audio(TestSupport::withoutStatistics(arguments));
  }

  // What a run prints before "Analysis Done", given its "Using ..." line.
  static std::string loaded(const std::string& usingLine) {
    return kBanner + usingLine +
           "Loading audio into memory...\n"
           "Running Audio Time Error Calculation...\n";
  }
  static std::string untilDone(const ToolRun& run) {
    return run.out.substr(0, run.out.find("Analysis Done"));
  }
};

TEST_F(AudioLoadingTest, TheStretchIsClampedToTheShorterFile) {
  writeTone(dir / "ten.wav", 48000, 10);
  writeTone(dir / "twelve.wav", 48000, 12);
  const ToolRun run = load("ten.wav", "twelve.wav");
  EXPECT_EQ(untilDone(run), loaded("Using 480000 samples of audio from 0.00 to 10.00 seconds\n"));
  EXPECT_EQ(run.status, 1);
  for (const char* file : {"audio_analysis_audio_time_error.csv",
                           "audio_analysis_audio_time_error.png", "audio_analysis_time_error.csv",
                           "audio_analysis_time_error.png", "audio_analysis_time_error.pdf"}) {
    EXPECT_TRUE(fs::exists(dir / "out" / file)) << file;
  }
  // The processor's script replaced the audio command's own.
  EXPECT_EQ(TestSupport::readFile(dir / "out" / "PlotTimeError.py").find("Audio Time Error"),
            std::string::npos);
}

TEST_F(AudioLoadingTest, StretchBoundsAndTheirFailures) {
  writeTone(dir / "a.wav", 44100, 6);
  // Whole seconds, converted to frames at the file's rate.
  ToolRun run = load("a.wav", "a.wav", {"--audio-start", "2.9", "--audio-end", "5"});
  EXPECT_EQ(run.out.substr(0, run.out.find("Loading")),
            kBanner + "Using 132300 samples of audio from 2.00 to 5.00 seconds\n");
  // Both bounds beyond the file: nothing to analyse, and no failure.
  run = load("a.wav", "a.wav", {"--audio-start", "100"});
  EXPECT_EQ(run.out.substr(0, run.out.find("Running")),
            kBanner +
                "Using 0 samples of audio from 6.00 to 6.00 seconds\n"
                "Loading audio into memory...\n");
  EXPECT_EQ(run.status, 1);
  // A start after the end cannot be allocated.
  run = load("a.wav", "a.wav", {"--audio-start", "5", "--audio-end", "2"});
  EXPECT_EQ(run.out, kBanner + "Using -132300 samples of audio from 5.00 to 2.00 seconds\n" +
                         assertion("FailIfNULL", "NULL == channelASamples", 532) +
                         "Could not allocate Channel A sample buffer\n");
  EXPECT_EQ(run.status, 0);
}

TEST_F(AudioLoadingTest, FilesThatCannotBeUsed) {
  writeTone(dir / "48k.wav", 48000, 1);
  writeTone(dir / "44k.wav", 44100, 2);
  TestSupport::writeFile(dir / "text.wav", "not audio at all\n");
  fs::create_directory(dir / "folder.wav");

  // Rates differ: the sample line (with B's rate) comes first, then the assertion.
  ToolRun run = load("48k.wav", "44k.wav");
  EXPECT_EQ(run.out,
            kBanner + "Using 48000 samples of audio from 0.00 to 1.09 seconds\n" +
                assertion("FailIf", "fileFormat.mSampleRate != clientFormat.mSampleRate", 525) +
                "Channel B file has different sample rate to Channel A file\n");
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(fs::is_empty(dir / "out"));

  run = load("text.wav", "48k.wav");
  EXPECT_EQ(run.out, kBanner + assertion("FailIfError", "status != 0", 460) +
                         "Error opening Channel A audio file, Error: 1 (0x1)\n");
  // A directory passes the existence check and fails when opened.
  run = load("48k.wav", "folder.wav");
  EXPECT_EQ(run.out, kBanner + assertion("FailIfError", "status != 0", 499) +
                         "Error opening Channel B audio file, Error: 1 (0x1)\n");
  EXPECT_EQ(run.status, 0);
}

// A three-second FLAC tone whose stream information claims claimedFrames frames (36 bits from
// bit 4 of byte 18; 0 means unknown, as in a stream written to a pipe).
void writeFlacClaiming(const fs::path& flac, uint64_t claimedFrames) {
  writeTone(flac, 48000, 3, AudioFileContainer::FLAC);
  std::string bytes = TestSupport::readFile(flac);
  bytes[21] = static_cast<char>((bytes[21] & 0xF0) | (claimedFrames >> 32));
  for (int i = 0; i < 4; ++i) {
    bytes[22 + i] = static_cast<char>(claimedFrames >> (24 - 8 * i));
  }
  TestSupport::writeFile(flac, bytes);
}

TEST_F(AudioLoadingTest, FlacLengthsAreWhatTheDataHolds) {
  // Three seconds each: a header claiming a billion frames would have the command allocate 8 GB,
  // and one claiming nothing, the largest count.
  writeFlacClaiming(dir / "billion.flac", 1000000000);
  writeFlacClaiming(dir / "unknown.flac", 0);
  const ToolRun run = load("billion.flac", "unknown.flac");
  EXPECT_EQ(untilDone(run), loaded("Using 144000 samples of audio from 0.00 to 3.00 seconds\n"));
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

TEST(AudioRun, TheOutputNameIsTextAppendedToTheOutputDirectory) {
  TempDir dir;
  const fs::path examples = TestSupport::sourceDir() / "examples" / "audio";
  fs::create_directories(dir / "out" / "nested");
  const ToolRun run =
      runTool(TestSupport::withoutStatistics(
                  {"audio", "--channel-a", (examples / "channel-a.flac").string(), "--channel-b",
                   (examples / "channel-b.flac").string(), "--output", "out", "--name",
                   "/nested/run", "--interval", "48000", "--length", "4096"}),
              dir.path());
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "");
  for (const char* file : {"run_audio_time_error.csv", "run_audio_time_error.png",
                           "run_time_error.csv", "run_time_error.pdf"}) {
    EXPECT_TRUE(fs::exists(dir / "out" / "nested" / file)) << file;
  }
}

TEST(AudioPlotScripts, BothTemplatesByteForByte) {
  const std::string body =
      "\n\ntime = timeErrorRecords.time\n"
      "timeError = timeErrorRecords.time_error * 1000000.0\n\n"
      "f1, ax1 = plt.subplots()\n\n"
      "ax1.plot(time, timeError, 'g-')\n"
      "ax1.set_ylabel('Time Error (us)')\n"
      "ax1.grid(True)\n\n"
      "plt.title('Audio Time Error Analysis run 7')\n"
      "plt.xlabel('Time since start of audio (s)')\n\n"
      "plt.subplots_adjust(left=0.05, right=0.97, bottom=0.05, top=0.97)\n"
      "plt.hold(True)\n\n";
  const std::string imports =
      "#!/usr/bin/python\n\nimport matplotlib.pyplot as plt\nimport matplotlib.mlab as mlab\n"
      "import os\nimport sys\n\n";
  const std::string saved = VDPAudioPlotScripts::savedScript("x.csv", "run 7");
  EXPECT_EQ(saved, imports +
                       "timeErrorRecords = mlab.csv2rec(os.path.split(sys.argv[0])[0]+'/x.csv')" +
                       body + "plt.show()\n");
  const std::string plot = VDPAudioPlotScripts::plotScript("/d", "x.csv", "run 7", "/p", "x.png");
  EXPECT_EQ(plot, imports + "timeErrorRecords = mlab.csv2rec('/d/x.csv')" + body +
                      "f1.set_size_inches(32, 16.98753)\n\nf1.savefig('/p/x.png')\n\n");
  // The templates' own lengths, with the placeholders filled by a two-character value each.
  EXPECT_EQ(VDPAudioPlotScripts::savedScript("%@", "%@").size(), 544u);
  EXPECT_EQ(VDPAudioPlotScripts::plotScript("%@", "%@", "%@", "%@", "%@").size(), 560u);
}

}  // namespace
