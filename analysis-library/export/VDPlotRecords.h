#pragma once

#include <cstdint>
#include <string>
#include <vector>

// VDPlotRecords are the rows of a result CSV that its figure draws, for the plot run to take
// from memory instead of reading back the file just written: the CSV's column names, and each
// column's values at the rows kept (VDPlotReduction), in the file's order.
struct VDPlotRecords {
  struct Column {
    std::string name;
    bool integral = false;          // values in integers, as the CSV prints them; else in reals
    std::vector<int64_t> integers;  // when integral
    std::vector<double> reals;      // otherwise
  };

  std::vector<Column> columns;
};
