// Writes a short recording in every container and encoding the audio layer writes into the
// directory named by its argument: the seed corpus of the audio file fuzzer.

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "AudioFileWriter.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s directory\n", argv[0]);
    return 2;
  }
  const std::filesystem::path directory = argv[1];
  std::filesystem::create_directories(directory);
  struct Seed {
    const char* name;
    AudioFileWriterFormat format;
  };
  const Seed seeds[] = {
      {"pcm16.wav", {AudioFileContainer::WAV, AudioSampleEncoding::PCM16, 8000, 1}},
      {"float.wav", {AudioFileContainer::WAV, AudioSampleEncoding::Float32, 8000, 2}},
      {"pcm24.aiff", {AudioFileContainer::AIFF, AudioSampleEncoding::PCM24, 8000, 2}},
      {"pcm16.flac", {AudioFileContainer::FLAC, AudioSampleEncoding::PCM16, 8000, 1}},
      {"pcm24.flac", {AudioFileContainer::FLAC, AudioSampleEncoding::PCM24, 8000, 2}},
      {"double.caf", {AudioFileContainer::CAF, AudioSampleEncoding::Float64, 8000, 1}},
      {"pcm32.w64", {AudioFileContainer::W64, AudioSampleEncoding::PCM32, 8000, 1}},
      {"pcm16.rf64", {AudioFileContainer::RF64, AudioSampleEncoding::PCM16, 8000, 1}},
      {"vorbis.ogg", {AudioFileContainer::Ogg, AudioSampleEncoding::Vorbis, 8000, 1}},
      {"opus.opus", {AudioFileContainer::Ogg, AudioSampleEncoding::Opus, 8000, 1}},
      {"layer3.mp3", {AudioFileContainer::MPEG, AudioSampleEncoding::MPEGLayer3, 8000, 1}},
  };
  constexpr size_t kFrames = 1200;
  int failures = 0;
  for (const Seed& seed : seeds) {
    const uint32_t channels = seed.format.channels;
    std::vector<float> samples(kFrames * channels);
    for (size_t i = 0; i < samples.size(); ++i) {
      samples[i] = 0.5f * static_cast<float>(std::sin(0.05 * static_cast<double>(i / channels)));
    }
    AudioFileWriterRef writer = nullptr;
    if (AudioFileWriterCreate(directory / seed.name, seed.format, &writer) != 0 ||
        AudioFileWriterWrite(writer, samples.data(), kFrames) != 0 ||
        AudioFileWriterDispose(writer) != 0) {
      std::fprintf(stderr, "could not write %s\n", seed.name);
      ++failures;
    }
  }
  return failures == 0 ? 0 : 1;
}
