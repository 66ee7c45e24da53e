#include "VDConfidenceInterval.h"

#include <boost/math/distributions/chi_squared.hpp>
#include <cmath>
#include <utility>
#include <vector>

#include "VDNoiseIdentification.h"
#include "VDUniformTable.h"

namespace {

// ln(edf) range of the tables and their density.
const double kFirstLogEdf = std::log(0.5);
const double kLastLogEdf = 26 * std::log(2.0);
constexpr double kPointsPerUnit = 32;

// The logarithms of the two factors vary smoothly with ln(edf), also at small edf. Both tables
// come from one set of quantile pairs.
const VDUniformTable& logFactorTable(bool upperFactor) {
  struct Tables {
    VDUniformTable lower;
    VDUniformTable upper;
  };
  static const Tables tables = [] {
    const int intervals =
        static_cast<int>(std::ceil((kLastLogEdf - kFirstLogEdf) * kPointsPerUnit));
    std::vector<double> lower;
    std::vector<double> upper;
    for (double logEdf : VDUniformTable::points(kFirstLogEdf, kLastLogEdf, intervals)) {
      const VDConfidenceInterval exact =
          VDConfidenceInterval::exactForDegreesOfFreedom(std::exp(logEdf));
      lower.push_back(std::log(exact.lowerFactor));
      upper.push_back(std::log(exact.upperFactor));
    }
    return Tables{VDUniformTable(kFirstLogEdf, kLastLogEdf, std::move(lower)),
                  VDUniformTable(kFirstLogEdf, kLastLogEdf, std::move(upper))};
  }();
  return upperFactor ? tables.upper : tables.lower;
}

}  // namespace

VDConfidenceInterval VDConfidenceInterval::exactForDegreesOfFreedom(double edf) {
  const boost::math::chi_squared_distribution<double> chiSquare(edf);
  const double low = boost::math::quantile(chiSquare, (1 - kConfidence) / 2);
  const double high = boost::math::quantile(chiSquare, (1 + kConfidence) / 2);
  return {std::sqrt(edf / high), std::sqrt(edf / low)};
}

VDConfidenceInterval VDConfidenceInterval::forDegreesOfFreedom(double edf) {
  const double logEdf = std::log(edf);
  const VDUniformTable& lower = logFactorTable(false);
  if (!lower.covers(logEdf)) {
    return exactForDegreesOfFreedom(edf);
  }
  return {std::exp(lower(logEdf)), std::exp(logFactorTable(true)(logEdf))};
}

void VDConfidenceInterval::addToPoints(std::vector<VDStatisticPoint>& points,
                                       const std::vector<int64_t>& errors,
                                       VDEquivalentDegreesOfFreedom::Variance variance) {
  if (points.empty()) {
    return;
  }
  const VDNoiseIdentification noise(errors);
  const auto sampleCount = static_cast<int64_t>(errors.size());
  for (VDStatisticPoint& point : points) {
    point.alpha = noise.alphaAtWindow(point.windowSize);
    point.edf =
        VDEquivalentDegreesOfFreedom::of(variance, point.alpha, point.windowSize, sampleCount);
    const VDConfidenceInterval interval = forDegreesOfFreedom(point.edf);
    point.minimum = point.value * interval.lowerFactor;
    point.maximum = point.value * interval.upperFactor;
  }
}
