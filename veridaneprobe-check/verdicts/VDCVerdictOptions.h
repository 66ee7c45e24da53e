#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "VDMaskTable.h"

// VDCVerdictOptions holds the options that ask for verdicts: which masks (--mask, a user's
// --mask-file), the settling time (--settle SECONDS or servo), --average and --window. The
// program's option loop hands each of these options to take, which checks its value.
struct VDCVerdictOptions {
  std::vector<std::string> maskIds;
  std::vector<std::string> maskFiles;
  bool listMasks = false;
  std::optional<double> settleSeconds = 300;  // none: the servo rule
  int64_t average = 1;
  double windowSeconds = 1000;

  // The smallest moving mean the standards allow for max|TE|.
  static constexpr int64_t kSmallestAverage = 100;

  // Whether option (with its value, where it takes one) is one of these.
  static bool isVerdictOption(const std::string& option);
  static bool takesValue(const std::string& option);
  // Reads option's value; on a bad value the result is false and error says why.
  bool take(const std::string& option, const std::string& value, std::string& error);

  // The built-in masks and those of the mask files; false with error when a file cannot be
  // read or holds a bad line.
  bool readMaskTable(VDMaskTable& table, std::string& error) const;
  // The masks selected by maskIds, in their order; false with error naming an unknown id.
  bool selectedMasks(const VDMaskTable& table, std::vector<const VDMask*>& masks,
                     std::string& error) const;
};
