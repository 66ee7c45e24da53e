#include "VDCOptions.h"

#include <algorithm>
#include <filesystem>

#include "VDCNumbers.h"

namespace {

bool takesValue(const std::string& option) {
  return option == "--output" || option == "--name" || option == "--format" ||
         option == "--stream" || option == "--gaps" || option == "--tau0" || option == "--units" ||
         VDCVerdictOptions::takesValue(option);
}

}  // namespace

bool VDCOptions::parse(const std::vector<std::string>& arguments, std::string& error) {
  std::vector<std::string> files;
  for (size_t i = 0; i < arguments.size(); ++i) {
    std::string option = arguments[i];
    std::string value;
    const size_t equals = option.find('=');
    const bool inline_value = option.rfind("--", 0) == 0 && equals != std::string::npos;
    if (inline_value) {
      value = option.substr(equals + 1);
      option.resize(equals);
    }
    if (option == "--help" || option == "-h") {
      help = true;
      continue;
    }
    if (option == "--version") {
      version = true;
      continue;
    }
    if (option.rfind("-", 0) != 0 || option == "-") {
      files.push_back(arguments[i]);
      continue;
    }
    if (!takesValue(option) && !VDCVerdictOptions::isVerdictOption(option)) {
      error = "unknown option " + option;
      return false;
    }
    if (takesValue(option) && !inline_value) {
      if (i + 1 >= arguments.size()) {
        error = option + " needs a value";
        return false;
      }
      value = arguments[++i];
    }
    if (option == "--output") {
      output = value;
    } else if (option == "--name") {
      name = value;
    } else if (option == "--stream") {
      stream = value;
    } else if (option == "--format") {
      const std::vector<std::string>& names = VDCRecording::formatNames();
      if (std::find(names.begin(), names.end(), value) == names.end()) {
        error = "--format takes ptp4l, phc2sys, ts2phc, ticc, phase or time-error, not \"" + value +
                "\"";
        return false;
      }
      recording.format = value;
    } else if (option == "--gaps") {
      if (value != "split" && value != "skip") {
        error = "--gaps takes split or skip, not \"" + value + "\"";
        return false;
      }
      gaps = value == "split" ? Gaps::split : Gaps::skip;
    } else if (option == "--tau0") {
      const std::optional<double> seconds = VDCNumbers::decimal(value);
      if (!seconds || !(*seconds > 0)) {
        error = "--tau0 takes seconds above 0, not \"" + value + "\"";
        return false;
      }
      recording.tau0Seconds = *seconds;
    } else if (option == "--units") {
      if (value != "s" && value != "ns" && value != "ps") {
        error = "--units takes s, ns or ps, not \"" + value + "\"";
        return false;
      }
      recording.picosecondsPerUnit = value == "s" ? 1e12 : value == "ns" ? 1e3 : 1;
    } else if (!verdicts.take(option, value, error)) {
      return false;
    }
  }
  if (help || version || (verdicts.listMasks && files.empty())) {
    return true;
  }
  if (files.size() != 1) {
    error = files.empty() ? "no recording given" : "one recording at a time";
    return false;
  }
  file = files.front();
  return true;
}

std::string VDCOptions::outputDirectory() const {
  if (output) {
    return *output;
  }
  std::filesystem::path path(file);
  path.replace_extension();
  return path.string() + "-check";
}

std::string VDCOptions::outputName() const {
  return name ? *name : std::filesystem::path(file).stem().string();
}

const char* VDCOptions::helpText() {
  return "Usage: veridaneprobe-check [options] FILE\n"
         "Reads a recording of time error (a linuxptp log, a time interval counter's output or\n"
         "phase data), reports its gaps, and writes the time error and its ADEV, MDEV, TDEV,\n"
         "RMS TIE and MTIE as CSV files, plot scripts and PNG and PDF plots. With --mask it\n"
         "also judges the data against the limits of clock standards.\n"
         "\n"
         "Input:\n"
         "  --format NAME      ptp4l, phc2sys, ts2phc, ticc, phase or time-error (default:\n"
         "                     recognised from the first lines)\n"
         "  --stream NAME      analyse only this stream of a log that holds several\n"
         "  --gaps split|skip  split: analyse each continuous segment apart (default)\n"
         "                     skip: analyse them as one, leaving out terms across gaps\n"
         "  --tau0 SECONDS     sample interval of phase data without a time column (default 1)\n"
         "  --units s|ns|ps    unit of phase data (default s)\n"
         "Output:\n"
         "  --output DIR       default: FILE without its extension, plus -check\n"
         "  --name NAME        prefix of the result files (default: FILE's name)\n"
         "Verdicts:\n"
         "  --mask ID[,ID...]  judge against these masks (--list-masks lists them)\n"
         "  --mask-file FILE   add the masks defined in FILE\n"
         "  --list-masks       print the masks and exit\n"
         "  --settle SECONDS|servo\n"
         "                     leave out the start: SECONDS after the first sample (default\n"
         "                     300), or servo: 60 s after the servo locks (linuxptp logs)\n"
         "  --average N        max|TE| of moving means of N samples (N >= 100)\n"
         "  --window SECONDS   window of the moving cTE (default 1000)\n"
         "  --help, --version\n"
         "\n"
         "Exit status: 0 when the analysis completed (and the verdict is PASS), 1 for FAIL,\n"
         "3 for NOT EVALUATED, 2 for a usage error or input that cannot be used.\n";
}
