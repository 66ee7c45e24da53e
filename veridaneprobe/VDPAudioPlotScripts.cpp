#include "VDPAudioPlotScripts.h"

#include "VDPlotScript.h"

namespace VDPAudioPlotScripts {

namespace {

const char* const kImports =
    "#!/usr/bin/python\n"
    "\n"
    "import matplotlib.pyplot as plt\n"
    "import matplotlib.mlab as mlab\n"
    "import os\n"
    "import sys\n"
    "\n";

// The CSV beside the script when no directory is given, else in that directory.
std::string dataLine(const std::optional<std::string>& csvDirectory, const std::string& csvName) {
  return "timeErrorRecords = mlab.csv2rec(" +
         VDPlotScript::csvPathExpression(csvDirectory, csvName) + ")";
}

std::string body(const std::string& outputName) {
  return "\n"
         "\n"
         "time = timeErrorRecords.time\n"
         "timeError = timeErrorRecords.time_error * 1000000.0\n"
         "\n"
         "f1, ax1 = plt.subplots()\n"
         "\n"
         "ax1.plot(time, timeError, 'g-')\n"
         "ax1.set_ylabel('Time Error (us)')\n"
         "ax1.grid(True)\n"
         "\n"
         "plt.title('Audio Time Error Analysis " +
         outputName +
         "')\n"
         "plt.xlabel('Time since start of audio (s)')\n"
         "\n"
         "plt.subplots_adjust(left=0.05, right=0.97, bottom=0.05, top=0.97)\n"
         "plt.hold(True)\n"
         "\n";
}

}  // namespace

std::string savedScript(const std::string& csvName, const std::string& outputName) {
  return kImports + dataLine(std::nullopt, csvName) + body(outputName) + "plt.show()\n";
}

std::string plotScript(const std::string& csvDirectory, const std::string& csvName,
                       const std::string& outputName, const std::string& plotDirectory,
                       const std::string& plotName) {
  return kImports + dataLine(csvDirectory, csvName) + body(outputName) +
         "f1.set_size_inches(32, 16.98753)\n\nf1.savefig('" + plotDirectory + "/" + plotName +
         "')\n\n";
}

}  // namespace VDPAudioPlotScripts
