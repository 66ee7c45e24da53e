#pragma once

#include <cstdio>
#include <string>

// VDPConsole holds what every message needs: the program path for usage texts and the one
// format of the assertion line printed before the message of a failed internal check.
namespace VDPConsole {

void setProgramPath(const std::string& path);
const std::string& programPath();

enum class AssertionKind { FailIf, FailIfError, FailIfNULL };

// Prints " veridaneprobe assertion FailIf "condition" failed in file at line N goto Bail. " to
// standard output, with no line end: the message printed next continues the line.
void printAssertion(AssertionKind kind, const char* condition, const char* file, int line);

}  // namespace VDPConsole
