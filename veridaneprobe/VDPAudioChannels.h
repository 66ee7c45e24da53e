#pragma once

#include <cstdint>
#include <string>

#include "AudioFileReader.h"

// VDPAudioChannels loads channel A and channel B of the audio command into memory: two arrays of
// the same number of mono 32-bit float samples at channel A's rate, covering the same stretch
// of both files. It owns the open files and the arrays; its destructor disposes channel A's
// file, then channel B's, and frees both arrays, on every path.
class VDPAudioChannels {
 public:
  // Reads below this many frames are made in one call; above, in chunks of one less, so that a
  // read's byte size (frames x 4) fits the buffer list's 32-bit field.
  static constexpr int64_t kSingleReadLimit = int64_t{1} << 30;

  // sourceFile is named by the assertion lines of the failure messages. singleReadLimit is the
  // tests' way to read a few seconds in chunks, as hours of audio are.
  explicit VDPAudioChannels(const char* sourceFile, int64_t singleReadLimit = kSingleReadLimit)
      : _sourceFile(sourceFile), _singleReadLimit(singleReadLimit) {}
  ~VDPAudioChannels();
  VDPAudioChannels(const VDPAudioChannels&) = delete;
  VDPAudioChannels& operator=(const VDPAudioChannels&) = delete;

  // Opens both files and reads the stretch from audioStart to audioEnd (whole seconds on entry,
  // rewritten in place to frame indices). Prints the sample count line and, on failure, the
  // assertion line and message, and returns false.
  bool load(const std::string& channelAPath, const std::string& channelBPath, int64_t& audioStart,
            int64_t& audioEnd);

  const float* channelA() const { return _channelASamples; }
  const float* channelB() const { return _channelBSamples; }
  int64_t sampleCount() const { return _sampleCount; }
  double sampleRate() const { return _clientFormat.mSampleRate; }

 private:
  bool statusFails(int32_t status, int line, const char* message) const;
  bool readSamples();

  const char* _sourceFile;
  int64_t _singleReadLimit;
  AudioFileReaderRef _channelA = nullptr;
  AudioFileReaderRef _channelB = nullptr;
  StreamFormat _clientFormat = {};
  int64_t _sampleCount = 0;
  float* _channelASamples = nullptr;
  float* _channelBSamples = nullptr;
};
