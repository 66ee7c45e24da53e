#include "VDMaximumRangeSearch.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace {

// Window sizes swept together between two bound checks of a block.
constexpr int64_t kSweepSegment = 64;

// Window lists with a step up to this are swept (every window size in between costs one cheap
// vector step per start); sparser lists evaluate their windows one by one.
constexpr int64_t kLargestSweptStep = 16;

int levelOf(int64_t count) { return 63 - __builtin_clzll(static_cast<uint64_t>(count)); }

// Inlined by force: the target clones below must not call out to baseline code.
inline __attribute__((always_inline)) uint64_t spread(int64_t maximum, int64_t minimum) {
  return static_cast<uint64_t>(maximum) - static_cast<uint64_t>(minimum);
}

// Widens every window by the next sample and returns the largest spread among them:
// maxima[i] = max(maxima[i], next[i]), minima likewise, over i < count. Always inlined, so each
// clone below vectorises it for its own instruction set.
inline __attribute__((always_inline)) uint64_t widenWindows(int64_t* __restrict maxima,
                                                            int64_t* __restrict minima,
                                                            const int64_t* __restrict next,
                                                            size_t count) {
  uint64_t largest = 0;
  for (size_t i = 0; i < count; ++i) {
    const int64_t value = next[i];
    const int64_t maximum = maxima[i] > value ? maxima[i] : value;
    const int64_t minimum = minima[i] < value ? minima[i] : value;
    maxima[i] = maximum;
    minima[i] = minimum;
    const uint64_t range = spread(maximum, minimum);
    largest = largest > range ? largest : range;
  }
  return largest;
}

__attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default"))) uint64_t
extendWindows(int64_t* __restrict maxima, int64_t* __restrict minima,
              const int64_t* __restrict next, size_t count) {
  return widenWindows(maxima, minima, next, count);
}

// Sweeps windows firstWindow .. lastWindow over one block's starts: blockSamples points at the
// block's first sample, maxima and minima hold the extremes of window firstWindow - 1, and the
// block has min(blockStarts, startLimit - m) starts whose window m ends inside the series. Raises
// best[m - firstWindow] to the largest range of each window m.
__attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default"))) void sweepWindows(
    int64_t* __restrict maxima, int64_t* __restrict minima, const int64_t* __restrict blockSamples,
    int64_t blockStarts, int64_t startLimit, int64_t firstWindow, int64_t lastWindow,
    uint64_t* __restrict best) {
  for (int64_t m = firstWindow; m <= lastWindow; ++m) {
    const int64_t starts = blockStarts < startLimit - m ? blockStarts : startLimit - m;
    const uint64_t largest =
        starts > 0 ? widenWindows(maxima, minima, blockSamples + m, static_cast<size_t>(starts))
                   : 0;
    uint64_t& known = best[m - firstWindow];
    known = known > largest ? known : largest;
  }
}

// Eight int64 lanes; the alias type loads them from any int64.
typedef int64_t Lanes __attribute__((vector_size(64)));
typedef uint64_t UnsignedLanes __attribute__((vector_size(64)));
typedef int64_t UnalignedLanes __attribute__((vector_size(64), aligned(8), may_alias));
constexpr int64_t kLanes = 8;
// Starts whose extremes stay in registers across a segment: 2 x 8 vectors of 8 lanes.
constexpr int64_t kGroupVectors = 8;
constexpr int64_t kGroupStarts = kLanes * kGroupVectors;

