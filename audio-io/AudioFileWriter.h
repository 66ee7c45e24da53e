#pragma once

#include <cstdint>
#include <filesystem>

// An AudioFileWriter creates a recording from interleaved float frames, in the containers and
// sample encodings that AudioFileReader reads back; the tests and the sample generator make
// their recordings with it.
//
// Float samples go to integer encodings scaled by 2^(bits-1) and clipped to the encoding's
// range, so 1.0 becomes the largest positive integer rather than wrapping round.
//
// Status codes (int32_t):
//
//   code  name                                    meaning
//   ----  --------------------------------------  --------------------------------------------
//      0  kAudioFileWriterNoError                 success
//     21  kAudioFileWriterErrorUnsupportedFormat  the container cannot hold this encoding,
//                                                 rate or channel count
//     22  kAudioFileWriterErrorCreate             the file could not be created
//     23  kAudioFileWriterErrorInvalidWriter      the writer is null
//     24  kAudioFileWriterErrorBadArgument        a required pointer argument is null
//     25  kAudioFileWriterErrorWrite              the encoder or the file system refused data

enum class AudioFileContainer : uint32_t { WAV, AIFF, FLAC, CAF, W64, RF64, Ogg, MPEG };

enum class AudioSampleEncoding : uint32_t {
  PCM16,
  PCM24,
  PCM32,
  Float32,
  Float64,
  Vorbis,      // Ogg only
  Opus,        // Ogg only, at 8, 12, 16, 24 or 48 kHz
  MPEGLayer3,  // MPEG only
};

struct AudioFileWriterFormat {
  AudioFileContainer container;
  AudioSampleEncoding encoding;
  uint32_t sampleRate;  // frames per second
  uint32_t channels;
};

using AudioFileWriterRef = struct AudioFileWriter*;

constexpr int32_t kAudioFileWriterNoError = 0;
constexpr int32_t kAudioFileWriterErrorUnsupportedFormat = 21;
constexpr int32_t kAudioFileWriterErrorCreate = 22;
constexpr int32_t kAudioFileWriterErrorInvalidWriter = 23;
constexpr int32_t kAudioFileWriterErrorBadArgument = 24;
constexpr int32_t kAudioFileWriterErrorWrite = 25;

// Creates (or replaces) the file at path. On success *outWriter is the new writer, which the
// caller finishes with AudioFileWriterDispose; on failure it is null and no writer exists.
int32_t AudioFileWriterCreate(const std::filesystem::path& path,
                              const AudioFileWriterFormat& format, AudioFileWriterRef* outWriter);

// Appends frameCount frames of format.channels interleaved samples each.
int32_t AudioFileWriterWrite(AudioFileWriterRef writer, const float* interleavedFrames,
                             uint64_t frameCount);

// Completes the file's headers, closes it and frees the writer.
int32_t AudioFileWriterDispose(AudioFileWriterRef writer);
