#pragma once

#include <string_view>

#include "VDCLineKind.h"
#include "VDCSample.h"

// VDCTimeErrorGrammar reads the time error CSV of `veridaneprobe time-error`: "index, time,
// time error", both in seconds; the time error is kept to the picosecond.
struct VDCTimeErrorGrammar {
  static VDCLineKind parse(std::string_view line, VDCSample& sample);
};
