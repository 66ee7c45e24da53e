#include "VDPAudioChannels.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

#include "VDPConsole.h"

namespace {

// Seconds to frames, truncated toward zero; a value whose product would not fit a signed
// 64-bit frame index (the default end among them) is left as it was.
void convertSecondsToFrames(int64_t& value, double sampleRate) {
  const double limit = 9223372036854775808.0 / sampleRate;
  const double seconds = static_cast<double>(value);
  if (limit > seconds && -limit < seconds) {
    value = static_cast<int64_t>(seconds * sampleRate);
  }
}

// N zero-filled floats; nullptr when N is negative or too large to allocate.
float* allocateSamples(int64_t count) {
  if (count < 0 || static_cast<uint64_t>(count) > PTRDIFF_MAX / sizeof(float)) {
    return nullptr;
  }
  return static_cast<float*>(
      std::calloc(count > 0 ? static_cast<size_t>(count) : 1, sizeof(float)));
}

AudioBufferList bufferFor(float* samples, uint32_t frames) {
  AudioBufferList list;
  list.mNumberBuffers = 1;
  list.mBuffers[0].mNumberChannels = 1;
  list.mBuffers[0].mDataByteSize = frames * 4;
  list.mBuffers[0].mData = samples;
  return list;
}

}  // namespace

VDPAudioChannels::~VDPAudioChannels() {
  if (_channelA != nullptr) {
    AudioFileReaderDispose(_channelA);
  }
  if (_channelB != nullptr) {
    AudioFileReaderDispose(_channelB);
  }
  std::free(_channelASamples);
  std::free(_channelBSamples);
}

bool VDPAudioChannels::statusFails(int32_t status, int line, const char* message) const {
  if (status == 0) {
    return false;
  }
  VDPConsole::printAssertion(VDPConsole::AssertionKind::FailIfError, "status != 0", _sourceFile,
                             line);
  std::printf("%s, Error: %d (0x%X)\n", message, status, static_cast<unsigned>(status));
  return true;
}

