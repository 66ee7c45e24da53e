#pragma once

#include <cstdint>

// A VDCorrelationPeak judges the correlation of one window around a predicted delay: where its
// highest value lies, how clearly that value stands above every other peak in range, and how
// sharply it bends, which with the window's signal-to-noise ratio sets the delay's uncertainty.
class VDCorrelationPeak {
 public:
  // correlation[radius + k] for the offsets k = -radius..radius from the prediction (radius >= 1).
  VDCorrelationPeak(const double* correlation, int64_t radius);

  // The offset of the highest value.
  int64_t best() const { return _best; }
  bool onEdge() const { return _best == -_radius || _best == _radius; }

  // The highest other peak over the best value: local maxima outside the best one's lobe (the
  // stretch either side of it that falls steadily), the range's ends included when they still
  // rise outwards. 0 when there is none; 1 when the best value is not positive.
  double ratio() const { return _ratio; }
  bool clear() const { return _ratio < kClearRatio; }

  // -(c[best - 1] - 2 c[best] + c[best + 1]) / c[best]: the relative bend of the peak per
  // squared sample; 0 on the edge or where it does not bend downwards.
  double curvature() const { return _curvature; }

  // How much higher the peak of the parabola through the three values around the best one is
  // than the best value itself (1 on the edge or where they do not bend downwards).
  double peakGain() const { return _peakGain; }

  // The standard uncertainty, in samples, of a delay measured over count samples whose
  // normalised correlation is rho and whose peak bends by curvature: with the channels' common
  // signal-to-noise ratio r = rho / (1 - rho) (independent noise of equal power on each), the
  // variance of the peak's position is 2 / (r count curvature) + pi^2 / (3 r^2 count curvature^2).
  // Infinite when the peak does not bend or rho is not positive.
  static double delayUncertainty(double curvature, double rho, int64_t count);

  // A peak is clear when every other peak in range stays below this fraction of it.
  static constexpr double kClearRatio = 0.8;

 private:
  int64_t _radius;
  int64_t _best = 0;
  double _ratio = 1.0;
  double _curvature = 0.0;
  double _peakGain = 1.0;
};
