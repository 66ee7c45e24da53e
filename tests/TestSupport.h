#pragma once

// The standard headers the tests share come with this one.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "VDAllanDeviationAnalysis.h"
#include "VDMaximumTimeIntervalErrorAnalysis.h"
#include "VDModifiedAllanDeviationAnalysis.h"
#include "VDRootMeanSquaredTimeIntervalErrorAnalysis.h"
#include "VDTimeDeviationAnalysis.h"

// Helpers shared by the tests: temporary directories, whole-file I/O, running the built programs,
// the statistics' plain-loop references and the expected outputs kept under tests/data.
namespace TestSupport {

// What every run prints first: "veridaneprobe <version>" and an empty line.
std::string banner();
// The arguments followed by the options that switch every statistic off, for runs that test
// something else.
std::vector<std::string> withoutStatistics(std::vector<std::string> arguments = {});

std::filesystem::path sourceDir();  // the repository
std::filesystem::path toolPath();   // the built veridaneprobe executable

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

// The five statistics taken straight from their definitions (NIST SP 1065 eq. 11, 14 and 15;
// rms of TIE; MTIE), header-only so that the fuzz harnesses share them: differences exact in
// 128 bits, sums in long double.
enum class Statistic { ADEV, MDEV, TDEV, RMSTIE, MTIE };
inline constexpr Statistic kStatistics[] = {Statistic::ADEV, Statistic::MDEV, Statistic::TDEV,
                                            Statistic::RMSTIE, Statistic::MTIE};

inline std::unique_ptr<VDStatisticAnalysis> analysisOf(Statistic statistic,
                                                       const std::vector<VDTimeErrorValue>& v) {
  switch (statistic) {
    case Statistic::ADEV:
      return std::make_unique<VDAllanDeviationAnalysis>(v);
    case Statistic::MDEV:
      return std::make_unique<VDModifiedAllanDeviationAnalysis>(v);
    case Statistic::TDEV:
      return std::make_unique<VDTimeDeviationAnalysis>(v);
    case Statistic::RMSTIE:
      return std::make_unique<VDRootMeanSquaredTimeIntervalErrorAnalysis>(v);
    case Statistic::MTIE:
      return std::make_unique<VDMaximumTimeIntervalErrorAnalysis>(v);
  }
  return nullptr;
}

// The largest window defined for n samples.
inline int64_t largestWindow(Statistic statistic, int64_t n) {
  return statistic == Statistic::ADEV                                   ? (n - 1) / 2
         : statistic == Statistic::MDEV || statistic == Statistic::TDEV ? n / 3
                                                                        : n - 1;
}

// MTIE of every window 1..N-1 at once (index m): each start's window grown a sample at a time.
inline std::vector<__int128> mtieOfEveryWindow(const std::vector<int64_t>& x) {
  std::vector<__int128> mtie(x.size(), 0);
  for (size_t k = 0; k < x.size(); ++k) {
    int64_t high = x[k], low = x[k];
    for (size_t m = 1; k + m < x.size(); ++m) {
      high = std::max(high, x[k + m]);
      low = std::min(low, x[k + m]);
      mtie[m] = std::max(mtie[m], static_cast<__int128>(high) - low);
    }
  }
  return mtie;
}

struct Reference {
  long double value;  // for ADEV and MDEV still to be multiplied by 1e-9 / tau (in s)
  uint64_t terms;
};

// The statistic of window m of the time errors x in ns.
inline Reference reference(Statistic statistic, const std::vector<int64_t>& x, int64_t m) {
  const auto n = static_cast<int64_t>(x.size());
  const auto d2 = [&](int64_t i) {
    return static_cast<__int128>(x[i + 2 * m]) - 2 * static_cast<__int128>(x[i + m]) + x[i];
  };
  long double sum = 0;
  switch (statistic) {
    case Statistic::ADEV:
      for (int64_t i = 0; i + 2 * m < n; ++i) {
        sum += static_cast<long double>(d2(i)) * static_cast<long double>(d2(i));
      }
      return {std::sqrt(sum / (2.0L * (n - 2 * m))), static_cast<uint64_t>(n - 2 * m)};
    case Statistic::MDEV:
    case Statistic::TDEV: {
      for (int64_t j = 0; j + 3 * m <= n; ++j) {
        __int128 inner = 0;
        for (int64_t i = j; i < j + m; ++i) {
          inner += d2(i);
        }
        sum += static_cast<long double>(inner) * static_cast<long double>(inner);
      }
      const long double terms = n - 3 * m + 1;
      const long double divisor = statistic == Statistic::MDEV ? 2.0L : 6.0L;
      return {std::sqrt(sum / (divisor * m * m * terms)), static_cast<uint64_t>(terms)};
    }
    case Statistic::RMSTIE:
      for (int64_t i = 0; i + m < n; ++i) {
        const auto d = static_cast<long double>(static_cast<__int128>(x[i + m]) - x[i]);
        sum += d * d;
      }
      return {std::sqrt(sum / (n - m)), static_cast<uint64_t>(n - m)};
    case Statistic::MTIE:
      return {static_cast<long double>(mtieOfEveryWindow(x)[m]), static_cast<uint64_t>(n - m)};
  }
  return {0, 0};
}

std::string readFile(const std::filesystem::path& path);
// The rows of the CSV file at path after its header, which must be header.
std::vector<std::string> csvRows(const std::filesystem::path& path, const std::string& header);
// The published overlapping ADEV of tests/data/PHASE.DAT (tests/data/PHASE.DAT-adev.txt).
struct PublishedAdev {
  int64_t window;
  double sigma, low, high;
  int alpha;
};
std::vector<PublishedAdev> publishedPhaseDatAdev();
// An expected output kept as a file of tests/data/expected.
std::string expected(const std::string& name);
void writeFile(const std::filesystem::path& path, const std::string& content);

struct ToolRun {
  std::string out;
  std::string err;
  int status = -1;  // exit status, or -1 when the process did not exit normally
};

// A run of a program in the background: standard input /dev/null, standard output and error into
// the files "stdout" and "stderr" of logDir (with oneStream both into "stdout", as "2>&1"),
// SIGINT at its default action as under an interactive shell. It runs in workingDir (the current
// directory when empty; PWD is set to it unless given), with environment entries set (a value of
// nullopt unsets the variable); inChild runs in the child just before the program starts. The
// destructor kills a run still going.
class BackgroundRun {
 public:
  BackgroundRun(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                const std::filesystem::path& workingDir, const std::filesystem::path& logDir,
                const std::map<std::string, std::optional<std::string>>& environment = {},
                bool oneStream = false, const std::function<void()>& inChild = {});
  // The built tool, its logs in workingDir.
  BackgroundRun(const std::vector<std::string>& arguments, const std::filesystem::path& workingDir,
                const std::function<void()>& inChild = {})
      : BackgroundRun(toolPath(), arguments, workingDir, workingDir, {}, false, inChild) {}
  ~BackgroundRun();
  BackgroundRun(const BackgroundRun&) = delete;
  BackgroundRun& operator=(const BackgroundRun&) = delete;
  int pid() const { return _pid; }
  // The wait status once the run has ended within timeout, nullopt while it is still going.
  std::optional<int> waitFor(std::chrono::milliseconds timeout);
  uint64_t peakResidentBytes() const { return _peakResidentBytes; }  // of the ended run
  // A figure of the running process from /proc/PID/file ("status": kB, "io": bytes).
  uint64_t procFigure(const std::string& file, const std::string& name) const;

 private:
  int _pid = -1;
  std::optional<int> _status;
  uint64_t _peakResidentBytes = 0;
};

// Runs a program with the given arguments to its end, as BackgroundRun starts it.
ToolRun runProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const std::filesystem::path& workingDir = {},
                   const std::map<std::string, std::optional<std::string>>& environment = {},
                   bool oneStream = false);
// The same for the built tool.
inline ToolRun runTool(const std::vector<std::string>& arguments,
                       const std::filesystem::path& workingDir = {},
                       const std::map<std::string, std::optional<std::string>>& environment = {}) {
  return runProgram(toolPath(), arguments, workingDir, environment);
}

// Runs a shell command line: what it wrote to standard output, and its exit status.
ToolRun shell(const std::string& command);

}  // namespace TestSupport
