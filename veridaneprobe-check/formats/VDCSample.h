#pragma once

#include <cstdint>
#include <string>

// A VDCSample is one time error reading of a recording: when (seconds, in the recording's own
// time scale), how far off (in counts of the recording's resolution, VDCFormat::countsPerNs),
// the stream it belongs to and, for linuxptp logs, the servo state it was taken in.
struct VDCSample {
  std::string stream;
  double time = 0;      // s
  int64_t error = 0;    // counts
  int servoState = -1;  // 0 unlocked, 1 stepped, 2 locked, 3 locked and stable; -1 none
};
