// How fast veridaneprobe-check reads what engineers record: a day of `ptp4l -m` at 16 Hz
// (1,382,400 offset lines, about 120 MB, with a port message every 1000 lines), written once to
// a scratch file and read as the program reads it (format recognised from the first lines,
// then every line through the linuxptp grammar into the stream's arrays).

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

#include "VDCRecording.h"

namespace {

std::string dayOfPtp4l() {
  const std::string path =
      (std::filesystem::temp_directory_path() / "vdc-bench-ptp4l.log").string();
  if (std::filesystem::exists(path)) {
    return path;
  }
  std::FILE* file = std::fopen(path.c_str(), "w");
  std::mt19937 random(16);
  std::normal_distribution<double> noise(0, 8);
  for (int i = 0; i < 24 * 3600 * 16; ++i) {
    std::fprintf(file, "ptp4l[%.3f]: master offset %10ld s2 freq %+7.0f path delay %9d\n",
                 5000 + i / 16.0, static_cast<long>(noise(random)), -4210 + noise(random),
                 512 + i % 4);
    if (i % 1000 == 0) {
      std::fprintf(file, "ptp4l[%.3f]: port 1: announce timeout\n", 5000 + i / 16.0);
    }
  }
  std::fclose(file);
  return path;
}

void BM_DayOfPtp4lAt16Hz(benchmark::State& state) {
  const std::string path = dayOfPtp4l();
  state.counters["MB"] = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
  for (auto _ : state) {
    std::string error;
    const auto recording = VDCRecording::read(path, {}, error);
    benchmark::DoNotOptimize(recording->streams().at("ptp4l").errors.data());
    state.counters["samples"] = static_cast<double>(recording->streams().at("ptp4l").errors.size());
  }
}
BENCHMARK(BM_DayOfPtp4lAt16Hz)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
