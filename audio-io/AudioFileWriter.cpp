#include "AudioFileWriter.h"

#include <limits>
#include <memory>

#include "SoundFile.h"

struct AudioFileWriter {
  std::unique_ptr<SoundFile> file;
};

int32_t AudioFileWriterCreate(const std::filesystem::path& path,
                              const AudioFileWriterFormat& format, AudioFileWriterRef* outWriter) {
  if (outWriter == nullptr) {
    return kAudioFileWriterErrorBadArgument;
  }
  *outWriter = nullptr;
  if (!SoundFile::formatSupported(format)) {
    return kAudioFileWriterErrorUnsupportedFormat;
  }
  std::unique_ptr<SoundFile> file = SoundFile::createForWriting(path, format);
  if (file == nullptr) {
    return kAudioFileWriterErrorCreate;
  }
  *outWriter = new AudioFileWriter{std::move(file)};
  return kAudioFileWriterNoError;
}

int32_t AudioFileWriterWrite(AudioFileWriterRef writer, const float* interleavedFrames,
                             uint64_t frameCount) {
  if (writer == nullptr) {
    return kAudioFileWriterErrorInvalidWriter;
  }
  if (frameCount == 0) {
    return kAudioFileWriterNoError;
  }
  if (interleavedFrames == nullptr) {
    return kAudioFileWriterErrorBadArgument;
  }
  if (frameCount > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) ||
      !writer->file->writeFrames(interleavedFrames, static_cast<int64_t>(frameCount))) {
    return kAudioFileWriterErrorWrite;
  }
  return kAudioFileWriterNoError;
}

int32_t AudioFileWriterDispose(AudioFileWriterRef writer) {
  if (writer == nullptr) {
    return kAudioFileWriterErrorInvalidWriter;
  }
  const bool closed = writer->file->close();
  delete writer;
  return closed ? kAudioFileWriterNoError : kAudioFileWriterErrorWrite;
}
