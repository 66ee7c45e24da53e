#include "AudioFileReader.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

#include "SoundFile.h"

namespace {

// Frames converted per pass when several channels are averaged: small enough to stay in the
// cache, large enough that the decoder's per-call cost does not show.
constexpr int64_t kScratchFrames = 4096;

constexpr uint32_t kAcceptedClientFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked |
                                          kAudioFormatFlagIsAlignedHigh |
                                          kAudioFormatFlagIsNonInterleaved;

StreamFormat fileFormatOf(const SoundFile::Layout& layout) {
  StreamFormat format{};
  format.mSampleRate = layout.sampleRate;
  format.mFormatID = kAudioFormatLinearPCM;
  format.mFramesPerPacket = 1;
  format.mChannelsPerFrame = layout.channels;
  format.mBitsPerChannel = layout.bitsPerChannel;
  const uint32_t bytesPerSample = (layout.bitsPerChannel + 7) / 8;
  format.mBytesPerFrame = bytesPerSample * layout.channels;
  format.mBytesPerPacket = format.mBytesPerFrame;
  switch (layout.sampleKind) {
    case SoundFile::SampleKind::SignedInteger:
      format.mFormatFlags = kAudioFormatFlagIsSignedInteger;
      break;
    case SoundFile::SampleKind::UnsignedInteger:
      format.mFormatFlags = 0;
      break;
    case SoundFile::SampleKind::Float:
    case SoundFile::SampleKind::Lossy:
      format.mFormatFlags = kAudioFormatFlagIsFloat;
      break;
  }
  format.mFormatFlags |= layout.bitsPerChannel == bytesPerSample * 8
                             ? kAudioFormatFlagIsPacked
                             : kAudioFormatFlagIsAlignedHigh;
  return format;
}

bool clientFormatAcceptable(const StreamFormat& client, const StreamFormat& file) {
  return client.mFormatID == kAudioFormatLinearPCM &&
         (client.mFormatFlags & kAudioFormatFlagIsFloat) != 0 &&
         (client.mFormatFlags & ~kAcceptedClientFlags) == 0 && client.mChannelsPerFrame == 1 &&
         client.mBitsPerChannel == 32 && client.mBytesPerFrame == 4 &&
         client.mBytesPerPacket == 4 && client.mFramesPerPacket == 1 &&
         client.mSampleRate == file.mSampleRate;
}

}  // namespace

struct AudioFileReader {
  std::unique_ptr<SoundFile> file;
  StreamFormat fileFormat{};
  std::optional<StreamFormat> clientFormat;
  std::vector<float> scratch;  // interleaved frames awaiting their mixdown
};

int32_t AudioFileReaderOpen(const std::filesystem::path& path, AudioFileReaderRef* outReader) {
  if (outReader == nullptr) {
    return kAudioFileReaderErrorBadArgument;
  }
  *outReader = nullptr;
  std::unique_ptr<SoundFile> file = SoundFile::openForReading(path);
  if (file == nullptr) {
    return kAudioFileReaderErrorOpen;
  }
  auto reader = std::make_unique<AudioFileReader>();
  reader->fileFormat = fileFormatOf(file->layout());
  reader->file = std::move(file);
  *outReader = reader.release();
  return kAudioFileReaderNoError;
}

int32_t AudioFileReaderGetProperty(AudioFileReaderRef reader, AudioFileReaderProperty property,
                                   uint32_t* ioDataSize, void* outData) {
  if (reader == nullptr) {
    return kAudioFileReaderErrorInvalidReader;
  }
  if (ioDataSize == nullptr || outData == nullptr) {
    return kAudioFileReaderErrorBadArgument;
  }
  switch (property) {
    case AudioFileReaderProperty::FileDataFormat:
      if (*ioDataSize != sizeof(StreamFormat)) {
        return kAudioFileReaderErrorBadPropertySize;
      }
      *static_cast<StreamFormat*>(outData) = reader->fileFormat;
      return kAudioFileReaderNoError;
    case AudioFileReaderProperty::FileLengthFrames:
      if (*ioDataSize != sizeof(int64_t)) {
        return kAudioFileReaderErrorBadPropertySize;
      }
      *static_cast<int64_t*>(outData) = reader->file->layout().frames;
      return kAudioFileReaderNoError;
    case AudioFileReaderProperty::ClientDataFormat:
      if (*ioDataSize != sizeof(StreamFormat)) {
        return kAudioFileReaderErrorBadPropertySize;
      }
      if (!reader->clientFormat) {
        return kAudioFileReaderErrorNoClientFormat;
      }
      *static_cast<StreamFormat*>(outData) = *reader->clientFormat;
      return kAudioFileReaderNoError;
  }
  return kAudioFileReaderErrorBadProperty;
}

