#pragma once

#include <optional>
#include <string>

// VDPlotScript holds the pieces every generated matplotlib script shares: the interpreter line
// and imports, where the script finds its CSV, and how it saves, shows or closes its figure.
class VDPlotScript {
 public:
  // The figure size of scripts whose class does not choose one.
  static constexpr const char* kDefaultPlotSize = "f1.set_size_inches(16, 9)";

  // "#!/usr/bin/python", a blank line and the imports, each on its own line.
  static std::string header();

  // The argument of mlab.csv2rec: 'OUTPUT/FILE' when an output path is given, otherwise the
  // file beside the running script. Inserted without escaping.
  static std::string csvPathExpression(const std::optional<std::string>& outputPath,
                                       const std::string& fileName);

  // With a plot path: the size statement, the savefig line and a blank line. Then plt.show()
  // when showPlot, else plt.close(f1), which leaves no figure open in a long-lived interpreter.
  static std::string ending(const std::string& plotSizeStatement,
                            const std::optional<std::string>& plotPath, bool showPlot);
};
