#include "VDPTimeErrorFileAnalyser.h"

#include <cstdio>

#include "VDPConsole.h"
#include "VDPFileSystem.h"
#include "VDPTextScanner.h"

VDPTimeErrorFileAnalyser::VDPTimeErrorFileAnalyser(const VDPTimeErrorFileCommand& command)
    : VDPCommonOptions(command.defaultOutputName, command.adev, command.madev, command.tdev,
                       command.rmstie, command.mtie),
      _command(command) {}

bool VDPTimeErrorFileAnalyser::failWithUsage() const {
  std::fprintf(stderr, "usage:\n%s %s --data path --output path [--name name]\n",
               VDPConsole::programPath().c_str(), _command.commandWord);
  return false;
}

bool VDPTimeErrorFileAnalyser::initialise(const std::vector<std::string>& arguments) {
  for (size_t cursor = 0; cursor < arguments.size(); ++cursor) {
    if (arguments[cursor] == "--data") {
      const std::optional<std::string> value = takeValue(arguments, cursor);
      _timeErrorPath =
          value ? std::optional(VDPFileSystem::standardisedPath(*value)) : std::nullopt;
      continue;
    }
    const OptionMatch match = applyCommonOption(arguments, cursor);
    if (match == OptionMatch::Failed) {
      return failWithUsage();
    }
    if (match == OptionMatch::NotMine) {
      std::fprintf(stderr, "unknown argument \"%s\"\n", arguments[cursor].c_str());
      return failWithUsage();
    }
  }
  if (!_timeErrorPath) {
    std::fprintf(stderr, "must provide time error file path (--time-error)\n");
    return failWithUsage();
  }
  if (!checkWindowOrder()) {
    return failWithUsage();
  }
  _timeErrorPath = VDPFileSystem::resolvedPath(_timeErrorPath);
  _outputPath = VDPFileSystem::resolvedOutputPath(_outputPath);
  if (!VDPFileSystem::exists(_timeErrorPath)) {
    VDPConsole::printAssertion(VDPConsole::AssertionKind::FailIf,
                               "![fileManager fileExistsAtPath:_timeErrorPath]",
                               _command.sourceFile, _command.assertionLine);
    std::printf("Time error file does not exist at path \"%s\"\n",
                _timeErrorPath.value_or("").c_str());
    return false;
  }
  return prepareOutput();
}

bool VDPTimeErrorFileAnalyser::prepareOutput() const {
  std::FILE* stream = _command.directoryMessagesToStandardError ? stderr : stdout;
  if (!_command.subdirectoriesReplaceOutputDirectory &&
      !VDPFileSystem::prepareDirectory(_outputPath, stream)) {
    return false;
  }
  for (const char* subdirectory : _command.outputSubdirectories) {
    if (!VDPFileSystem::prepareDirectory(VDPFileSystem::joinedPath(outputPath(), subdirectory),
                                         stream)) {
      return false;
    }
  }
  return true;
}

void VDPTimeErrorFileAnalyser::loadTimeErrors(const VDPLineReader::LineHandler& parseLine) {
  _timeErrorPath = VDPFileSystem::resolvedPath(_timeErrorPath);
  _outputPath = VDPFileSystem::resolvedOutputPath(_outputPath);
  _outputLock.emplace(outputPath());
  std::printf("Loading time errors into memory...\n");
  VDPLineReader::readLines(_timeErrorPath.value_or(""), parseLine);
}

bool VDPTimeErrorFileAnalyser::scanTimestampAndError(std::string_view line, uint64_t& timestamp,
                                                     int64_t& error) {
  VDPTextScanner scanner(line);
  uint64_t unused = 0;
  return scanner.scanUInt64(timestamp) && scanner.scanCharacter(',') &&
         scanner.scanUInt64(unused) && scanner.scanCharacter(',') && scanner.scanInt64(error) &&
         scanner.scanCharacter(',') && scanner.scanUInt64(unused) && scanner.scanCharacter(',') &&
         scanner.scanUInt64(unused);
}
