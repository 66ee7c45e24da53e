#include "VDCContinuity.h"

#include <algorithm>
#include <cstdio>

namespace {

std::string number(double value, int digits = 6) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*g", digits, value);
  return text;
}

}  // namespace

VDCContinuity VDCContinuity::of(const std::vector<double>& times) {
  VDCContinuity continuity;
  std::vector<double> steps;
  steps.reserve(times.size());
  for (size_t i = 1; i < times.size(); ++i) {
    if (times[i] > times[i - 1]) {
      steps.push_back(times[i] - times[i - 1]);
    }
  }
  if (!steps.empty()) {
    const auto middle = steps.begin() + static_cast<long>(steps.size() / 2);
    std::nth_element(steps.begin(), middle, steps.end());
    continuity.tau0 = *middle;
  }
  double missing = 0;
  double evenTime = 0;
  size_t evenSteps = 0;
  size_t first = 0;
  for (size_t i = 1; i < times.size(); ++i) {
    const double step = times[i] - times[i - 1];
    if (step > 1.5 * continuity.tau0) {
      continuity.gaps.push_back({i, step});
      missing += step - continuity.tau0;
    } else if (step <= 0) {
      continuity.disorder.push_back({i, step});
    } else {
      evenTime += step;
      ++evenSteps;
      continue;
    }
    continuity.segments.push_back({first, i});
    first = i;
  }
  continuity.meanInterval = evenSteps > 0 ? evenTime / static_cast<double>(evenSteps) : 0;
  if (!times.empty()) {
    continuity.segments.push_back({first, times.size()});
    const double span = times.back() - times.front();
    continuity.missingShare = span > 0 ? std::min(1.0, missing / span) : 0;
  }
  return continuity;
}

std::string VDCContinuity::summary(const std::string& stream,
                                   const std::vector<double>& times) const {
  std::string text = "Stream " + stream + ": " + std::to_string(times.size()) +
                     (times.size() == 1 ? " sample" : " samples");
  // One sample has no interval to tell.
  text += times.size() > 1 ? ", sample interval " + number(meanInterval) + " s" : "";
  if (gaps.empty()) {
    text += ", no gaps";
  } else {
    const Break& longest = *std::max_element(
        gaps.begin(), gaps.end(), [](const Break& a, const Break& b) { return a.step < b.step; });
    text += ", " + std::to_string(gaps.size()) + (gaps.size() == 1 ? " gap" : " gaps") +
            " (the longest " + number(longest.step) + " s, after " +
            number(times[longest.sample - 1] - times.front()) + " s), " +
            number(100 * missingShare, 3) + " % of the time missing";
  }
  if (disorder.empty()) {
    text += ", in order";
  } else {
    text += ", " + std::to_string(disorder.size()) + " out of order (the first after " +
            number(times[disorder.front().sample - 1] - times.front()) + " s)";
  }
  return text + "\n";
}

std::string VDCContinuity::breaksCSV(const std::vector<double>& times) const {
  std::vector<std::pair<const Break*, const char*>> breaks;
  for (const Break& gap : gaps) {
    breaks.emplace_back(&gap, "gap");
  }
  for (const Break& step : disorder) {
    breaks.emplace_back(&step, "disorder");
  }
  std::sort(breaks.begin(), breaks.end(),
            [](const auto& a, const auto& b) { return a.first->sample < b.first->sample; });
  std::string text = "kind,sample,time,step\n";
  for (const auto& [at, kind] : breaks) {
    text += std::string(kind) + "," + std::to_string(at->sample) + "," +
            number(times[at->sample] - times.front(), 17) + "," + number(at->step, 17) + "\n";
  }
  return text;
}
