#include "VDCRecording.h"

#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <memory>
#include <sstream>

#include "VDCLinuxPTPGrammar.h"
#include "VDCPhaseGrammar.h"
#include "VDCTICCGrammar.h"
#include "VDCTimeErrorGrammar.h"
#include "VDPLineReader.h"

namespace {

using Grammar = VDCRecording::Grammar;

constexpr double kLatestTime = 1.8e10;  // s

}  // namespace

VDCRecording::Grammar VDCRecording::lineGrammar(const std::string& format,
                                                const Settings& settings) {
  if (format == "ticc") {
    auto grammar = std::make_shared<VDCTICCGrammar>(settings.tau0Seconds);
    return [grammar](std::string_view line, VDCSample& sample) {
      return grammar->parse(line, sample);
    };
  }
  if (format == "phase") {
    auto grammar =
        std::make_shared<VDCPhaseGrammar>(settings.tau0Seconds, settings.picosecondsPerUnit);
    return [grammar](std::string_view line, VDCSample& sample) {
      return grammar->parse(line, sample);
    };
  }
  if (format == "time-error") {
    return VDCTimeErrorGrammar::parse;
  }
  using Program = VDCLinuxPTPGrammar::Program;
  const Program wanted = format == "ptp4l"     ? Program::ptp4l
                         : format == "phc2sys" ? Program::phc2sys
                                               : Program::ts2phc;
  return [wanted](std::string_view line, VDCSample& sample) {
    Program program = Program::ptp4l;
    const VDCLineKind kind = VDCLinuxPTPGrammar::parse(line, sample, &program);
    return program == wanted ? kind : VDCLineKind::other;
  };
}

namespace {

int64_t countsPerNanosecondOf(const std::string& format) {
  // linuxptp prints whole nanoseconds; the rest resolve picoseconds.
  return format == "ptp4l" || format == "phc2sys" || format == "ts2phc" ? 1 : 1000;
}

}  // namespace

const std::vector<std::string>& VDCRecording::formatNames() {
  static const std::vector<std::string> names = {"ptp4l", "phc2sys", "ts2phc",
                                                 "ticc",  "phase",   "time-error"};
  return names;
}

std::optional<std::string> VDCRecording::recognisedFormat(const std::vector<std::string>& lines,
                                                          const Settings& settings) {
  std::optional<std::string> best;
  int bestCount = 0;
  for (const std::string& format : formatNames()) {
    const Grammar grammar = lineGrammar(format, settings);
    int count = 0;
    for (const std::string& line : lines) {
      VDCSample sample;
      count += grammar(line, sample) != VDCLineKind::other ? 1 : 0;
    }
    if (count > bestCount) {
      best = format;
      bestCount = count;
    }
  }
  return best;
}

std::optional<VDCRecording> VDCRecording::read(const std::string& path, const Settings& settings,
                                               std::string& error) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || S_ISDIR(status.st_mode)) {
    error = "cannot read " + path + (S_ISDIR(status.st_mode) ? ": it is a directory" : "");
    return std::nullopt;
  }
  VDCRecording recording;
  if (settings.format) {
    recording._format = *settings.format;
  } else {
    // The first lines with something on them decide; a quarter megabyte holds thousands.
    std::vector<std::string> firstLines;
    std::ifstream file(path, std::ios::binary);
    std::string head(256 << 10, '\0');
    file.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<size_t>(file.gcount()));
    std::istringstream lines(head);
    for (std::string line; firstLines.size() < 200 && std::getline(lines, line);) {
      if (!line.empty() && line[0] != '#' && line.find_first_not_of(" \t\r") != line.npos) {
        firstLines.push_back(line);
      }
    }
    const std::optional<std::string> format = recognisedFormat(firstLines, settings);
    if (!format) {
      error = path + " holds no time error samples of a known format (" +
              "ptp4l, phc2sys, ts2phc, ticc, phase, time-error; --format chooses one)";
      return std::nullopt;
    }
    recording._format = *format;
  }
  recording._countsPerNanosecond = countsPerNanosecondOf(recording._format);
  const bool withStates = recording._countsPerNanosecond == 1;
  const Grammar grammar = lineGrammar(recording._format, settings);
  uint64_t summaries = 0;
  uint64_t lineNumber = 0;
  std::optional<uint64_t> absurdLine;
  VDCSample sample;
  VDPLineReader::readLines(path, [&](std::string_view line) {
    ++lineNumber;
    const VDCLineKind kind = grammar(line, sample);
    // Times become nanoseconds of 64 bits: up to about 570 years, and never before 0.
    if (kind == VDCLineKind::sample && !(sample.time >= 0 && sample.time < kLatestTime)) {
      absurdLine = absurdLine.value_or(lineNumber);
      return;
    }
    switch (kind) {
      case VDCLineKind::sample: {
        Stream& stream = recording._streams[sample.stream];
        stream.times.push_back(sample.time);
        stream.errors.push_back(sample.error);
        if (withStates) {
          stream.servoStates.push_back(sample.servoState);
        }
        break;
      }
      case VDCLineKind::summary:
        ++summaries;
        [[fallthrough]];
      case VDCLineKind::other:
        ++recording._otherLines;
        break;
    }
  });
  // A log still being written ends inside a line; that line is not read, and the user hears so.
  if (status.st_size > 0) {
    std::ifstream tail(path, std::ios::binary);
    tail.seekg(status.st_size - 1);
    recording._unfinishedLastLine = tail.get() != '\n';
  }
  if (absurdLine) {
    error = path + ":" + std::to_string(*absurdLine) + ": the sample's time is before 0 s or " +
            "beyond " + std::to_string(static_cast<int64_t>(kLatestTime)) + " s";
    return std::nullopt;
  }
  if (recording._streams.empty()) {
    if (summaries > 0) {
      error = path + " holds only summary lines (rms, max), no offset per sample: log every " +
              "sample with summary_interval no higher than logSyncInterval (ptp4l), or " +
              "without -u (phc2sys)";
    } else {
      error = path + " holds no " + recording._format + " samples";
    }
    return std::nullopt;
  }
  return recording;
}
