#include "VDCSVBuffer.h"

#include <charconv>
#include <cstdio>

#include "VDAtomicFile.h"

namespace {

// Longest shortest-round-trip double ("-2.2250738585072014e-308") and int64 fit easily.
constexpr size_t kNumberCapacity = 32;

}  // namespace

VDCSVBuffer::VDCSVBuffer() = default;

VDCSVBuffer::VDCSVBuffer(const std::filesystem::path& path)
    : _path(path), _file(std::make_unique<VDAtomicFile>(path)) {
  _text.reserve(kPassedOnBytes + 4096);
}

VDCSVBuffer::~VDCSVBuffer() = default;

void VDCSVBuffer::passOn() {
  _file->append(_text);
  _text.clear();
}

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

namespace {

bool reported(const std::filesystem::path& path, const std::error_code& error) {
  if (error) {
    std::fprintf(stderr, "Failed to write \"%s\" with error %s.\n", path.c_str(),
                 error.message().c_str());
  }
  return !error;
}

}  // namespace

bool VDCSVBuffer::writeToFile(const std::filesystem::path& path) const {
  return reported(path, VDAtomicFile::replace(path, _text));
}

bool VDCSVBuffer::finish() {
  passOn();
  return reported(_path, _file->commit());
}
