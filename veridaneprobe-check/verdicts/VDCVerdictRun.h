#pragma once

#include <string>
#include <vector>

#include "VDCCheckPlots.h"
#include "VDCCheckReport.h"
#include "VDCVerdictOptions.h"

// VDCVerdictRun judges one analysed series against the selected masks: it finds the settled
// window, prints it and a line per check with the verdict, writes check.json and
// check.junit.xml, and draws the time error, MTIE and TDEV with the masks.
class VDCVerdictRun {
 public:
  // One series: times in seconds, time errors in ns, and the servo state of each sample where
  // the log gives one (empty otherwise).
  struct Series {
    std::vector<double> times;
    std::vector<double> errors;
    std::vector<int> servoStates;
  };

  VDCVerdictRun(const VDCVerdictOptions& options, std::vector<const VDMask*> masks,
                VDCCheckPlots plots);

  // Judges series and returns the run's verdict; input names what was read (its path, format
  // and gaps; the counts and the settled window are filled in here). Lines go to standard
  // output; the files go where plots writes.
  VDCCheckReport::Verdict judge(const Series& series, VDCCheckReport::Input input,
                                const std::string& outputPath) const;

  // The verdict of several series judged apart: a failure anywhere fails, then a series not
  // evaluated leaves the whole not evaluated.
  static VDCCheckReport::Verdict combined(const std::vector<VDCCheckReport::Verdict>& verdicts);

 private:
  const VDCVerdictOptions& _options;
  std::vector<const VDMask*> _masks;
  VDCCheckPlots _plots;
};
