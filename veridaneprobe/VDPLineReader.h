#pragma once

#include <functional>
#include <string>
#include <string_view>

// The VDPLineReader streams a recorded text file to a line grammar: 2000-byte reads, lines split
// at "\n" and handed over in file order, the unfinished tail carried into the next read. A last
// line without a line end is never handed over, so a file must end with a line end for its last
// sample to count. Text must be UTF-8: when a read leaves the buffered bytes invalid (a 2000-byte
// read ending inside a multi-byte character included), that read hands over nothing and the
// buffered bytes are dropped. A "\r" before the "\n" stays part of the line. An unfinished line
// is held up to kLineCapacity bytes, so a line of many megabytes is still read whole while input
// without line ends (/dev/zero, a binary file) keeps memory bounded: a longer line is a bad line,
// skipped up to its "\n".
class VDPLineReader {
 public:
  using LineHandler = std::function<void(std::string_view line)>;

  static constexpr size_t kBlockSize = 2000;
  static constexpr size_t kLineCapacity = size_t{64} << 20;  // 64 MiB

  // Reads the file at path to its end, or to its first read error; an unreadable file, or a
  // directory, hands over no line.
  static void readLines(const std::string& path, const LineHandler& handleLine);

  // The same over a file that is already open; tests may give a smaller line capacity.
  static void readLines(int fileDescriptor, const LineHandler& handleLine,
                        size_t lineCapacity = kLineCapacity);
};
