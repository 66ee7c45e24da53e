// The audio file layer: recordings in several containers and sample formats read back as mono
// floats, seeking, short reads, the client formats it refuses, and every failure status.

#include <gtest/gtest.h>

#include <cstring>

#include "AudioFileReader.h"
#include "AudioFileWriter.h"
#include "TestSupport.h"

namespace {

using TestSupport::TempDir;
using C = AudioFileContainer;
using E = AudioSampleEncoding;
using P = AudioFileReaderProperty;
constexpr uint32_t kPCM = kAudioFormatLinearPCM;
constexpr uint32_t kInt = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;
constexpr uint32_t kFloat = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;

// Samples k / 32768 with |k| <= 16384 survive the trip through 16-bit, 24-bit, 32-bit and float
// files exactly, and so do their channel averages.
std::vector<float> testSignal(int64_t frames, uint32_t channels) {
  std::vector<float> interleaved(static_cast<size_t>(frames * channels));
  for (int64_t n = 0; n < frames; ++n) {
    for (uint32_t c = 0; c < channels; ++c) {
      const int k = static_cast<int>((n * 37 + c * 1001) % 32001) - 16000;
      interleaved[n * channels + c] = static_cast<float>(k) / 32768.0f;
    }
  }
  return interleaved;
}

std::vector<float> mixdown(const std::vector<float>& interleaved, uint32_t channels) {
  std::vector<float> mono(interleaved.size() / channels);
  for (size_t n = 0; n < mono.size(); ++n) {
    float sum = 0;
    for (uint32_t c = 0; c < channels; ++c) {
      sum += interleaved[n * channels + c];
    }
    mono[n] = sum / static_cast<float>(channels);
  }
  return mono;
}

void writeRecording(const std::filesystem::path& path, const AudioFileWriterFormat& format,
                    const std::vector<float>& interleaved) {
  AudioFileWriterRef writer = nullptr;
  ASSERT_EQ(AudioFileWriterCreate(path, format, &writer), kAudioFileWriterNoError);
  ASSERT_EQ(AudioFileWriterWrite(writer, interleaved.data(), interleaved.size() / format.channels),
            kAudioFileWriterNoError);
  ASSERT_EQ(AudioFileWriterDispose(writer), kAudioFileWriterNoError);
}

// The client format the audio command sets: one channel of 32-bit floats, flags 0x31.
StreamFormat clientFormat(double sampleRate) {
  return StreamFormat{sampleRate, kAudioFormatLinearPCM, 0x31, 4, 1, 4, 1, 32, 0};
}

// A property of the file, of its exact size.
template <typename T>
T propertyOf(AudioFileReaderRef reader, P property) {
  T value{};
  uint32_t size = sizeof value;
  EXPECT_EQ(AudioFileReaderGetProperty(reader, property, &size, &value), kAudioFileReaderNoError);
  EXPECT_EQ(size, sizeof value);
  return value;
}

int32_t setClientFormat(AudioFileReaderRef reader, const StreamFormat& format) {
  return AudioFileReaderSetProperty(reader, P::ClientDataFormat, sizeof format, &format);
}

// One read of up to frames frames into out; returns the status, sets delivered. A read that
// succeeds sets the buffer's byte size to what it delivered.
int32_t readFrames(AudioFileReaderRef reader, uint32_t frames, float* out, uint32_t* delivered,
                   uint32_t byteSize = UINT32_MAX) {
  AudioBufferList list{1, {{1, byteSize == UINT32_MAX ? frames * 4 : byteSize, out}}};
  *delivered = frames;
  const int32_t status = AudioFileReaderRead(reader, delivered, &list);
  EXPECT_TRUE(status != kAudioFileReaderNoError ||
              list.mBuffers[0].mDataByteSize == *delivered * 4);
  return status;
}

// Every frame of path in one read. Exactly the length the reader reports arrives, and the last
// frame can be sought and read again (to the same value unless the codec is lossy).
std::vector<float> readWhole(const std::filesystem::path& path, bool exactSeek = true) {
  AudioFileReaderRef reader = nullptr;
  EXPECT_EQ(AudioFileReaderOpen(path, &reader), kAudioFileReaderNoError);
  if (reader == nullptr) {
    return {};
  }
  const double rate = propertyOf<StreamFormat>(reader, P::FileDataFormat).mSampleRate;
  EXPECT_EQ(setClientFormat(reader, clientFormat(rate)), kAudioFileReaderNoError);
  const auto length = propertyOf<int64_t>(reader, P::FileLengthFrames);
  std::vector<float> samples(static_cast<size_t>(length) + 10, -9.0f);
  uint32_t delivered = 0;
  EXPECT_EQ(readFrames(reader, static_cast<uint32_t>(samples.size()), samples.data(), &delivered),
            kAudioFileReaderNoError);
  samples.resize(delivered);
  EXPECT_EQ(static_cast<int64_t>(delivered), length);
  float last[2] = {-9.0f, -9.0f};
  if (length > 0) {
    EXPECT_EQ(AudioFileReaderSeek(reader, length - 1), kAudioFileReaderNoError);
    EXPECT_EQ(readFrames(reader, 2, last, &delivered), kAudioFileReaderNoError);
    EXPECT_EQ(delivered, 1u);
    EXPECT_TRUE(!exactSeek || last[0] == samples.back());
  }
  EXPECT_EQ(AudioFileReaderDispose(reader), kAudioFileReaderNoError);
  return samples;
}

// The normalised correlation of decoded with channel 0 of written at the best lag within 3000
// samples (a codec's latency shifts the signal).
double bestCorrelation(const std::vector<float>& written, uint32_t channels,
                       const std::vector<float>& decoded) {
  double best = 0;
  for (int64_t lag = -3000; lag <= 3000; ++lag) {
    double sum = 0, energyA = 0, energyB = 0;
    for (int64_t n = 20000; n < 70000; ++n) {
      const double a = written[channels * n], b = decoded[n + lag];
      sum += a * b;
      energyA += a * a;
      energyB += b * b;
    }
    best = std::max(best, sum / std::sqrt(energyA * energyB));
  }
  return best;
}

// Every container and sample format: the file's own format and its frames read back (exactly for
// PCM and float, through several passes of the reader's 4096-frame buffer; by correlation for the
// lossy codecs, on a 440 Hz tone); cut in half, what is left is what the length says (a cut Ogg
// Opus file may not open at all).
TEST(AudioFileReader, ReadsEveryContainerAndSampleFormat) {
  const struct {
    const char* name;
    AudioFileWriterFormat format;  // container, encoding, rate, channels
    uint32_t bits, flags;
    bool lossy, cut;
  } cases[] = {
      {"wav16mono.wav", {C::WAV, E::PCM16, 48000, 1}, 16, kInt, false, false},
      {"wav24stereo.wav", {C::WAV, E::PCM24, 44100, 2}, 24, kInt, false, true},
      {"wavfloat.wav", {C::WAV, E::Float32, 96000, 2}, 32, kFloat, false, false},
      {"wav6float.wav", {C::WAV, E::Float32, 8000, 6}, 32, kFloat, false, false},
      {"aiff16stereo.aiff", {C::AIFF, E::PCM16, 48000, 2}, 16, kInt, false, true},
      {"aiff24mono.aiff", {C::AIFF, E::PCM24, 32000, 1}, 24, kInt, false, false},
      {"flac16mono.flac", {C::FLAC, E::PCM16, 48000, 1}, 16, kInt, false, false},
      {"flac24stereo.flac", {C::FLAC, E::PCM24, 88200, 2}, 24, kInt, false, true},
      {"caf.caf", {C::CAF, E::Float64, 48000, 3}, 64, kFloat, false, false},
      {"w64.w64", {C::W64, E::PCM32, 22050, 2}, 32, kInt, false, true},
      {"rf64.rf64", {C::RF64, E::PCM16, 48000, 2}, 16, kInt, false, true},
      {"vorbis.ogg", {C::Ogg, E::Vorbis, 48000, 2}, 32, kFloat, true, true},
      {"opus.opus", {C::Ogg, E::Opus, 48000, 2}, 32, kFloat, true, false},
      {"layer3.mp3", {C::MPEG, E::MPEGLayer3, 48000, 2}, 32, kFloat, true, true},
  };
  constexpr int64_t kFrames = 96000;
  TempDir dir;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const uint32_t channels = c.format.channels;
    std::vector<float> written = testSignal(kFrames, channels);
    for (int64_t n = 0; c.lossy && n < kFrames; ++n) {
      written[2 * n] = written[2 * n + 1] =
          0.5f * static_cast<float>(std::sin(2.0 * M_PI * 440.0 * n / 48000.0));
    }
    writeRecording(dir / c.name, c.format, written);
    AudioFileReaderRef reader = nullptr;
    ASSERT_EQ(AudioFileReaderOpen(dir / c.name, &reader), kAudioFileReaderNoError);
    const auto format = propertyOf<StreamFormat>(reader, P::FileDataFormat);
    EXPECT_EQ(AudioFileReaderDispose(reader), kAudioFileReaderNoError);
    // Linear PCM in packed frames, one a packet.
    const uint32_t bytes = c.bits / 8 * channels;
    const double rate = c.format.sampleRate;
    const StreamFormat expected{rate, kPCM, c.flags, bytes, 1, bytes, channels, c.bits, 0};
    EXPECT_EQ(std::memcmp(&format, &expected, sizeof format), 0);
    const std::vector<float> decoded = readWhole(dir / c.name, !c.lossy);
    if (c.lossy) {
      EXPECT_NEAR(static_cast<double>(decoded.size()), kFrames, 3000.0);
      EXPECT_GT(bestCorrelation(written, channels, decoded), 0.99);
    } else {
      EXPECT_EQ(decoded, mixdown(written, channels));
    }
    // Cut in half (of the test signal, lossy or not), the frames before the cut: PCM up to its last
    // whole frame, FLAC up to its last whole block (the stream information's smallest size).
    if (c.cut) {
      const std::string cut = std::string("cut-") + c.name;
      const std::vector<float> signal = testSignal(kFrames, channels),
                               mono = mixdown(signal, channels);
      writeRecording(dir / cut, c.format, signal);
      const std::string bytes = TestSupport::readFile(dir / cut);
      TestSupport::writeFile(dir / cut, bytes.substr(0, bytes.size() / 2));
      const std::vector<float> left = readWhole(dir / cut);
      EXPECT_GT(left.size(), kFrames / 4);
      EXPECT_LT(left.size(), kFrames * 3 / 4);
      EXPECT_TRUE(c.lossy || left == std::vector<float>(mono.begin(), mono.begin() + left.size()));
      const size_t block = static_cast<uint8_t>(bytes[8]) << 8 | static_cast<uint8_t>(bytes[9]);
      EXPECT_TRUE(c.format.container != C::FLAC || left.size() % block == 0) << block;
    }
  }
}

