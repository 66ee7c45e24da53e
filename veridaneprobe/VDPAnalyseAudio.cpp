#include "VDPAnalyseAudio.h"

#include <cinttypes>
#include <cstdio>
#include <limits>
#include <utility>

#include "VDAudioTimeErrorCalculator.h"
#include "VDPAudioChannels.h"
#include "VDPAudioPlotScripts.h"
#include "VDPConsole.h"
#include "VDPFileSystem.h"
#include "VDPOutputDirectoryLock.h"
#include "VDPProcessSingleTimeError.h"
#include "VDPPythonInterpreter.h"
#include "VDTimeErrorSequence.h"

namespace {

constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();

// The default values, set in pairs.
constexpr std::pair<int64_t, int64_t> kIntervalUpscaleDefaults{0, 1};
constexpr std::pair<int64_t, int64_t> kAudioStretchDefaults{0, kInt64Max};
constexpr std::pair<int64_t, int64_t> kStepAndCorrelationDefaults{1, 2};

struct CorrelationTypeWord {
  const char* word;
  int64_t code;
};
constexpr CorrelationTypeWord kCorrelationTypes[] = {
    {"quick", VDPAnalyseAudio::kCorrelationQuick},
    {"resampler", VDPAnalyseAudio::kCorrelationResampler},
    {"post-resampler", VDPAnalyseAudio::kCorrelationPostResampler},
};

}  // namespace

VDPAnalyseAudio::VDPAnalyseAudio()
    : VDPCommonOptions("audio_analysis", true, true, true, true, true),
      _interval(kIntervalUpscaleDefaults.first),
      _upscaleFactor(kIntervalUpscaleDefaults.second),
      _correlationLength(0),
      _audioStart(kAudioStretchDefaults.first),
      _audioEnd(kAudioStretchDefaults.second),
      _correlationType(kStepAndCorrelationDefaults.second) {
  _windowStepSize = kStepAndCorrelationDefaults.first;
}

std::unique_ptr<VDPAnalyseAudio> VDPAnalyseAudio::initWithArguments(
    const std::vector<std::string>& arguments) {
  std::unique_ptr<VDPAnalyseAudio> analyser(new VDPAnalyseAudio());
  if (!analyser->initialise(arguments)) {
    return nullptr;
  }
  return analyser;
}

bool VDPAnalyseAudio::failWithUsage() const {
  std::fprintf(stderr,
               "usage:\n%s audio --channel-a path --channel-b path --output path [--name name] "
               "--interval interval [--upscale upscale] --length length "
               "[--type quick|resampler|post-resampler]\n",
               VDPConsole::programPath().c_str());
  return false;
}

