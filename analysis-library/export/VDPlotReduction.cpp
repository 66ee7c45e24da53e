#include "VDPlotReduction.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "VDPlotScript.h"

namespace {

std::vector<size_t> everyRow(size_t count) {
  std::vector<size_t> rows(count);
  for (size_t i = 0; i < count; ++i) {
    rows[i] = i;
  }
  return rows;
}

}  // namespace

std::vector<size_t> VDPlotReduction::pixelColumnExtremes(size_t count, const Column& x,
                                                         bool logAxes,
                                                         const std::vector<Column>& series) {
  if (count <= static_cast<size_t>(VDPlotScript::kReducedPoints)) {
    return everyRow(count);
  }
  std::vector<double> position(count);
  bool rising = true;
  for (size_t i = 0; i < count; ++i) {
    position[i] = logAxes ? std::log10(x(i)) : x(i);
    rising = rising && std::isfinite(position[i]) && (i == 0 || position[i] >= position[i - 1]);
  }
  const double span = position.back() - position.front();
  if (!(rising && span > 0)) {
    return everyRow(count);
  }
  // As the scripts compute it: the factor first, then truncation toward zero.
  const double columnsPerUnit = (VDPlotScript::kPixelColumns - 1) / span;
  const auto columnOf = [&](size_t i) {
    return static_cast<int64_t>((position[i] - position.front()) * columnsPerUnit);
  };
  const auto drawnValue = [&](const Column& values, size_t i) {
    const double value = values(i);
    return logAxes && value <= 0 ? std::numeric_limits<double>::quiet_NaN() : value;
  };
  std::vector<size_t> kept;
  size_t first = 0;
  while (first < count) {
    const int64_t column = columnOf(first);
    size_t end = first + 1;
    while (end < count && columnOf(end) == column) {
      ++end;
    }
    const size_t columnStart = kept.size();
    kept.insert(kept.end(), {first, end - 1});
    for (const Column& values : series) {
      // The first row at the least and at the greatest value; none where every value is NaN.
      size_t lowest = end, highest = end;
      for (size_t i = first; i < end; ++i) {
        const double value = drawnValue(values, i);
        if (std::isnan(value)) {
          continue;
        }
        if (lowest == end || value < drawnValue(values, lowest)) {
          lowest = i;
        }
        if (highest == end || value > drawnValue(values, highest)) {
          highest = i;
        }
      }
      if (lowest != end) {
        kept.insert(kept.end(), {lowest, highest});
      }
    }
    std::sort(kept.begin() + static_cast<long>(columnStart), kept.end());
    kept.erase(std::unique(kept.begin() + static_cast<long>(columnStart), kept.end()), kept.end());
    first = end;
  }
  return kept;
}

std::vector<size_t> VDPlotReduction::rowsForPlotRun(size_t count, const Column& x, bool logAxes,
                                                    const std::vector<Column>& series) {
  std::vector<size_t> rows = pixelColumnExtremes(count, x, logAxes, series);
  const auto enough = static_cast<size_t>(VDPlotScript::kRasterisedPoints);
  if (count > enough && rows.size() <= enough) {
    // enough + 1 distinct rows, the first and the last among them.
    for (size_t k = 0; k <= enough; ++k) {
      rows.push_back(k * (count - 1) / enough);
    }
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
  }
  return rows;
}
