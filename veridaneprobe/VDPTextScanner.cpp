#include "VDPTextScanner.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>

namespace {

bool isWhiteSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

constexpr uint64_t kInt64Magnitude = uint64_t{1} << 63;  // |INT64_MIN|

}  // namespace

void VDPTextScanner::skipWhiteSpace() {
  while (_position < _text.size() && isWhiteSpace(_text[_position])) {
    ++_position;
  }
}

bool VDPTextScanner::scanSign() {
  if (_position < _text.size() && (_text[_position] == '+' || _text[_position] == '-')) {
    return _text[_position++] == '-';
  }
  return false;
}

bool VDPTextScanner::scanMagnitude(uint64_t limit, uint64_t& magnitude) {
  if (_position >= _text.size() || !isDigit(_text[_position])) {
    return false;
  }
  magnitude = 0;
  for (; _position < _text.size() && isDigit(_text[_position]); ++_position) {
    const uint64_t digit = static_cast<uint64_t>(_text[_position] - '0');
    magnitude = magnitude > (limit - digit) / 10 ? limit : magnitude * 10 + digit;
  }
  return true;
}

bool VDPTextScanner::scanInt64(int64_t& value) {
  skipWhiteSpace();
  const size_t start = _position;
  const bool negative = scanSign();
  uint64_t magnitude = 0;
  if (!scanMagnitude(negative ? kInt64Magnitude : kInt64Magnitude - 1, magnitude)) {
    _position = start;
    return false;
  }
  value = negative ? static_cast<int64_t>(0 - magnitude) : static_cast<int64_t>(magnitude);
  return true;
}

bool VDPTextScanner::scanInt32(int32_t& value) {
  int64_t wide = 0;
  if (!scanInt64(wide)) {
    return false;
  }
  if (wide > std::numeric_limits<int32_t>::max()) {
    value = std::numeric_limits<int32_t>::max();
  } else if (wide < std::numeric_limits<int32_t>::min()) {
    value = std::numeric_limits<int32_t>::min();
  } else {
    value = static_cast<int32_t>(wide);
  }
  return true;
}

bool VDPTextScanner::scanUInt64(uint64_t& value) {
  skipWhiteSpace();
  const size_t start = _position;
  if (_position < _text.size() && _text[_position] == '+') {
    ++_position;
  }
  if (!scanMagnitude(std::numeric_limits<uint64_t>::max(), value)) {
    _position = start;
    return false;
  }
  return true;
}

bool VDPTextScanner::scanDouble(double& value) {
  skipWhiteSpace();
  const size_t start = _position;
  const bool negative = scanSign();
  if (_position >= _text.size() || !(isDigit(_text[_position]) || _text[_position] == '.')) {
    _position = start;
    return false;
  }
  const char* first = _text.data() + _position;
  const char* last = _text.data() + _text.size();
  double magnitude = 0;
  auto [end, error] = std::from_chars(first, last, magnitude, std::chars_format::general);
  if (error == std::errc::invalid_argument) {
    _position = start;
    return false;
  }
  if (error == std::errc::result_out_of_range) {
    // from_chars leaves the value alone here; strtod gives the infinity or the underflow.
    magnitude = std::strtod(std::string(first, end).c_str(), nullptr);
  }
  _position += static_cast<size_t>(end - first);
  value = negative ? -magnitude : magnitude;
  return true;
}

bool VDPTextScanner::scanCharacter(char separator) {
  skipWhiteSpace();
  if (_position < _text.size() && _text[_position] == separator) {
    ++_position;
    return true;
  }
  return false;
}

std::optional<int64_t> VDPTextScanner::parseInteger(std::string_view text) {
  VDPTextScanner scanner(text);
  int64_t value = 0;
  if (!scanner.scanInt64(value)) {
    return std::nullopt;
  }
  return value;
}

namespace VDPNanoseconds {

namespace {
constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr double kTwoTo64 = 18446744073709551616.0;
}  // namespace

uint64_t timestampFromSeconds(double seconds) {
  const double nanoseconds = seconds * 1e9;
  if (std::isnan(nanoseconds)) {
    return 0;
  }
  if (nanoseconds >= kTwoTo64) {
    return std::numeric_limits<uint64_t>::max();
  }
  if (nanoseconds >= kTwoTo63) {
    return static_cast<uint64_t>(nanoseconds - kTwoTo63) | (uint64_t{1} << 63);
  }
  if (nanoseconds >= 0) {
    return static_cast<uint64_t>(nanoseconds);
  }
  return static_cast<uint64_t>(errorFromSeconds(seconds));
}

int64_t errorFromSeconds(double seconds) {
  const double nanoseconds = seconds * 1e9;
  if (std::isnan(nanoseconds)) {
    return 0;
  }
  if (nanoseconds >= kTwoTo63) {
    return std::numeric_limits<int64_t>::max();
  }
  if (nanoseconds <= -kTwoTo63) {
    return std::numeric_limits<int64_t>::min();
  }
  return static_cast<int64_t>(nanoseconds);
}

}  // namespace VDPNanoseconds
