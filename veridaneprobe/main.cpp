// The entry point: prints the banner, checks the command line, owns the embedded interpreter's
// lifetime and hands the arguments to the analyser of the command word.

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "VDPCommandTable.h"
#include "VDPConsole.h"
#include "VDPPythonInterpreter.h"
#include "VDPVersion.h"

int main(int argc, char** argv) {
  // Standard error is unbuffered; a line-buffered standard output keeps the banner and every
  // later line in the order written when both streams share one pipe.
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  std::printf("%s %s\n\n", "veridaneprobe", VDP_VERSION);
  const std::vector<std::string> arguments(argv, argv + argc);
  VDPConsole::setProgramPath(argc > 0 ? argv[0] : "");
  const char* program = VDPConsole::programPath().c_str();

  int exitStatus = 0;
  if (arguments.size() < 3) {
    std::fprintf(stderr, "usage:\n%s audio <arguments>\n%s time-error <arguments>\n", program,
                 program);
    exitStatus = 1;
  } else {
    VDPPythonInterpreter::start(arguments[0]);
    const VDPCommand* command = VDPCommandTable::commandForWord(arguments[1]);
    if (command == nullptr) {
      std::fprintf(stderr, "unknown command \"%s\"\n", arguments[1].c_str());
    } else {
      const std::vector<std::string> analyserArguments(arguments.begin() + 2, arguments.end());
      std::unique_ptr<VDPAnalyser> analyser = command->initWithArguments(analyserArguments);
      exitStatus = (analyser != nullptr && analyser->execute()) ? 1 : 0;
    }
  }
  VDPPythonInterpreter::finalise();
  std::fflush(stdout);
  return exitStatus;
}
