#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "AudioFileWriter.h"

// A SoundFile is one audio file held open by the decoder library, read or written as
// interleaved float frames; the reader and writer functions of the audio layer are built on it,
// and it is the only place that talks to the library.
class SoundFile {
 public:
  // How the file stores one sample, as far as the reader's stream format needs to know.
  enum class SampleKind { SignedInteger, UnsignedInteger, Float, Lossy };

  struct Layout {
    double sampleRate = 0;
    uint32_t channels = 0;
    int64_t frames = 0;
    uint32_t bitsPerChannel = 0;
    SampleKind sampleKind = SampleKind::SignedInteger;
  };

  // Null when path is not a regular file or the library cannot decode it. The layout's frames are
  // what the data holds, whatever the header claims.
  static std::unique_ptr<SoundFile> openForReading(const std::filesystem::path& path);

  // Null when the library refuses the format (formatSupported) or the file cannot be made.
  static std::unique_ptr<SoundFile> createForWriting(const std::filesystem::path& path,
                                                     const AudioFileWriterFormat& format);
  static bool formatSupported(const AudioFileWriterFormat& format);

  ~SoundFile();
  SoundFile(const SoundFile&) = delete;
  SoundFile& operator=(const SoundFile&) = delete;

  const Layout& layout() const;

  // Reads up to frameCount frames; returns how many arrived, fewer only at the end of the data,
  // or -1 when the decoder failed.
  int64_t readFrames(float* interleaved, int64_t frameCount);

  // False when not every frame could be written.
  bool writeFrames(const float* interleaved, int64_t frameCount);

  bool seek(int64_t frame);

  // Completes and closes the file; false when the library reported a failure doing so.
  bool close();

 private:
  struct State;
  explicit SoundFile(std::unique_ptr<State> state);
  std::unique_ptr<State> _state;
};
