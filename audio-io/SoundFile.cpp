#include "SoundFile.h"

#include <sndfile.h>

#include <algorithm>
#include <system_error>
#include <vector>

namespace {

int majorFormat(AudioFileContainer container) {
  switch (container) {
    case AudioFileContainer::WAV:
      return SF_FORMAT_WAV;
    case AudioFileContainer::AIFF:
      return SF_FORMAT_AIFF;
    case AudioFileContainer::FLAC:
      return SF_FORMAT_FLAC;
    case AudioFileContainer::CAF:
      return SF_FORMAT_CAF;
    case AudioFileContainer::W64:
      return SF_FORMAT_W64;
    case AudioFileContainer::RF64:
      return SF_FORMAT_RF64;
    case AudioFileContainer::Ogg:
      return SF_FORMAT_OGG;
    case AudioFileContainer::MPEG:
      return SF_FORMAT_MPEG;
  }
  return 0;
}

int subtypeFormat(AudioSampleEncoding encoding) {
  switch (encoding) {
    case AudioSampleEncoding::PCM16:
      return SF_FORMAT_PCM_16;
    case AudioSampleEncoding::PCM24:
      return SF_FORMAT_PCM_24;
    case AudioSampleEncoding::PCM32:
      return SF_FORMAT_PCM_32;
    case AudioSampleEncoding::Float32:
      return SF_FORMAT_FLOAT;
    case AudioSampleEncoding::Float64:
      return SF_FORMAT_DOUBLE;
    case AudioSampleEncoding::Vorbis:
      return SF_FORMAT_VORBIS;
    case AudioSampleEncoding::Opus:
      return SF_FORMAT_OPUS;
    case AudioSampleEncoding::MPEGLayer3:
      return SF_FORMAT_MPEG_LAYER_III;
  }
  return 0;
}

// The stored sample type behind a subtype code; codecs that are not plain PCM are described by
// what they decode to.
SoundFile::Layout layoutOf(const SF_INFO& info) {
  SoundFile::Layout layout;
  layout.sampleRate = info.samplerate;
  layout.channels = static_cast<uint32_t>(info.channels);
  layout.frames = info.frames;
  switch (info.format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_DPCM_8:
      layout.bitsPerChannel = 8;
      break;
    case SF_FORMAT_PCM_U8:
      layout.bitsPerChannel = 8;
      layout.sampleKind = SoundFile::SampleKind::UnsignedInteger;
      break;
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_DWVW_24:
    case SF_FORMAT_ALAC_24:
      layout.bitsPerChannel = 24;
      break;
    case SF_FORMAT_ALAC_20:
      layout.bitsPerChannel = 20;
      break;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_ALAC_32:
      layout.bitsPerChannel = 32;
      break;
    case SF_FORMAT_FLOAT:
      layout.bitsPerChannel = 32;
      layout.sampleKind = SoundFile::SampleKind::Float;
      break;
    case SF_FORMAT_DOUBLE:
      layout.bitsPerChannel = 64;
      layout.sampleKind = SoundFile::SampleKind::Float;
      break;
    case SF_FORMAT_VORBIS:
    case SF_FORMAT_OPUS:
    case SF_FORMAT_MPEG_LAYER_I:
    case SF_FORMAT_MPEG_LAYER_II:
    case SF_FORMAT_MPEG_LAYER_III:
      layout.bitsPerChannel = 32;
      layout.sampleKind = SoundFile::SampleKind::Lossy;
      break;
    default:  // 16-bit PCM and the codecs that decode to 16 bits
      layout.bitsPerChannel = 16;
      break;
  }
  return layout;
}

SF_INFO infoFor(const AudioFileWriterFormat& format) {
  SF_INFO info{};
  info.samplerate = static_cast<int>(format.sampleRate);
  info.channels = static_cast<int>(format.channels);
  info.format = majorFormat(format.container) | subtypeFormat(format.encoding);
  return info;
}

}  // namespace

struct SoundFile::State {
  SNDFILE* file = nullptr;
  Layout layout;
  int64_t position = 0;  // the frame the next read delivers

  ~State() {
    if (file != nullptr) {
      sf_close(file);
    }
  }

