// Writes the sample recordings examples/audio/channel-a.flac and channel-b.flac: ten seconds of
// one music-like test signal as two recorders with clocks 30 ppm apart would capture it, 48 kHz,
// mono, 16-bit FLAC. Run with the output directory as its argument; README-audio.md describes
// the recordings.
//
// The signal is a sequence of notes (fundamentals 110 Hz - 880 Hz, harmonics up to 15 kHz falling
// as 1/h, soft attack and exponential decay), so that it is band-limited and can be evaluated at
// any instant: each recording samples it at the instants its own clock ticks, which makes the
// delay exact rather than the work of an interpolator. Recorder B hears the signal 12.5 ms later
// (4.3 m further away) and its clock runs 30 ppm fast, so its sample n holds the signal at
// (n / 48000 - 0.0125) / (1 + 30e-6) seconds: B lags A by 12.5 ms + 30e-6 t at A's time t,
// 12.8 ms after ten seconds. Each recorder adds its own white noise 60 dB below the signal. The
// random choices come from fixed seeds, so the files are the same on every run.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <random>
#include <vector>

#include "AudioFileWriter.h"

namespace {

constexpr uint32_t kRate = 48000;
constexpr double kSeconds = 10.0;
constexpr int64_t kFrames = static_cast<int64_t>(kSeconds * kRate);
constexpr double kDelaySeconds = 0.0125;
constexpr double kClockDifference = 30e-6;
constexpr double kLevel = 0.1;     // RMS of the signal in each recording
constexpr double kNoiseDb = 60.0;  // noise below the signal

struct Note {
  double start;
  double duration;
  double fundamental;
  double decay;  // seconds
  std::vector<double> amplitudes, phases;

  // Raised-cosine attack over 10 ms and release over 50 ms: smooth enough that the note stays
  // far below the Nyquist frequency.
  double envelope(double local) const {
    if (local <= 0.0 || local >= duration) {
      return 0.0;
    }
    double value = std::exp(-local / decay);
    if (local < 0.01) {
      value *= 0.5 - 0.5 * std::cos(M_PI * local / 0.01);
    }
    if (duration - local < 0.05) {
      value *= 0.5 - 0.5 * std::cos(M_PI * (duration - local) / 0.05);
    }
    return value;
  }
};

std::vector<Note> composition() {
  std::mt19937_64 random(20240930);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::vector<Note> notes;
  for (double start = -0.5; start < kSeconds + 0.5; start += 0.12 + 0.2 * unit(random)) {
    Note note{start,
              0.5 + 0.7 * unit(random),
              110.0 * std::pow(2.0, std::floor(unit(random) * 36.0) / 12.0),
              0.2 + 0.4 * unit(random),
              {},
              {}};
    for (int h = 1; h * note.fundamental < 15000.0; ++h) {
      note.amplitudes.push_back((0.5 + unit(random)) / h);
      note.phases.push_back(2.0 * M_PI * unit(random));
    }
    notes.push_back(note);
  }
  return notes;
}

// The composition at t0 + n dt for n < kFrames.
std::vector<double> render(const std::vector<Note>& notes, double t0, double dt) {
  std::vector<double> out(kFrames, 0.0);
  for (const Note& note : notes) {
    const int64_t first = std::max<int64_t>(0, static_cast<int64_t>((note.start - t0) / dt));
    const int64_t last =
        std::min(kFrames, static_cast<int64_t>((note.start + note.duration - t0) / dt) + 1);
    for (int64_t n = first; n < last; ++n) {
      const double local = t0 + static_cast<double>(n) * dt - note.start;
      const double envelope = note.envelope(local);
      if (envelope == 0.0) {
        continue;
      }
      double sum = 0.0;
      for (size_t h = 0; h < note.amplitudes.size(); ++h) {
        sum += note.amplitudes[h] *
               std::sin(2.0 * M_PI * note.fundamental * static_cast<double>(h + 1) * local +
                        note.phases[h]);
      }
      out[n] += envelope * sum;
    }
  }
  return out;
}

bool writeRecording(const std::filesystem::path& path, const std::vector<double>& signal,
                    double scale, uint64_t noiseSeed) {
  std::mt19937_64 random(noiseSeed);
  std::normal_distribution<double> noise(0.0, kLevel * std::pow(10.0, -kNoiseDb / 20.0));
  std::vector<float> samples(signal.size());
  for (size_t n = 0; n < signal.size(); ++n) {
    samples[n] = static_cast<float>(signal[n] * scale + noise(random));
  }
  AudioFileWriterRef writer = nullptr;
  const int32_t created = AudioFileWriterCreate(
      path, {AudioFileContainer::FLAC, AudioSampleEncoding::PCM16, kRate, 1}, &writer);
  if (created != kAudioFileWriterNoError) {
    std::fprintf(stderr, "could not create %s (status %d)\n", path.c_str(), created);
    return false;
  }
  const int32_t written = AudioFileWriterWrite(writer, samples.data(), samples.size());
  const int32_t finished = AudioFileWriterDispose(writer);
  if (written != kAudioFileWriterNoError || finished != kAudioFileWriterNoError) {
    std::fprintf(stderr, "could not write %s\n", path.c_str());
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s output-directory\n", argv[0]);
    return 2;
  }
  const std::filesystem::path directory = argv[1];
  std::error_code error;
  std::filesystem::create_directories(directory, error);

  const std::vector<Note> notes = composition();
  const double tick = 1.0 / kRate;
  const std::vector<double> a = render(notes, 0.0, tick);
  const std::vector<double> b =
      render(notes, -kDelaySeconds / (1.0 + kClockDifference), tick / (1.0 + kClockDifference));
  double power = 0.0;
  for (double sample : a) {
    power += sample * sample;
  }
  // The same scale for both, so that the two recordings differ only by their clocks and noise.
  const double scale = kLevel / std::sqrt(power / static_cast<double>(a.size()));
  return writeRecording(directory / "channel-a.flac", a, scale, 1) &&
                 writeRecording(directory / "channel-b.flac", b, scale, 2)
             ? 0
             : 1;
}
