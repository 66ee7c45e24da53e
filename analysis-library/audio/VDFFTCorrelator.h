#pragma once

#include <cstddef>
#include <memory>

// A VDFFTCorrelator cross-correlates two real sequences of one fixed transform size with FFTs,
// planned once when it is made and reused for every correlation; it is the analysis library's
// only contact with FFTW.
class VDFFTCorrelator {
 public:
  // Plans the transforms for size points (size >= 1). Allocation of the buffers is the only
  // cost that grows with the size; callers bound it.
  explicit VDFFTCorrelator(size_t size);
  ~VDFFTCorrelator();
  VDFFTCorrelator(const VDFFTCorrelator&) = delete;
  VDFFTCorrelator& operator=(const VDFFTCorrelator&) = delete;

  // The smallest size at least minimum whose only prime factors are 2, 3, 5 and 7, the sizes
  // FFTW transforms fastest.
  static size_t fastSize(size_t minimum);

  size_t size() const { return _size; }

  // The two inputs, size() samples each, filled by the caller before correlate(); they keep
  // their contents across calls.
  double* reference() { return _reference; }
  double* other() { return _other; }

  // The circular cross-correlation of the inputs:
  //   result[k] = sum over n of reference[n] * other[(n + k) mod size()],  0 <= k < size().
  // A caller that keeps reference[n] zero from n = R on, and reads only lags k with
  // R - 1 + k < size(), gets the linear correlation, untouched by the wrap-around.
  const double* correlate();

  // The same with each frequency's product divided by the square root of its magnitude: the
  // partially whitened cross-correlation, where bands count far more alike whatever their level,
  // so that a room's colouring or a loud bass does not decide where the peak lies, while the
  // noise between a sound's lines is not lifted to the lines' level, as full whitening would.
  // Frequencies where the product vanishes contribute nothing.
  const double* correlateWhitened();

  // The last correlation again, partially whitened, without transforming the inputs again.
  const double* whitenedAgain();

 private:
  const double* correlate(bool whitened);
  // The inverse transform of the product kept by the last correlation.
  const double* inverse(bool whitened);

  struct Plans;
  size_t _size;
  double* _reference;
  double* _other;
  double* _result;
  std::unique_ptr<Plans> _plans;
};
