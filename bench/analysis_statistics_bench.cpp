// Speed and memory of the five statistics on realistic time error: every window size of 100,000
// samples, every thousandth of 1,000,000, and MTIE on drifting and ramp data. Each run reports
// the peak heap it allocated (peak_heap_MB) and the process's peak resident size so far
// (maxrss_MB).

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <random>
#include <vector>

#include "VDAllanDeviationAnalysis.h"
#include "VDMaximumTimeIntervalErrorAnalysis.h"
#include "VDModifiedAllanDeviationAnalysis.h"
#include "VDRootMeanSquaredTimeIntervalErrorAnalysis.h"
#include "VDTimeDeviationAnalysis.h"

namespace {

// Heap accounting: every allocation of the process goes through the operators below.
std::atomic<int64_t> gHeapInUse{0};
std::atomic<int64_t> gHeapPeak{0};

void* allocate(size_t size) {
  // A header in front of each block remembers its size for the matching delete.
  void* block = std::malloc(size + 16);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  *static_cast<size_t*>(block) = size;
  const int64_t inUse = gHeapInUse += static_cast<int64_t>(size);
  int64_t peak = gHeapPeak.load();
  while (inUse > peak && !gHeapPeak.compare_exchange_weak(peak, inUse)) {
  }
  return static_cast<char*>(block) + 16;
}

void release(void* pointer) {
  if (pointer == nullptr) {
    return;
  }
  void* block = static_cast<char*>(pointer) - 16;
  gHeapInUse -= static_cast<int64_t>(*static_cast<size_t*>(block));
  std::free(block);
}

}  // namespace

void* operator new(size_t size) { return allocate(size); }
void* operator new[](size_t size) { return allocate(size); }
void operator delete(void* pointer) noexcept { release(pointer); }
void operator delete[](void* pointer) noexcept { release(pointer); }
void operator delete(void* pointer, size_t) noexcept { release(pointer); }
void operator delete[](void* pointer, size_t) noexcept { release(pointer); }

namespace {

enum class Noise { kRealistic, kDrifting, kRamp };

// One sample per 125 ms. Realistic: 20 ns white phase noise plus random-walk frequency noise.
// Drifting: a 2 ppm frequency offset plus 20 ns white phase noise. Ramp: exactly 250 ns a sample.
std::vector<VDTimeErrorValue> timeErrors(int64_t count, Noise noise) {
  std::mt19937_64 generator(20240611);
  std::normal_distribution<double> white(0.0, 20.0);
  std::normal_distribution<double> frequencyStep(0.0, 0.02);  // ns per sample, per sample
  std::vector<VDTimeErrorValue> values;
  values.reserve(static_cast<size_t>(count));
  double frequency = 0.0;
  double phase = 0.0;
  for (int64_t i = 0; i < count; ++i) {
    double error = 0.0;
    switch (noise) {
      case Noise::kRealistic:
        frequency += frequencyStep(generator);
        phase += frequency;
        error = phase + white(generator);
        break;
      case Noise::kDrifting:
        error = 250.0 * static_cast<double>(i) + white(generator);
        break;
      case Noise::kRamp:
        error = 250.0 * static_cast<double>(i);
        break;
    }
    values.emplace_back(1700000000000000000ull + 125000000ull * static_cast<uint64_t>(i),
                        static_cast<int64_t>(std::llround(error)));
  }
  return values;
}

const std::vector<VDTimeErrorValue>& cachedTimeErrors(int64_t count, Noise noise) {
  static std::vector<VDTimeErrorValue> cache[3][2];
  std::vector<VDTimeErrorValue>& entry = cache[static_cast<int>(noise)][count == 1000000 ? 1 : 0];
  if (entry.empty()) {
    entry = timeErrors(count, noise);
  }
  return entry;
}

void reportMemory(benchmark::State& state, int64_t heapBefore) {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  state.counters["peak_heap_MB"] = static_cast<double>(gHeapPeak.load() - heapBefore) / 1e6;
  state.counters["maxrss_MB"] = static_cast<double>(usage.ru_maxrss) / 1024.0;
}

// Args: sample count, window step, noise.
template <typename Analysis>
void BM_Statistic(benchmark::State& state) {
  const std::vector<VDTimeErrorValue>& values =
      cachedTimeErrors(state.range(0), static_cast<Noise>(state.range(2)));
  const int64_t heapBefore = gHeapInUse.load();
  gHeapPeak = heapBefore;
  size_t windows = 0;
  for (auto _ : state) {
    Analysis analysis(values);
    analysis.performAnalysisFromStartWindowSize(2, std::numeric_limits<int64_t>::max(),
                                                state.range(1));
    windows = analysis.points().size();
    benchmark::DoNotOptimize(analysis.points().data());
  }
  state.counters["windows"] = static_cast<double>(windows);
  reportMemory(state, heapBefore);
}

void BM_AllFive(benchmark::State& state) {
  const std::vector<VDTimeErrorValue>& values = cachedTimeErrors(state.range(0), Noise::kRealistic);
  const int64_t heapBefore = gHeapInUse.load();
  gHeapPeak = heapBefore;
  for (auto _ : state) {
    std::unique_ptr<VDStatisticAnalysis> analyses[] = {
        std::make_unique<VDAllanDeviationAnalysis>(values),
        std::make_unique<VDModifiedAllanDeviationAnalysis>(values),
        std::make_unique<VDTimeDeviationAnalysis>(values),
        std::make_unique<VDRootMeanSquaredTimeIntervalErrorAnalysis>(values),
        std::make_unique<VDMaximumTimeIntervalErrorAnalysis>(values)};
    for (auto& analysis : analyses) {
      analysis->performAnalysisFromStartWindowSize(2, std::numeric_limits<int64_t>::max(),
                                                   state.range(1));
      benchmark::DoNotOptimize(analysis->points().data());
    }
  }
  reportMemory(state, heapBefore);
}

constexpr int64_t kRealistic = static_cast<int64_t>(Noise::kRealistic);
constexpr int64_t kDrifting = static_cast<int64_t>(Noise::kDrifting);
constexpr int64_t kRamp = static_cast<int64_t>(Noise::kRamp);

#define VD_STATISTIC_BENCHMARK(Analysis)       \
  BENCHMARK_TEMPLATE(BM_Statistic, Analysis)   \
      ->ArgNames({"samples", "step", "noise"}) \
      ->Args({100000, 1, kRealistic})          \
      ->Args({1000000, 1000, kRealistic})      \
      ->Unit(benchmark::kMillisecond)          \
      ->Iterations(1)

VD_STATISTIC_BENCHMARK(VDAllanDeviationAnalysis);
VD_STATISTIC_BENCHMARK(VDModifiedAllanDeviationAnalysis);
VD_STATISTIC_BENCHMARK(VDTimeDeviationAnalysis);
VD_STATISTIC_BENCHMARK(VDRootMeanSquaredTimeIntervalErrorAnalysis);
VD_STATISTIC_BENCHMARK(VDMaximumTimeIntervalErrorAnalysis)
    ->Args({100000, 1, kDrifting})
    ->Args({100000, 1, kRamp})
    ->Args({1000000, 1000, kDrifting})
    ->Args({1000000, 1000, kRamp});

BENCHMARK(BM_AllFive)
    ->ArgNames({"samples", "step"})
    ->Args({100000, 1})
    ->Args({1000000, 1000})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
