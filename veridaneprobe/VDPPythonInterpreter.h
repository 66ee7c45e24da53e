#pragma once

#include <functional>
#include <string>

#include "VDPlotRecords.h"

// The VDPPythonInterpreter owns the embedded CPython that renders every plot script. There is
// one per process: started after the command line has been checked, finalised on every path.
// matplotlib is loaded only when the first script is about to run, so runs that plot nothing
// stay instant.
class VDPPythonInterpreter {
 public:
  // Starts the interpreter with programName as its program name.
  static void start(const std::string& programName);

  // Runs script text in the shared __main__ namespace. A Python error prints its traceback on
  // standard error and the run goes on. Console output is flushed on both sides of the run, so
  // lines keep their order when standard output is a pipe.
  static void runScript(const std::string& scriptText);

  // Until withdrawn, a script that reads csvPath (mlab.csv2rec) gets these records instead of
  // reading the file: the rows its figure draws of a result just written. Nothing happens while
  // scripts go to a test's runner or the interpreter is not running.
  static void provideRecords(const std::string& csvPath, const VDPlotRecords& records);
  static void withdrawRecords(const std::string& csvPath);

  // Finalises the interpreter; harmless when it was never started.
  static void finalise();

  // Tests may send scripts somewhere else (an empty function restores the interpreter).
  using ScriptRunner = std::function<void(const std::string& scriptText)>;
  static void setScriptRunner(ScriptRunner runner);
};
