// How the audio time error calculator fares on the signal classes users bring, each pair with
// exact truth: B renders the same continuous signal at the instants B's clock samples it
// (delay = offset + drift t at A's time t), with independent white noise on each channel.
// Classes: band-limited noise, random notes, rhythmic music (one bar of kick, hat, bass and
// chord repeated exactly, at several seeds and tempos), a steady 1 kHz tone and a click train
// (one short broadband pulse a second), pink noise; B late or early by up to 3 s, inverted; 40,
// 20 and 10 dB SNR; either channel through a lossy codec (Vorbis, Opus, MP3, by a round trip
// through a file); both through rooms of their own (direct sound, early reflections and a
// decaying tail, different for A and B), as two microphones in one room hear a source. 20 s at
// 48 kHz, interval 4800, length 4096, upscale 16, post-resampler. Codec and room cases are scored
// with their constant offset (the codec's delay, the rooms' difference) removed; const_us says
// how large it was.
//
// Per case, for the calculator (BM_Calculator) and, on the same pair, a plain FFT
// cross-correlation of each window of A against B over +-3.2 s with a parabola through the peak
// (BM_PlainCorrelation): coverage (windows with a value over windows with signal in both
// channels), rms_ns and max_ns (error against the truth over the values), off_1us (values off
// by more than 1 us) and x_realtime; for the calculator also how many windows with signal it
// judged silent, weak, ambiguous, uncertain, lost or outside, and how honest its stated
// uncertainties are (beyond_3u, beyond_5u: values off by more than 3 and 5 times theirs;
// sure_off_1us: values stated to within 200 ns yet off by more than 1 us).

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "AudioFileReader.h"
#include "AudioFileWriter.h"
#include "SyntheticSignal.h"
#include "VDAudioTimeErrorCalculator.h"
#include "VDFFTCorrelator.h"