TEST(AudioFileReader, RefusesWhatIsNotAudioAndReadsWhatACutFileHolds) {
  TempDir dir;
  writeRecording(dir / "good.wav", {C::WAV, E::PCM16, 8000, 1}, testSignal(1000, 1));
  const std::string wav = TestSupport::readFile(dir / "good.wav");
  TestSupport::writeFile(dir / "empty.wav", "");
  TestSupport::writeFile(dir / "header-cut.wav", wav.substr(0, 20));
  TestSupport::writeFile(dir / "text.wav", "time,time_error\n0.1,0.2\n");
  std::filesystem::create_directory(dir / "folder.wav");
  for (const char* name :
       {"missing.wav", "empty.wav", "header-cut.wav", "text.wav", "folder.wav", "/dev/zero"}) {
    AudioFileReaderRef reader = reinterpret_cast<AudioFileReaderRef>(0x1);
    EXPECT_EQ(AudioFileReaderOpen(dir / name, &reader), kAudioFileReaderErrorOpen) << name;
    EXPECT_EQ(reader, nullptr) << name;
  }
  EXPECT_EQ(AudioFileReaderOpen("/dev/zero", nullptr), kAudioFileReaderErrorBadArgument);

  // Cut inside the sample data, a WAV file is read up to its last whole frame: 44 header bytes,
  // then 2 a frame (cuts of other containers: the format table; headers claiming other lengths:
  // the audio-flac-lengths run).
  TestSupport::writeFile(dir / "data-cut.wav", wav.substr(0, 44 + 2 * 600 + 1));
  EXPECT_EQ(readWhole(dir / "data-cut.wav"), testSignal(600, 1));

  // Cut while open: a read delivers the frames still there, without an error.
  AudioFileReaderRef reader = nullptr;
  ASSERT_EQ(AudioFileReaderOpen(dir / "good.wav", &reader), kAudioFileReaderNoError);
  ASSERT_EQ(setClientFormat(reader, clientFormat(8000)), kAudioFileReaderNoError);
  std::filesystem::resize_file(dir / "good.wav", 44 + 2 * 600);
  std::vector<float> out(1000);
  uint32_t delivered = 0;
  EXPECT_EQ(readFrames(reader, 1000, out.data(), &delivered), kAudioFileReaderNoError);
  out.resize(delivered);
  EXPECT_EQ(out, testSignal(600, 1));
  EXPECT_EQ(AudioFileReaderDispose(reader), kAudioFileReaderNoError);
}

