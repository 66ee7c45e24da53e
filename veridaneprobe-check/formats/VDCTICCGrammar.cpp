#include "VDCTICCGrammar.h"

#include "VDCNumbers.h"

namespace {

constexpr int64_t kHalfSecond = 500'000'000'000;  // ps

}  // namespace

VDCLineKind VDCTICCGrammar::parse(std::string_view line, VDCSample& sample) {
  size_t cursor = 0;
  const std::string_view value = VDCNumbers::nextWord(line, cursor);
  std::string_view label = VDCNumbers::nextWord(line, cursor);
  if (!label.empty() && label.back() == '\r') {
    label.remove_suffix(1);
  }
  const std::optional<int64_t> picoseconds = VDCNumbers::picosecondsOfSeconds(value);
  if (!picoseconds || !VDCNumbers::nextWord(line, cursor).empty()) {
    return VDCLineKind::other;
  }
  sample.stream = "ticc";
  if (label == "TI(A->B)") {
    sample.time = static_cast<double>(_intervals++) * _intervalSeconds;
    sample.error = *picoseconds;
    return VDCLineKind::sample;
  }
  const bool channelA = label == "chA";
  if (!channelA && label != "chB") {
    return VDCLineKind::other;
  }
  std::optional<int64_t>& partner = channelA ? _pendingB : _pendingA;
  if (partner && *picoseconds - *partner < kHalfSecond && *partner - *picoseconds < kHalfSecond) {
    const int64_t a = channelA ? *picoseconds : *partner;
    const int64_t b = channelA ? *partner : *picoseconds;
    partner.reset();
    sample.time = static_cast<double>(a) * 1e-12;
    sample.error = a - b;
    return VDCLineKind::sample;
  }
  (channelA ? _pendingA : _pendingB) = *picoseconds;
  return VDCLineKind::other;
}
