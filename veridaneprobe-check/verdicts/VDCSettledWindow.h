#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

// A VDCSettledWindow is the part of a series the verdicts are judged on: samples first .. end - 1,
// after the start-up is left out. With a fixed settling time it starts at the first sample that
// many seconds after the first; with the servo rule (linuxptp logs) it starts 60 s after the
// servo first locks, and a later loss of lock ends it there and fails the run.
struct VDCSettledWindow {
  // Servo states as linuxptp prints them: s0 unlocked, s1 stepped, s2 locked, s3 locked and
  // stable.
  static constexpr int kLocked = 2;
  static constexpr double kServoSettleSeconds = 60;

  size_t first = 0;
  size_t end = 0;  // one past the last sample; first == end when nothing settled
  bool lostLock = false;

  size_t samples() const { return end - first; }

  // The window after settleSeconds.
  static VDCSettledWindow afterSeconds(const std::vector<double>& times, double settleSeconds);
  // The window by the servo rule; states holds one state per sample. A log that never locks
  // settles nowhere.
  static VDCSettledWindow afterServoLock(const std::vector<double>& times,
                                         const std::vector<int>& states);
};
