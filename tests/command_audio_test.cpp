// The audio and drift commands beyond their transcripts in tests/data/runs: FLAC headers that
// lie about the length, the sample recordings through both commands, and the audio command's
// own plot scripts.

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
