#pragma once

#include <cstdint>
#include <vector>

#include "VDWindowRange.h"

// A VDMaximumRangeSearch finds, for ascending window sizes m, the largest range
// max(x[k..k+m]) - min(x[k..k+m]) over every window position k of an integer series, which is
// the MTIE of a time error series. Ranges are exact (unsigned 64-bit) for any int64 samples.
//
// Window starts are grouped in blocks of kBlockSize, and a sparse table of block maxima and
// minima gives the extremes of any run of blocks. Since the result never decreases with the
// window size, the MTIE of the previous window is a lower bound, and a block whose windows
// provably cannot exceed it is skipped.
//
// Dense window lists (small steps) are swept in segments of window sizes: each block carries its
// starts' window maxima and minima from one window size to the next, in registers, one sample
// per start and window. A block is swept only when its carried windows, widened by every sample
// they may take in during the segment, could beat the lower bound; blocks are tried in order of
// that bound, so the best one raises the bound for the rest. Sparse lists evaluate each window
// on its own: a block's window extremes come from a scan within the block, whole blocks from the
// sparse table, and a scan at the far end.
//
// Memory: the sparse table and a few words per block, plus, for sweeps, the carried maxima and
// minima (two values per sample).
class VDMaximumRangeSearch {
 public:
  // Borrows samples, which must outlive the search.
  explicit VDMaximumRangeSearch(const std::vector<int64_t>& samples);

  // The largest range for each window size of windows (all within 1 .. N-1), in its order.
  std::vector<uint64_t> largestRanges(const VDWindowRange& windows) const;

 private:
  // Window starts per block; a multiple of the 64 starts the sweep keeps in registers.
  static constexpr int64_t kBlockSize = 256;

  // Largest range of the samples in the blocks holding firstSample .. lastSample: an upper
  // bound for every window within those samples.
  uint64_t blockRangeBound(int64_t firstSample, int64_t lastSample) const;
  // Maximum and minimum of the samples firstSample .. lastSample.
  void sampleExtremes(int64_t firstSample, int64_t lastSample, int64_t& maximum,
                      int64_t& minimum) const;
  // Maximum and minimum of whole blocks firstBlock .. lastBlock.
  void blockExtremes(int64_t firstBlock, int64_t lastBlock, int64_t& maximum,
                     int64_t& minimum) const;
  // maxima[i], minima[i] = extremes of x[k .. k+window] for k = blockStart + i, i < starts;
  // blockStart is a multiple of kBlockSize and blockStart + starts - 1 + window < N.
  void windowExtremes(int64_t blockStart, int64_t starts, int64_t window, int64_t* maxima,
                      int64_t* minima) const;

  std::vector<uint64_t> sweptRanges(const VDWindowRange& windows) const;
  std::vector<uint64_t> separateRanges(const VDWindowRange& windows) const;

  const std::vector<int64_t>& _samples;
  int64_t _blockCount;
  // Sparse table: entry level * _blockCount + b covers blocks b .. b + 2^level - 1.
  std::vector<int64_t> _tableMaxima;
  std::vector<int64_t> _tableMinima;
};