// Each call's status in turn on one file: refusing any client format but one channel of 32-bit
// floats at the file's own rate, before one is set, then with one; then seeks and reads.
TEST(AudioFileReader, AcceptsOnlyOneFloatChannelReportsMisuseAndSeeksByFrame) {
  TempDir dir;
  constexpr int64_t kFrames = 5000;
  const std::vector<float> mono = mixdown(testSignal(kFrames, 2), 2);
  writeRecording(dir / "a.flac", {C::FLAC, E::PCM16, 8000, 2}, testSignal(kFrames, 2));
  AudioFileReaderRef reader = nullptr;
  ASSERT_EQ(AudioFileReaderOpen(dir / "a.flac", &reader), kAudioFileReaderNoError);
  // Rate, format, flags, bytes per packet, frames per packet, bytes per frame, channels, bits.
  const StreamFormat refused[] = {
      {48000, kPCM, 0x31, 4, 1, 4, 1, 32, 0}, {8000.0001, kPCM, 0x31, 4, 1, 4, 1, 32, 0},
      {8000, kPCM, kInt, 4, 1, 4, 1, 32, 0},  {8000, kPCM, kInt, 2, 1, 2, 1, 16, 0},
      {8000, kPCM, 0x31, 8, 1, 8, 2, 32, 0},  {8000, kPCM, 0x31, 8, 1, 8, 1, 64, 0},
      {8000, kPCM, 0x33, 4, 1, 4, 1, 32, 0},  {8000, 0x61616320, 0x31, 4, 1, 4, 1, 32, 0},
      {8000, kPCM, 0x31, 4, 2, 4, 1, 32, 0}};
  for (const StreamFormat& refusal : refused) {
    EXPECT_EQ(setClientFormat(reader, refusal), kAudioFileReaderErrorUnsupportedClientFormat)
        << "refusal " << &refusal - refused;
  }
  // Float with the packed flag instead of aligned-high is the same layout.
  const StreamFormat client = clientFormat(8000);
  const StreamFormat packed{8000, kPCM, kFloat, 4, 1, 4, 1, 32, 0};
  StreamFormat format{};
  int64_t frames = 0;
  uint32_t size39 = 39, size40 = 40, count = 4, none = 0;
  float samples[4];
  AudioBufferList twoChannels{1, {{2, sizeof samples, samples}}};
  AudioBufferList noBuffers{0, {{1, sizeof samples, samples}}};
  AudioBufferList noData{1, {{1, sizeof samples, nullptr}}};
  AudioBufferList tooSmall{1, {{1, 3, samples}}};
  AudioBufferList fine{1, {{1, sizeof samples, samples}}};
  AudioBufferList empty{1, {{1, 0, nullptr}}};
  const auto seek = [&](int64_t frame) {
    return [=] { return AudioFileReaderSeek(reader, frame); };
  };
  const auto get = [&](P property, uint32_t* size, void* out) {
    return [=] { return AudioFileReaderGetProperty(reader, property, size, out); };
  };
  const auto set = [&](P property, uint32_t size, const void* in) {
    return [=] { return AudioFileReaderSetProperty(reader, property, size, in); };
  };
  const auto read = [&](uint32_t* frameCount, AudioBufferList* list) {
    return [=] { return AudioFileReaderRead(reader, frameCount, list); };
  };
  const std::pair<std::function<int32_t()>, int32_t> rows[] = {
      {[] { return AudioFileReaderGetProperty(nullptr, P::FileDataFormat, nullptr, nullptr); },
       kAudioFileReaderErrorInvalidReader},
      {[] { return AudioFileReaderSetProperty(nullptr, P::ClientDataFormat, 40, nullptr); },
       kAudioFileReaderErrorInvalidReader},
      {[] { return AudioFileReaderSeek(nullptr, 0); }, kAudioFileReaderErrorInvalidReader},
      {[] { return AudioFileReaderRead(nullptr, nullptr, nullptr); },
       kAudioFileReaderErrorInvalidReader},
      {[] { return AudioFileReaderDispose(nullptr); }, kAudioFileReaderErrorInvalidReader},
      {get(P::ClientDataFormat, &size40, &format), kAudioFileReaderErrorNoClientFormat},
      {read(&count, &fine), kAudioFileReaderErrorNoClientFormat},
      {get(P::FileDataFormat, &size39, &format), kAudioFileReaderErrorBadPropertySize},
      {get(P::FileLengthFrames, &size40, &frames), kAudioFileReaderErrorBadPropertySize},
      {get(P::FileDataFormat, nullptr, &format), kAudioFileReaderErrorBadArgument},
      {get(P::FileDataFormat, &size40, nullptr), kAudioFileReaderErrorBadArgument},
      {get(static_cast<P>(99), &size40, &format), kAudioFileReaderErrorBadProperty},
      {set(P::FileDataFormat, 40, &client), kAudioFileReaderErrorBadProperty},
      {set(P::FileLengthFrames, 8, &frames), kAudioFileReaderErrorBadProperty},
      {set(P::ClientDataFormat, 41, &client), kAudioFileReaderErrorBadPropertySize},
      {set(P::ClientDataFormat, 40, nullptr), kAudioFileReaderErrorBadArgument},
      {set(P::ClientDataFormat, 40, &packed), kAudioFileReaderNoError},
      {set(P::ClientDataFormat, 40, &client), kAudioFileReaderNoError},
      {get(P::ClientDataFormat, &size40, &format), kAudioFileReaderNoError},
      {read(&count, &twoChannels), kAudioFileReaderErrorBadBuffer},
      {read(&count, &noBuffers), kAudioFileReaderErrorBadBuffer},
      {read(&count, &noData), kAudioFileReaderErrorBadBuffer},
      {read(&count, &tooSmall), kAudioFileReaderErrorBadBuffer},
      {read(nullptr, &fine), kAudioFileReaderErrorBadArgument},
      {read(&count, nullptr), kAudioFileReaderErrorBadArgument},
      // Before the start or beyond the end; zero frames with no buffer.
      {seek(-1), kAudioFileReaderErrorSeek},
      {seek(INT64_MIN), kAudioFileReaderErrorSeek},
      {seek(kFrames + 1), kAudioFileReaderErrorSeek},
      {read(&none, &empty), kAudioFileReaderNoError},
      {read(&count, &fine), kAudioFileReaderNoError}};
  for (size_t row = 0; row < std::size(rows); ++row) {
    EXPECT_EQ(rows[row].first(), rows[row].second) << "row " << row;
  }
  EXPECT_EQ(std::memcmp(&format, &client, sizeof format), 0);
  EXPECT_EQ(count + none, 4u);

  // Then reads after an optional seek: as many frames as asked and as the buffer's byte size holds,
  // never more than are left, from the frame the last read or seek left (the refused seeks moved
  // nothing: on from the 4 frames read last); nothing written past.
  const struct {
    int64_t seek;
    uint32_t frames, byteSize, delivered;
    int64_t from;
  } reads[] = {
      {-1, 100, 400, 100, 4},         {-1, 50, 200, 50, 104},  // continuing where the last stopped
      {4321, 4000, 16000, 679, 4321}, {-1, 10, 40, 0, 0},      // the rest, then nothing
      {10, 100, 41, 10, 10},          {kFrames, 10, 40, 0, 0}, {0, 1, 4, 1, 0},
  };
  for (const auto& read : reads) {
    ASSERT_EQ(read.seek < 0 ? 0 : AudioFileReaderSeek(reader, read.seek), kAudioFileReaderNoError);
    std::vector<float> out(read.frames + 1, -9.0f);
    uint32_t delivered = 0;
    ASSERT_EQ(readFrames(reader, read.frames, out.data(), &delivered, read.byteSize),
              kAudioFileReaderNoError);
    EXPECT_EQ(delivered, read.delivered) << read.seek << " " << read.frames;
    EXPECT_EQ(std::vector<float>(out.begin(), out.begin() + delivered),
              std::vector<float>(mono.begin() + read.from, mono.begin() + read.from + delivered));
    EXPECT_EQ(out[delivered], -9.0f);
  }
  EXPECT_EQ(AudioFileReaderDispose(reader), kAudioFileReaderNoError);
}

