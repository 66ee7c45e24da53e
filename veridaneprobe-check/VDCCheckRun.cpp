#include "VDCCheckRun.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>

#include "VDCContinuity.h"
#include "VDCMaskListing.h"
#include "VDCProcessSkippingGaps.h"
#include "VDCSVBuffer.h"
#include "VDCVerdictRun.h"
#include "VDPFileSystem.h"
#include "VDPProcessSingleTimeError.h"
#include "VDPPythonInterpreter.h"
#include "VDTimeErrorSequence.h"

namespace {

constexpr int kUsableInputFailed = 2;

int failed(const std::string& message) {
  std::fprintf(stderr, "veridaneprobe-check: %s\n", message.c_str());
  return kUsableInputFailed;
}

// A stream's name as a directory name: path separators and blanks become '_', and a leading
// '.' goes.
std::string directoryName(const std::string& stream) {
  std::string name;
  for (const char c : stream) {
    name += c == '/' || c == ' ' || c == '\\' ? '_' : c;
  }
  while (!name.empty() && (name[0] == '.' || name[0] == '_')) {
    name.erase(0, 1);
  }
  return name.empty() ? "stream" : name;
}

// The first window of every statistic.
constexpr int64_t kStartWindowSize = 2;

// Samples first .. end - 1 of a stream as a time error sequence, analysed into directory: as one
// continuous series, or, given its segments (index ranges from first), pooled over them.
void analyse(const VDCRecording& recording, const VDCRecording::Stream& stream, size_t first,
             size_t end, const std::string& directory, const std::string& name,
             const std::vector<VDCContinuity::Segment>& pooledSegments = {}) {
  std::vector<VDTimeErrorValue> values;
  values.reserve(end - first);
  for (size_t i = first; i < end; ++i) {
    values.emplace_back(static_cast<uint64_t>(std::llround(stream.times[i] * 1e9)),
                        stream.errors[i]);
  }
  const VDTimeErrorSequence sequence(std::move(values), recording.countsPerNanosecond());
  if (pooledSegments.empty()) {
    VDPProcessSingleTimeError(directory, name, true, true, true, true, true, kStartWindowSize,
                              std::numeric_limits<int64_t>::max(), 1)
        .processTimeErrors(sequence);
  } else {
    VDCProcessSkippingGaps(directory, name, kStartWindowSize, pooledSegments)
        .processTimeErrors(sequence);
  }
}

bool createdDirectory(const std::string& directory) {
  std::error_code created;
  std::filesystem::create_directories(directory, created);
  return !created && std::filesystem::is_directory(directory);
}

}  // namespace

