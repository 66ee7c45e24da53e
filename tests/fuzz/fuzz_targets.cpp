// The libFuzzer harnesses: each executable is this file built with VDP_FUZZ_HARNESS naming its
// harness and VDP_FUZZ_TOOL, _AUDIO or _STATISTICS the parts it links (README "Fuzzing"). Each
// aborts on a broken rule. lines: bytes as a recorded file, through the line reader, every line
// grammar and the text scanner. options: command lines for every analyser's initialiser. audio:
// bytes as an audio file (seeds in tests/fuzz/seeds). statistics: the five statistics of a short
// series against TestSupport's direct formulas.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#ifdef VDP_FUZZ_TOOL
#include "VDPAnalyseAudio.h"
#include "VDPAnalyseDualCheck.h"
#include "VDPAnalyseDualLink.h"
#include "VDPAnalyseMarten.h"
#include "VDPAnalyseOsprey.h"
#include "VDPAnalyseTimeError.h"
#include "VDPConsole.h"
#include "VDPLineReader.h"
#include "VDPTextScanner.h"
#endif
#ifdef VDP_FUZZ_AUDIO
#include "AudioFileReader.h"
#endif
#ifdef VDP_FUZZ_STATISTICS
#include <fuzzer/FuzzedDataProvider.h>

#include "TestSupport.h"
#endif

namespace {

namespace fs = std::filesystem;

void check(bool condition) {
  if (!condition) {
    std::abort();
  }
}

// The input as a regular file (the audio layer refuses anything else), removed at exit.
struct InputFile {
  const std::string path = "/tmp/veridaneprobe-fuzz-" + std::to_string(getpid());
  ~InputFile() { unlink(path.c_str()); }
  int write(const uint8_t* data, size_t size) const {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    return open(path.c_str(), O_RDONLY);
  }
};

#ifdef VDP_FUZZ_TOOL
// An option's integer the slow way: blanks, an optional sign, digits, saturated at the int64
// bounds; anything after the digits ignored.
std::optional<int64_t> referenceInteger(std::string_view text) {
  size_t i = text.find_first_not_of(" \t\n\r\v\f");
  i = i == std::string_view::npos ? text.size() : i;
  const bool negative = i < text.size() && text[i] == '-';
  i += i < text.size() && (text[i] == '-' || text[i] == '+') ? 1 : 0;
  if (i == text.size() || text[i] < '0' || text[i] > '9') {
    return std::nullopt;
  }
  __int128 value = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    value = std::min<__int128>(value * 10 + (text[i] - '0'), __int128{1} << 64);
  }
  return static_cast<int64_t>(
      std::clamp<__int128>(negative ? -value : value, INT64_MIN, INT64_MAX));
}

[[maybe_unused]] int fuzzLines(const uint8_t* data, size_t size) {
  static const InputFile input;
  const int file = input.write(data, size);
  std::vector<VDTimeErrorValue> timeErrorValues, dualCheckValues, martenValues;
  VDPAnalyseDualCheck::ErrorRange range;
  VDPAnalyseOsprey::SlaveValues slaves;
  VDPAnalyseDualLink::Selection selection;
  size_t lineBytes = 0;
  VDPLineReader::readLines(file, [&](std::string_view line) {
    // A handed-over line never holds its own line end, and all lines fit in what was read.
    check(line.find('\n') == std::string_view::npos);
    lineBytes += line.size() + 1;
    check(lineBytes <= size);
    VDPAnalyseTimeError::parseLine(line, timeErrorValues);
    VDPAnalyseDualCheck::parseLine(line, dualCheckValues, range);
    VDPAnalyseMarten::parseLine(line, martenValues);
    VDPAnalyseOsprey::parseLine(line, slaves);
    VDPAnalyseDualLink::parseLine(line, selection);
    // The scanner's items in an order picked by the line's length: every kind meets every text.
    VDPTextScanner scanner(line);
    bool scanned = true;
    for (size_t item = line.size(); item < line.size() + 12 && scanned; ++item) {
      int32_t int32 = 0;
      int64_t int64 = 0;
      uint64_t uint64 = 0;
      double real = 0;
      const size_t kind = item % 5;
      scanned = kind == 0   ? scanner.scanInt32(int32)
                : kind == 1 ? scanner.scanInt64(int64)
                : kind == 2 ? scanner.scanUInt64(uint64)
                : kind == 3 ? scanner.scanDouble(real)
                            : scanner.scanCharacter(',');
      VDPNanoseconds::timestampFromSeconds(real);
      VDPNanoseconds::errorFromSeconds(real);
    }
    check(VDPTextScanner::parseInteger(line) == referenceInteger(line));
  });
  close(file);
  // The osprey grammar keeps its three slaves in step.
  check(slaves[0].size() == slaves[1].size() && slaves[1].size() == slaves[2].size());
  check(selection.converged.size() <= selection.full.size());
  return 0;
}