// The same sweep as sweepWindows, at most kSweepSegment windows, for a block of blockStarts
// starts (a multiple of kGroupStarts) whose every window up to lastWindow ends inside the
// series. Each group of kGroupStarts starts stays in registers for the whole segment: one load
// per sample instead of three loads and two stores.
__attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default"))) void sweepFullBlock(
    int64_t* __restrict maxima, int64_t* __restrict minima, const int64_t* __restrict blockSamples,
    int64_t blockStarts, int64_t firstWindow, int64_t lastWindow, uint64_t* __restrict best) {
  UnsignedLanes windowLargest[kSweepSegment];
  const int64_t windowCount = lastWindow - firstWindow + 1;
  for (int64_t w = 0; w < windowCount; ++w) {
    windowLargest[w] = UnsignedLanes{};
  }
  for (int64_t group = 0; group + kGroupStarts <= blockStarts; group += kGroupStarts) {
    Lanes groupMaxima[kGroupVectors];
    Lanes groupMinima[kGroupVectors];
    for (int64_t v = 0; v < kGroupVectors; ++v) {
      groupMaxima[v] = *reinterpret_cast<const UnalignedLanes*>(maxima + group + v * kLanes);
      groupMinima[v] = *reinterpret_cast<const UnalignedLanes*>(minima + group + v * kLanes);
    }
    for (int64_t w = 0; w < windowCount; ++w) {
      const int64_t* next = blockSamples + group + firstWindow + w;
      UnsignedLanes largest = {};
      for (int64_t v = 0; v < kGroupVectors; ++v) {
        const Lanes value = *reinterpret_cast<const UnalignedLanes*>(next + v * kLanes);
        groupMaxima[v] = groupMaxima[v] > value ? groupMaxima[v] : value;
        groupMinima[v] = groupMinima[v] < value ? groupMinima[v] : value;
        const UnsignedLanes range = reinterpret_cast<UnsignedLanes>(groupMaxima[v]) -
                                    reinterpret_cast<UnsignedLanes>(groupMinima[v]);
        largest = largest > range ? largest : range;
      }
      windowLargest[w] = windowLargest[w] > largest ? windowLargest[w] : largest;
    }
    for (int64_t v = 0; v < kGroupVectors; ++v) {
      *reinterpret_cast<UnalignedLanes*>(maxima + group + v * kLanes) = groupMaxima[v];
      *reinterpret_cast<UnalignedLanes*>(minima + group + v * kLanes) = groupMinima[v];
    }
  }
  for (int64_t w = 0; w < windowCount; ++w) {
    uint64_t largest = best[w];
    for (int64_t lane = 0; lane < kLanes; ++lane) {
      largest = largest > windowLargest[w][lane] ? largest : windowLargest[w][lane];
    }
    best[w] = largest;
  }
}

// The largest range the windows held in maxima and minima can reach once widened by samples
// between addedMinimum and addedMaximum: max over i of
// max(maxima[i], addedMaximum) - min(minima[i], addedMinimum).
__attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default"))) uint64_t
widenedSpread(const int64_t* __restrict maxima, const int64_t* __restrict minima, size_t count,
              int64_t addedMaximum, int64_t addedMinimum) {
  uint64_t largest = 0;
  for (size_t i = 0; i < count; ++i) {
    const int64_t maximum = std::max(maxima[i], addedMaximum);
    const int64_t minimum = std::min(minima[i], addedMinimum);
    const uint64_t range = spread(maximum, minimum);
    largest = std::max(largest, range);
  }
  return largest;
}

__attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default"))) uint64_t
largestSpread(const int64_t* __restrict maxima, const int64_t* __restrict minima, size_t count) {
  uint64_t largest = 0;
  for (size_t i = 0; i < count; ++i) {
    const uint64_t range = spread(maxima[i], minima[i]);
    largest = largest > range ? largest : range;
  }
  return largest;
}

// Maximum and minimum of [begin, end); the identities of max and min when empty.
__attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default"))) void extremesOf(
    const int64_t* begin, const int64_t* end, int64_t& maximum, int64_t& minimum) {
  int64_t largest = std::numeric_limits<int64_t>::min();
  int64_t smallest = std::numeric_limits<int64_t>::max();
  for (const int64_t* sample = begin; sample < end; ++sample) {
    largest = largest > *sample ? largest : *sample;
    smallest = smallest < *sample ? smallest : *sample;
  }
  maximum = largest;
  minimum = smallest;
}

