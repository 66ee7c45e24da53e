// What the noise identification, EDF and 68.3 % bounds add to ADEV, MDEV and TDEV at every
// window: each deviation in full (bounds included), and the bounds alone on the same points;
// the share is bounds / (full - bounds). On 100,000 samples of realistic noise and, when
// the directory VDP_REFERENCE_DATA names holds it, on the one-week 1 PPS recording.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "VDAllanDeviationAnalysis.h"
#include "VDConfidenceInterval.h"
#include "VDModifiedAllanDeviationAnalysis.h"
#include "VDTimeDeviationAnalysis.h"

namespace {

using Variance = VDEquivalentDegreesOfFreedom::Variance;

std::vector<VDTimeErrorValue> realistic(int64_t count) {
  std::mt19937_64 generator(20240611);
  std::normal_distribution<double> white(0.0, 20.0);
  std::normal_distribution<double> frequencyStep(0.0, 0.02);
  std::vector<VDTimeErrorValue> values;
  double frequency = 0;
  double phase = 0;
  for (int64_t i = 0; i < count; ++i) {
    frequency += frequencyStep(generator);
    phase += frequency;
    values.emplace_back(125000000ull * static_cast<uint64_t>(i),
                        std::llround(phase + white(generator)));
  }
  return values;
}

// The week in whole ns, as the time-error command reads it (seconds times 1e9, truncated).
std::vector<VDTimeErrorValue> week() {
  std::vector<VDTimeErrorValue> values;
  const char* directory = std::getenv("VDP_REFERENCE_DATA");
  if (directory == nullptr) {
    return values;
  }
  const std::string path = std::string(directory) + "/cs-clock-vs-maser-1pps-phase.txt.gz";
  FILE* pipe = popen(("gzip -dc '" + path + "' 2>/dev/null").c_str(), "r");
  char line[256];
  while (pipe != nullptr && std::fgets(line, sizeof line, pipe) != nullptr) {
    if (line[0] != '#') {
      const auto index = static_cast<uint64_t>(values.size());
      values.emplace_back(1000000000ull * index,
                          static_cast<int64_t>(std::strtod(line, nullptr) * 1e9));
    }
  }
  if (pipe != nullptr) {
    pclose(pipe);
  }
  return values;
}

const std::vector<VDTimeErrorValue>& series(int64_t which) {
  static const std::vector<VDTimeErrorValue> hundredThousand = realistic(100000);
  static const std::vector<VDTimeErrorValue> oneWeek = week();
  return which == 0 ? hundredThousand : oneWeek;
}

std::vector<int64_t> errorsOf(const std::vector<VDTimeErrorValue>& values) {
  std::vector<int64_t> errors;
  for (const VDTimeErrorValue& value : values) {
    errors.push_back(value.error());
  }
  return errors;
}

// Args: series (0 100,000 samples, 1 the week).
template <typename Analysis>
void BM_DeviationWithBounds(benchmark::State& state) {
  const auto& values = series(state.range(0));
  if (values.empty()) {
    state.SkipWithError("the one-week recording was not found");
    return;
  }
  for (auto _ : state) {
    Analysis analysis(values);
    analysis.performAnalysisFromStartWindowSize(1, std::numeric_limits<int64_t>::max(), 1);
    benchmark::DoNotOptimize(analysis.points().data());
  }
}

template <typename Analysis, Variance kVariance>
void BM_BoundsOnly(benchmark::State& state) {
  const auto& values = series(state.range(0));
  if (values.empty()) {
    state.SkipWithError("the one-week recording was not found");
    return;
  }
  Analysis analysis(values);
  analysis.performAnalysisFromStartWindowSize(1, std::numeric_limits<int64_t>::max(), 1);
  const std::vector<int64_t> errors = errorsOf(values);
  for (auto _ : state) {
    std::vector<VDStatisticPoint> points = analysis.points();
    VDConfidenceInterval::addToPoints(points, errors, kVariance);
    benchmark::DoNotOptimize(points.data());
  }
  state.counters["windows"] = static_cast<double>(analysis.points().size());
}

#define VD_CONFIDENCE_BENCHMARK(Analysis, kind)        \
  BENCHMARK_TEMPLATE(BM_DeviationWithBounds, Analysis) \
      ->ArgName("week")                                \
      ->Arg(0)                                         \
      ->Arg(1)                                         \
      ->Unit(benchmark::kMillisecond)                  \
      ->Iterations(1);                                 \
  BENCHMARK_TEMPLATE(BM_BoundsOnly, Analysis, kind)    \
      ->ArgName("week")                                \
      ->Arg(0)                                         \
      ->Arg(1)                                         \
      ->Unit(benchmark::kMillisecond)                  \
      ->Iterations(1)

VD_CONFIDENCE_BENCHMARK(VDAllanDeviationAnalysis, Variance::kOverlappingAllan);
VD_CONFIDENCE_BENCHMARK(VDModifiedAllanDeviationAnalysis, Variance::kModifiedAllan);
VD_CONFIDENCE_BENCHMARK(VDTimeDeviationAnalysis, Variance::kModifiedAllan);

}  // namespace

BENCHMARK_MAIN();
