#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "VDCMaskCheck.h"
#include "VDCSettledWindow.h"

// A VDCCheckReport tells the verdicts of one run: a line per check and the overall verdict on
// the console, check.json for programs and check.junit.xml for CI servers. The run passes when
// every check passes, fails when any fails or the servo lost its lock, and is not evaluated
// otherwise (a check the data could not judge is never read as a pass).
class VDCCheckReport {
 public:
  // A run's verdict has the three outcomes of a check's.
  using Verdict = VDMaskVerdict::Outcome;

  // What was read, for check.json's "input".
  struct Input {
    std::string path;
    std::string format;
    uint64_t samples = 0;
    double tau0Seconds = 0;
    uint64_t gaps = 0;
    // The settled window: its first and last sample's time, s, and its sample count.
    double settledStartSeconds = 0;
    double settledEndSeconds = 0;
    uint64_t settledSamples = 0;
  };

  VDCCheckReport(Input input, std::vector<VDCMaskCheck> checks, bool lostLock);

  Verdict verdict() const { return _verdict; }
  // The exit status of the run: 0 pass, 1 fail, 3 not evaluated.
  int exitStatus() const { return exitStatusOf(_verdict); }
  static int exitStatusOf(Verdict verdict);

  // The check lines and the verdict line.
  std::string consoleText() const;
  std::string json() const;
  std::string junitXML() const;
  // check.json and check.junit.xml into directory; false (with a message on standard error)
  // when one could not be written.
  bool writeFiles(const std::filesystem::path& directory) const;

 private:
  Input _input;
  std::vector<VDCMaskCheck> _checks;
  bool _lostLock;
  Verdict _verdict;
};
