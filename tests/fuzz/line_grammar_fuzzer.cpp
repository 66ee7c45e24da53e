// Arbitrary bytes as a recorded time error file: the streaming line reader hands its lines to
// every command's line grammar, and the text scanner reads the same lines item by item.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <vector>

#include "VDPAnalyseDualCheck.h"
#include "VDPAnalyseDualLink.h"
#include "VDPAnalyseMarten.h"
#include "VDPAnalyseOsprey.h"
#include "VDPAnalyseTimeError.h"
#include "VDPLineReader.h"
#include "VDPTextScanner.h"

namespace {

// An option's integer the slow way: blanks, an optional sign, digits, saturated at the int64
// bounds; anything after the digits ignored.
std::optional<int64_t> referenceInteger(std::string_view text) {
  size_t i = 0;
  while (i < text.size() &&
         std::string_view(" \t\n\r\v\f").find(text[i]) != std::string_view::npos) {
    ++i;
  }
  const bool negative = i < text.size() && text[i] == '-';
  i += i < text.size() && (text[i] == '-' || text[i] == '+') ? 1 : 0;
  if (i == text.size() || text[i] < '0' || text[i] > '9') {
    return std::nullopt;
  }
  __int128 value = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    value = std::min<__int128>(value * 10 + (text[i] - '0'), __int128{1} << 64);
  }
  value = negative ? -value : value;
  return static_cast<int64_t>(std::clamp<__int128>(value, INT64_MIN, INT64_MAX));
}

// The scanner's items in an order picked by the line's own length, so that every kind of item
// meets every kind of text.
void scanItems(std::string_view line) {
  VDPTextScanner scanner(line);
  for (size_t item = line.size(); item < line.size() + 12; ++item) {
    int32_t int32 = 0;
    int64_t int64 = 0;
    uint64_t uint64 = 0;
    double real = 0;
    bool scanned = false;
    switch (item % 5) {
      case 0:
        scanned = scanner.scanInt32(int32);
        break;
      case 1:
        scanned = scanner.scanInt64(int64);
        break;
      case 2:
        scanned = scanner.scanUInt64(uint64);
        break;
      case 3:
        scanned = scanner.scanDouble(real);
        if (scanned) {
          VDPNanoseconds::timestampFromSeconds(real);
          VDPNanoseconds::errorFromSeconds(real);
        }
        break;
      case 4:
        scanned = scanner.scanCharacter(',');
        break;
    }
    if (!scanned) {
      break;
    }
  }
  if (VDPTextScanner::parseInteger(line) != referenceInteger(line)) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The reader takes a file descriptor: an anonymous in-memory file holds the input.
  const int file = memfd_create("lines", MFD_CLOEXEC);
  if (file < 0) {
    std::abort();
  }
  size_t written = 0;
  while (written < size) {
    const ssize_t count = write(file, data + written, size - written);
    if (count <= 0) {
      std::abort();
    }
    written += static_cast<size_t>(count);
  }
  lseek(file, 0, SEEK_SET);

  std::vector<VDTimeErrorValue> timeErrorValues, dualCheckValues, martenValues;
  VDPAnalyseDualCheck::ErrorRange range;
  VDPAnalyseOsprey::SlaveValues slaves;
  VDPAnalyseDualLink::Selection selection;
  size_t lineBytes = 0;
  VDPLineReader::readLines(file, [&](std::string_view line) {
    // A handed-over line never holds its own line end, and all lines fit in what was read.
    if (line.find('\n') != std::string_view::npos) {
      std::abort();
    }
    lineBytes += line.size() + 1;
    if (lineBytes > size) {
      std::abort();
    }
    VDPAnalyseTimeError::parseLine(line, timeErrorValues);
    VDPAnalyseDualCheck::parseLine(line, dualCheckValues, range);
    VDPAnalyseMarten::parseLine(line, martenValues);
    VDPAnalyseOsprey::parseLine(line, slaves);
    VDPAnalyseDualLink::parseLine(line, selection);
    scanItems(line);
  });
  close(file);
  // The osprey grammar keeps its three slaves in step.
  if (slaves[0].size() != slaves[1].size() || slaves[1].size() != slaves[2].size()) {
    std::abort();
  }
  if (selection.converged.size() > selection.full.size()) {
    std::abort();
  }
  return 0;
}