int32_t AudioFileReaderSetProperty(AudioFileReaderRef reader, AudioFileReaderProperty property,
                                   uint32_t dataSize, const void* data) {
  if (reader == nullptr) {
    return kAudioFileReaderErrorInvalidReader;
  }
  if (property != AudioFileReaderProperty::ClientDataFormat) {
    return kAudioFileReaderErrorBadProperty;
  }
  if (data == nullptr) {
    return kAudioFileReaderErrorBadArgument;
  }
  if (dataSize != sizeof(StreamFormat)) {
    return kAudioFileReaderErrorBadPropertySize;
  }
  const StreamFormat& client = *static_cast<const StreamFormat*>(data);
  if (!clientFormatAcceptable(client, reader->fileFormat)) {
    return kAudioFileReaderErrorUnsupportedClientFormat;
  }
  reader->clientFormat = client;
  return kAudioFileReaderNoError;
}

int32_t AudioFileReaderSeek(AudioFileReaderRef reader, int64_t frameOffset) {
  if (reader == nullptr) {
    return kAudioFileReaderErrorInvalidReader;
  }
  if (!reader->file->seek(frameOffset)) {
    return kAudioFileReaderErrorSeek;
  }
  return kAudioFileReaderNoError;
}

int32_t AudioFileReaderRead(AudioFileReaderRef reader, uint32_t* ioNumberFrames,
                            AudioBufferList* ioData) {
  if (reader == nullptr) {
    return kAudioFileReaderErrorInvalidReader;
  }
  if (ioNumberFrames == nullptr || ioData == nullptr) {
    return kAudioFileReaderErrorBadArgument;
  }
  if (!reader->clientFormat) {
    return kAudioFileReaderErrorNoClientFormat;
  }
  if (ioData->mNumberBuffers != 1 || ioData->mBuffers[0].mNumberChannels != 1) {
    return kAudioFileReaderErrorBadBuffer;
  }
  AudioBuffer& buffer = ioData->mBuffers[0];
  const int64_t wanted = std::min<int64_t>(*ioNumberFrames, buffer.mDataByteSize / sizeof(float));
  if (*ioNumberFrames > 0 && (buffer.mData == nullptr || wanted == 0)) {
    return kAudioFileReaderErrorBadBuffer;
  }
  float* out = static_cast<float*>(buffer.mData);
  const int64_t channels = reader->file->layout().channels;
  int64_t delivered = 0;
  if (channels == 1) {
    delivered = wanted > 0 ? reader->file->readFrames(out, wanted) : 0;
    if (delivered < 0) {
      return kAudioFileReaderErrorRead;
    }
  } else {
    reader->scratch.resize(static_cast<size_t>(kScratchFrames * channels));
    const float scale = 1.0f / static_cast<float>(channels);
    while (delivered < wanted) {
      const int64_t pass = std::min(kScratchFrames, wanted - delivered);
      const int64_t got = reader->file->readFrames(reader->scratch.data(), pass);
      if (got < 0) {
        return kAudioFileReaderErrorRead;
      }
      const float* frame = reader->scratch.data();
      for (int64_t i = 0; i < got; ++i, frame += channels) {
        float sum = 0;
        for (int64_t c = 0; c < channels; ++c) {
          sum += frame[c];
        }
        out[delivered + i] = sum * scale;
      }
      delivered += got;
      if (got < pass) {
        break;
      }
    }
  }
  *ioNumberFrames = static_cast<uint32_t>(delivered);
  buffer.mDataByteSize = static_cast<uint32_t>(delivered * sizeof(float));
  return kAudioFileReaderNoError;
}

int32_t AudioFileReaderDispose(AudioFileReaderRef reader) {
  if (reader == nullptr) {
    return kAudioFileReaderErrorInvalidReader;
  }
  delete reader;
  return kAudioFileReaderNoError;
}
