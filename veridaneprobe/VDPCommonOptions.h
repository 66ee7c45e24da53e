#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "VDPAnalyser.h"

// VDPCommonOptions holds the settings every analyser shares (output location, the five statistic
// switches, the window range) and the one grammar of their options. Analysers derive from it
// and add their own options around it.
class VDPCommonOptions : public VDPAnalyser {
 public:
  // The window range defaults, set together: every window from 2 samples up.
  static constexpr std::pair<int64_t, int64_t> kWindowLimitDefaults{
      2, std::numeric_limits<int64_t>::max()};

 protected:
  enum class OptionMatch { NotMine, Applied, Failed };

  VDPCommonOptions(const char* defaultOutputName, bool adev, bool madev, bool tdev, bool rmstie,
                   bool mtie);

  // Applies the shared option at arguments[cursor] (--output, --name, a statistic switch or a
  // window option), moving cursor onto its value where it takes one. Failed means an error
  // message has been printed and the usage text is due.
  OptionMatch applyCommonOption(const std::vector<std::string>& arguments, size_t& cursor);

  // The argument after cursor, consumed whatever it looks like; nullopt when there is none.
  static std::optional<std::string> takeValue(const std::vector<std::string>& arguments,
                                              size_t& cursor);

  // Parses an integer option's value into field and checks it against lowerBound (no check when
  // lowerBound is nullopt). Prints "could not parse <description> ..." or "<description> N is
  // less than ..." to standard error and returns false on failure. The field is set before the
  // range check. An absent value counts as the empty text.
  static bool parseIntegerOption(const std::optional<std::string>& value, const char* description,
                                 std::optional<int64_t> lowerBound, int64_t& field);

  // A processor of the given class with these settings, writing into outputPath.
  template <typename Processor>
  Processor makeProcessor(const std::string& outputPath, const std::string& outputName) const {
    return Processor(outputPath, outputName, _adev, _madev, _tdev, _rmstie, _mtie,
                     _windowLowerLimit, _windowUpperLimit, _windowStepSize);
  }

  // Prints the lower-above-upper message and returns false when the range is reversed.
  bool checkWindowOrder() const;

  std::optional<std::string> _outputPath;
  std::string _outputName;
  bool _adev;
  bool _madev;
  bool _tdev;
  bool _rmstie;
  bool _mtie;
  int64_t _windowLowerLimit;
  int64_t _windowUpperLimit;
  int64_t _windowStepSize;
};
