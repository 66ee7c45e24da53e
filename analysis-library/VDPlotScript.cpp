#include "VDPlotScript.h"

std::string VDPlotScript::header() {
  return "#!/usr/bin/python\n"
         "\n"
         "import numpy as np\n"
         "import matplotlib.pyplot as plt\n"
         "import matplotlib.mlab as mlab\n"
         "import os\n"
         "import sys\n"
         "\n";
}

std::string VDPlotScript::csvPathExpression(const std::optional<std::string>& outputPath,
                                            const std::string& fileName) {
  if (outputPath) {
    return "'" + *outputPath + "/" + fileName + "'";
  }
  // Saved scripts travel with their CSV, so they look beside themselves.
  return "os.path.split(sys.argv[0])[0]+'/" + fileName + "'";
}

std::string VDPlotScript::ending(const std::string& plotSizeStatement,
                                 const std::optional<std::string>& plotPath, bool showPlot) {
  std::string text;
  if (plotPath) {
    text += plotSizeStatement + "\n";
    text += "f1.savefig('" + *plotPath + "')\n";
    text += "\n";
  }
  text += showPlot ? "plt.show()\n" : "plt.close(f1)\n";
  return text;
}
