#include "VDPConsole.h"

namespace VDPConsole {

namespace {
std::string gProgramPath;
}

void setProgramPath(const std::string& path) { gProgramPath = path; }

const std::string& programPath() { return gProgramPath; }

void printAssertion(AssertionKind kind, const char* condition, const char* file, int line) {
  const char* form = kind == AssertionKind::FailIf        ? "FailIf"
                     : kind == AssertionKind::FailIfError ? "FailIfError"
                                                          : "FailIfNULL";
  std::printf(" veridaneprobe assertion %s \"%s\" failed in %s at line %d goto Bail. ", form,
              condition, file, line);
}

}  // namespace VDPConsole
