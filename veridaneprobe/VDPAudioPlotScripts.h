#pragma once

#include <string>

// VDPAudioPlotScripts are the audio command's own two plot scripts of the audio time error: the
// one saved beside the CSV, which shows the plot when run by hand, and the one run here, which
// saves the PNG. Values are inserted as they are, without quoting or escaping.
namespace VDPAudioPlotScripts {

std::string savedScript(const std::string& csvName, const std::string& outputName);

std::string plotScript(const std::string& csvDirectory, const std::string& csvName,
                       const std::string& outputName, const std::string& plotDirectory,
                       const std::string& plotName);

}  // namespace VDPAudioPlotScripts
