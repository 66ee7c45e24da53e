// The tool beyond the transcripts of tests/data/runs: paths under "~", bad input that must finish
// without a crash, the sample recordings through the drift alias and read in chunks; the line
// reader and text scanner: block boundaries, over-long lines, invalid UTF-8, the line layouts.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TestSupport.h"
#include "VDPAnalyseMarten.h"
#include "VDPAnalyseOsprey.h"
#include "VDPAnalyseTimeError.h"
#include "VDPAudioChannels.h"
#include "VDPFileSystem.h"
#include "VDPLineReader.h"
#include "VDPTextScanner.h"

namespace {

namespace fs = std::filesystem;
using TestSupport::readFile;
using TestSupport::runTool;
using TestSupport::TempDir;
using TestSupport::ToolRun;
using TestSupport::writeFile;

const std::string kBanner = TestSupport::banner();

TEST(CommandLine, ALeadingTildeNamesAHomeDirectory) {
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

TEST(AudioRun, SampleRecordingsThroughTheDriftAlias) {
  // "drift" runs the audio analysis ("audio" itself runs in the cases of tests/data/runs).
  TempDir dir;
  const fs::path examples = TestSupport::sourceDir() / "examples" / "audio";
  const ToolRun run = runTool({"drift", "--channel-a", (examples / "channel-a.flac").string(),
                               "--channel-b", (examples / "channel-b.flac").string(), "--output",
                               "out", "--interval", "4800", "--length", "4096", "--upscale", "16"},
                              dir.path());
  EXPECT_EQ(run.out, kBanner +
                         "Using 480000 samples of audio from 0.00 to 10.00 seconds\n"
                         "Loading audio into memory...\n"
                         "Running Audio Time Error Calculation...\n"
                         "Running Allan Deviation Analysis...\n"
                         "Running Modified Allan Deviation Analysis...\n"
                         "Running Time Deviation Analysis...\n"
                         "Running Root Mean Squared of Time Interval Error Analysis...\n"
                         "Running Maximum Time Interval Error Analysis...\n"
                         "Analysis Done\n");
  EXPECT_EQ(run.status, 1);
  // Channel B lags by 12.5 ms plus 30 ppm of the elapsed time: 100 windows on that line.
  const std::vector<std::string> rows =
      TestSupport::csvRows(dir / "out" / "audio_analysis_time_error.csv", "time,time_error");
  EXPECT_EQ(rows.size(), 100u);
  for (const std::string& row : rows) {
    double time = 0, error = 0;
    ASSERT_EQ(std::sscanf(row.c_str(), "%lf,%lf", &time, &error), 2) << row;
    EXPECT_NEAR(error, 12.5e6 + 30e-6 * time, 20) << row;
  }
  for (const char* file : {"audio_analysis_audio_time_error.png", "audio_analysis_adev.csv",
                           "audio_analysis_mtie.pdf", "PlotMTIE.py"}) {
    EXPECT_TRUE(fs::exists(dir / "out" / file)) << file;
  }
}

TEST(AudioRun, ChunkedReadsLoadWhatOneReadLoads) {
  // The sample recordings in chunks of 99,999 frames (the last one shorter), as hours of audio
  // are read in chunks of 2^30 - 1 frames, against one read of each: whole, and from 3 to 7 s.
  const fs::path examples = TestSupport::sourceDir() / "examples" / "audio";
  const std::string a = (examples / "channel-a.flac").string();
  const std::string b = (examples / "channel-b.flac").string();
  for (const auto& [start, end] : {std::pair<int64_t, int64_t>{0, INT64_MAX}, {3, 7}}) {
    int64_t oneStart = start, oneEnd = end, chunkedStart = start, chunkedEnd = end;
    VDPAudioChannels one("one"), chunked("chunked", 100000);
    testing::internal::CaptureStdout();
    ASSERT_TRUE(one.load(a, b, oneStart, oneEnd));
    ASSERT_TRUE(chunked.load(a, b, chunkedStart, chunkedEnd));
    testing::internal::GetCapturedStdout();
    const int64_t count = one.sampleCount();
    ASSERT_EQ(chunked.sampleCount(), count);
    ASSERT_GT(count, 100000);
    EXPECT_TRUE(std::equal(one.channelA(), one.channelA() + count, chunked.channelA()));
    EXPECT_TRUE(std::equal(one.channelB(), one.channelB() + count, chunked.channelB()));
  }
}

std::vector<std::string> linesOf(const std::string& content,
                                 size_t lineCapacity = VDPLineReader::kLineCapacity) {
  TestSupport::TempDir dir;
  TestSupport::writeFile(dir / "file", content);
  std::vector<std::string> lines;
  const int file = open((dir / "file").c_str(), O_RDONLY);
  VDPLineReader::readLines(
      file, [&lines](std::string_view line) { lines.emplace_back(line); }, lineCapacity);
  close(file);
  return lines;
}

using Lines = std::vector<std::string>;

TEST(LineReader, HandsOverWholeValidLinesOnly) {
  const std::string a1000(1000, 'a'), b3000(3000, 'b'), huge(50'000'000, '7');
  const size_t kDefault = VDPLineReader::kLineCapacity;
  const struct {
    std::string content;
    size_t capacity;
    Lines lines;
  } rows[] = {
      // Line ends split; an unterminated last line is never read; CR stays.
      {"a\nb\n", kDefault, {"a", "b"}},
      {"a\nb", kDefault, {"a"}},
      {"", kDefault, {}},
      {"\n\n", kDefault, {"", ""}},
      {"a\r\n", kDefault, {"a\r"}},
      // Lines across the 2000-byte reads, and a line end exactly at the end of one.
      {std::string(1995, 'x') + "\n" + std::string(10, 'y') + "\n" + std::string(4500, 'z') + "\n",
       kDefault,
       {std::string(1995, 'x'), std::string(10, 'y'), std::string(4500, 'z')}},
      {std::string(1999, 'e') + "\nnext\n", kDefault, {std::string(1999, 'e'), "next"}},
      // A character whose last byte is the last of a read is whole.
      {std::string(1998, 'c') + "\xC3\xA9\nnext\n",
       kDefault,
       {std::string(1998, 'c') + "\xC3\xA9", "next"}},
      // Megabytes on one line still arrive whole under the default capacity.
      {"1\n" + huge + "\n2\n", kDefault, {"1", huge, "2"}},
      // Under a capacity of 3000 bytes a line of 3000 is read, one byte more is a bad line however
      // many reads it spans, and reading resumes after its line end.
      {std::string(3000, 'f') + "\n" + std::string(3001, 'o') + "\nnext\n" +
           std::string(7000, 'l') + "\n\nlast\n",
       3000,
       {std::string(3000, 'f'), "next", "", "last"}},
      {std::string(9000, 'z'), 3000, {}},
      // A read of invalid UTF-8 drops an overlong line like any unfinished one: the rest of it
      // after that read arrives as a line of its own.
      {std::string(4500, 'a') + "\xFF" + std::string(2000, 'b') + "\nok\n",
       3000,
       {std::string(501, 'b'), "ok"}},
      // Valid multi-byte text passes, the ends of each length's ranges included (U+0080, U+07FF,
      // U+0800, U+D7FF before the surrogates, U+FFFF, U+10000, U+10FFFF); overlong forms,
      // surrogates, code points beyond U+10FFFF, cut sequences and continuation bytes without a
      // lead do not (the invalid lines below).
      {"caf\xC3\xA9\n", kDefault, {"caf\xC3\xA9"}},
      {"\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF\n",
       kDefault,
       {"\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"}},
      {"\xE2\x82\xAC \xF0\x9F\x98\x80\n", kDefault, {"\xE2\x82\xAC \xF0\x9F\x98\x80"}},
      // A stray byte makes its whole 2000-byte read hand over nothing; the next read starts
      // afresh, so the rest of the broken line arrives as a line of its own.
      {"1\n" + a1000 + "\xFF\n" + a1000 + "\n2\n" + b3000 + "\n",
       kDefault,
       {std::string(4, 'a'), "2", b3000}},
      // A two-byte character split at byte 1999: both reads around it are lost, the complete
      // lines in them included.
      {"lost\n" + std::string(1994, 'c') + "\xC3\xA9tail\nkept\n" + std::string(2000, '\n'),
       kDefault, Lines(11, "")},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(linesOf(row.content, row.capacity), row.lines) << row.content.substr(0, 40);
  }
  for (const char* invalid :
       {"\x80\x80\n", "\xC1\xBF\n", "\xE0\x9F\xBF\n", "\xED\xA0\x80\n", "\xF0\x8F\xBF\xBF\n",
        "\xF4\x90\x80\x80\n", "\xF5\x80\x80\x80\n", "\xE2\x82\x41\n", "\xF0\x9F\x98\n"}) {
    EXPECT_EQ(linesOf(invalid), Lines{}) << invalid;
  }
}

TEST(TextScanner, ScansLikeATextScanner) {
  // What each scan reads from the text ("-" when it reads nothing): leading blanks skipped,
  // integers saturated at their type's bounds, no sign on unsigned ones, no words for numbers.
  const auto scanned = [](char type, const char* text) -> std::string {
    VDPTextScanner scanner(text);
    int32_t narrow = 0;
    int64_t integer = 0;
    uint64_t unsignedValue = 0;
    double real = 0;
    std::ostringstream shown;
    shown.precision(17);
    const bool read = type == 'n'   ? scanner.scanInt32(narrow) && (shown << narrow)
                      : type == 'i' ? scanner.scanInt64(integer) && (shown << integer)
                      : type == 'u' ? scanner.scanUInt64(unsignedValue) && (shown << unsignedValue)
                                    : scanner.scanDouble(real) && (shown << real);
    return read ? shown.str() : "-";
  };
  const std::tuple<char, const char*, const char*> rows[] = {
      {'i', " \t\n-42xyz", "-42"},
      {'i', "99999999999999999999", "9223372036854775807"},
      {'i', "-9223372036854775808", "-9223372036854775808"},
      {'i', "-99999999999999999999", "-9223372036854775808"},
      {'i', "- 1", "-"},
      {'i', "", "-"},
      {'n', "3000000000", "2147483647"},
      {'u', "+18446744073709551615", "18446744073709551615"},
      {'u', "99999999999999999999999", "18446744073709551615"},
      {'u', "-1", "-"},
      {'d', " -1.5e-3,", "-0.0015"},
      {'d', ".5", "0.5"},
      {'d', "2e", "2"},
      {'d', "1e999", "inf"},
      {'d', "inf", "-"},
      {'d', "nan", "-"},
      {'d', "-", "-"},
      {'d', ".", "-"},
      {'d', "x1", "-"},
      {'d', "", "-"},
  };
  for (const auto& [type, text, expected] : rows) {
    EXPECT_EQ(scanned(type, text), expected) << type << " " << text;
  }
}

TEST(TextScanner, SecondsBecomeNanosecondsTruncatedTowardZero) {
  using namespace VDPNanoseconds;
  EXPECT_EQ(timestampFromSeconds(1.5), 1500000000u);
  EXPECT_EQ(errorFromSeconds(-1e-9), -1);
  EXPECT_EQ(errorFromSeconds(-1.9e-9), -1);
  EXPECT_EQ(errorFromSeconds(1e300), INT64_MAX);
  EXPECT_EQ(errorFromSeconds(-1e300), INT64_MIN);
  // The top half of the unsigned range is reachable; beyond it saturates.
  EXPECT_EQ(timestampFromSeconds(17179869184.0), 17179869184000000000u);
  EXPECT_EQ(timestampFromSeconds(1e20), UINT64_MAX);
  // Negative times wrap like two's complement; not a number is zero.
  EXPECT_EQ(timestampFromSeconds(-2.0), 0 - 2000000000ull);
  EXPECT_EQ(timestampFromSeconds(NAN), 0u);
  EXPECT_EQ(errorFromSeconds(NAN), 0);
}

TEST(LineGrammar, TimeError) {
  std::vector<VDTimeErrorValue> values;
  EXPECT_TRUE(VDPAnalyseTimeError::parseLine("0,1.5,0.000000002", values));
  EXPECT_TRUE(VDPAnalyseTimeError::parseLine(" 3 , 2.0 , -1.9e-9 trailing\r", values));
  for (const char* bad : {"index,time,error", "", "1,2", "1,2,", "1.5,2,3", "1;2;3", "1,,2,3"}) {
    EXPECT_FALSE(VDPAnalyseTimeError::parseLine(bad, values)) << bad;
  }
  ASSERT_EQ(values.size(), 2u);
  EXPECT_EQ(values[0].timestamp(), 1500000000u);
  EXPECT_EQ(values[0].error(), 2);
  EXPECT_EQ(values[1].timestamp(), 2000000000u);
  EXPECT_EQ(values[1].error(), -1);
  // The other grammars say whether a line was a sample (what they read is pinned by their runs).
  VDPAnalyseOsprey::SlaveValues slaves;
  std::vector<VDTimeErrorValue> marten;
  EXPECT_TRUE(VDPAnalyseOsprey::parseLine("100,0,1,0,2,0,3,0,0,0,0", slaves));
  EXPECT_FALSE(VDPAnalyseOsprey::parseLine("150,0,1,0,2,0,3,0,0,0", slaves));
  EXPECT_TRUE(VDPAnalyseMarten::parseLine("1000,0,-25,0,0", marten));
  EXPECT_FALSE(VDPAnalyseMarten::parseLine("1000,0,-25,0", marten));
}

}  // namespace