template <typename Analyser>
std::unique_ptr<VDPAnalyser> make(const std::vector<std::string>& arguments) {
  return Analyser::initWithArguments(arguments);
}

// First byte: which initialiser; then arguments separated by NUL bytes. scratch/work is PWD (with
// files "d" and "a"), scratch/home is HOME; "/" becomes "_", so no path leaves scratch.
[[maybe_unused]] int fuzzOptions(const uint8_t* data, size_t size) {
  static const VDPAnalyserInitialiser kInitialisers[] = {
      make<VDPAnalyseAudio>,  make<VDPAnalyseTimeError>, make<VDPAnalyseDualCheck>,
      make<VDPAnalyseMarten>, make<VDPAnalyseOsprey>,    make<VDPAnalyseDualLink>};
  static const struct Scratch {
    const fs::path root = "/tmp/veridaneprobe-option-fuzz-" + std::to_string(getpid());
    Scratch() {
      fs::create_directories(root);
      setenv("PWD", (root / "work").c_str(), 1);
      setenv("HOME", (root / "home").c_str(), 1);
      VDPConsole::setProgramPath("veridaneprobe");
    }
    ~Scratch() { fs::remove_all(root); }
  } scratch;
  if (size == 0) {
    return 0;
  }
  // Laid out afresh for every input: an initialiser may have added directories.
  fs::remove_all(scratch.root);
  fs::create_directories(scratch.root / "work");
  fs::create_directory(scratch.root / "home");
  std::fclose(std::fopen((scratch.root / "work" / "d").c_str(), "w"));
  std::fclose(std::fopen((scratch.root / "work" / "a").c_str(), "w"));
  std::vector<std::string> arguments(1);
  for (size_t i = 1; i < size; ++i) {
    if (data[i] == '\0') {
      arguments.emplace_back();
    } else {
      arguments.back() += data[i] == '/' ? '_' : static_cast<char>(data[i]);
    }
  }
  kInitialisers[data[0] % std::size(kInitialisers)](arguments);
  std::fflush(stdout);
  return 0;
}
#endif

#ifdef VDP_FUZZ_AUDIO
int32_t readAudio(AudioFileReaderRef reader, std::vector<float>& buffer, uint32_t frames,
                  uint32_t* delivered) {
  AudioBufferList list{1, {{1, frames * 4, buffer.data()}}};
  *delivered = frames;
  const int32_t status = AudioFileReaderRead(reader, delivered, &list);
  check(status != 0 || (*delivered <= frames && list.mBuffers[0].mDataByteSize == *delivered * 4));
  return status;
}

