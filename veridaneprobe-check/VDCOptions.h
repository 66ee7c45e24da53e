#pragma once

#include <optional>
#include <string>
#include <vector>

#include "VDCRecording.h"
#include "VDCVerdictOptions.h"

// VDCOptions is the command line of veridaneprobe-check: one recording and what to do with it.
// Options take their value as the next argument or after '='; a later option overrides an
// earlier one (masks and mask files add up).
struct VDCOptions {
  enum class Gaps { split, skip };

  std::string file;
  std::optional<std::string> output;  // default: FILE without its extension, plus "-check"
  std::optional<std::string> name;    // default: FILE's name without its extension
  std::optional<std::string> stream;
  Gaps gaps = Gaps::split;
  VDCRecording::Settings recording;
  VDCVerdictOptions verdicts;
  bool help = false;
  bool version = false;

  // Reads arguments (without the program name); on a usage error the result is false and error
  // says why.
  bool parse(const std::vector<std::string>& arguments, std::string& error);

  std::string outputDirectory() const;
  std::string outputName() const;

  static const char* helpText();
};
