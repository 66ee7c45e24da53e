#pragma once

#include <string_view>

#include "VDCLineKind.h"
#include "VDCSample.h"

// VDCLinuxPTPGrammar reads the offset lines of linuxptp's servo programs, behind any of the
// prefixes the programs and the system logger put before them:
//   ptp4l[MONO.mmm]: TEXT                              (standard output, -m)
//   Mon DD HH:MM:SS host ptp4l[PID]: [MONO.mmm] TEXT   (the journal)
//   host ptp4l: [MONO.mmm] TEXT                        (a syslog file)
// each optionally with a message tag ("[ptp4l.0.config:6] ") before TEXT. The time of a sample
// is MONO, the monotonic clock's seconds. TEXT is one of
//   master offset N sS freq F path delay D              ptp4l; stream: the tag, else "ptp4l"
//   CLOCK phc|sys|pps offset N sS freq F[ delay D]      phc2sys; stream: CLOCK
//   NAME offset N sS freq F[ holdover]                  ts2phc; stream: NAME
//   NAME master offset ..., NAME source offset ...     ts2phc, older forms
// with N the offset in ns and S the servo state. "rms R max M freq ..." lines, which the
// programs print instead of samples when their summary interval is longer than the sync
// interval, are summaries.
struct VDCLinuxPTPGrammar {
  // The programs whose logs this grammar reads.
  enum class Program { ptp4l, phc2sys, ts2phc };

  // kind says what the line is; a sample's fields go into sample. program, where given,
  // receives the program that printed the line.
  static VDCLineKind parse(std::string_view line, VDCSample& sample, Program* program = nullptr);
};
