#include "VDPDualLinkTimeErrorSequence.h"

#include "VDPlotScript.h"

std::string VDPDualLinkTimeErrorSequence::generatePythonScriptWithOutputPath(
    const std::optional<std::string>& outputPath, const std::string& fileName,
    const std::string& titleName, const std::optional<std::string>& plotPath, bool showPlot) const {
  // Values go in as they are: a quote in a path breaks the script, which Python then reports.
  const std::string csvPath = VDPlotScript::csvPathExpression(outputPath, fileName);
  std::string script =
      "#!/usr/bin/python\n\nimport numpy as np\nimport matplotlib.pyplot as plt\n"
      "import matplotlib.mlab as mlab\nimport os\nimport sys\n";
  script += "timeErrorRecords = mlab.csv2rec(" + csvPath +
            ")\n\ntime = timeErrorRecords.time\ntimeError = timeErrorRecords.time_error\n\n";
  script +=
      "f1, ax1 = plt.subplots()\nax1.plot(time, timeError, 'r-')\n"
      "ax1.set_ylabel('Time Error (ns)')\nax1.set_xlabel('Time (ns)')\n"
      "ax1.set_title('Time Errors - " +
      titleName +
      "')\n"
      "ax1.plot([time[0], time[-1]], [80, 80], '-', color='#fac205')\n"
      "ax1.plot([time[0], time[-1]], [-80, -80], '-', color='#fac205')\n"
      "ax1.grid(True)\n\n"
      "plt.subplots_adjust(left=0.05, right=0.97, bottom=0.05, top=0.97)\n";
  if (plotPath) {
    script += "\nf1.set_size_inches(32, 16.98753)\n\nf1.savefig('" + *plotPath + "')\n";
  }
  script += showPlot ? "\nplt.show()\n" : "\nplt.close(f1)\n";
  return script;
}