[[maybe_unused]] int fuzzAudio(const uint8_t* data, size_t size) {
  static const InputFile file;
  close(file.write(data, size));
  AudioFileReaderRef reader = nullptr;
  if (AudioFileReaderOpen(file.path, &reader) != kAudioFileReaderNoError) {
    check(reader == nullptr);
    return 0;
  }
  StreamFormat format{};
  uint32_t formatSize = sizeof format;
  check(AudioFileReaderGetProperty(reader, AudioFileReaderProperty::FileDataFormat, &formatSize,
                                   &format) == kAudioFileReaderNoError);
  int64_t length = -1;
  uint32_t lengthSize = sizeof length;
  check(AudioFileReaderGetProperty(reader, AudioFileReaderProperty::FileLengthFrames, &lengthSize,
                                   &length) == kAudioFileReaderNoError);
  check(length >= 0 && format.mChannelsPerFrame >= 1);
  const StreamFormat client{format.mSampleRate, kAudioFormatLinearPCM, 0x31, 4, 1, 4, 1, 32, 0};
  check(AudioFileReaderSetProperty(reader, AudioFileReaderProperty::ClientDataFormat, sizeof client,
                                   &client) == kAudioFileReaderNoError);
  // Every frame up to the length (at most 2^16) arrives, unless the decoder fails inside the data.
  std::vector<float> buffer(4096);
  uint32_t delivered = 0;
  int64_t total = 0;
  bool failed = false;
  const int64_t leading = std::min<int64_t>(length, 1 << 16);
  while (total < leading && !failed) {
    failed = readAudio(reader, buffer, 4096, &delivered) != kAudioFileReaderNoError;
    check(failed || delivered > 0);
    total += failed ? 0 : delivered;
  }
  check((failed || total >= leading) && total <= length);
  // The last frames are there, and nothing after them.
  const int64_t tail = std::min<int64_t>(length, 16);
  check(AudioFileReaderSeek(reader, length - tail) == kAudioFileReaderNoError);
  check(readAudio(reader, buffer, 32, &delivered) == kAudioFileReaderNoError && delivered == tail);
  check(readAudio(reader, buffer, 32, &delivered) == kAudioFileReaderNoError && delivered == 0);
  check(AudioFileReaderSeek(reader, length) == kAudioFileReaderNoError);
  check(AudioFileReaderSeek(reader, length + 1) == kAudioFileReaderErrorSeek);
  check(AudioFileReaderDispose(reader) == kAudioFileReaderNoError);
  return 0;
}
#endif

#ifdef VDP_FUZZ_STATISTICS
[[maybe_unused]] int fuzzStatistics(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const auto start = input.ConsumeIntegral<int64_t>();
  const auto end = input.ConsumeIntegral<int64_t>();
  const auto step = input.ConsumeIntegral<int64_t>();
  // Small errors most of the time, so that the values are checked as well as the windows.
  const bool small = input.ConsumeBool();
  std::vector<VDTimeErrorValue> values;
  std::vector<int64_t> errors;
  long double largestError = 0;
  const size_t count = input.ConsumeIntegralInRange<size_t>(0, 48);
  for (size_t i = 0; i < count && input.remaining_bytes() > 0; ++i) {
    const auto timestamp = input.ConsumeIntegral<uint64_t>();
    const auto error =
        small ? input.ConsumeIntegralInRange<int64_t>(-(int64_t{1} << 40), int64_t{1} << 40)
              : input.ConsumeIntegral<int64_t>();
    values.emplace_back(timestamp, error);
    errors.push_back(error);
    largestError = std::max(largestError, std::fabs(static_cast<long double>(error)));
  }
  const auto n = static_cast<int64_t>(values.size());
  double tau0 = 1.0;
  if (n >= 2) {
    const auto span = static_cast<int64_t>(values.back().timestamp() - values.front().timestamp());
    tau0 = span > 0 ? static_cast<double>(span) * 1e-9 / static_cast<double>(n - 1) : 1.0;
  }
  for (TestSupport::Statistic statistic : TestSupport::kStatistics) {
    const auto analysis = TestSupport::analysisOf(statistic, values);
    analysis->performAnalysisFromStartWindowSize(start, end, step);
    const std::vector<VDStatisticPoint>& points = analysis->points();
    // Every window 1..largest that the range start, start+step, ... up to end names, in order.
    std::vector<int64_t> windows;
    for (int64_t m = 1; m <= TestSupport::largestWindow(statistic, n) && step >= 1; ++m) {
      const __int128 offset = static_cast<__int128>(m) - start;
      if (m <= end && offset >= 0 && offset % step == 0) {
        windows.push_back(m);
      }
    }
    check(points.size() == windows.size());
    for (size_t k = 0; k < points.size(); ++k) {
      const VDStatisticPoint& point = points[k];
      const TestSupport::Reference expected = TestSupport::reference(statistic, errors, windows[k]);
      check(point.windowSize == windows[k] && point.tau == static_cast<double>(windows[k]) * tau0);
      check(point.termCount == expected.terms);
      check(point.value >= 0 && std::isfinite(point.value));
      long double want = expected.value, scale = 4 * largestError;
      if (statistic == TestSupport::Statistic::ADEV || statistic == TestSupport::Statistic::MDEV) {
        want = want * 1e-9L / point.tau;
        scale = scale * 1e-9L / point.tau;
      }
      check(!small || std::fabs(point.value - want) <= 1e-9L * (want + scale));
    }
  }
  return 0;
}
#endif

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return VDP_FUZZ_HARNESS(data, size);
}
