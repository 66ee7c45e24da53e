#include "VDPPythonInterpreter.h"

#define PY_SSIZE_T_CLEAN
#include <Python.h>
#include <signal.h>

#include <cstdio>

#include "VDPCompatSource.h"

namespace {

bool gCompatibilityInstalled = false;
VDPPythonInterpreter::ScriptRunner gScriptRunner;

void flushPythonStream(const char* name) {
  PyObject* stream = PySys_GetObject(name);  // borrowed
  if (stream != nullptr && stream != Py_None) {
    PyObject* result = PyObject_CallMethod(stream, "flush", nullptr);
    Py_XDECREF(result);
    PyErr_Clear();
  }
}

// Loads the compatibility module from the source compiled into the tool and installs it with
// the non-interactive Agg backend: the scripts save files, they never open windows here.
void installCompatibility() {
  gCompatibilityInstalled = true;
  PyObject* code = Py_CompileString(kVDPCompatSource, "veridaneprobe_compat.py", Py_file_input);
  PyObject* module =
      code != nullptr ? PyImport_ExecCodeModule("veridaneprobe_compat", code) : nullptr;
  PyObject* result =
      module != nullptr ? PyObject_CallMethod(module, "install", "s", "Agg") : nullptr;
  if (result == nullptr) {
    PyErr_Print();
  }
  Py_XDECREF(result);
  Py_XDECREF(module);
  Py_XDECREF(code);
}

// Even without its handlers CPython's signal module takes SIGINT over when it is first imported
// (matplotlib imports it), so import it at once and give SIGINT back the action the process
// inherited.
void keepInheritedInterruptAction() {
  struct sigaction inherited;
  sigaction(SIGINT, nullptr, &inherited);
  PyObject* module = PyImport_ImportModule("signal");
  if (module == nullptr) {
    PyErr_Clear();
  }
  Py_XDECREF(module);
  sigaction(SIGINT, &inherited, nullptr);
}

}  // namespace

void VDPPythonInterpreter::start(const std::string& programName) {
  PyConfig config;
  PyConfig_InitPythonConfig(&config);
  // Unbuffered like the tool's own streams, so a script's output and its traceback keep
  // their order in a shared pipe.
  config.buffered_stdio = 0;
  // Without Python's own SIGINT handler, Ctrl-C ends the process at once as it does any
  // command-line tool: the handler only sets a flag that the loading and statistics code never
  // looks at, and the pending interrupt would then break every later plot.
  config.install_signal_handlers = 0;
  PyStatus status = PyConfig_SetBytesString(&config, &config.program_name, programName.c_str());
  if (!PyStatus_Exception(status)) {
    status = Py_InitializeFromConfig(&config);
  }
  PyConfig_Clear(&config);
  if (PyStatus_Exception(status)) {
    std::fprintf(stderr, "Could not start the embedded Python interpreter: %s\n",
                 status.err_msg != nullptr ? status.err_msg : "unknown error");
    return;
  }
  keepInheritedInterruptAction();
  // Python ignores these two when it installs its handlers; they stay ignored, so a closed
  // standard output or a file size limit fails a write instead of ending the run.
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
}

void VDPPythonInterpreter::runScript(const std::string& scriptText) {
  std::fflush(stdout);
  std::fflush(stderr);
  if (gScriptRunner) {
    gScriptRunner(scriptText);
    return;
  }
  if (!Py_IsInitialized()) {
    return;
  }
  if (!gCompatibilityInstalled) {
    installCompatibility();
  }
  PyRun_SimpleStringFlags(scriptText.c_str(), nullptr);
  flushPythonStream("stdout");
  flushPythonStream("stderr");
}

namespace {

// Calls the compatibility module's function name with arguments (a new reference, stolen);
// a failure prints its traceback.
void callCompatibility(const char* name, PyObject* arguments) {
  if (!gCompatibilityInstalled) {
    installCompatibility();
  }
  PyObject* module = PyImport_ImportModule("veridaneprobe_compat");
  PyObject* function = module != nullptr ? PyObject_GetAttrString(module, name) : nullptr;
  PyObject* result = function != nullptr && arguments != nullptr
                         ? PyObject_CallObject(function, arguments)
                         : nullptr;
  if (result == nullptr) {
    PyErr_Print();
  }
  Py_XDECREF(result);
  Py_XDECREF(function);
  Py_XDECREF(module);
  Py_XDECREF(arguments);
}

bool scriptsRunHere() { return !gScriptRunner && Py_IsInitialized(); }

}  // namespace

void VDPPythonInterpreter::provideRecords(const std::string& csvPath,
                                          const VDPlotRecords& records) {
  if (!scriptsRunHere()) {
    return;
  }
  PyObject* columns = PyList_New(0);
  for (const VDPlotRecords::Column& column : records.columns) {
    const char* data = column.integral ? reinterpret_cast<const char*>(column.integers.data())
                                       : reinterpret_cast<const char*>(column.reals.data());
    const size_t count = column.integral ? column.integers.size() : column.reals.size();
    data = count > 0 ? data : "";  // no buffer behind an empty column; y# would make None
    PyObject* entry =
        Py_BuildValue("(sy#N)", column.name.c_str(), data, static_cast<Py_ssize_t>(count * 8),
                      PyBool_FromLong(column.integral ? 1 : 0));
    if (entry == nullptr) {
      PyErr_Print();
      Py_DECREF(columns);
      return;
    }
    PyList_Append(columns, entry);
    Py_DECREF(entry);
  }
  callCompatibility("provide_records", Py_BuildValue("(sN)", csvPath.c_str(), columns));
}

void VDPPythonInterpreter::withdrawRecords(const std::string& csvPath) {
  if (scriptsRunHere()) {
    callCompatibility("withdraw_records", Py_BuildValue("(s)", csvPath.c_str()));
  }
}

void VDPPythonInterpreter::finalise() {
  if (Py_IsInitialized()) {
    flushPythonStream("stdout");
    flushPythonStream("stderr");
    Py_FinalizeEx();
  }
  gCompatibilityInstalled = false;
}

void VDPPythonInterpreter::setScriptRunner(ScriptRunner runner) {
  gScriptRunner = std::move(runner);
}
