// Where a time-error run spends its time: reading and parsing a million-line file, and the
// complete default run on 100,000 samples split into parsing, each statistic, the CSV exports
// and each plot (rendered by the embedded interpreter).
//
// Run: ./build/tool_pipeline_bench [--benchmark_filter=...]

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "VDPAnalyseTimeError.h"
#include "VDPLineReader.h"
#include "VDPProcessSingleTimeError.h"
#include "VDPPythonInterpreter.h"

namespace {

namespace fs = std::filesystem;

// A time-error file of count samples at 8 per second: white phase noise plus a random walk of
// frequency, with a header line.
fs::path writeTimeErrorFile(size_t count) {
  const fs::path path = fs::temp_directory_path() /
                        ("vdp-bench-" + std::to_string(getpid()) + "-" + std::to_string(count));
  if (fs::exists(path)) {
    return path;
  }
  std::mt19937_64 random(42);
  std::normal_distribution<double> noise(0.0, 1.0);
  std::ofstream stream(path);
  stream << "index,time,time_error\n";
  double frequency = 0;
  double phase = 0;
  char line[96];
  for (size_t i = 0; i < count; ++i) {
    frequency += 0.01 * noise(random);
    phase += frequency;
    const double errorNs = phase + 5 * noise(random);
    const int length =
        std::snprintf(line, sizeof line, "%zu,%.3f,%.12e\n", i, 1000 + i / 8.0, errorNs * 1e-9);
    stream.write(line, length);
  }
  return path;
}

std::vector<VDTimeErrorValue> readValues(const fs::path& path) {
  std::vector<VDTimeErrorValue> values;
  VDPLineReader::readLines(path.string(), [&values](std::string_view line) {
    VDPAnalyseTimeError::parseLine(line, values);
  });
  return values;
}

void BM_ReadAndParseTimeErrorFile(benchmark::State& state) {
  const fs::path path = writeTimeErrorFile(static_cast<size_t>(state.range(0)));
  size_t count = 0;
  for (auto _ : state) {
    count = readValues(path).size();
  }
  state.counters["lines"] = static_cast<double>(count);
  state.counters["MB"] = static_cast<double>(fs::file_size(path)) / 1e6;
}
BENCHMARK(BM_ReadAndParseTimeErrorFile)->Arg(1000000)->Unit(benchmark::kMillisecond);

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A processor that times each of its steps (analysis, CSV, saved script, PNG and PDF).
class TimedProcessor : public VDPProcessSingleTimeError {
 public:
  using VDPProcessSingleTimeError::VDPProcessSingleTimeError;
  std::vector<std::pair<const char*, double>> stepSeconds;

  template <typename Step>
  auto timed(const char* name, Step step) {
    const auto start = std::chrono::steady_clock::now();
    auto result = step();
    stepSeconds.emplace_back(name, secondsSince(start));
    return result;
  }
  void processTimeErrorFromTimeErrors(const VDTimeErrorSequence& sequence) override {
    timed("time error", [&] {
      VDPProcessSingleTimeError::processTimeErrorFromTimeErrors(sequence);
      return 0;
    });
  }
  std::unique_ptr<VDAllanDeviationAnalysis> processADEVFromTimeErrors(
      const VDTimeErrorSequence& sequence) override {
    return timed("ADEV",
                 [&] { return VDPProcessSingleTimeError::processADEVFromTimeErrors(sequence); });
  }
  std::unique_ptr<VDModifiedAllanDeviationAnalysis> processMADEVFromTimeErrors(
      const VDTimeErrorSequence& sequence) override {
    return timed("MDEV",
                 [&] { return VDPProcessSingleTimeError::processMADEVFromTimeErrors(sequence); });
  }
  std::unique_ptr<VDTimeDeviationAnalysis> processTDEVFromTimeErrors(
      const VDTimeErrorSequence& sequence) override {
    return timed("TDEV",
                 [&] { return VDPProcessSingleTimeError::processTDEVFromTimeErrors(sequence); });
  }
  std::unique_ptr<VDRootMeanSquaredTimeIntervalErrorAnalysis> processRMSTIEFromTimeErrors(
      const VDTimeErrorSequence& sequence) override {
    return timed("RMS TIE",
                 [&] { return VDPProcessSingleTimeError::processRMSTIEFromTimeErrors(sequence); });
  }
  std::unique_ptr<VDMaximumTimeIntervalErrorAnalysis> processMTIEFromTimeErrors(
      const VDTimeErrorSequence& sequence) override {
    return timed("MTIE",
                 [&] { return VDPProcessSingleTimeError::processMTIEFromTimeErrors(sequence); });
  }
};

// The whole default run in one process: parsing, then each step with its statistic, CSV and
// two plots. The statistics alone are measured by analysis_statistics_bench; the rest of each
// step is exporting and plotting.
void BM_CompleteDefaultRun(benchmark::State& state) {
  const fs::path path = writeTimeErrorFile(static_cast<size_t>(state.range(0)));
  const fs::path output = fs::temp_directory_path() / ("vdp-bench-out-" + std::to_string(getpid()));
  fs::create_directories(output);
  VDPPythonInterpreter::start("tool_pipeline_bench");
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    const VDTimeErrorSequence sequence(readValues(path));
    state.counters["parse_s"] = secondsSince(start);
    TimedProcessor processor(output.string(), "bench", true, true, true, true, true, 2, INT64_MAX,
                             1);
    processor.processTimeErrors(sequence);
    for (const auto& [step, seconds] : processor.stepSeconds) {
      state.counters[std::string(step) + "_s"] = seconds;
    }
  }
  VDPPythonInterpreter::finalise();
  fs::remove_all(output);
}
BENCHMARK(BM_CompleteDefaultRun)->Arg(100000)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
