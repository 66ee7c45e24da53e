#include "VDPProcessSingleTimeError.h"

#include <unistd.h>

#include <cstdio>
#include <optional>

#include "VDPFileSystem.h"
#include "VDPPythonInterpreter.h"
#include "VDPTerminalProgress.h"

VDPProcessSingleTimeError::VDPProcessSingleTimeError(std::string outputPath, std::string outputName,
                                                     bool adev, bool madev, bool tdev, bool rmstie,
                                                     bool mtie, int64_t startWindowSize,
                                                     int64_t endWindowSize, int64_t stepSize)
    : _outputPath(std::move(outputPath)),
      _outputName(std::move(outputName)),
      _adev(adev),
      _madev(madev),
      _tdev(tdev),
      _rmstie(rmstie),
      _mtie(mtie),
      _startWindowSize(startWindowSize),
      _endWindowSize(endWindowSize),
      _stepSize(stepSize) {}

bool VDPProcessSingleTimeError::processTimeErrors(const VDTimeErrorSequence& timeErrors) {
  processTimeErrorFromTimeErrors(timeErrors);
  if (_adev) {
    processADEVFromTimeErrors(timeErrors);
  }
  if (_madev) {
    processMADEVFromTimeErrors(timeErrors);
  }
  if (_tdev) {
    processTDEVFromTimeErrors(timeErrors);
  }
  if (_rmstie) {
    processRMSTIEFromTimeErrors(timeErrors);
  }
  if (_mtie) {
    processMTIEFromTimeErrors(timeErrors);
  }
  std::printf("Analysis Done\n");
  return true;
}

std::string VDPProcessSingleTimeError::filePath(const std::string& fileName) const {
  return VDPFileSystem::joinedPath(_outputPath, fileName);
}

void VDPProcessSingleTimeError::processTimeErrorFromTimeErrors(
    const VDTimeErrorSequence& timeErrors) {
  const std::string csvName = _outputName + "_time_error.csv";
  timeErrors.exportTimeErrorsToDirectoryURL(_outputPath, csvName);
  VDPFileSystem::saveScript(filePath("PlotTimeError.py"),
                            timeErrors.generatePythonScriptWithOutputPath(
                                std::nullopt, csvName, _outputName, std::nullopt, true));
  // The figures draw the rows handed over here rather than reading back every row written.
  const std::string csvPath = _outputPath + "/" + csvName;
  VDPPythonInterpreter::provideRecords(csvPath, timeErrors.plotRecords());
  for (const char* extension : {".png", ".pdf"}) {
    VDPPythonInterpreter::runScript(timeErrors.generatePythonScriptWithOutputPath(
        _outputPath, csvName, _outputName, filePath(_outputName + "_time_error" + extension),
        false));
  }
  VDPPythonInterpreter::withdrawRecords(csvPath);
}

void VDPProcessSingleTimeError::processStatistic(VDStatisticAnalysis& analysis,
                                                 const VDTimeErrorSequence& timeErrors,
                                                 const char* suffix, const char* scriptName) {
  analysis.setCountsPerNanosecond(timeErrors.countsPerNanosecond());
  // On a terminal the statistic's progress shows on standard error while it runs.
  VDPTerminalProgress progress(STDERR_FILENO);
  analysis.setProgressObserver(&progress);
  analysis.performAnalysisFromStartWindowSize(_startWindowSize, _endWindowSize, _stepSize);
  analysis.setProgressObserver(nullptr);
  const std::string stem = _outputName + suffix;
  const std::string csvName = stem + ".csv";
  analysis.exportAnalysisToDirectoryURL(_outputPath, csvName, _startWindowSize, _endWindowSize,
                                        _stepSize);
  // The script comes from the class of the analysis actually made, so a subclass's hooks apply.
  const VDAnalysisClass& analysisClass = analysis.analysisClass();
  VDPFileSystem::saveScript(filePath(scriptName),
                            analysisClass.generatePythonScriptWithOutputPath(
                                std::nullopt, csvName, _outputName, std::nullopt, true));
  const std::string csvPath = _outputPath + "/" + csvName;
  VDPPythonInterpreter::provideRecords(
      csvPath, analysis.plotRecords(_startWindowSize, _endWindowSize, _stepSize));
  for (const char* extension : {".png", ".pdf"}) {
    VDPPythonInterpreter::runScript(analysisClass.generatePythonScriptWithOutputPath(
        _outputPath, csvName, _outputName, filePath(stem + extension), false));
  }
  VDPPythonInterpreter::withdrawRecords(csvPath);
}