TEST(AudioFileWriter, RefusesFormatsItsContainerCannotHoldAndReportsMisuse) {
  TempDir dir;
  AudioFileWriterRef writer = reinterpret_cast<AudioFileWriterRef>(0x1);
  const AudioFileWriterFormat refused[] = {
      {C::WAV, E::Opus, 48000, 1},     {C::Ogg, E::Opus, 44100, 1},
      {C::FLAC, E::Float32, 48000, 1}, {C::WAV, E::PCM16, 0, 1},
      {C::WAV, E::PCM16, 48000, 0},    {static_cast<AudioFileContainer>(77), E::PCM16, 48000, 1},
  };
  for (const AudioFileWriterFormat& format : refused) {
    SCOPED_TRACE(static_cast<int>(format.encoding));
    EXPECT_EQ(AudioFileWriterCreate(dir / "x", format, &writer),
              kAudioFileWriterErrorUnsupportedFormat);
    EXPECT_EQ(writer, nullptr);
  }
  // Opus takes its five rates only.
  for (uint32_t rate : {8000, 12000, 16000, 24000, 48000}) {
    const AudioFileWriterFormat opus{C::Ogg, E::Opus, rate, 1};
    EXPECT_EQ(AudioFileWriterCreate(dir / "o.opus", opus, &writer), kAudioFileWriterNoError)
        << rate;
    EXPECT_EQ(AudioFileWriterDispose(writer), kAudioFileWriterNoError);
  }
  const AudioFileWriterFormat wav{C::WAV, E::PCM16, 8000, 1};
  EXPECT_EQ(AudioFileWriterCreate(dir / "missing" / "x.wav", wav, &writer),
            kAudioFileWriterErrorCreate);
  EXPECT_EQ(AudioFileWriterCreate(dir / "x.wav", wav, nullptr), kAudioFileWriterErrorBadArgument);
  EXPECT_EQ(AudioFileWriterWrite(nullptr, nullptr, 0), kAudioFileWriterErrorInvalidWriter);
  EXPECT_EQ(AudioFileWriterDispose(nullptr), kAudioFileWriterErrorInvalidWriter);

  // Full scale clips to the largest 16-bit value rather than wrapping to the most negative one.
  ASSERT_EQ(AudioFileWriterCreate(dir / "x.wav", wav, &writer), kAudioFileWriterNoError);
  const float extremes[] = {1.0f, -1.0f, 1.5f};
  EXPECT_EQ(AudioFileWriterWrite(writer, nullptr, 3), kAudioFileWriterErrorBadArgument);
  EXPECT_EQ(AudioFileWriterWrite(writer, extremes, 3), kAudioFileWriterNoError);
  EXPECT_EQ(AudioFileWriterDispose(writer), kAudioFileWriterNoError);
  EXPECT_EQ(readWhole(dir / "x.wav"),
            (std::vector<float>{32767 / 32768.0f, -1.0f, 32767 / 32768.0f}));
}

}  // namespace
