#include "VDCSVBuffer.h"

#include <charconv>
#include <cstdio>

namespace {

// Longest shortest-round-trip double ("-2.2250738585072014e-308") and int64 fit easily.
constexpr size_t kNumberCapacity = 32;

}  // namespace

void VDCSVBuffer::appendInteger(int64_t value) {
  char digits[kNumberCapacity];
  const std::to_chars_result result = std::to_chars(digits, digits + kNumberCapacity, value);
  _text.append(digits, result.ptr);
}

void VDCSVBuffer::appendUnsigned(uint64_t value) {
  char digits[kNumberCapacity];
  const std::to_chars_result result = std::to_chars(digits, digits + kNumberCapacity, value);
  _text.append(digits, result.ptr);
}

void VDCSVBuffer::appendDouble(double value) {
  char digits[kNumberCapacity];
  const std::to_chars_result result = std::to_chars(digits, digits + kNumberCapacity, value);
  _text.append(digits, result.ptr);
}

bool VDCSVBuffer::writeToFile(const std::filesystem::path& path) const {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) {
    return false;
  }
  const bool written = std::fwrite(_text.data(), 1, _text.size(), file) == _text.size();
  // fclose flushes, so its failure is a failed write too.
  const bool closed = std::fclose(file) == 0;
  return written && closed;
}
