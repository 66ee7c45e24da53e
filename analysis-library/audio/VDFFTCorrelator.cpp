#include "VDFFTCorrelator.h"

#include <fftw3.h>

#include <cmath>
#include <cstring>
#include <limits>

struct VDFFTCorrelator::Plans {
  fftw_complex* referenceSpectrum = nullptr;
  fftw_complex* otherSpectrum = nullptr;
  fftw_plan forwardReference = nullptr;
  fftw_plan forwardOther = nullptr;
  fftw_plan inverse = nullptr;
};

VDFFTCorrelator::VDFFTCorrelator(size_t size)
    : _size(size == 0 ? 1 : size), _plans(std::make_unique<Plans>()) {
  const size_t bins = _size / 2 + 1;
  _reference = fftw_alloc_real(_size);
  _other = fftw_alloc_real(_size);
  _result = fftw_alloc_real(_size);
  _plans->referenceSpectrum = fftw_alloc_complex(bins);
  _plans->otherSpectrum = fftw_alloc_complex(bins);
  std::memset(_reference, 0, _size * sizeof(double));
  std::memset(_other, 0, _size * sizeof(double));
  // FFTW_ESTIMATE: plans in microseconds and leaves the buffers alone; measuring would cost more
  // than a whole recording's correlations save.
  const int n = static_cast<int>(_size);
  _plans->forwardReference =
      fftw_plan_dft_r2c_1d(n, _reference, _plans->referenceSpectrum, FFTW_ESTIMATE);
  _plans->forwardOther = fftw_plan_dft_r2c_1d(n, _other, _plans->otherSpectrum, FFTW_ESTIMATE);
  _plans->inverse = fftw_plan_dft_c2r_1d(n, _plans->otherSpectrum, _result, FFTW_ESTIMATE);
}

VDFFTCorrelator::~VDFFTCorrelator() {
  fftw_destroy_plan(_plans->forwardReference);
  fftw_destroy_plan(_plans->forwardOther);
  fftw_destroy_plan(_plans->inverse);
  fftw_free(_plans->referenceSpectrum);
  fftw_free(_plans->otherSpectrum);
  fftw_free(_reference);
  fftw_free(_other);
  fftw_free(_result);
}

size_t VDFFTCorrelator::fastSize(size_t minimum) {
  if (minimum <= 1) {
    return 1;
  }
  size_t best = std::numeric_limits<size_t>::max();
  // Every 2^a 3^b 5^c 7^d below the next power of two, which is itself a candidate.
  size_t powerOfTwo = 1;
  while (powerOfTwo < minimum) {
    powerOfTwo *= 2;
  }
  for (size_t p7 = 1; p7 <= powerOfTwo; p7 *= 7) {
    for (size_t p5 = p7; p5 <= powerOfTwo; p5 *= 5) {
      for (size_t p3 = p5; p3 <= powerOfTwo; p3 *= 3) {
        size_t candidate = p3;
        while (candidate < minimum) {
          candidate *= 2;
        }
        if (candidate < best) {
          best = candidate;
        }
      }
    }
  }
  return best;
}

const double* VDFFTCorrelator::correlate() { return correlate(false); }

const double* VDFFTCorrelator::correlateWhitened() { return correlate(true); }

const double* VDFFTCorrelator::correlate(bool whitened) {
  fftw_execute(_plans->forwardReference);
  fftw_execute(_plans->forwardOther);
  const size_t bins = _size / 2 + 1;
  fftw_complex* reference = _plans->referenceSpectrum;
  const fftw_complex* other = _plans->otherSpectrum;
  // conj(R) * O, the spectrum of sum_n r[n] o[n + k], kept in R's place for whitenedAgain().
  for (size_t i = 0; i < bins; ++i) {
    const double re = reference[i][0] * other[i][0] + reference[i][1] * other[i][1];
    const double im = reference[i][0] * other[i][1] - reference[i][1] * other[i][0];
    reference[i][0] = re;
    reference[i][1] = im;
  }
  return inverse(whitened);
}

const double* VDFFTCorrelator::whitenedAgain() { return inverse(true); }

const double* VDFFTCorrelator::inverse(bool whitened) {
  const size_t bins = _size / 2 + 1;
  const double scale = 1.0 / static_cast<double>(_size);  // the inverse is unnormalised
  const fftw_complex* product = _plans->referenceSpectrum;
  fftw_complex* spectrum = _plans->otherSpectrum;
  for (size_t i = 0; i < bins; ++i) {
    double weight = scale;
    if (whitened) {
      // |product|^(1/2) by square roots: a power function would cost more than the transforms.
      const double squared = product[i][0] * product[i][0] + product[i][1] * product[i][1];
      weight /= squared > 0.0 ? std::sqrt(std::sqrt(squared)) : 1.0;
    }
    spectrum[i][0] = product[i][0] * weight;
    spectrum[i][1] = product[i][1] * weight;
  }
  fftw_execute(_plans->inverse);
  return _result;
}