// Running extremes: maxima[i], minima[i] = extremes of x[0 .. i] (Forward) or x[i .. count-1].
// A running extreme is a chain of dependent compare-and-moves; four independent chains over
// the four quarters of the range, joined afterwards, keep the processor busy.
template <bool Forward>
inline __attribute__((always_inline)) void runningExtremes(const int64_t* x, int64_t count,
                                                           int64_t* maxima, int64_t* minima) {
  constexpr int64_t kLowest = std::numeric_limits<int64_t>::min();
  constexpr int64_t kHighest = std::numeric_limits<int64_t>::max();
  if (count % 4 != 0) {
    // Only partial blocks at the end of the series come here.
    int64_t maximum = kLowest;
    int64_t minimum = kHighest;
    for (int64_t step = 0; step < count; ++step) {
      const int64_t i = Forward ? step : count - 1 - step;
      maximum = std::max(maximum, x[i]);
      minimum = std::min(minimum, x[i]);
      maxima[i] = maximum;
      minima[i] = minimum;
    }
    return;
  }
  const int64_t quarter = count / 4;
  int64_t maximum0 = kLowest, maximum1 = kLowest, maximum2 = kLowest, maximum3 = kLowest;
  int64_t minimum0 = kHighest, minimum1 = kHighest, minimum2 = kHighest, minimum3 = kHighest;
  for (int64_t step = 0; step < quarter; ++step) {
    const int64_t i = Forward ? step : quarter - 1 - step;
    maximum0 = std::max(maximum0, x[i]);
    maximum1 = std::max(maximum1, x[quarter + i]);
    maximum2 = std::max(maximum2, x[2 * quarter + i]);
    maximum3 = std::max(maximum3, x[3 * quarter + i]);
    minimum0 = std::min(minimum0, x[i]);
    minimum1 = std::min(minimum1, x[quarter + i]);
    minimum2 = std::min(minimum2, x[2 * quarter + i]);
    minimum3 = std::min(minimum3, x[3 * quarter + i]);
    maxima[i] = maximum0;
    maxima[quarter + i] = maximum1;
    maxima[2 * quarter + i] = maximum2;
    maxima[3 * quarter + i] = maximum3;
    minima[i] = minimum0;
    minima[quarter + i] = minimum1;
    minima[2 * quarter + i] = minimum2;
    minima[3 * quarter + i] = minimum3;
  }
  // Each quarter also sees the whole of the quarters before it (Forward) or after it.
  const int64_t quarterMaxima[4] = {maximum0, maximum1, maximum2, maximum3};
  const int64_t quarterMinima[4] = {minimum0, minimum1, minimum2, minimum3};
  int64_t seenMaximum = kLowest;
  int64_t seenMinimum = kHighest;
  for (int64_t step = 0; step < 4; ++step) {
    const int64_t part = Forward ? step : 3 - step;
    for (int64_t i = part * quarter; i < (part + 1) * quarter; ++i) {
      maxima[i] = std::max(maxima[i], seenMaximum);
      minima[i] = std::min(minima[i], seenMinimum);
    }
    seenMaximum = std::max(seenMaximum, quarterMaxima[part]);
    seenMinimum = std::min(seenMinimum, quarterMinima[part]);
  }
}

// Extremes of the windows [k, k+window] for the starts k of blockStarts[0 .. starts): their own
// suffix of the start block, the shared part (the rest of the block, whole blocks and the
// lead-in to the first window's end, given as sharedMaximum and sharedMinimum) and the prefix
// of windowEnds[0 .. starts), the ends of the windows.
constexpr int64_t kCombinedStartsCapacity = 256;

__attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default"))) void
combineWindowExtremes(const int64_t* blockStarts, const int64_t* windowEnds, int64_t starts,
                      int64_t sharedMaximum, int64_t sharedMinimum, int64_t* maxima,
                      int64_t* minima) {
  int64_t endMaxima[kCombinedStartsCapacity];
  int64_t endMinima[kCombinedStartsCapacity];
  runningExtremes<false>(blockStarts, starts, maxima, minima);
  runningExtremes<true>(windowEnds, starts, endMaxima, endMinima);
  for (int64_t i = 0; i < starts; ++i) {
    const int64_t maximum = maxima[i] > sharedMaximum ? maxima[i] : sharedMaximum;
    const int64_t minimum = minima[i] < sharedMinimum ? minima[i] : sharedMinimum;
    maxima[i] = maximum > endMaxima[i] ? maximum : endMaxima[i];
    minima[i] = minimum < endMinima[i] ? minimum : endMinima[i];
  }
}

}  // namespace