  // Opens path for decoding, positioned at its first frame; layout.frames is the header's
  // claim. False for what is not audio the library reads.
  bool open(const std::filesystem::path& path) {
    if (file != nullptr) {
      sf_close(file);
    }
    SF_INFO info{};
    file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) {
      return false;
    }
    if (info.channels < 1 || info.samplerate < 1 || info.frames < 0) {
      sf_close(file);
      file = nullptr;
      return false;
    }
    layout = layoutOf(info);
    position = 0;
    return true;
  }

  // Back to the first frame; a decoder left in a failed state (a seek past the data of a FLAC
  // stream leaves it so) is opened afresh.
  bool rewind(const std::filesystem::path& path) {
    if (sf_seek(file, 0, SEEK_SET) == 0) {
      position = 0;
      return true;
    }
    const int64_t length = layout.frames;
    if (!open(path)) {
      return false;
    }
    layout.frames = length;
    return true;
  }

  // A header's frame count is a claim: a file cut off holds fewer frames, a FLAC stream written
  // to a pipe claims none (the library reports the largest count), and a hostile header may
  // claim billions that the caller would allocate. The claim stands when its last frame can be
  // sought and read; otherwise the frames are counted by decoding the file once, up to its end
  // or to where the decoder fails, and that is the length. Reads never go past the length.
  bool establishLength(const std::filesystem::path& path) {
    const int64_t claimed = layout.frames;
    if (claimed == 0) {
      return true;
    }
    std::vector<float> frame(layout.channels);
    if (claimed < SF_COUNT_MAX && sf_seek(file, claimed - 1, SEEK_SET) == claimed - 1 &&
        sf_readf_float(file, frame.data(), 1) == 1) {
      return rewind(path);
    }
    if (!rewind(path)) {
      return false;
    }
    layout.frames = countFrames();
    return rewind(path);
  }

  int64_t countFrames() {
    // About 256 KiB of samples per pass, whatever the channel count.
    const int64_t passFrames = std::max<int64_t>(1, 65536 / layout.channels);
    std::vector<float> scratch(static_cast<size_t>(passFrames * layout.channels));
    int64_t frames = 0;
    while (true) {
      const sf_count_t got = sf_readf_float(file, scratch.data(), passFrames);
      frames += std::max<sf_count_t>(got, 0);
      if (got < passFrames) {
        return frames;
      }
    }
  }
};

SoundFile::SoundFile(std::unique_ptr<State> state) : _state(std::move(state)) {}

SoundFile::~SoundFile() { close(); }

std::unique_ptr<SoundFile> SoundFile::openForReading(const std::filesystem::path& path) {
  // The library would also open devices and FIFOs, and some of them never end.
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) {
    return nullptr;
  }
  auto state = std::make_unique<State>();
  if (!state->open(path)) {
    return nullptr;
  }
  if (!state->establishLength(path)) {
    return nullptr;
  }
  return std::unique_ptr<SoundFile>(new SoundFile(std::move(state)));
}

bool SoundFile::formatSupported(const AudioFileWriterFormat& format) {
  if (format.sampleRate < 1 || format.channels < 1 ||
      format.sampleRate > static_cast<uint32_t>(INT32_MAX) ||
      format.channels > static_cast<uint32_t>(INT32_MAX)) {
    return false;
  }
  SF_INFO info = infoFor(format);
  if ((info.format & SF_FORMAT_TYPEMASK) == 0 || (info.format & SF_FORMAT_SUBMASK) == 0) {
    return false;
  }
  // The library's format check lets Opus through at any rate, then fails to open the file.
  if (format.encoding == AudioSampleEncoding::Opus && format.sampleRate != 8000 &&
      format.sampleRate != 12000 && format.sampleRate != 16000 && format.sampleRate != 24000 &&
      format.sampleRate != 48000) {
    return false;
  }
  return sf_format_check(&info) == SF_TRUE;
}

std::unique_ptr<SoundFile> SoundFile::createForWriting(const std::filesystem::path& path,
                                                       const AudioFileWriterFormat& format) {
  if (!formatSupported(format)) {
    return nullptr;
  }
  SF_INFO info = infoFor(format);
  SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
  if (file == nullptr) {
    return nullptr;
  }
  // Without clipping a full-scale 1.0 would wrap round to the most negative integer.
  sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
  auto state = std::make_unique<State>();
  state->file = file;
  state->layout = layoutOf(info);
  state->layout.frames = 0;
  return std::unique_ptr<SoundFile>(new SoundFile(std::move(state)));
}

const SoundFile::Layout& SoundFile::layout() const { return _state->layout; }

int64_t SoundFile::readFrames(float* interleaved, int64_t frameCount) {
  if (_state->file == nullptr) {
    return -1;
  }
  const int64_t wanted = std::min(frameCount, _state->layout.frames - _state->position);
  if (wanted <= 0) {
    return 0;
  }
  const sf_count_t got = sf_readf_float(_state->file, interleaved, wanted);
  if (got < wanted && sf_error(_state->file) != SF_ERR_NO_ERROR) {
    return -1;
  }
  _state->position += got;
  return got;
}

bool SoundFile::writeFrames(const float* interleaved, int64_t frameCount) {
  if (_state->file == nullptr) {
    return false;
  }
  return sf_writef_float(_state->file, interleaved, frameCount) == frameCount;
}

bool SoundFile::seek(int64_t frame) {
  if (_state->file == nullptr || frame < 0 || frame > _state->layout.frames) {
    return false;
  }
  // The end is a valid place to be, but a decoder that found its data ends early may fail to
  // seek there; no read goes past it anyway.
  if (frame < _state->layout.frames && sf_seek(_state->file, frame, SEEK_SET) != frame) {
    return false;
  }
  _state->position = frame;
  return true;
}

bool SoundFile::close() {
  if (_state == nullptr || _state->file == nullptr) {
    return true;
  }
  int status = sf_close(_state->file);
  _state->file = nullptr;
  return status == 0;
}