namespace {

using synthetic::Note;
using synthetic::Partial;
using synthetic::Signal;

constexpr double kRate = 48000.0;
constexpr int64_t kInterval = 4800;
constexpr int64_t kLength = 4096;
constexpr int64_t kUpscale = 16;
constexpr double kSeconds = 20.0;
constexpr int64_t kSamples = static_cast<int64_t>(kSeconds * kRate);
constexpr double kDrift = 30e-6;
constexpr double kPlainRangeSeconds = 3.2;

Note harmonicNote(double start, double duration, double fundamental, double decay,
                  std::mt19937_64& random, double top = 12000.0) {
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  Note note{start, duration, 0.004, decay, 0.02, {}};
  for (int h = 1; h * fundamental < top; ++h) {
    note.partials.push_back({h * fundamental, (0.5 + unit(random)) / h, 2 * M_PI * unit(random)});
  }
  return note;
}

Signal noiseSignal() {
  std::mt19937_64 random(11);
  std::uniform_real_distribution<double> frequency(20.0, 20000.0), phase(0, 2 * M_PI);
  Note note{-5.0, kSeconds + 15.0, 0.0, INFINITY, 0.0, {}};
  for (int i = 0; i < 800; ++i) {
    note.partials.push_back({frequency(random), 1.0, phase(random)});
  }
  return {note};
}

Signal randomNotes() {
  std::mt19937_64 random(19700101);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  Signal signal;
  for (double start = -4.0; start < kSeconds + 4.0; start += 0.1 + 0.25 * unit(random)) {
    signal.push_back(harmonicNote(start, 0.4 + 0.8 * unit(random),
                                  82.4 * std::pow(2.0, std::floor(unit(random) * 36.0) / 12.0),
                                  0.15 + 0.4 * unit(random), random));
  }
  return signal;
}

// One bar drawn from the seed, repeated exactly: kick on every beat, hat on the off-beats, a
// bass note per beat from four, a chord per bar.
Signal rhythmic(uint64_t seed, double bpm) {
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  const double beat = 60.0 / bpm, bar = 4 * beat;
  double bass[4], chord[3];
  for (double& f : bass) f = 41.2 * std::pow(2.0, std::floor(unit(random) * 12.0) / 12.0);
  for (double& f : chord) f = 220.0 * std::pow(2.0, std::floor(unit(random) * 12.0) / 12.0);
  Note kick{0, 0.25, 0.002, 0.06, 0.02, {{55.0, 3.0, 0.0}, {110.0, 1.0, 0.5}, {180.0, 0.5, 1.0}}};
  Note hat{0, 0.05, 0.001, 0.015, 0.01, {}};
  for (int i = 0; i < 40; ++i) {
    hat.partials.push_back({6000.0 + 8000.0 * unit(random), 0.1, 2 * M_PI * unit(random)});
  }
  std::mt19937_64 partials(seed + 1);
  Signal signal;
  for (double start = -4.0; start < kSeconds + 4.0; start += bar) {
    for (int b = 0; b < 4; ++b) {
      const double t = start + b * beat;
      kick.start = t;
      signal.push_back(kick);
      hat.start = t + beat / 2;
      signal.push_back(hat);
      std::mt19937_64 same(seed * 10 + b);
      signal.push_back(harmonicNote(t, 0.9 * beat, bass[b], 0.3, same, 3000.0));
    }
    for (int c = 0; c < 3; ++c) {
      std::mt19937_64 same(seed * 100 + c);
      signal.push_back(harmonicNote(start, 0.95 * bar, chord[c], 1.0, same, 8000.0));
    }
  }
  return signal;
}

Signal tone(double frequency) {
  return {Note{-5.0, kSeconds + 15.0, 0.0, INFINITY, 0.0, {{frequency, 1.0, 0.3}}}};
}

// Clicks of 3 ms, perSecond of them every second.
Signal clicks(double perSecond) {
  std::mt19937_64 random(5);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  Note click{0, 0.003, 0.0005, 0.0008, 0.0005, {}};
  for (int i = 0; i < 100; ++i) {
    click.partials.push_back({500.0 + 15000.0 * unit(random), 1.0, 2 * M_PI * unit(random)});
  }
  Signal signal;
  for (double t = -4.0; t < kSeconds + 4.0; t += 1.0 / perSecond) {
    click.start = t + 0.3;
    signal.push_back(click);
  }
  return signal;
}

// Partials of equal phase density from 20 Hz to 20 kHz with amplitudes falling as 1/sqrt(f).
Signal pinkNoise() {
  std::mt19937_64 random(13);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  Note note{-5.0, kSeconds + 15.0, 0.0, INFINITY, 0.0, {}};
  for (int i = 0; i < 800; ++i) {
    const double frequency = 20.0 * std::pow(1000.0, unit(random));
    note.partials.push_back(
        {frequency, 1.0 / std::sqrt(frequency / 20.0), 2 * M_PI * unit(random)});
  }
  return {note};
}

enum class Codec { None, VorbisOnB, OpusOnBoth, MP3OnA };

// A room's response: the direct sound, a dozen reflections within 30 ms and a tail of noise
// decaying by 60 dB in 0.3 s, drawn from the seed.
std::vector<double> roomResponse(uint64_t seed) {
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::normal_distribution<double> gauss(0.0, 1.0);
  std::vector<double> response(static_cast<size_t>(0.4 * kRate), 0.0);
  response[0] = 1.0;
  for (int i = 0; i < 12; ++i) {
    response[static_cast<size_t>((0.002 + 0.028 * unit(random)) * kRate)] +=
        (unit(random) < 0.5 ? -1 : 1) * (0.2 + 0.5 * unit(random));
  }
  for (size_t n = static_cast<size_t>(0.01 * kRate); n < response.size(); ++n) {
    response[n] += 0.05 * gauss(random) * std::pow(10.0, -3.0 * n / (0.3 * kRate));
  }
  return response;
}

// signal convolved with response, by one FFT correlation with the response reversed.
void throughRoom(const std::vector<double>& response, std::vector<double>& signal) {
  const int64_t length = static_cast<int64_t>(response.size());
  const int64_t count = static_cast<int64_t>(signal.size());
  VDFFTCorrelator correlator(VDFFTCorrelator::fastSize(count + length));
  std::fill(correlator.reference(), correlator.reference() + correlator.size(), 0.0);
  std::fill(correlator.other(), correlator.other() + correlator.size(), 0.0);
  std::reverse_copy(response.begin(), response.end(), correlator.reference());
  std::copy(signal.begin(), signal.end(), correlator.other());
  const double* result = correlator.correlate();
  const int64_t size = static_cast<int64_t>(correlator.size());
  for (int64_t j = 0; j < count; ++j) {
    signal[j] = result[((j - length + 1) % size + size) % size];
  }
}

// The samples after a round trip through a lossy file: what a user's encoded recording holds.
void throughCodec(AudioFileContainer container, AudioSampleEncoding encoding,
                  std::vector<float>& samples) {
  const std::filesystem::path path =
      std::filesystem::temp_directory_path() / ("vd-signals-bench-" + std::to_string(::getpid()));
  AudioFileWriterRef writer = nullptr;
  if (AudioFileWriterCreate(path, {container, encoding, 48000, 1}, &writer) != 0 ||
      AudioFileWriterWrite(writer, samples.data(), samples.size()) != 0 ||
      AudioFileWriterDispose(writer) != 0) {
    std::fprintf(stderr, "encoding failed\n");
    std::exit(1);
  }
  AudioFileReaderRef reader = nullptr;
  uint32_t size = sizeof(StreamFormat);
  StreamFormat format{};
  AudioFileReaderOpen(path, &reader);
  AudioFileReaderGetProperty(reader, AudioFileReaderProperty::FileDataFormat, &size, &format);
  format.mFormatID = kAudioFormatLinearPCM;
  format.mFormatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
  format.mBytesPerPacket = format.mBytesPerFrame = 4;
  format.mFramesPerPacket = format.mChannelsPerFrame = 1;
  format.mBitsPerChannel = 32;
  AudioFileReaderSetProperty(reader, AudioFileReaderProperty::ClientDataFormat, size, &format);
  std::fill(samples.begin(), samples.end(), 0.0f);
  for (size_t done = 0; done < samples.size();) {
    uint32_t frames = static_cast<uint32_t>(std::min<size_t>(samples.size() - done, 1 << 16));
    AudioBufferList buffers{1, {{1, frames * 4, samples.data() + done}}};
    if (AudioFileReaderRead(reader, &frames, &buffers) != 0 || frames == 0) {
      break;
    }
    done += frames;
  }
  AudioFileReaderDispose(reader);
  std::filesystem::remove(path);
}

struct Case {
  const char* name;
  int signal;  // 0 noise, 1 notes, 2 rhythmic, 3 tone, 4 clicks, 5 pink noise
  uint64_t seed;
  double bpm, offset, snrDb;
  bool inverted;
  Codec codec = Codec::None;
  uint64_t rooms = 0;  // A through the room drawn from this seed, B the next one's; 0: none
};

const Case kCases[] = {
    {"noise_40dB", 0, 0, 0, 0.0125, 40, false},
    {"noise_10dB", 0, 0, 0, 0.0125, 10, false},
    {"notes_40dB", 1, 0, 0, 0.0125, 40, false},
    {"notes_20dB", 1, 0, 0, 0.0125, 20, false},
    {"notes_B_early_2s", 1, 0, 0, -2.0, 40, false},
    {"rhythm1_120bpm", 2, 1, 120, 0.0125, 40, false},
    {"rhythm2_96bpm", 2, 2, 96, 0.0125, 40, false},
    {"rhythm3_140bpm", 2, 3, 140, 0.0125, 40, false},
    {"rhythm1_inverted", 2, 1, 120, 0.0125, 40, true},
    {"rhythm1_B_early_0.5s", 2, 1, 120, -0.5, 40, false},
    {"rhythm1_B_late_3s", 2, 1, 120, 3.0, 40, false},
    {"rhythm2_20dB", 2, 2, 96, 0.0125, 20, false},
    {"tone_1kHz", 3, 0, 0, 0.0125, 40, false},
    {"clicks_1Hz", 4, 0, 0, 0.0125, 40, false},
    {"pink_10dB", 5, 0, 0, 0.0125, 10, false},
    {"notes_10dB", 1, 0, 0, 0.0125, 10, false},
    {"rhythm2_vorbis_B", 2, 2, 96, 0.0125, 40, false, Codec::VorbisOnB},
    {"notes_opus_both", 1, 0, 0, 0.0125, 40, false, Codec::OpusOnBoth},
    {"rhythm3_mp3_A", 2, 3, 140, 0.0125, 40, false, Codec::MP3OnA},
    {"notes_rooms", 1, 0, 0, 0.0125, 40, false, Codec::None, 1},
    {"rhythm1_rooms", 2, 1, 120, 0.0125, 40, false, Codec::None, 1},
    {"noise_rooms", 0, 0, 0, 0.0125, 40, false, Codec::None, 1},
    {"rhythm4_110bpm", 2, 4, 110, 0.0125, 40, false},
    {"rhythm5_128bpm", 2, 5, 128, -1.3, 40, false},
    {"rhythm6_90bpm", 2, 6, 90, 0.0125, 40, true},
    {"rhythm7_150bpm", 2, 7, 150, 7.5, 40, false},
    {"rhythm8_100bpm", 2, 8, 100, -9.0, 40, false},
    {"rhythm8_100bpm_late", 2, 8, 100, 0.0125, 40, false},
    {"rhythm1_early_9s", 2, 1, 120, -9.0, 40, false},
    {"notes_early_9s", 1, 0, 0, -9.0, 40, false},
    {"notes_late_9s", 1, 0, 0, 9.0, 40, false},
    {"rhythm10_105bpm_early_4s", 2, 10, 105, -4.0, 40, false},
    {"rhythm11_135bpm_late_6s", 2, 11, 135, 6.0, 40, false},
    {"rhythm12_80bpm_early_11s", 2, 12, 80, -11.0, 40, true},
    {"rhythm13_118bpm", 2, 13, 118, 0.3, 40, false},
    {"rhythm14_145bpm_early_2s", 2, 14, 145, -2.0, 40, false},
    {"rhythm15_95bpm_late_1s", 2, 15, 95, 1.0, 40, false},
    {"rhythm16_126bpm_early_7s", 2, 16, 126, -7.0, 40, false},
    {"rhythm17_112bpm_late_10s", 2, 17, 112, 10.0, 40, false},
    {"tone_440Hz_B_early_2.5s", 3, 0, 440, -2.5, 40, false},
    {"tone_3kHz_20dB", 3, 0, 3000, 0.0125, 20, false},
    {"clicks_4Hz_B_early_3s", 4, 0, 4, -3.0, 40, false},
    {"clicks_1Hz_20dB_inverted", 4, 0, 0, 0.0125, 20, true},
    {"rhythm9_124bpm_20dB", 2, 9, 124, 0.0125, 20, false},
    {"notes_rooms3", 1, 0, 0, 0.0125, 40, false, Codec::None, 3},
    {"notes_rooms5_B_early_2s", 1, 0, 0, -2.0, 40, false, Codec::None, 5},
    {"notes_rooms7", 1, 0, 0, 0.0125, 40, false, Codec::None, 7},
    {"rhythm3_rooms9", 2, 3, 140, 0.0125, 40, false, Codec::None, 9},
    {"pink_rooms11", 5, 0, 0, 0.0125, 40, false, Codec::None, 11},
};

// Tones and clicks: their frequency, or clicks per second, in bpm's place (1 kHz, one a second
// where it is 0).
double rateOf(const Case& c) { return c.bpm > 0 ? c.bpm : c.signal == 3 ? 1000.0 : 1.0; }

double periodOf(const Case& c) { return c.signal == 3 || c.signal == 4 ? 1.0 / rateOf(c) : 0.0; }

struct Pair {
  std::vector<float> a, b;
  std::vector<bool> signal;  // per window: both channels carry the signal there
};

const Pair& pairOf(int index) {
  static std::map<int, Pair> pairs;
  auto found = pairs.find(index);
  if (found != pairs.end()) {
    return found->second;
  }
  const Case& c = kCases[index];
  const Signal signal = c.signal == 0   ? noiseSignal()
                        : c.signal == 1 ? randomNotes()
                        : c.signal == 2 ? rhythmic(c.seed, c.bpm)
                        : c.signal == 3 ? tone(rateOf(c))
                        : c.signal == 4 ? clicks(rateOf(c))
                                        : pinkNoise();
  std::vector<double> a(kSamples, 0.0), b(kSamples, 0.0);
  synthetic::render(signal, 0.0, 1.0 / kRate, kSamples, a);
  synthetic::render(signal, -c.offset / (1.0 + kDrift), 1.0 / (kRate * (1.0 + kDrift)), kSamples,
                    b);
  if (c.rooms) {
    throughRoom(roomResponse(c.rooms), a);
    throughRoom(roomResponse(c.rooms + 1), b);
  }
  double power = 0;
  for (double v : a) power += v * v;
  power /= kSamples;
  const double scale = 0.1 / std::sqrt(power);
  const double noiseLevel = 0.1 * std::pow(10.0, -c.snrDb / 20.0);
  std::mt19937_64 random(1000 + index);
  std::normal_distribution<double> noise(0.0, 1.0);
  Pair pair{std::vector<float>(kSamples), std::vector<float>(kSamples), {}};
  for (int64_t n = 0; n < kSamples; ++n) {
    pair.a[n] = static_cast<float>(scale * a[n] + noiseLevel * noise(random));
    const double sign = c.inverted ? -1.0 : 1.0;
    pair.b[n] = static_cast<float>(sign * scale * b[n] + noiseLevel * noise(random));
  }
  switch (c.codec) {
    case Codec::None:
      break;
    case Codec::VorbisOnB:
      throughCodec(AudioFileContainer::Ogg, AudioSampleEncoding::Vorbis, pair.b);
      break;
    case Codec::OpusOnBoth:
      throughCodec(AudioFileContainer::Ogg, AudioSampleEncoding::Opus, pair.a);
      throughCodec(AudioFileContainer::Ogg, AudioSampleEncoding::Opus, pair.b);
      break;
    case Codec::MP3OnA:
      throughCodec(AudioFileContainer::MPEG, AudioSampleEncoding::MPEGLayer3, pair.a);
      break;
  }
  // A window carries signal when its clean energy is above the noise's and its match in B lies
  // inside B.
  for (int64_t start = 0; start + kLength <= kSamples; start += kInterval) {
    double energy = 0;
    for (int64_t n = start; n < start + kLength; ++n) energy += scale * scale * a[n] * a[n];
    const double centre = (start + (kLength - 1) / 2.0) / kRate;
    const double matchStart = start + (c.offset + kDrift * centre) * kRate;
    pair.signal.push_back(energy > kLength * noiseLevel * noiseLevel && matchStart >= 0 &&
                          matchStart + kLength <= kSamples);
  }
  return pairs.emplace(index, std::move(pair)).first->second;
}

struct Score {
  int64_t withSignal = 0;
  std::vector<double> errors, stated;  // seconds, signed; stated NaN where none is given