VDMaximumRangeSearch::VDMaximumRangeSearch(const std::vector<int64_t>& samples)
    : _samples(samples),
      _blockCount((static_cast<int64_t>(samples.size()) + kBlockSize - 1) / kBlockSize) {
  if (_blockCount == 0) {
    return;
  }
  const int levels = levelOf(_blockCount) + 1;
  _tableMaxima.resize(static_cast<size_t>(levels * _blockCount));
  _tableMinima.resize(_tableMaxima.size());
  const auto sampleCount = static_cast<int64_t>(samples.size());
  for (int64_t block = 0; block < _blockCount; ++block) {
    const int64_t begin = block * kBlockSize;
    const int64_t end = std::min(begin + kBlockSize, sampleCount);
    const auto [minimum, maximum] =
        std::minmax_element(samples.begin() + begin, samples.begin() + end);
    _tableMaxima[block] = *maximum;
    _tableMinima[block] = *minimum;
  }
  for (int level = 1; level < levels; ++level) {
    const int64_t half = int64_t{1} << (level - 1);
    const int64_t* lowerMaxima = &_tableMaxima[(level - 1) * _blockCount];
    const int64_t* lowerMinima = &_tableMinima[(level - 1) * _blockCount];
    int64_t* maxima = &_tableMaxima[level * _blockCount];
    int64_t* minima = &_tableMinima[level * _blockCount];
    for (int64_t block = 0; block + 2 * half <= _blockCount; ++block) {
      maxima[block] = std::max(lowerMaxima[block], lowerMaxima[block + half]);
      minima[block] = std::min(lowerMinima[block], lowerMinima[block + half]);
    }
  }
}

void VDMaximumRangeSearch::blockExtremes(int64_t firstBlock, int64_t lastBlock, int64_t& maximum,
                                         int64_t& minimum) const {
  // Two overlapping power-of-two runs of blocks cover the span.
  const int level = levelOf(lastBlock - firstBlock + 1);
  const int64_t offset = level * _blockCount;
  const int64_t secondRun = lastBlock - (int64_t{1} << level) + 1;
  maximum = std::max(_tableMaxima[offset + firstBlock], _tableMaxima[offset + secondRun]);
  minimum = std::min(_tableMinima[offset + firstBlock], _tableMinima[offset + secondRun]);
}

void VDMaximumRangeSearch::sampleExtremes(int64_t firstSample, int64_t lastSample, int64_t& maximum,
                                          int64_t& minimum) const {
  const int64_t firstWholeBlock = (firstSample + kBlockSize - 1) / kBlockSize;
  const int64_t endWholeBlocks = (lastSample + 1) / kBlockSize;  // one past the last whole block
  if (firstWholeBlock >= endWholeBlocks) {
    extremesOf(_samples.data() + firstSample, _samples.data() + lastSample + 1, maximum, minimum);
    return;
  }
  blockExtremes(firstWholeBlock, endWholeBlocks - 1, maximum, minimum);
  int64_t edgeMaximum;
  int64_t edgeMinimum;
  extremesOf(_samples.data() + firstSample, _samples.data() + firstWholeBlock * kBlockSize,
             edgeMaximum, edgeMinimum);
  maximum = std::max(maximum, edgeMaximum);
  minimum = std::min(minimum, edgeMinimum);
  extremesOf(_samples.data() + endWholeBlocks * kBlockSize, _samples.data() + lastSample + 1,
             edgeMaximum, edgeMinimum);
  maximum = std::max(maximum, edgeMaximum);
  minimum = std::min(minimum, edgeMinimum);
}

uint64_t VDMaximumRangeSearch::blockRangeBound(int64_t firstSample, int64_t lastSample) const {
  int64_t maximum;
  int64_t minimum;
  blockExtremes(firstSample / kBlockSize, lastSample / kBlockSize, maximum, minimum);
  return spread(maximum, minimum);
}

