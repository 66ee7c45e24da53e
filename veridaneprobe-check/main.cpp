// veridaneprobe-check: reads what timing engineers record (linuxptp logs, counter timestamps,
// phase files) and analyses it with the veridaneprobe library, with the standards' verdicts.

#include <cstdio>
#include <string>
#include <vector>

#include "VDCCheckRun.h"
#include "VDPVersion.h"

int main(int argc, char** argv) {
  VDCOptions options;
  std::string error;
  if (!options.parse(std::vector<std::string>(argv + 1, argv + argc), error)) {
    std::fprintf(stderr,
                 "veridaneprobe-check: %s\nTry 'veridaneprobe-check --help' for more "
                 "information.\n",
                 error.c_str());
    return 2;
  }
  if (options.help) {
    std::fputs(VDCOptions::helpText(), stdout);
    return 0;
  }
  if (options.version) {
    std::printf("veridaneprobe-check %s\n", VDP_VERSION);
    return 0;
  }
  return VDCCheckRun(options).run();
}
