// Arbitrary bytes as an audio file, read the way the audio command reads a channel: open, file
// format, length, client format, reads from the start, then a seek near the end. The length the
// layer reports must be what is there: a read of the last frames delivers exactly them.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "AudioFileReader.h"

namespace {

// Frames read from the start at most, so that a small input that decodes to hours of sound
// stays quick.
constexpr int64_t kLeadingFrames = 1 << 16;
constexpr uint32_t kChunkFrames = 4096;

void check(bool condition) {
  if (!condition) {
    std::abort();
  }
}

// The file the layer opens (it refuses anything but regular files), removed at exit.
struct InputFile {
  std::string path;
  InputFile() {
    char pattern[] = "/tmp/veridaneprobe-audio-fuzz-XXXXXX";
    const int descriptor = mkstemp(pattern);
    check(descriptor >= 0);
    close(descriptor);
    path = pattern;
  }
  ~InputFile() { unlink(path.c_str()); }
  void write(const uint8_t* data, size_t size) const {
    const int descriptor = open(path.c_str(), O_WRONLY | O_TRUNC);
    check(descriptor >= 0);
    for (size_t done = 0; done < size;) {
      const ssize_t count = ::write(descriptor, data + done, size - done);
      check(count > 0);
      done += static_cast<size_t>(count);
    }
    close(descriptor);
  }
};

int32_t read(AudioFileReaderRef reader, std::vector<float>& buffer, uint32_t frames,
             uint32_t* delivered) {
  AudioBufferList list{1, {{1, frames * 4, buffer.data()}}};
  *delivered = frames;
  const int32_t status = AudioFileReaderRead(reader, delivered, &list);
  check(status != 0 || (*delivered <= frames && list.mBuffers[0].mDataByteSize == *delivered * 4));
  return status;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const InputFile file;
  file.write(data, size);
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

  // From the start, every frame up to the length arrives, unless the decoder fails inside the
  // data (a damaged block in the middle of a file whose end is intact).
  std::vector<float> buffer(kChunkFrames);
  uint32_t delivered = 0;
  int64_t total = 0;
  bool failed = false;
  const int64_t leading = std::min(length, kLeadingFrames);
  while (total < leading && !failed) {
    failed = read(reader, buffer, kChunkFrames, &delivered) != kAudioFileReaderNoError;
    check(failed || delivered > 0);
    total += failed ? 0 : delivered;
  }
  check(failed || total >= leading);
  check(total <= length);

  // The last frames are there, and nothing after them.
  const int64_t tail = std::min<int64_t>(length, 16);
  check(AudioFileReaderSeek(reader, length - tail) == kAudioFileReaderNoError);
  check(read(reader, buffer, 32, &delivered) == kAudioFileReaderNoError);
  check(delivered == tail);
  check(read(reader, buffer, 32, &delivered) == kAudioFileReaderNoError && delivered == 0);
  check(AudioFileReaderSeek(reader, length) == kAudioFileReaderNoError);
  check(AudioFileReaderSeek(reader, length + 1) == kAudioFileReaderErrorSeek);
  check(AudioFileReaderDispose(reader) == kAudioFileReaderNoError);
  return 0;
}