void VDMaximumRangeSearch::windowExtremes(int64_t blockStart, int64_t starts, int64_t window,
                                          int64_t* maxima, int64_t* minima) const {
  const int64_t* x = _samples.data();
  if (window < kBlockSize) {
    // Short windows: widen sample by sample, vectorised, at most kBlockSize^2 steps.
    std::copy(x + blockStart, x + blockStart + starts, maxima);
    std::copy(x + blockStart, x + blockStart + starts, minima);
    for (int64_t offset = 1; offset <= window; ++offset) {
      extendWindows(maxima, minima, x + blockStart + offset, static_cast<size_t>(starts));
    }
    return;
  }
  // Window [k, k+window] = [k, lastStart] + [lastStart+1, middleBegin) + whole blocks
  // [middleBegin, middleEnd) + [middleEnd, k+window]: a suffix within this block, the rest of
  // it, blocks from the table and a prefix that grows with k. middleEnd >= middleBegin because
  // the window spans at least one block and blockStart is a block boundary.
  static_assert(kBlockSize <= kCombinedStartsCapacity);
  const int64_t lastStart = blockStart + starts - 1;
  const int64_t middleBegin = (lastStart / kBlockSize + 1) * kBlockSize;
  const int64_t middleEnd = (blockStart + window) / kBlockSize * kBlockSize;
  const int64_t firstEnd = blockStart + window;
  // Everything every window holds besides its own suffix and prefix: the rest of this block,
  // the whole blocks and the lead-in to the first window's end.
  int64_t sharedMaximum;
  int64_t sharedMinimum;
  extremesOf(x + lastStart + 1, x + middleBegin, sharedMaximum, sharedMinimum);
  int64_t partMaximum;
  int64_t partMinimum;
  if (middleEnd > middleBegin) {
    blockExtremes(middleBegin / kBlockSize, middleEnd / kBlockSize - 1, partMaximum, partMinimum);
    sharedMaximum = std::max(sharedMaximum, partMaximum);
    sharedMinimum = std::min(sharedMinimum, partMinimum);
  }
  extremesOf(x + middleEnd, x + firstEnd, partMaximum, partMinimum);
  sharedMaximum = std::max(sharedMaximum, partMaximum);
  sharedMinimum = std::min(sharedMinimum, partMinimum);
  combineWindowExtremes(x + blockStart, x + firstEnd, starts, sharedMaximum, sharedMinimum, maxima,
                        minima);
}

std::vector<uint64_t> VDMaximumRangeSearch::largestRanges(const VDWindowRange& windows) const {
  if (windows.empty()) {
    return {};
  }
  if (windows.step() <= kLargestSweptStep) {
    return sweptRanges(windows);
  }
  return separateRanges(windows);
}

