#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "VDTimeErrorValue.h"

// Helpers shared by the tests: temporary directories, whole-file I/O and running the built tool.
namespace TestSupport {

// What every run prints first: "veridaneprobe <version>" and an empty line.
std::string banner();
// The options that switch every statistic off, for runs that test something else.
extern const std::vector<std::string> kNoStatistics;
// The arguments followed by those options.
std::vector<std::string> withoutStatistics(std::vector<std::string> arguments);

// The processor's progress lines with every statistic on, ending with "Analysis Done".
extern const std::string kAllStatisticsProgress;

std::filesystem::path sourceDir();  // the repository
std::filesystem::path toolPath();   // the built veridaneprobe executable
std::filesystem::path checkToolPath();  // the built veridaneprobe-check beside it

// A fresh directory under the system's temporary directory, removed with the object.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return _path; }
  std::filesystem::path operator/(const std::string& name) const { return _path / name; }

 private:
  std::filesystem::path _path;
};

// Time error values interval ns apart from start, one per error, in order.
std::vector<VDTimeErrorValue> timeErrorValues(const std::vector<int64_t>& errors,
                                              uint64_t interval = 1000000000, uint64_t start = 0);

// A sum of 120 tones of 50 Hz - 3 kHz with phases drawn from seed: a test signal whose value
// is known at any instant, so two channels can sample it with a delay known exactly.
class Multitone {
 public:
  explicit Multitone(uint64_t seed);
  // The sum at t0 + n dt for n < count (RMS about sqrt(60)), in double.
  std::vector<double> render(double t0, double dt, int64_t count) const;

 private:
  std::vector<std::pair<double, double>> _tones;  // frequency in Hz, phase in radians
};

std::string readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, const std::string& content);

struct ToolRun {
  std::string out;
  std::string err;
  int status = -1;  // exit status, or -1 when the process did not exit normally
};

// Runs the built tool with the given arguments (argv[0] is the tool's path), in workingDir
// (the current directory when empty). environment entries are set (a value of nullopt unsets
// the variable); PWD is set to workingDir unless given. With oneStream, standard error shares
// standard output's pipe, as in "2>&1 | cat", and everything arrives in out.
ToolRun runTool(const std::vector<std::string>& arguments,
                const std::filesystem::path& workingDir = {},
                const std::map<std::string, std::optional<std::string>>& environment = {},
                bool oneStream = false);
// The same for another program.
ToolRun runProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const std::filesystem::path& workingDir = {},
                   const std::map<std::string, std::optional<std::string>>& environment = {},
                   bool oneStream = false);

// Runs a shell command line: what it wrote to standard output, and its exit status.
ToolRun shell(const std::string& command);
// The plotting wrapper's command line for a script, without a display.
std::string plotCommand(const std::filesystem::path& script);

}  // namespace TestSupport