bool VDPAudioChannels::load(const std::string& channelAPath, const std::string& channelBPath,
                            int64_t& audioStart, int64_t& audioEnd) {
  StreamFormat fileFormat = {};
  uint32_t size = sizeof fileFormat;
  int64_t lengthA = 0;
  int64_t lengthB = 0;
  uint32_t lengthSize = sizeof lengthA;

  if (statusFails(AudioFileReaderOpen(channelAPath, &_channelA), 460,
                  "Error opening Channel A audio file") ||
      statusFails(AudioFileReaderGetProperty(_channelA, AudioFileReaderProperty::FileDataFormat,
                                             &size, &fileFormat),
                  464, "Error reading Channel A file format")) {
    return false;
  }
  const double rate = fileFormat.mSampleRate;
  convertSecondsToFrames(audioEnd, rate);
  convertSecondsToFrames(audioStart, rate);
  if (statusFails(AudioFileReaderGetProperty(_channelA, AudioFileReaderProperty::FileLengthFrames,
                                             &lengthSize, &lengthA),
                  478, "Error reading Channel A file length")) {
    return false;
  }
  // One channel of 32-bit floats at A's own rate. The flags are float, aligned high and
  // non-interleaved (0x31), without the packed flag.
  _clientFormat = {
      rate,
      kAudioFormatLinearPCM,
      kAudioFormatFlagIsFloat | kAudioFormatFlagIsAlignedHigh | kAudioFormatFlagIsNonInterleaved,
      4,
      1,
      4,
      1,
      32,
      0};
  size = sizeof fileFormat;
  lengthSize = sizeof lengthB;
  if (statusFails(AudioFileReaderSetProperty(_channelA, AudioFileReaderProperty::ClientDataFormat,
                                             sizeof _clientFormat, &_clientFormat),
                  494, "Error setting Channel A client format") ||
      statusFails(AudioFileReaderOpen(channelBPath, &_channelB), 499,
                  "Error opening Channel B audio file") ||
      statusFails(AudioFileReaderGetProperty(_channelB, AudioFileReaderProperty::FileDataFormat,
                                             &size, &fileFormat),
                  503, "Error reading Channel B file format") ||
      statusFails(AudioFileReaderGetProperty(_channelB, AudioFileReaderProperty::FileLengthFrames,
                                             &lengthSize, &lengthB),
                  507, "Error reading Channel B file length")) {
    return false;
  }

  // Clamp to the shorter file; nothing bounds the start from below.
  const int64_t shorter = std::min(lengthA, lengthB);
  audioEnd = std::min(audioEnd, shorter);
  audioStart = std::min(audioStart, shorter);
  _sampleCount = static_cast<int64_t>(static_cast<uint64_t>(audioEnd) -
                                      static_cast<uint64_t>(audioStart));  // wraps, never traps
  // Printed with channel B's rate, before the rates are compared.
  std::printf("Using %" PRId64 " samples of audio from %.2f to %.2f seconds\n", _sampleCount,
              static_cast<double>(audioStart) / fileFormat.mSampleRate,
              static_cast<double>(audioEnd) / fileFormat.mSampleRate);
  if (fileFormat.mSampleRate != _clientFormat.mSampleRate) {
    VDPConsole::printAssertion(VDPConsole::AssertionKind::FailIf,
                               "fileFormat.mSampleRate != clientFormat.mSampleRate", _sourceFile,
                               525);
    std::printf("Channel B file has different sample rate to Channel A file\n");
    return false;
  }
  if (statusFails(AudioFileReaderSetProperty(_channelB, AudioFileReaderProperty::ClientDataFormat,
                                             sizeof _clientFormat, &_clientFormat),
                  529, "Error setting Channel B client format")) {
    return false;
  }
  _channelASamples = allocateSamples(_sampleCount);
  if (_channelASamples == nullptr) {
    VDPConsole::printAssertion(VDPConsole::AssertionKind::FailIfNULL, "NULL == channelASamples",
                               _sourceFile, 532);
    std::printf("Could not allocate Channel A sample buffer\n");
    return false;
  }
  _channelBSamples = allocateSamples(_sampleCount);
  if (_channelBSamples == nullptr) {
    VDPConsole::printAssertion(VDPConsole::AssertionKind::FailIfNULL, "NULL == channelBSamples",
                               _sourceFile, 535);
    std::printf("Could not allocate Channel B sample buffer\n");
    return false;
  }
  std::printf("Loading audio into memory...\n");
  AudioFileReaderSeek(_channelA, audioStart);
  AudioFileReaderSeek(_channelB, audioStart);
  return readSamples();
}

bool VDPAudioChannels::readSamples() {
  if (_sampleCount < _singleReadLimit) {
    uint32_t frames = static_cast<uint32_t>(_sampleCount);
    AudioBufferList bufferA = bufferFor(_channelASamples, frames);
    if (statusFails(AudioFileReaderRead(_channelA, &frames, &bufferA), 557,
                    "Error reading Channel A file data")) {
      return false;
    }
    AudioBufferList bufferB = bufferFor(_channelBSamples, frames);
    return !statusFails(AudioFileReaderRead(_channelB, &frames, &bufferB), 566,
                        "Error reading Channel B file data");
  }
  const int64_t chunkFrames = _singleReadLimit - 1;
  int64_t remaining = _sampleCount;
  float* positionA = _channelASamples;
  float* positionB = _channelBSamples;
  while (remaining > 0) {
    uint32_t frames = static_cast<uint32_t>(remaining < chunkFrames ? remaining : chunkFrames);
    AudioBufferList bufferA = bufferFor(positionA, frames);
    if (statusFails(AudioFileReaderRead(_channelA, &frames, &bufferA), 599,
                    "Error reading Channel A file data")) {
      return false;
    }
    AudioBufferList bufferB = bufferFor(positionB, frames);
    if (statusFails(AudioFileReaderRead(_channelB, &frames, &bufferB), 608,
                    "Error reading Channel B file data")) {
      return false;
    }
    // A read that delivers nothing is the end of the data: the rest of the arrays stays zero.
    // Without this the loop would spin forever on a file shorter than it claimed.
    if (frames == 0) {
      break;
    }
    positionA += frames;
    positionB += frames;
    remaining -= frames;
  }
  return true;
}
