// The streaming line reader and the text scanner under the commands' line grammars: block
// boundaries, unterminated and over-long lines, invalid UTF-8, and what the time-error layout
// accepts (the other layouts are checked through whole runs of their commands).

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <limits>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "VDPAnalyseTimeError.h"
#include "VDPLineReader.h"
#include "VDPTextScanner.h"

namespace {

constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();
constexpr int64_t kInt64Min = std::numeric_limits<int64_t>::min();
constexpr uint64_t kUInt64Max = std::numeric_limits<uint64_t>::max();

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

TEST(LineReader, SplitsAtLineEndsAndNeverReadsAnUnterminatedLastLine) {
  EXPECT_EQ(linesOf("a\nb\n"), (Lines{"a", "b"}));
  EXPECT_EQ(linesOf("a\nb"), (Lines{"a"}));
  EXPECT_EQ(linesOf(""), Lines{});
  EXPECT_EQ(linesOf("\n\n"), (Lines{"", ""}));
  EXPECT_EQ(linesOf("a\r\n"), (Lines{"a\r"}));
}

TEST(LineReader, JoinsLinesAcrossBlocks) {
  const std::string first(1995, 'x');
  const std::string second(10, 'y');  // crosses the first 2000-byte boundary
  const std::string longLine(4500, 'z');
  EXPECT_EQ(linesOf(first + "\n" + second + "\n" + longLine + "\n"),
            (Lines{first, second, longLine}));
  // A line end exactly at the end of a block.
  const std::string exact(1999, 'e');
  EXPECT_EQ(linesOf(exact + "\nnext\n"), (Lines{exact, "next"}));
}

TEST(LineReader, ReadsLinesUpToTheCapacityWholeAndSkipsLongerOnesToTheirLineEnd) {
  // Several megabytes on one line still arrive whole under the default capacity.
  const std::string huge(50'000'000, '7');
  const Lines hugeLines = linesOf("1\n" + huge + "\n2\n");
  ASSERT_EQ(hugeLines.size(), 3u);
  EXPECT_EQ(hugeLines[1].size(), huge.size());
  EXPECT_EQ(hugeLines[2], "2");

  // With a capacity of 3000 bytes: a line of exactly 3000 bytes is read, one byte more is a bad
  // line however many blocks it spans, and reading resumes after its line end.
  const std::string full(3000, 'f');
  const std::string over(3001, 'o');
  const std::string long7000(7000, 'l');
  EXPECT_EQ(linesOf(full + "\n" + over + "\nnext\n" + long7000 + "\n\nlast\n", 3000),
            (Lines{full, "next", "", "last"}));
  // An overlong line without a line end hands over nothing.
  EXPECT_EQ(linesOf(std::string(9000, 'z'), 3000), Lines{});
  // A block of invalid UTF-8 drops an overlong line like any unfinished one: the rest of it
  // after that block arrives as a line of its own.
  EXPECT_EQ(linesOf(std::string(4500, 'a') + "\xFF" + std::string(2000, 'b') + "\nok\n", 3000),
            (Lines{std::string(501, 'b'), "ok"}));
}

TEST(LineReader, InvalidUTF8LosesWhatIsBuffered) {
  // Valid multi-byte text passes through.
  EXPECT_EQ(linesOf("caf\xC3\xA9\n"), (Lines{"caf\xC3\xA9"}));
  EXPECT_EQ(linesOf("\xC2\x80\xDF\xBF\n"), (Lines{"\xC2\x80\xDF\xBF"}));  // both ends of the range
  // A stray byte makes its whole 2000-byte read hand over nothing; the next read starts afresh,
  // so the rest of the broken line arrives as a line of its own.
  const std::string block(1000, 'a');
  EXPECT_EQ(linesOf("1\n" + block + "\xFF\n" + block + "\n2\n" + std::string(3000, 'b') + "\n"),
            (Lines{std::string(4, 'a'), "2", std::string(3000, 'b')}));
  // A two-byte character split by the block boundary: both reads around it are lost, the
  // complete lines in them included.
  const std::string head = "lost\n" + std::string(1994, 'c');  // the split is at byte 1999
  EXPECT_EQ(linesOf(head + "\xC3\xA9tail\nkept\n" + std::string(2000, '\n')), Lines(11, ""));
}

TEST(LineReader, ReadsNothingFromDirectoriesAndMissingFiles) {
  TestSupport::TempDir dir;
  int calls = 0;
  VDPLineReader::readLines(dir.path().string(), [&calls](std::string_view) { ++calls; });
  VDPLineReader::readLines((dir / "missing").string(), [&calls](std::string_view) { ++calls; });
  EXPECT_EQ(calls, 0);
}

TEST(TextScanner, ScansLikeATextScanner) {
  int64_t integer = 0;
  EXPECT_TRUE(VDPTextScanner(" \t\n-42xyz").scanInt64(integer));
  EXPECT_EQ(integer, -42);
  EXPECT_TRUE(VDPTextScanner("99999999999999999999").scanInt64(integer));
  EXPECT_EQ(integer, kInt64Max);
  EXPECT_TRUE(VDPTextScanner("-9223372036854775808").scanInt64(integer));
  EXPECT_EQ(integer, kInt64Min);
  EXPECT_TRUE(VDPTextScanner("-99999999999999999999").scanInt64(integer));
  EXPECT_EQ(integer, kInt64Min);
  EXPECT_FALSE(VDPTextScanner("- 1").scanInt64(integer));
  EXPECT_FALSE(VDPTextScanner("").scanInt64(integer));

  int32_t narrow = 0;
  EXPECT_TRUE(VDPTextScanner("3000000000").scanInt32(narrow));
  EXPECT_EQ(narrow, std::numeric_limits<int32_t>::max());

  uint64_t unsignedValue = 0;
  EXPECT_TRUE(VDPTextScanner("+18446744073709551615").scanUInt64(unsignedValue));
  EXPECT_EQ(unsignedValue, kUInt64Max);
  EXPECT_TRUE(VDPTextScanner("99999999999999999999999").scanUInt64(unsignedValue));
  EXPECT_EQ(unsignedValue, kUInt64Max);
  EXPECT_FALSE(VDPTextScanner("-1").scanUInt64(unsignedValue));

  double real = 0;
  EXPECT_TRUE(VDPTextScanner(" -1.5e-3,").scanDouble(real));
  EXPECT_EQ(real, -1.5e-3);
  EXPECT_TRUE(VDPTextScanner(".5").scanDouble(real));
  EXPECT_EQ(real, 0.5);
  EXPECT_TRUE(VDPTextScanner("2e").scanDouble(real));
  EXPECT_EQ(real, 2.0);
  EXPECT_TRUE(VDPTextScanner("1e999").scanDouble(real));
  EXPECT_EQ(real, std::numeric_limits<double>::infinity());
  for (const char* notANumber : {"inf", "nan", "-", ".", "x1", ""}) {
    EXPECT_FALSE(VDPTextScanner(notANumber).scanDouble(real)) << notANumber;
  }
}

TEST(TextScanner, SecondsBecomeNanosecondsTruncatedTowardZero) {
  using namespace VDPNanoseconds;
  EXPECT_EQ(timestampFromSeconds(1.5), 1500000000u);
  EXPECT_EQ(errorFromSeconds(-1e-9), -1);
  EXPECT_EQ(errorFromSeconds(-1.9e-9), -1);
  EXPECT_EQ(errorFromSeconds(1e300), kInt64Max);
  EXPECT_EQ(errorFromSeconds(-1e300), kInt64Min);
  // The top half of the unsigned range is reachable; beyond it saturates.
  EXPECT_EQ(timestampFromSeconds(17179869184.0), 17179869184000000000u);
  EXPECT_EQ(timestampFromSeconds(1e20), kUInt64Max);
  // Negative times wrap like two's complement.
  EXPECT_EQ(timestampFromSeconds(-2.0), 0 - 2000000000ull);
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
}

}  // namespace
