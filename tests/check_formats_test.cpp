// What veridaneprobe-check reads: every line layout of tests/data/check/lines.txt (one row per
// real variant, with where it comes from), the format recognised from such lines, and the gaps
// and disorder that split a stream into segments.

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "VDAllanDeviationAnalysis.h"
#include "VDCContinuity.h"
#include "VDCRecording.h"

namespace {

std::string trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? ""
                                    : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

TEST(CheckFormats, EveryLineVariantReadsAsItsRowSays) {
  std::ifstream table(TestSupport::sourceDir() / "tests/data/check/lines.txt");
  std::map<std::string, VDCRecording::Grammar> grammars;
  std::map<std::string, std::vector<std::string>> linesOf;
  int rows = 0;
  for (std::string row; std::getline(table, row);) {
    if (row.empty() || row[0] == '#') {
      continue;
    }
    std::vector<std::string> fields;
    std::istringstream cells(row);
    for (std::string cell; std::getline(cells, cell, '|');) {
      fields.push_back(trimmed(cell));
    }
    ASSERT_EQ(fields.size(), 4u) << row;
    const std::string& format = fields[0];
    if (grammars.count(format) == 0) {
      grammars[format] = VDCRecording::lineGrammar(format, {});
    }
    VDCSample sample;
    const VDCLineKind kind = grammars[format](fields[1], sample);
    std::istringstream expected(fields[2]);
    std::string what;
    expected >> what;
    if (what == "sample") {
      std::string stream;
      double time = 0;
      int64_t error = 0;
      int state = 0;
      expected >> stream >> time >> error >> state;
      ASSERT_EQ(kind, VDCLineKind::sample) << row;
      EXPECT_EQ(sample.stream, stream) << row;
      EXPECT_DOUBLE_EQ(sample.time, time) << row;
      EXPECT_EQ(sample.error, error) << row;
      EXPECT_EQ(sample.servoState, format == "ticc" || format == "phase" || format == "time-error"
                                       ? sample.servoState
                                       : state)
          << row;
      linesOf[format].push_back(fields[1]);
    } else {
      EXPECT_EQ(kind, what == "summary" ? VDCLineKind::summary : VDCLineKind::other) << row;
    }
    ++rows;
  }
  EXPECT_GT(rows, 30);
  // Each format's sample lines are recognised as that format.
  for (const auto& [format, lines] : linesOf) {
    EXPECT_EQ(VDCRecording::recognisedFormat(lines, {}), format);
  }
}

TEST(CheckFormats, PhaseDataKeepsItsPicosecondsThroughTheStatistics) {
  // PHASE.DAT read as phase data in seconds: the published overlapping ADEV at every octave.
  std::string error;
  const auto recording =
      VDCRecording::read((TestSupport::sourceDir() / "tests/data/PHASE.DAT").string(), {}, error);
  ASSERT_TRUE(recording.has_value()) << error;
  EXPECT_EQ(recording->format(), "phase");
  const VDCRecording::Stream& phase = recording->streams().at("phase");
  std::vector<VDTimeErrorValue> values;
  for (size_t i = 0; i < phase.times.size(); ++i) {
    values.emplace_back(static_cast<uint64_t>(phase.times[i] * 1e9), phase.errors[i]);
  }
  VDAllanDeviationAnalysis adev(values);
  adev.setCountsPerNanosecond(recording->countsPerNanosecond());
  adev.performAnalysisFromStartWindowSize(2, 128, 1);
  for (const TestSupport::PublishedAdev& row : TestSupport::publishedPhaseDatAdev()) {
    EXPECT_NEAR(adev.points()[row.window - 2].value, row.sigma, 1e-4 * row.sigma) << row.window;
  }
}

TEST(CheckFormats, GapsAndDisorderSplitTheStream) {
  struct Case {
    const char* name;
    std::vector<double> times;
    double tau0;
    size_t gaps, disorder;
    std::vector<size_t> segmentStarts;
    double missingShare;
  };
  const Case cases[] = {
      {"even", {0, 1, 2, 3, 4}, 1, 0, 0, {0}, 0},
      {"jitter in the time tags", {0, 1.2, 2, 3.1, 4, 5}, 1, 0, 0, {0}, 0},
      {"a step of 1.5 intervals is no gap yet", {0, 1, 2, 3.5, 4.5, 5.5}, 1, 0, 0, {0}, 0},
      {"one gap", {0, 1, 2, 6, 7, 8, 9, 10}, 1, 1, 0, {0, 3}, 0.3},
      {"a repeated time", {0, 1, 2, 2, 3, 4}, 1, 0, 1, {0, 3}, 0},
      {"a time going back", {0, 1, 2, 1.5, 2.5, 3.5}, 1, 0, 1, {0, 3}, 0},
      {"16 Hz", {0, 0.0625, 0.125, 0.1875, 0.5, 0.5625}, 0.0625, 1, 0, {0, 4}, 0.25 / 0.5625},
  };
  for (const Case& c : cases) {
    const VDCContinuity continuity = VDCContinuity::of(c.times);
    EXPECT_DOUBLE_EQ(continuity.tau0, c.tau0) << c.name;
    EXPECT_EQ(continuity.gaps.size(), c.gaps) << c.name;
    EXPECT_EQ(continuity.disorder.size(), c.disorder) << c.name;
    std::vector<size_t> starts;
    for (const VDCContinuity::Segment& segment : continuity.segments) {
      starts.push_back(segment.first);
    }
    EXPECT_EQ(starts, c.segmentStarts) << c.name;
    EXPECT_NEAR(continuity.missingShare, c.missingShare, 1e-12) << c.name;
  }
}

}  // namespace