std::unique_ptr<VDAllanDeviationAnalysis> VDPProcessSingleTimeError::processADEVFromTimeErrors(
    const VDTimeErrorSequence& timeErrors) {
  std::printf("Running Allan Deviation Analysis...\n");
  std::unique_ptr<VDAllanDeviationAnalysis> analysis =
      adevAnalysisForTimeErrorValues(timeErrors.timeErrors());
  processStatistic(*analysis, timeErrors, "_adev", "PlotADEV.py");
  return analysis;
}

std::unique_ptr<VDModifiedAllanDeviationAnalysis>
VDPProcessSingleTimeError::processMADEVFromTimeErrors(const VDTimeErrorSequence& timeErrors) {
  std::printf("Running Modified Allan Deviation Analysis...\n");
  std::unique_ptr<VDModifiedAllanDeviationAnalysis> analysis =
      madevAnalysisForTimeErrorValues(timeErrors.timeErrors());
  processStatistic(*analysis, timeErrors, "_madev", "PlotMADEV.py");
  return analysis;
}

std::unique_ptr<VDTimeDeviationAnalysis> VDPProcessSingleTimeError::processTDEVFromTimeErrors(
    const VDTimeErrorSequence& timeErrors) {
  std::printf("Running Time Deviation Analysis...\n");
  std::unique_ptr<VDTimeDeviationAnalysis> analysis =
      tdevAnalysisForTimeErrorValues(timeErrors.timeErrors());
  processStatistic(*analysis, timeErrors, "_tdev", "PlotTDEV.py");
  return analysis;
}

std::unique_ptr<VDRootMeanSquaredTimeIntervalErrorAnalysis>
VDPProcessSingleTimeError::processRMSTIEFromTimeErrors(const VDTimeErrorSequence& timeErrors) {
  std::printf("Running Root Mean Squared of Time Interval Error Analysis...\n");
  std::unique_ptr<VDRootMeanSquaredTimeIntervalErrorAnalysis> analysis =
      rmstieAnalysisForTimeErrorValues(timeErrors.timeErrors());
  processStatistic(*analysis, timeErrors, "_rmstie", "PlotRMSTIE.py");
  return analysis;
}

std::unique_ptr<VDMaximumTimeIntervalErrorAnalysis>
VDPProcessSingleTimeError::processMTIEFromTimeErrors(const VDTimeErrorSequence& timeErrors) {
  std::printf("Running Maximum Time Interval Error Analysis...\n");
  std::unique_ptr<VDMaximumTimeIntervalErrorAnalysis> analysis =
      mtieAnalysisForTimeErrorValues(timeErrors.timeErrors());
  processStatistic(*analysis, timeErrors, "_mtie", "PlotMTIE.py");
  return analysis;
}

std::unique_ptr<VDAllanDeviationAnalysis> VDPProcessSingleTimeError::adevAnalysisForTimeErrorValues(
    const std::vector<VDTimeErrorValue>& values) {
  return std::make_unique<VDAllanDeviationAnalysis>(values);
}

std::unique_ptr<VDModifiedAllanDeviationAnalysis>
VDPProcessSingleTimeError::madevAnalysisForTimeErrorValues(
    const std::vector<VDTimeErrorValue>& values) {
  return std::make_unique<VDModifiedAllanDeviationAnalysis>(values);
}

std::unique_ptr<VDTimeDeviationAnalysis> VDPProcessSingleTimeError::tdevAnalysisForTimeErrorValues(
    const std::vector<VDTimeErrorValue>& values) {
  return std::make_unique<VDTimeDeviationAnalysis>(values);
}

std::unique_ptr<VDRootMeanSquaredTimeIntervalErrorAnalysis>
VDPProcessSingleTimeError::rmstieAnalysisForTimeErrorValues(
    const std::vector<VDTimeErrorValue>& values) {
  return std::make_unique<VDRootMeanSquaredTimeIntervalErrorAnalysis>(values);
}

std::unique_ptr<VDMaximumTimeIntervalErrorAnalysis>
VDPProcessSingleTimeError::mtieAnalysisForTimeErrorValues(
    const std::vector<VDTimeErrorValue>& values) {
  return std::make_unique<VDMaximumTimeIntervalErrorAnalysis>(values);
}
