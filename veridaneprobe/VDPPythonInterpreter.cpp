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
