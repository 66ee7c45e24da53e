#include "VDCVerdictRun.h"

#include <cstdio>

#include "VDCMaskChecks.h"
#include "VDCSVBuffer.h"

namespace {

std::string seconds(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.6g", value);
  return text;
}

}  // namespace

VDCVerdictRun::VDCVerdictRun(const VDCVerdictOptions& options, std::vector<const VDMask*> masks,
                             VDCCheckPlots plots)
    : _options(options), _masks(std::move(masks)), _plots(std::move(plots)) {}

VDCCheckReport::Verdict VDCVerdictRun::judge(const Series& series, VDCCheckReport::Input input,
                                             const std::string& outputPath) const {
  const bool byServo = !_options.settleSeconds.has_value();
  const VDCSettledWindow window =
      byServo ? VDCSettledWindow::afterServoLock(series.times, series.servoStates)
              : VDCSettledWindow::afterSeconds(series.times, *_options.settleSeconds);
  const double start = series.times.empty() ? 0 : series.times.front();
  input.samples = series.times.size();
  input.settledSamples = window.samples();
  if (window.samples() > 0) {
    input.settledStartSeconds = series.times[window.first] - start;
    input.settledEndSeconds = series.times[window.end - 1] - start;
  }
  const VDTimeErrorMetrics metrics(series.times, series.errors, window.first, window.end);
  input.tau0Seconds = window.samples() >= 2 ? metrics.tau0() : 0;

  if (window.samples() == 0) {
    std::printf(byServo ? "Settled window: none (the servo never locked long enough)\n"
                        : "Settled window: none (no sample after the settling time)\n");
  } else {
    std::printf(
        "Settled window: %s s to %s s after the first sample (samples %zu to %zu, %zu "
        "samples)\n",
        seconds(input.settledStartSeconds).c_str(), seconds(input.settledEndSeconds).c_str(),
        window.first, window.end - 1, window.samples());
  }
  if (window.lostLock) {
    std::printf("Loss of lock at %s s after the first sample: the settled window ends there\n",
                seconds(series.times[window.end] - start).c_str());
  }
  VDCMaskChecks checks(metrics, window, {_options.average, _options.windowSeconds});
  const VDCCheckReport report(input, checks.evaluate(_masks), window.lostLock);
  std::fputs(report.consoleText().c_str(), stdout);
  std::fflush(stdout);
  report.writeFiles(outputPath);
  _plots.plotTimeError(series.times, series.errors, metrics.lowPassed(), window, _masks);
  _plots.plotCurves(checks.curves(), _masks);
  return report.verdict();
}

VDCCheckReport::Verdict VDCVerdictRun::combined(
    const std::vector<VDCCheckReport::Verdict>& verdicts) {
  using Verdict = VDCCheckReport::Verdict;
  Verdict result = verdicts.empty() ? Verdict::notEvaluated : Verdict::pass;
  for (const Verdict verdict : verdicts) {
    if (verdict == Verdict::fail) {
      return Verdict::fail;
    }
    if (verdict == Verdict::notEvaluated) {
      result = Verdict::notEvaluated;
    }
  }
  return result;
}
