#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "VDCLineKind.h"
#include "VDCSample.h"

// VDCTICCGrammar reads a TAPR TICC time interval counter's output: '#' header lines, then in
// timestamp mode "SECONDS.FRACTION chA" and "... chB" lines (11 or 12 decimals), or in interval
// mode "SECONDS.FRACTION TI(A->B)". A sample is chA - chB of the edges that arrive within half a
// second of each other (the same second, even when the two straddle its boundary), kept to the
// picosecond exactly, at chA's time; an interval is a sample as it stands, its time counted in
// intervals of interval mode's tau0.
class VDCTICCGrammar {
 public:
  explicit VDCTICCGrammar(double intervalSeconds) : _intervalSeconds(intervalSeconds) {}

  VDCLineKind parse(std::string_view line, VDCSample& sample);

 private:
  double _intervalSeconds;
  uint64_t _intervals = 0;
  // The latest edge of each channel that has no partner yet, ps.
  std::optional<int64_t> _pendingA;
  std::optional<int64_t> _pendingB;
};
