// What the verdicts add to a run: the metrics of a 24-hour log at 16 Hz (1,382,400 samples of
// servo noise and wander) judged against every class of G.8273.2 and the PRTC-A masks, with the
// settled window, the low-pass, MTIE and TDEV of x and y up to each mask's end. The plots are
// left out (each costs what any of the run's other plots costs).

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "VDCMaskChecks.h"
#include "VDMaskTable.h"

namespace {

void BM_DayAt16HzAgainstEveryClass(benchmark::State& state) {
  std::vector<double> times, errors;
  std::mt19937_64 random(3);
  std::normal_distribution<double> noise(0, 4);
  double wander = 0;
  for (int i = 0; i < 24 * 3600 * 16; ++i) {
    times.push_back(i / 16.0);
    wander += 0.01 * noise(random);
    errors.push_back(std::round(wander + noise(random)));  // whole ns, as ptp4l prints
  }
  std::vector<const VDMask*> masks;
  for (const char* id : {"g8273.2-a", "g8273.2-b", "g8273.2-c", "g8273.2-d", "g8273.2-a-vt",
                         "g8273.2-b-vt", "g8273.2-c-vt"}) {
    for (const VDMask* mask : VDMaskTable::builtIn().masksWithId(id)) {
      masks.push_back(mask);
    }
  }
  for (auto _ : state) {
    const VDCSettledWindow window = VDCSettledWindow::afterSeconds(times, 300);
    const VDTimeErrorMetrics metrics(times, errors, window.first, window.end);
    VDCMaskChecks checks(metrics, window, {});
    benchmark::DoNotOptimize(checks.evaluate(masks));
  }
}
BENCHMARK(BM_DayAt16HzAgainstEveryClass)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