std::vector<uint64_t> VDMaximumRangeSearch::sweptRanges(const VDWindowRange& windows) const {
  const auto sampleCount = static_cast<int64_t>(_samples.size());
  const int64_t firstWindow = windows.first();
  const int64_t lastWindow = windows.last();
  // Every block carries the extremes of its starts' windows of size carriedWindow[block] (-1
  // before its first sweep). Left behind while the block is skipped, they still bound its
  // later windows.
  std::vector<int64_t> maxima(_samples.size());
  std::vector<int64_t> minima(_samples.size());
  std::vector<int64_t> carriedWindow(static_cast<size_t>(_blockCount), -1);
  std::vector<std::pair<uint64_t, int64_t>> candidates;  // (bound, block)
  uint64_t segmentBest[kSweepSegment];
  std::vector<uint64_t> ranges;
  ranges.reserve(windows.count());
  uint64_t running = 0;  // MTIE of the last window swept: a lower bound for all later ones
  for (int64_t segmentStart = firstWindow; segmentStart <= lastWindow;
       segmentStart += kSweepSegment) {
    const int64_t segmentEnd = std::min(segmentStart + kSweepSegment - 1, lastWindow);
    candidates.clear();
    for (int64_t block = 0; block * kBlockSize + segmentStart < sampleCount; ++block) {
      const int64_t blockStart = block * kBlockSize;
      const int64_t blockStarts = std::min(kBlockSize, sampleCount - blockStart);
      const int64_t starts = std::min(blockStarts, sampleCount - segmentStart - blockStart);
      const int64_t reach = std::min(sampleCount - 1, blockStart + blockStarts - 1 + segmentEnd);
      const int64_t carried = carriedWindow[block];
      // The block's whole span first, from the sparse table in O(1): on smooth series most
      // blocks stop here, before the tighter bound from their carried windows costs a pass
      // over their starts.
      uint64_t bound = blockRangeBound(blockStart, reach);
      if (carried >= 0 && bound > running) {
        // Each carried window widened by every sample it may take in up to segmentEnd.
        int64_t addedMaximum;
        int64_t addedMinimum;
        sampleExtremes(blockStart + carried + 1, reach, addedMaximum, addedMinimum);
        bound = widenedSpread(&maxima[blockStart], &minima[blockStart], static_cast<size_t>(starts),
                              addedMaximum, addedMinimum);
      }
      if (bound > running) {
        candidates.emplace_back(bound, block);
      }
    }
    // Most promising blocks first: the first window's result then bounds the whole segment.
    std::sort(candidates.begin(), candidates.end(),
              [](const auto& a, const auto& b) { return a.first > b.first; });
    std::fill(segmentBest, segmentBest + kSweepSegment, 0);
    for (const auto& [bound, block] : candidates) {
      if (bound <= std::max(running, segmentBest[0])) {
        break;
      }
      const int64_t blockStart = block * kBlockSize;
      const int64_t blockStarts = std::min(kBlockSize, sampleCount - blockStart);
      if (carriedWindow[block] != segmentStart - 1) {
        const int64_t starts = std::min(blockStarts, sampleCount - segmentStart - blockStart);
        windowExtremes(blockStart, starts, segmentStart - 1, &maxima[blockStart],
                       &minima[blockStart]);
      }
      const int64_t blockLastWindow = std::min(segmentEnd, sampleCount - 1 - blockStart);
      if (blockStart + kBlockSize - 1 + blockLastWindow < sampleCount) {
        sweepFullBlock(&maxima[blockStart], &minima[blockStart], _samples.data() + blockStart,
                       kBlockSize, segmentStart, blockLastWindow, segmentBest);
      } else {
        sweepWindows(&maxima[blockStart], &minima[blockStart], _samples.data() + blockStart,
                     blockStarts, sampleCount - blockStart, segmentStart, blockLastWindow,
                     segmentBest);
      }
      carriedWindow[block] = blockLastWindow;
    }
    // Skipped blocks reach no more than the window before, so the running maximum is exact.
    for (int64_t m = segmentStart; m <= segmentEnd; ++m) {
      running = std::max(running, segmentBest[m - segmentStart]);
      if (windows.contains(m)) {
        ranges.push_back(running);
      }
    }
  }
  return ranges;
}

std::vector<uint64_t> VDMaximumRangeSearch::separateRanges(const VDWindowRange& windows) const {
  const auto sampleCount = static_cast<int64_t>(_samples.size());
  std::vector<uint64_t> ranges;
  ranges.reserve(windows.count());
  std::vector<std::pair<uint64_t, int64_t>> candidates;  // (bound, block start)
  int64_t maxima[kBlockSize];
  int64_t minima[kBlockSize];
  uint64_t previous = 0;
  for (uint64_t index = 0; index < windows.count(); ++index) {
    const int64_t window = windows.at(index);
    uint64_t best = previous;  // MTIE never decreases with the window
    candidates.clear();
    for (int64_t blockStart = 0; blockStart + window < sampleCount; blockStart += kBlockSize) {
      const int64_t starts = std::min(kBlockSize, sampleCount - window - blockStart);
      const uint64_t bound = blockRangeBound(blockStart, blockStart + starts - 1 + window);
      if (bound > best) {
        candidates.emplace_back(bound, blockStart);
      }
    }
    // Most promising blocks first, so the rest are most often cut off.
    std::sort(candidates.begin(), candidates.end(),
              [](const auto& a, const auto& b) { return a.first > b.first; });
    for (const auto& [bound, blockStart] : candidates) {
      if (bound <= best) {
        break;
      }
      const int64_t starts = std::min(kBlockSize, sampleCount - window - blockStart);
      windowExtremes(blockStart, starts, window, maxima, minima);
      best = std::max(best, largestSpread(maxima, minima, static_cast<size_t>(starts)));
    }
    ranges.push_back(best);
    previous = best;
  }
  return ranges;
}