bool VDPAnalyseAudio::initialise(const std::vector<std::string>& arguments) {
  struct IntegerOption {
    const char* option;
    const char* description;
    std::optional<int64_t> lowerBound;  // none: no range check
    int64_t VDPAnalyseAudio::*field;
  };
  static const IntegerOption kIntegerOptions[] = {
      {"--interval", "interval", 1, &VDPAnalyseAudio::_interval},
      {"--upscale", "upscale factor", 1, &VDPAnalyseAudio::_upscaleFactor},
      {"--length", "correlation length", 1, &VDPAnalyseAudio::_correlationLength},
      {"--audio-start", "audio start", std::nullopt, &VDPAnalyseAudio::_audioStart},
      {"--audio-end", "audio end", std::nullopt, &VDPAnalyseAudio::_audioEnd},
  };
  for (size_t cursor = 0; cursor < arguments.size(); ++cursor) {
    const std::string& argument = arguments[cursor];
    if (argument == "--channel-a" || argument == "--channel-b") {
      const std::optional<std::string> value = takeValue(arguments, cursor);
      (argument == "--channel-a" ? _channelAPath : _channelBPath) =
          value ? std::optional(VDPFileSystem::standardisedPath(*value)) : std::nullopt;
      continue;
    }
    if (argument == "--type") {
      const std::string word = takeValue(arguments, cursor).value_or("");
      const CorrelationTypeWord* match = nullptr;
      for (const CorrelationTypeWord& type : kCorrelationTypes) {
        match = word == type.word ? &type : match;
      }
      if (match == nullptr) {
        std::fprintf(stderr,
                     "Unknown correlation type \"%s\"\nValid correlation types are:\n    quick\n"
                     "    resampler\n    post-resampler\n",
                     word.c_str());
        return failWithUsage();
      }
      _correlationType = match->code;
      continue;
    }
    const IntegerOption* integerOption = nullptr;
    for (const IntegerOption& option : kIntegerOptions) {
      integerOption = argument == option.option ? &option : integerOption;
    }
    if (integerOption != nullptr) {
      if (!parseIntegerOption(takeValue(arguments, cursor), integerOption->description,
                              integerOption->lowerBound, this->*integerOption->field)) {
        return failWithUsage();
      }
      continue;
    }
    const OptionMatch match = applyCommonOption(arguments, cursor);
    if (match == OptionMatch::Failed) {
      return failWithUsage();
    }
    if (match == OptionMatch::NotMine) {
      std::fprintf(stderr, "unknown argument \"%s\"\n", argument.c_str());
      return failWithUsage();
    }
  }
  // --interval and --length refuse values below 1, so these fire only when never given.
  const char* missing = _interval < 1            ? "must set the processing interval (--interval)\n"
                        : _correlationLength < 1 ? "must set the correlation length (--length)\n"
                        : !_channelAPath ? "must provide Channel A audio file path (--channel-a)\n"
                        : !_channelBPath ? "must provide Channel B audio file path (--channel-a)\n"
                                         : nullptr;
  if (missing != nullptr) {
    std::fputs(missing, stderr);
    return failWithUsage();
  }
  if (!checkWindowOrder()) {
    return failWithUsage();
  }
  resolvePaths();
  const struct {
    const std::optional<std::string>& path;
    const char* condition;
    int line;
    const char* message;
  } kChannels[] = {
      {_channelAPath, "![fileManager fileExistsAtPath:_channelAPath]", 377,
       "Channel A audio file does not exist at path\n"},
      {_channelBPath, "![fileManager fileExistsAtPath:_channelBPath]", 378,
       "Channel B audio file does not exist at path\n"},
  };
  for (const auto& channel : kChannels) {
    if (!VDPFileSystem::exists(channel.path)) {
      VDPConsole::printAssertion(VDPConsole::AssertionKind::FailIf, channel.condition, __FILE__,
                                 channel.line);
      std::fputs(channel.message, stdout);
      return false;
    }
  }
  return VDPFileSystem::prepareDirectory(_outputPath, stdout);
}

void VDPAnalyseAudio::resolvePaths() {
  _channelAPath = VDPFileSystem::resolvedPath(_channelAPath);
  _channelBPath = VDPFileSystem::resolvedPath(_channelBPath);
  _outputPath = VDPFileSystem::resolvedOutputPath(_outputPath);
}

bool VDPAnalyseAudio::execute() {
  resolvePaths();
  const VDPOutputDirectoryLock outputLock(_outputPath.value_or(""));
  // The processor exists before any audio file is opened.
  VDPProcessSingleTimeError processor =
      makeProcessor<VDPProcessSingleTimeError>(_outputPath.value_or(""), _outputName);
  return loadAndAnalyse(processor);
}

bool VDPAnalyseAudio::loadAndAnalyse(VDPProcessSingleTimeError& processor) {
  VDPAudioChannels channels(__FILE__);
  if (!channels.load(_channelAPath.value_or(""), _channelBPath.value_or(""), _audioStart,
                     _audioEnd)) {
    return false;  // the channels' destructor disposes the files and frees the arrays
  }
  const std::string outputPath = _outputPath.value_or("");
  const std::string csvName = _outputName + "_audio_time_error.csv";
  std::printf("Running Audio Time Error Calculation...\n");
  std::unique_ptr<VDTimeErrorSequence> sequence;
  {
    VDAudioTimeErrorCalculator calculator(channels.channelA(), channels.channelB(),
                                          channels.sampleCount(), _interval, _correlationLength,
                                          _upscaleFactor, channels.sampleRate(), _correlationType);
    calculator.calculateTimeError();
    calculator.exportTimeErrorToPath(outputPath);
    calculator.exportTimeErrorToDirectoryURL(outputPath, csvName);
    sequence = std::make_unique<VDTimeErrorSequence>(calculator.timeErrors());
  }
  VDPFileSystem::saveScript(VDPFileSystem::joinedPath(outputPath, "PlotTimeError.py"),
                            VDPAudioPlotScripts::savedScript(csvName, _outputName));
  VDPPythonInterpreter::runScript(VDPAudioPlotScripts::plotScript(
      outputPath, csvName, _outputName, outputPath, _outputName + "_audio_time_error.png"));
  return processor.processTimeErrors(*sequence);
}
