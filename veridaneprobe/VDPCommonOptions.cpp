#include "VDPCommonOptions.h"

#include <cinttypes>
#include <cstdio>

#include "VDPFileSystem.h"
#include "VDPTextScanner.h"

VDPCommonOptions::VDPCommonOptions(const char* defaultOutputName, bool adev, bool madev, bool tdev,
                                   bool rmstie, bool mtie)
    : _outputName(defaultOutputName),
      _adev(adev),
      _madev(madev),
      _tdev(tdev),
      _rmstie(rmstie),
      _mtie(mtie),
      _windowLowerLimit(kWindowLimitDefaults.first),
      _windowUpperLimit(kWindowLimitDefaults.second),
      _windowStepSize(1) {}

std::optional<std::string> VDPCommonOptions::takeValue(const std::vector<std::string>& arguments,
                                                       size_t& cursor) {
  if (cursor + 1 >= arguments.size()) {
    return std::nullopt;
  }
  return arguments[++cursor];
}

bool VDPCommonOptions::parseIntegerOption(const std::optional<std::string>& value,
                                          const char* description,
                                          std::optional<int64_t> lowerBound, int64_t& field) {
  const std::string text = value.value_or("");
  const std::optional<int64_t> parsed = VDPTextScanner::parseInteger(text);
  if (!parsed) {
    std::fprintf(stderr, "could not parse %s \"%s\"\n", description, text.c_str());
    return false;
  }
  field = *parsed;
  if (lowerBound && field < *lowerBound) {
    std::fprintf(stderr,
                 "%s %" PRId64 " is less than %" PRId64 ". It must be at least %" PRId64 ".\n",
                 description, field, *lowerBound, *lowerBound);
    return false;
  }
  return true;
}

VDPCommonOptions::OptionMatch VDPCommonOptions::applyCommonOption(
    const std::vector<std::string>& arguments, size_t& cursor) {
  const std::string& argument = arguments[cursor];
  struct Switch {
    const char* on;
    const char* off;
    bool VDPCommonOptions::*field;
  };
  static const Switch kSwitches[] = {
      {"--adev", "--no-adev", &VDPCommonOptions::_adev},
      {"--madev", "--no-madev", &VDPCommonOptions::_madev},
      {"--tdev", "--no-tdev", &VDPCommonOptions::_tdev},
      {"--rmstie", "--no-rmstie", &VDPCommonOptions::_rmstie},
      {"--mtie", "--no-mtie", &VDPCommonOptions::_mtie},
  };
  for (const Switch& statistic : kSwitches) {
    if (argument == statistic.on || argument == statistic.off) {
      this->*statistic.field = argument == statistic.on;
      return OptionMatch::Applied;
    }
  }
  if (argument == "--output") {
    const std::optional<std::string> value = takeValue(arguments, cursor);
    _outputPath = value ? std::optional(VDPFileSystem::standardisedPath(*value)) : std::nullopt;
    return OptionMatch::Applied;
  }
  if (argument == "--name") {
    _outputName = takeValue(arguments, cursor).value_or("");
    return OptionMatch::Applied;
  }
  struct WindowOption {
    const char* option;
    const char* description;
    int64_t lowerBound;
    int64_t VDPCommonOptions::*field;
  };
  static const WindowOption kWindowOptions[] = {
      {"--window-lower", "window lower limit", 2, &VDPCommonOptions::_windowLowerLimit},
      {"--window-upper", "window upper limit", 2, &VDPCommonOptions::_windowUpperLimit},
      {"--window-step", "window step size", 1, &VDPCommonOptions::_windowStepSize},
  };
  for (const WindowOption& window : kWindowOptions) {
    if (argument == window.option) {
      const bool parsed = parseIntegerOption(takeValue(arguments, cursor), window.description,
                                             window.lowerBound, this->*window.field);
      return parsed ? OptionMatch::Applied : OptionMatch::Failed;
    }
  }
  return OptionMatch::NotMine;
}

bool VDPCommonOptions::checkWindowOrder() const {
  if (_windowLowerLimit > _windowUpperLimit) {
    std::fprintf(stderr,
                 "window lower limit (%" PRId64 ") is higher than the window upper limit (%" PRId64
                 ")\n",
                 _windowLowerLimit, _windowUpperLimit);
    return false;
  }
  return true;
}
