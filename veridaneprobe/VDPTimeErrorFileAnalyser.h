#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VDPCommonOptions.h"
#include "VDPLineReader.h"
#include "VDPOutputDirectoryLock.h"

// What sets one time error file command apart from the others; everything else about reading
// its options and preparing its output is shared.
struct VDPTimeErrorFileCommand {
  const char* commandWord;  // in the usage text
  const char* defaultOutputName;
  bool adev, madev, tdev, rmstie, mtie;  // default statistic switches
  const char* sourceFile;                // named by the assertion line
  int assertionLine;
  bool directoryMessagesToStandardError;
  // Subdirectories prepared after the output directory (Osprey's slaves), or, when
  // subdirectoriesReplaceOutputDirectory, in place of preparing it (the dual-link analyser's).
  std::vector<const char*> outputSubdirectories;
  bool subdirectoriesReplaceOutputDirectory;
};

// A VDPTimeErrorFileAnalyser is an analyser of a recorded time error file: the shared option
// grammar (--data and the common options), its checks and messages, the output preparation,
// and the loading of the file through a line grammar. The commands derive from it and supply
// their line grammar and the processing of what was read.
class VDPTimeErrorFileAnalyser : public VDPCommonOptions {
 protected:
  explicit VDPTimeErrorFileAnalyser(const VDPTimeErrorFileCommand& command);

  // initWithArguments: the analyser, or nullptr after printing why.
  template <typename Analyser>
  static std::unique_ptr<Analyser> make(const std::vector<std::string>& arguments) {
    std::unique_ptr<Analyser> analyser(new Analyser());
    if (!analyser->initialise(arguments)) {
      return nullptr;
    }
    return analyser;
  }

  // The first steps of every execute: resolve both paths against PWD again, lock the output
  // directory for the rest of the run, announce the loading, and stream the data file's lines to
  // the line grammar.
  void loadTimeErrors(const VDPLineReader::LineHandler& parseLine);

  std::string outputPath() const { return _outputPath.value_or(""); }

  // The layout the marten and dual-link files share: timestamp (ns), unused, time error (ns),
  // unused, unused; false when the line does not match.
  static bool scanTimestampAndError(std::string_view line, uint64_t& timestamp, int64_t& error);

  std::optional<std::string> _timeErrorPath;

 private:
  bool initialise(const std::vector<std::string>& arguments);
  bool failWithUsage() const;
  bool prepareOutput() const;

  const VDPTimeErrorFileCommand& _command;
  std::optional<VDPOutputDirectoryLock> _outputLock;  // held until the analyser is released
};
