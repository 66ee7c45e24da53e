#include "VDConfidenceInterval.h"

#include <boost/math/distributions/chi_squared.hpp>
#include <cmath>

#include "VDNoiseIdentification.h"
#include "VDUniformTable.h"

namespace {

// ln(edf) range of the tables and their density.
const double kFirstLogEdf = std::log(0.5);
const double kLastLogEdf = 26 * std::log(2.0);
constexpr double kPointsPerUnit = 32;

// The logarithms of the two factors vary smoothly with ln(edf), also at small edf.
const VDUniformTable& logFactorTable(bool upperFactor) {
  static const auto build = [](bool upper) {
    const int intervals =
        static_cast<int>(std::ceil((kLastLogEdf - kFirstLogEdf) * kPointsPerUnit));
    return VDUniformTable(kFirstLogEdf, kLastLogEdf, intervals, [upper](double logEdf) {
      const VDConfidenceInterval exact =
          VDConfidenceInterval::exactForDegreesOfFreedom(std::exp(logEdf));
      return std::log(upper ? exact.upperFactor : exact.lowerFactor);
    });
  };
  static const VDUniformTable lowerTable = build(false);
  static const VDUniformTable upperTable = build(true);
  return upperFactor ? upperTable : lowerTable;
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
