#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "VDAudioTimeErrorCalculator.h"
#include "VDTimeErrorValue.h"

// What the audio calculator's windows become for their readers: the time error series (values
// and CSV) and the per-window diagnostic CSV. The formats are described on
// VDAudioTimeErrorCalculator, whose export calls land here.
class VDAudioWindowExport {
 public:
  using Window = VDAudioTimeErrorCalculator::Window;

  VDAudioWindowExport(const std::vector<Window>& windows, int64_t correlationLength,
                      double samplingRate);

  std::vector<VDTimeErrorValue> timeErrors() const;
  bool writeSeries(const std::filesystem::path& directory, const std::string& filename) const;
  bool writeWindows(const std::filesystem::path& path) const;

 private:
  double centreSeconds(const Window& window) const;
  double delaySeconds(const Window& window) const;

  const std::vector<Window>& _windows;
  int64_t _correlationLength;
  double _samplingRate;
};
