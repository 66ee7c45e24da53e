#include "VDCTimeErrorGrammar.h"

#include <cmath>
#include <optional>
#include <string>

#include "VDCNumbers.h"

VDCLineKind VDCTimeErrorGrammar::parse(std::string_view line, VDCSample& sample) {
  std::string text(line);
  int commas = 0;
  for (char& c : text) {
    if (c == ',') {
      c = ' ';
      ++commas;
    } else if (c == '\r') {
      c = ' ';
    }
  }
  size_t cursor = 0;
  const std::optional<int64_t> index = VDCNumbers::integer(VDCNumbers::nextWord(text, cursor));
  const std::optional<double> time = VDCNumbers::decimal(VDCNumbers::nextWord(text, cursor));
  const std::optional<double> error = VDCNumbers::decimal(VDCNumbers::nextWord(text, cursor));
  if (commas != 2 || !index || !time || !error || std::abs(*error) > 9e6 ||
      !VDCNumbers::nextWord(text, cursor).empty()) {
    return VDCLineKind::other;
  }
  sample.stream = "time-error";
  sample.time = *time;
  sample.error = std::llround(*error * 1e12);
  return VDCLineKind::sample;
}
