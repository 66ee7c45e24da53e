#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VDCLineKind.h"
#include "VDCSample.h"

// A VDCRecording is what one recorded file holds: its samples, per stream in file order, in a
// format named by its reader (ptp4l, phc2sys, ts2phc, ticc, phase, time-error), recognised from
// the first lines that parse unless one is forced. Lines that are not samples are counted.
class VDCRecording {
 public:
  struct Settings {
    std::optional<std::string> format;  // forced; otherwise recognised
    double tau0Seconds = 1;             // phase values without a time column, TICC intervals
    double picosecondsPerUnit = 1e12;   // phase values: s (1e12), ns (1e3), ps (1)
  };

  struct Stream {
    std::vector<double> times;     // s
    std::vector<int64_t> errors;   // counts, countsPerNanosecond to the ns
    std::vector<int> servoStates;  // one per sample for linuxptp logs, else empty
  };

  static const std::vector<std::string>& formatNames();

  // A fresh reader of one format's lines (the counter's and the phase reader keep state from
  // line to line).
  using Grammar = std::function<VDCLineKind(std::string_view line, VDCSample& sample)>;
  static Grammar lineGrammar(const std::string& format, const Settings& settings);

  // Reads path. On failure the result is empty and error says why, in a sentence for the user.
  static std::optional<VDCRecording> read(const std::string& path, const Settings& settings,
                                          std::string& error);

  // The format of a text's lines (the most lines of the first 200 that are neither blank nor
  // '#' comments parse), or none.
  static std::optional<std::string> recognisedFormat(const std::vector<std::string>& lines,
                                                     const Settings& settings);

  const std::string& format() const { return _format; }
  int64_t countsPerNanosecond() const { return _countsPerNanosecond; }
  const std::map<std::string, Stream>& streams() const { return _streams; }
  uint64_t otherLines() const { return _otherLines; }
  // The file ends without a line end: its last line was not read.
  bool unfinishedLastLine() const { return _unfinishedLastLine; }

 private:
  std::string _format;
  int64_t _countsPerNanosecond = 1;
  std::map<std::string, Stream> _streams;
  uint64_t _otherLines = 0;
  bool _unfinishedLastLine = false;
};
