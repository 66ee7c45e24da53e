#pragma once

#include <cstdint>
#include <string_view>

#include "VDCLineKind.h"
#include "VDCSample.h"

// VDCPhaseGrammar reads phase data as clock people exchange it: one value per line, in seconds
// (or ns, or ps), '#' header lines and blank lines allowed, optionally after a time column
// ("TIME VALUE", blank- or comma-separated). Without a time column sample n is at n tau0. Values
// are kept to the picosecond.
class VDCPhaseGrammar {
 public:
  VDCPhaseGrammar(double tau0Seconds, double picosecondsPerUnit)
      : _tau0Seconds(tau0Seconds), _picosecondsPerUnit(picosecondsPerUnit) {}

  VDCLineKind parse(std::string_view line, VDCSample& sample);

 private:
  double _tau0Seconds;
  double _picosecondsPerUnit;
  uint64_t _count = 0;
};
