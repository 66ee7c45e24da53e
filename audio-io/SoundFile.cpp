#include "SoundFile.h"

#include <sndfile.h>

#include <system_error>

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
};

SoundFile::SoundFile(std::unique_ptr<State> state) : _state(std::move(state)) {}

SoundFile::~SoundFile() { close(); }

std::unique_ptr<SoundFile> SoundFile::openForReading(const std::filesystem::path& path) {
  // The library would also open devices and FIFOs, and some of them never end.
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) {
    return nullptr;
  }
  SF_INFO info{};
  SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
  if (file == nullptr) {
    return nullptr;
  }
  if (info.channels < 1 || info.samplerate < 1 || info.frames < 0) {
    sf_close(file);
    return nullptr;
  }
  auto state = std::make_unique<State>();
  state->file = file;
  state->layout = layoutOf(info);
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
  sf_count_t got = sf_readf_float(_state->file, interleaved, frameCount);
  if (got < frameCount && sf_error(_state->file) != SF_ERR_NO_ERROR) {
    return -1;
  }
  return got;
}

bool SoundFile::writeFrames(const float* interleaved, int64_t frameCount) {
  if (_state->file == nullptr) {
    return false;
  }
  return sf_writef_float(_state->file, interleaved, frameCount) == frameCount;
}

bool SoundFile::seek(int64_t frame) {
  if (_state->file == nullptr) {
    return false;
  }
  return sf_seek(_state->file, frame, SEEK_SET) == frame;
}

bool SoundFile::close() {
  if (_state == nullptr || _state->file == nullptr) {
    return true;
  }
  int status = sf_close(_state->file);
  _state->file = nullptr;
  return status == 0;
}
