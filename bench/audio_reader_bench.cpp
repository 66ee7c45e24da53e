// Loading speed of the audio layer: a one-hour pair of 48 kHz stereo 16-bit WAV files, written
// to a temporary directory first (so they are read from the page cache), loaded the way the audio
// command loads its channels: the client format set to one channel of floats, each whole file
// read with a single call into a zero-filled array. Reported: x_realtime (seconds of audio, for
// the pair, per second of wall-clock time) and peak_growth_MB (how far the first load raised the
// process's peak resident size, against the 1318 MB the two arrays need: a second full-length
// copy of either channel would add another 659 MB).

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "AudioFileReader.h"
#include "AudioFileWriter.h"

namespace {

constexpr uint32_t kRate = 48000;
constexpr int64_t kSeconds = 3600;
constexpr int64_t kFrames = kSeconds * kRate;

// A temporary directory holding the pair, removed at exit.
class RecordingPair {
 public:
  RecordingPair() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vdp-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) {
      _directory = pattern;
      write(channelA(), 1);
      write(channelB(), 2);
    }
  }
  ~RecordingPair() {
    std::error_code ignored;
    std::filesystem::remove_all(_directory, ignored);
  }
  std::filesystem::path channelA() const { return _directory / "a.wav"; }
  std::filesystem::path channelB() const { return _directory / "b.wav"; }
  bool ready() const { return !_directory.empty(); }

 private:
  // One second at a time of cheap pseudo-random stereo noise.
  static void write(const std::filesystem::path& path, uint32_t seed) {
    AudioFileWriterRef writer = nullptr;
    if (AudioFileWriterCreate(path, {AudioFileContainer::WAV, AudioSampleEncoding::PCM16, kRate, 2},
                              &writer) != kAudioFileWriterNoError) {
      return;
    }
    std::vector<float> second(2 * kRate);
    uint32_t state = seed;
    for (int64_t s = 0; s < kSeconds; ++s) {
      for (float& sample : second) {
        state = state * 1664525u + 1013904223u;
        sample = static_cast<float>(static_cast<int32_t>(state) >> 16) / 65536.0f;
      }
      AudioFileWriterWrite(writer, second.data(), kRate);
    }
    AudioFileWriterDispose(writer);
  }

  std::filesystem::path _directory;
};

double peakResidentMegabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

// Loads one channel as the audio command does; false on any failing status.
bool loadChannel(const std::filesystem::path& path, float* samples) {
  AudioFileReaderRef reader = nullptr;
  if (AudioFileReaderOpen(path, &reader) != kAudioFileReaderNoError) {
    return false;
  }
  StreamFormat format{};
  uint32_t size = sizeof format;
  AudioFileReaderGetProperty(reader, AudioFileReaderProperty::FileDataFormat, &size, &format);
  const StreamFormat client{format.mSampleRate, kAudioFormatLinearPCM, 0x31, 4, 1, 4, 1, 32, 0};
  bool good = AudioFileReaderSetProperty(reader, AudioFileReaderProperty::ClientDataFormat,
                                         sizeof client, &client) == kAudioFileReaderNoError;
  AudioFileReaderSeek(reader, 0);
  uint32_t frames = static_cast<uint32_t>(kFrames);
  AudioBufferList list{1, {{1, frames * 4, samples}}};
  good = good && AudioFileReaderRead(reader, &frames, &list) == kAudioFileReaderNoError &&
         frames == kFrames;
  AudioFileReaderDispose(reader);
  return good;
}

void BM_LoadOneHourStereoPair(benchmark::State& state) {
  static RecordingPair pair;
  if (!pair.ready()) {
    state.SkipWithError("could not write the recordings");
    return;
  }
  double growth = -1;
  for (auto _ : state) {
    const double before = peakResidentMegabytes();
    float* a = static_cast<float*>(std::calloc(kFrames, sizeof(float)));
    float* b = static_cast<float*>(std::calloc(kFrames, sizeof(float)));
    const bool loaded = a != nullptr && b != nullptr && loadChannel(pair.channelA(), a) &&
                        loadChannel(pair.channelB(), b);
    if (growth < 0) {
      growth = peakResidentMegabytes() - before;
    }
    benchmark::DoNotOptimize(a);
    benchmark::DoNotOptimize(b);
    std::free(a);
    std::free(b);
    if (!loaded) {
      state.SkipWithError("loading failed");
      return;
    }
  }
  state.counters["x_realtime"] = benchmark::Counter(static_cast<double>(kSeconds),
                                                    benchmark::Counter::kIsIterationInvariantRate);
  state.counters["peak_growth_MB"] = growth;
}

BENCHMARK(BM_LoadOneHourStereoPair)->Unit(benchmark::kSecond)->Iterations(2)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
