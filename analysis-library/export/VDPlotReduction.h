#pragma once

#include <cstddef>
#include <functional>
#include <vector>

// VDPlotReduction picks the rows of a long curve that a saved figure needs to look as it would
// with every row: those the plot scripts' pixelColumnExtremes keeps (VDPlotScript), computed
// where the values are, so that a run need not hand every row to Python.
class VDPlotReduction {
 public:
  // Row i of a curve: its x, and its value in one of the series drawn over x.
  using Column = std::function<double(size_t)>;

  // What the scripts keep of count rows: every row of a curve of at most
  // VDPlotScript::kReducedPoints, or whose x (log10 x on log axes) is not finite and rising over
  // a span; otherwise, in each of VDPlotScript::kPixelColumns columns of the x range, the first
  // and last row and the first where each series is lowest and highest (on log axes ignoring
  // values at or below zero). Ascending.
  static std::vector<size_t> pixelColumnExtremes(size_t count, const Column& x, bool logAxes,
                                                 const std::vector<Column>& series);

  // The rows to hand to a plot run: those above, and for curves of more than
  // VDPlotScript::kRasterisedPoints rows evenly spaced others until more than that many are
  // kept, so that what a script decides from the count (where the legend goes) is decided as
  // with every row. The script's own reduction of them keeps exactly the rows above.
  static std::vector<size_t> rowsForPlotRun(size_t count, const Column& x, bool logAxes,
                                            const std::vector<Column>& series);
};
