#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "VDAllanDeviationAnalysis.h"
#include "VDMaximumTimeIntervalErrorAnalysis.h"
#include "VDModifiedAllanDeviationAnalysis.h"
#include "VDRootMeanSquaredTimeIntervalErrorAnalysis.h"
#include "VDTimeDeviationAnalysis.h"
#include "VDTimeErrorSequence.h"

// A VDPProcessSingleTimeError turns one time error sequence into result files in one output
// directory: the time error CSV, then for each statistic switched on (in the order ADEV, MADEV,
// TDEV, RMS TIE, MTIE) its CSV; for every step a plot script saved beside the CSV and a PNG and a
// PDF rendered by running that script. Subclasses replace steps or the analysis factories.
class VDPProcessSingleTimeError {
 public:
  VDPProcessSingleTimeError(std::string outputPath, std::string outputName, bool adev, bool madev,
                            bool tdev, bool rmstie, bool mtie, int64_t startWindowSize,
                            int64_t endWindowSize, int64_t stepSize);
  virtual ~VDPProcessSingleTimeError() = default;

  // Runs every step and prints "Analysis Done". Always true.
  bool processTimeErrors(const VDTimeErrorSequence& timeErrors);

  virtual void processTimeErrorFromTimeErrors(const VDTimeErrorSequence& timeErrors);
  virtual std::unique_ptr<VDAllanDeviationAnalysis> processADEVFromTimeErrors(
      const VDTimeErrorSequence& timeErrors);
  virtual std::unique_ptr<VDModifiedAllanDeviationAnalysis> processMADEVFromTimeErrors(
      const VDTimeErrorSequence& timeErrors);
  virtual std::unique_ptr<VDTimeDeviationAnalysis> processTDEVFromTimeErrors(
      const VDTimeErrorSequence& timeErrors);
  virtual std::unique_ptr<VDRootMeanSquaredTimeIntervalErrorAnalysis> processRMSTIEFromTimeErrors(
      const VDTimeErrorSequence& timeErrors);
  virtual std::unique_ptr<VDMaximumTimeIntervalErrorAnalysis> processMTIEFromTimeErrors(
      const VDTimeErrorSequence& timeErrors);

  // Factories: a subclass returns its own analysis subclass, whose class-level script hooks then
  // shape that step's plots.
  virtual std::unique_ptr<VDAllanDeviationAnalysis> adevAnalysisForTimeErrorValues(
      const std::vector<VDTimeErrorValue>& values);
  virtual std::unique_ptr<VDModifiedAllanDeviationAnalysis> madevAnalysisForTimeErrorValues(
      const std::vector<VDTimeErrorValue>& values);
  virtual std::unique_ptr<VDTimeDeviationAnalysis> tdevAnalysisForTimeErrorValues(
      const std::vector<VDTimeErrorValue>& values);
  virtual std::unique_ptr<VDRootMeanSquaredTimeIntervalErrorAnalysis>
  rmstieAnalysisForTimeErrorValues(const std::vector<VDTimeErrorValue>& values);
  virtual std::unique_ptr<VDMaximumTimeIntervalErrorAnalysis> mtieAnalysisForTimeErrorValues(
      const std::vector<VDTimeErrorValue>& values);

 protected:
  const std::string _outputPath;
  const std::string _outputName;
  const bool _adev;
  const bool _madev;
  const bool _tdev;
  const bool _rmstie;
  const bool _mtie;
  const int64_t _startWindowSize;
  const int64_t _endWindowSize;
  const int64_t _stepSize;

 private:
  // The four file actions of a statistic step, after its progress line and factory.
  void processStatistic(VDStatisticAnalysis& analysis, const VDTimeErrorSequence& timeErrors,
                        const char* suffix, const char* scriptName);
  std::string filePath(const std::string& fileName) const;
};
