#include "VDPLineReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace {

// Strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF, no cut-off sequence.
bool isValidUTF8(std::string_view bytes) {
  size_t i = 0;
  const size_t size = bytes.size();
  while (i < size) {
    const auto lead = static_cast<uint8_t>(bytes[i]);
    if (lead < 0x80) {
      ++i;
      continue;
    }
    size_t length = 0;
    uint8_t lowest = 0x80;
    uint8_t highest = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3;
      lowest = lead == 0xE0 ? 0xA0 : 0x80;
      highest = lead == 0xED ? 0x9F : 0xBF;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4;
      lowest = lead == 0xF0 ? 0x90 : 0x80;
      highest = lead == 0xF4 ? 0x8F : 0xBF;
    } else {
      return false;
    }
    if (i + length > size) {
      return false;
    }
    const auto second = static_cast<uint8_t>(bytes[i + 1]);
    if (second < lowest || second > highest) {
      return false;
    }
    for (size_t k = 2; k < length; ++k) {
      if ((static_cast<uint8_t>(bytes[i + k]) & 0xC0) != 0x80) {
        return false;
      }
    }
    i += length;
  }
  return true;
}

}  // namespace

void VDPLineReader::readLines(const std::string& path, const LineHandler& handleLine) {
  const int fileDescriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fileDescriptor < 0) {
    return;
  }
  readLines(fileDescriptor, handleLine);
  close(fileDescriptor);
}

void VDPLineReader::readLines(int fileDescriptor, const LineHandler& handleLine,
                              size_t lineCapacity) {
  // The buffer holds only the unfinished tail line, which is always valid UTF-8 on its own (it
  // ends where a valid text ended), so validating each new block alone is the same as decoding
  // the whole buffer, and a long line costs linear time, not quadratic.
  std::string buffer;
  bool skippingOverlongLine = false;
  // Takes the next piece of the current line; complete when a "\n" ended it.
  const auto takePiece = [&](std::string_view piece, bool complete) {
    if (skippingOverlongLine) {
      skippingOverlongLine = !complete;
      return;
    }
    if (piece.size() > lineCapacity - buffer.size()) {
      std::string().swap(buffer);  // gives the memory back
      skippingOverlongLine = !complete;
      return;
    }
    if (!complete) {
      buffer.append(piece);
    } else if (buffer.empty()) {
      handleLine(piece);
    } else {
      buffer.append(piece);
      handleLine(buffer);
      buffer.clear();
    }
  };
  char block[kBlockSize];
  while (true) {
    ssize_t count = read(fileDescriptor, block, kBlockSize);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      break;  // end of file, or a read error whose bytes are not used
    }
    const std::string_view incoming(block, static_cast<size_t>(count));
    if (!isValidUTF8(incoming)) {
      // The unfinished line goes with the block, an overlong one too: the next read starts afresh.
      buffer.clear();
      skippingOverlongLine = false;
      continue;
    }
    size_t lineStart = 0;
    for (size_t newline = incoming.find('\n'); newline != std::string_view::npos;
         newline = incoming.find('\n', lineStart)) {
      takePiece(incoming.substr(lineStart, newline - lineStart), true);
      lineStart = newline + 1;
    }
    takePiece(incoming.substr(lineStart), false);
  }
}
