#include "VDCPhaseGrammar.h"

#include <cmath>
#include <optional>
#include <string>

#include "VDCNumbers.h"

VDCLineKind VDCPhaseGrammar::parse(std::string_view line, VDCSample& sample) {
  std::string text(line);
  for (char& c : text) {
    if (c == ',' || c == '\r') {
      c = ' ';
    }
  }
  size_t cursor = 0;
  const std::string_view first = VDCNumbers::nextWord(text, cursor);
  const std::string_view second = VDCNumbers::nextWord(text, cursor);
  if (first.empty() || first[0] == '#' || !VDCNumbers::nextWord(text, cursor).empty()) {
    return VDCLineKind::other;
  }
  const std::optional<double> time =
      second.empty() ? std::optional<double>(static_cast<double>(_count) * _tau0Seconds)
                     : VDCNumbers::decimal(first);
  const std::optional<double> value = VDCNumbers::decimal(second.empty() ? first : second);
  if (!time || !value || std::abs(*value * _picosecondsPerUnit) > 9e18) {
    return VDCLineKind::other;
  }
  ++_count;
  sample.stream = "phase";
  sample.time = *time;
  sample.error = std::llround(*value * _picosecondsPerUnit);
  return VDCLineKind::sample;
}