  // period: of a signal that repeats exactly (tone, clicks), whose offset is known modulo it;
  // uncertainty: the stated standard uncertainty in samples (NaN where none is stated).
  void add(int64_t start, double lag, double offset, double period,
           double uncertainty = std::nan("")) {
    const double centre = (start + (kLength - 1) / 2.0) / kRate;
    double error = lag / kRate - (offset + kDrift * centre);
    if (period > 0) {
      // B repeats with the period stretched by its clock: (1 + drift) period of A's time.
      const double stretched = period * (1.0 + kDrift);
      error -= stretched * std::round(error / stretched);
    }
    errors.push_back(error);
    stated.push_back(uncertainty / kRate);
  }

  // Counters over the values; a constant offset (the median error) removed first when asked.
  void report(benchmark::State& state, double seconds, bool removeConstant) const {
    double constant = 0.0;
    if (removeConstant && !errors.empty()) {
      std::vector<double> sorted(errors);
      std::nth_element(sorted.begin(), sorted.begin() + sorted.size() / 2, sorted.end());
      constant = sorted[sorted.size() / 2];
      state.counters["const_us"] = constant * 1e6;
    }
    double sumSquares = 0, maxError = 0;
    int64_t off1us = 0, beyond3u = 0, beyond5u = 0, sureButOff = 0;
    for (size_t i = 0; i < errors.size(); ++i) {
      const double error = std::fabs(errors[i] - constant);
      sumSquares += error * error;
      maxError = std::max(maxError, error);
      off1us += error > 1e-6 ? 1 : 0;
      // How honest the stated uncertainties are: values off by more than 3 and 5 times theirs,
      // and values stated to within 200 ns yet off by more than 1 us.
      beyond3u += error > 3 * stated[i] ? 1 : 0;
      beyond5u += error > 5 * stated[i] ? 1 : 0;
      sureButOff += stated[i] < 200e-9 && error > 1e-6 ? 1 : 0;
    }
    const auto values = static_cast<double>(errors.size());
    state.counters["coverage"] = withSignal ? values / withSignal : 0.0;
    state.counters["rms_ns"] = values ? std::sqrt(sumSquares / values) * 1e9 : NAN;
    state.counters["max_ns"] = values ? maxError * 1e9 : NAN;
    state.counters["off_1us"] = static_cast<double>(off1us);
    state.counters["x_realtime"] = kSeconds / seconds;
    if (!std::isnan(stated.empty() ? NAN : stated.front())) {
      state.counters["beyond_3u"] = static_cast<double>(beyond3u);
      state.counters["beyond_5u"] = static_cast<double>(beyond5u);
      state.counters["sure_off_1us"] = static_cast<double>(sureButOff);
    }
  }
};

void BM_Calculator(benchmark::State& state) {
  const int index = static_cast<int>(state.range(0));
  const Pair& pair = pairOf(index);
  state.SetLabel(kCases[index].name);
  Score score;
  double seconds = 0;
  int64_t statuses[7] = {};  // by WindowStatus, over the windows with signal
  for (auto _ : state) {
    std::fill(std::begin(statuses), std::end(statuses), 0);
    VDAudioTimeErrorCalculator calculator(pair.a.data(), pair.b.data(), kSamples, kInterval,
                                          kLength, kUpscale, kRate,
                                          VDAudioTimeErrorCalculator::kPostResampler);
    const auto begin = std::chrono::steady_clock::now();
    calculator.calculateTimeError();
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    score = Score{};
    const auto& windows = calculator.windows();
    for (size_t w = 0; w < windows.size() && w < pair.signal.size(); ++w) {
      if (!pair.signal[w]) continue;
      ++score.withSignal;
      ++statuses[static_cast<int>(windows[w].status)];
      if (windows[w].status == VDAudioTimeErrorCalculator::WindowStatus::Used) {
        score.add(windows[w].start, windows[w].refinedLag, kCases[index].offset,
                  periodOf(kCases[index]), windows[w].delayUncertainty);
      }
    }
  }
  score.report(state, seconds, kCases[index].codec != Codec::None || kCases[index].rooms != 0);
  // Why the others gave no value.
  const char* names[7] = {"used", "silent", "weak", "ambiguous", "uncertain", "lost", "outside"};
  for (int i = 1; i < 7; ++i) {
    if (statuses[i] > 0) state.counters[names[i]] = static_cast<double>(statuses[i]);
  }
}

// Each window of A against B over +-kPlainRangeSeconds; the largest correlation (of either sign
// when B may be inverted, as a plain method does not know) with a parabola through its
// neighbours.
void BM_PlainCorrelation(benchmark::State& state) {
  const int index = static_cast<int>(state.range(0));
  const Pair& pair = pairOf(index);
  state.SetLabel(kCases[index].name);
  const int64_t range = static_cast<int64_t>(kPlainRangeSeconds * kRate);
  VDFFTCorrelator correlator(VDFFTCorrelator::fastSize(kLength + 2 * range + 2));
  const int64_t size = static_cast<int64_t>(correlator.size());
  Score score;
  double seconds = 0;
  for (auto _ : state) {
    score = Score{};
    const auto begin = std::chrono::steady_clock::now();
    for (size_t w = 0; w < pair.signal.size(); ++w) {
      if (!pair.signal[w]) continue;
      ++score.withSignal;
      const int64_t start = static_cast<int64_t>(w) * kInterval;
      double* reference = correlator.reference();
      double* other = correlator.other();
      std::fill(reference, reference + size, 0.0);
      std::copy(pair.a.begin() + start, pair.a.begin() + start + kLength, reference);
      // other[k] = B[start - range + k]: lag k - range.
      for (int64_t k = 0; k < size; ++k) {
        const int64_t n = start - range + k;
        other[k] = n >= 0 && n < kSamples ? pair.b[n] : 0.0;
      }
      const double* result = correlator.correlate();
      int64_t best = 1;
      for (int64_t k = 1; k < 2 * range; ++k) {
        if (std::fabs(result[k]) > std::fabs(result[best])) best = k;
      }
      const double sign = result[best] < 0 ? -1.0 : 1.0;
      const double below = sign * result[best - 1], centre = sign * result[best],
                   above = sign * result[best + 1];
      const double curvature = below - 2 * centre + above;
      const double fraction = curvature < 0 ? 0.5 * (below - above) / curvature : 0.0;
      score.add(start, static_cast<double>(best - range) + fraction, kCases[index].offset,
                periodOf(kCases[index]));
    }
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  }
  score.report(state, seconds, kCases[index].codec != Codec::None || kCases[index].rooms != 0);
}

void allCases(benchmark::internal::Benchmark* benchmark) {
  for (int i = 0; i < static_cast<int>(std::size(kCases)); ++i) benchmark->Arg(i);
}

}  // namespace

BENCHMARK(BM_Calculator)->Apply(allCases)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainCorrelation)->Apply(allCases)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
