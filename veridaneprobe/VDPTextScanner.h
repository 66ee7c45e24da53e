#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

// A VDPTextScanner reads numbers and separators from the front of a text the way a text scanner
// does: white space (blanks and line ends) before each item is skipped, numbers are decimal,
// and whatever follows the last item asked for is never looked at.
//
// Integers saturate at the bounds of their type. Unsigned fields take an optional "+" but no
// "-": a minus sign in an unsigned field fails the scan (the recorded files carry plain digits
// there). Floating point numbers are decimal with an optional exponent; "inf", "nan" and hex
// forms are not numbers here, and magnitudes beyond the double range become infinite.
class VDPTextScanner {
 public:
  explicit VDPTextScanner(std::string_view text) : _text(text) {}

  bool scanInt32(int32_t& value);
  bool scanInt64(int64_t& value);
  bool scanUInt64(uint64_t& value);
  bool scanDouble(double& value);
  // The separator character, after optional white space.
  bool scanCharacter(char separator);

  // An option's integer value: a leading signed decimal integer, trailing text ignored.
  static std::optional<int64_t> parseInteger(std::string_view text);

 private:
  void skipWhiteSpace();
  // An optional "+" or "-" at the cursor; true for "-".
  bool scanSign();
  // Digits at the cursor as a magnitude saturated at limit; false when there is no digit.
  bool scanMagnitude(uint64_t limit, uint64_t& magnitude);

  std::string_view _text;
  size_t _position = 0;
};

// Conversions of scanned seconds to nanoseconds, truncating toward zero.
namespace VDPNanoseconds {
// Non-negative values use the whole unsigned range (values at or above 2^63 included); values
// beyond it saturate. A negative time wraps modulo 2^64 like a two's-complement number, so
// differences between timestamps stay right.
uint64_t timestampFromSeconds(double seconds);
// Saturates at the signed 64-bit bounds.
int64_t errorFromSeconds(double seconds);
}  // namespace VDPNanoseconds