int VDCCheckRun::run() const {
  VDMaskTable table;
  std::vector<const VDMask*> masks;
  std::string error;
  if (!_options.verdicts.readMaskTable(table, error) ||
      !_options.verdicts.selectedMasks(table, masks, error)) {
    return failed(error);
  }
  if (_options.verdicts.listMasks) {
    std::fputs(VDCMaskListing::text(table).c_str(), stdout);
    return 0;
  }
  const std::optional<VDCRecording> recording =
      VDCRecording::read(_options.file, _options.recording, error);
  if (!recording) {
    return failed(error);
  }
  const bool withServoStates = !recording->streams().begin()->second.servoStates.empty();
  if (!masks.empty() && !_options.verdicts.settleSeconds && !withServoStates) {
    return failed("--settle servo needs a linuxptp log, which gives the servo's state; " +
                  recording->format() + " has none (settle by seconds instead)");
  }
  if (recording->unfinishedLastLine()) {
    std::fprintf(stderr, "veridaneprobe-check: %s ends inside a line, which is left out\n",
                 _options.file.c_str());
  }
  std::map<std::string, VDCRecording::Stream> streams = recording->streams();
  std::printf("Read %s as %s: %zu %s, %llu other %s\n", _options.file.c_str(),
              recording->format().c_str(), streams.size(),
              streams.size() == 1 ? "stream" : "streams",
              static_cast<unsigned long long>(recording->otherLines()),
              recording->otherLines() == 1 ? "line" : "lines");
  if (_options.stream) {
    if (streams.count(*_options.stream) == 0) {
      std::string names;
      for (const auto& [stream, samples] : streams) {
        names += (names.empty() ? "" : ", ") + stream;
      }
      return failed("no stream " + *_options.stream + " in " + _options.file + " (it holds " +
                    names + ")");
    }
    streams = {{*_options.stream, streams.at(*_options.stream)}};
  }
  const std::string output = _options.outputDirectory();
  VDPPythonInterpreter::start("veridaneprobe-check");
  std::vector<VDCCheckReport::Verdict> verdicts;
  bool analysed = false;
  for (const auto& [streamName, stream] : streams) {
    const VDCContinuity continuity = VDCContinuity::of(stream.times);
    std::fputs(continuity.summary(streamName, stream.times).c_str(), stdout);
    const std::string streamDirectory =
        streams.size() == 1 ? output : VDPFileSystem::joinedPath(output, directoryName(streamName));
    if (!continuity.continuous()) {
      // Where every gap and disorder is, beside the segments' results.
      std::error_code created;
      std::filesystem::create_directories(streamDirectory, created);
      VDCSVBuffer breaks;
      breaks.appendText(continuity.breaksCSV(stream.times));
      breaks.writeToFile(VDPFileSystem::joinedPath(streamDirectory, "gaps.csv"));
    }
    const bool skip = _options.gaps == VDCOptions::Gaps::skip;
    if (skip && stream.times.size() >= VDCContinuity::kShortestSegment) {
      // One analysis over the whole span; a continuous stream needs no pooling.
      if (!continuity.continuous()) {
        std::printf("Segments analysed as one, terms across gaps and disorder left out\n");
      }
      if (!createdDirectory(streamDirectory)) {
        VDPPythonInterpreter::finalise();
        return failed("cannot create the output directory " + streamDirectory);
      }
      analyse(
          *recording, stream, 0, stream.times.size(), streamDirectory, _options.outputName(),
          continuity.continuous() ? std::vector<VDCContinuity::Segment>{} : continuity.segments);
      analysed = true;
    }
    // Each segment apart: its analysis (split), and its verdict in either mode.
    int segmentNumber = 0;
    for (const VDCContinuity::Segment& segment : continuity.segments) {
      if (skip && masks.empty()) {
        break;
      }
      ++segmentNumber;
      std::string directory = streamDirectory;
      if (!continuity.continuous()) {
        directory =
            VDPFileSystem::joinedPath(streamDirectory, "segment-" + std::to_string(segmentNumber));
        std::printf("Segment %d: %zu samples from %.6g s%s\n", segmentNumber, segment.samples(),
                    stream.times[segment.first] - stream.times.front(),
                    segment.samples() >= VDCContinuity::kShortestSegment ? ""
                    : skip                                               ? ", too short to judge"
                           : ", too short to analyse");
      }
      if (segment.samples() < VDCContinuity::kShortestSegment) {
        continue;
      }
      if (!createdDirectory(directory)) {
        VDPPythonInterpreter::finalise();
        return failed("cannot create the output directory " + directory);
      }
      if (!skip) {
        analyse(*recording, stream, segment.first, segment.end, directory, _options.outputName());
        analysed = true;
      }
      if (masks.empty()) {
        continue;
      }
      VDCVerdictRun::Series series;
      for (size_t i = segment.first; i < segment.end; ++i) {
        series.times.push_back(stream.times[i]);
        series.errors.push_back(static_cast<double>(stream.errors[i]) /
                                static_cast<double>(recording->countsPerNanosecond()));
        if (!stream.servoStates.empty()) {
          series.servoStates.push_back(stream.servoStates[i]);
        }
      }
      const VDCCheckPlots plots(directory, _options.outputName(), VDPFileSystem::saveScript,
                                VDPPythonInterpreter::runScript);
      const VDCVerdictRun judge(_options.verdicts, masks, plots);
      VDCCheckReport::Input input;
      input.path = _options.file;
      input.format = recording->format();
      input.gaps = continuity.gaps.size();
      verdicts.push_back(judge.judge(series, input, directory));
    }
  }
  VDPPythonInterpreter::finalise();
  if (!analysed) {
    return failed(_options.gaps == VDCOptions::Gaps::skip
                      ? "fewer than 16 samples to analyse"
                      : "no continuous segment of at least 16 samples to analyse");
  }
  if (masks.empty()) {
    return 0;
  }
  const VDCCheckReport::Verdict verdict = VDCVerdictRun::combined(verdicts);
  if (verdicts.size() > 1) {
    std::printf("Verdict of all segments: %s\n", VDMaskVerdict::outcomeText(verdict));
  }
  return VDCCheckReport::exitStatusOf(verdict);
}
