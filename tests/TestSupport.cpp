#include "TestSupport.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>

#include "VDPVersion.h"

namespace TestSupport {

std::string banner() { return std::string("veridaneprobe ") + VDP_VERSION + "\n\n"; }

const std::vector<std::string> kNoStatistics = {"--no-adev", "--no-madev", "--no-tdev",
                                                "--no-rmstie", "--no-mtie"};

std::vector<std::string> withoutStatistics(std::vector<std::string> arguments) {
  arguments.insert(arguments.end(), kNoStatistics.begin(), kNoStatistics.end());
  return arguments;
}

const std::string kAllStatisticsProgress =
    "Running Allan Deviation Analysis...\n"
    "Running Modified Allan Deviation Analysis...\n"
    "Running Time Deviation Analysis...\n"
    "Running Root Mean Squared of Time Interval Error Analysis...\n"
    "Running Maximum Time Interval Error Analysis...\n"
    "Analysis Done\n";

std::filesystem::path sourceDir() { return VDP_SOURCE_DIR; }
std::filesystem::path toolPath() { return VDP_TOOL_PATH; }
std::filesystem::path checkToolPath() { return toolPath().parent_path() / "veridaneprobe-check"; }

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "vdp-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("mkdtemp failed");
  }
  _path = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::permissions(_path, std::filesystem::perms::owner_all,
                               std::filesystem::perm_options::add, ignored);
  std::filesystem::remove_all(_path, ignored);
}

std::vector<VDTimeErrorValue> timeErrorValues(const std::vector<int64_t>& errors, uint64_t interval,
                                              uint64_t start) {
  std::vector<VDTimeErrorValue> values;
  for (size_t i = 0; i < errors.size(); ++i) {
    values.emplace_back(start + interval * i, errors[i]);
  }
  return values;
}

Multitone::Multitone(uint64_t seed) {
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  for (int i = 0; i < 120; ++i) {
    const double frequency = 50.0 + 2950.0 * unit(random);
    _tones.emplace_back(frequency, 2 * M_PI * unit(random));
  }
}

std::vector<double> Multitone::render(double t0, double dt, int64_t count) const {
  std::vector<double> sum(static_cast<size_t>(count), 0.0);
  constexpr int64_t kBlock = 256;
  for (const auto& [frequency, phase] : _tones) {
    for (int64_t start = 0; start < count; start += kBlock) {
      // Exact phase at each block start, then rotation within the block.
      const double cycles = frequency * (t0 + static_cast<double>(start) * dt);
      const double theta = 2 * M_PI * (cycles - std::floor(cycles)) + phase;
      const double step = 2 * M_PI * frequency * dt;
      double re = std::cos(theta);
      double im = std::sin(theta);
      const double c = std::cos(step);
      const double s = std::sin(step);
      for (int64_t n = start; n < std::min(count, start + kBlock); ++n) {
        sum[static_cast<size_t>(n)] += re;
        const double next = re * c - im * s;
        im = re * s + im * c;
        re = next;
      }
    }
  }
  return sum;
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream content;
  content << stream.rdbuf();
  return content.str();
}

void writeFile(const std::filesystem::path& path, const std::string& content) {
  std::ofstream stream(path, std::ios::binary | std::ios::trunc);
  stream << content;
}

namespace {

// Reads both pipes to their end without letting either fill up.
void drain(int outFd, int errFd, std::string& out, std::string& err) {
  pollfd fds[2] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
  std::string* sinks[2] = {&out, &err};
  int open = 2;
  char buffer[65536];
  while (open > 0) {
    if (poll(fds, 2, -1) < 0) {
      break;
    }
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) {
        continue;
      }
      ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
      if (n > 0) {
        sinks[i]->append(buffer, static_cast<size_t>(n));
      } else {
        close(fds[i].fd);
        fds[i].fd = -1;
        --open;
      }
    }
  }
}

}  // namespace

ToolRun runTool(const std::vector<std::string>& arguments, const std::filesystem::path& workingDir,
                const std::map<std::string, std::optional<std::string>>& environment,
                bool oneStream) {
  return runProgram(toolPath(), arguments, workingDir, environment, oneStream);
}

ToolRun runProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const std::filesystem::path& workingDir,
                   const std::map<std::string, std::optional<std::string>>& environment,
                   bool oneStream) {
  int outPipe[2];
  int errPipe[2];
  if (pipe(outPipe) != 0 || pipe(errPipe) != 0) {
    throw std::runtime_error("pipe failed");
  }
  std::string tool = program.string();
  pid_t child = fork();
  if (child == 0) {
    dup2(outPipe[1], STDOUT_FILENO);
    dup2(oneStream ? outPipe[1] : errPipe[1], STDERR_FILENO);
    close(outPipe[0]);
    close(outPipe[1]);
    close(errPipe[0]);
    close(errPipe[1]);
    int devNull = open("/dev/null", O_RDONLY);
    dup2(devNull, STDIN_FILENO);
    if (!workingDir.empty()) {
      if (chdir(workingDir.c_str()) != 0) {
        _exit(127);
      }
      setenv("PWD", workingDir.c_str(), 1);
    }
    for (const auto& [name, value] : environment) {
      if (value) {
        setenv(name.c_str(), value->c_str(), 1);
      } else {
        unsetenv(name.c_str());
      }
    }
    std::vector<char*> argv;
    argv.push_back(tool.data());
    for (const std::string& argument : arguments) {
      argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    execv(tool.c_str(), argv.data());
    _exit(127);
  }
  close(outPipe[1]);
  close(errPipe[1]);
  ToolRun run;
  drain(outPipe[0], errPipe[0], run.out, run.err);
  int status = 0;
  waitpid(child, &status, 0);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

ToolRun shell(const std::string& command) {
  ToolRun run;
  FILE* stream = popen(command.c_str(), "r");
  if (stream == nullptr) {
    return run;
  }
  char buffer[4096];
  while (const size_t count = fread(buffer, 1, sizeof buffer, stream)) {
    run.out.append(buffer, count);
  }
  const int status = pclose(stream);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

std::string plotCommand(const std::filesystem::path& script) {
  return "MPLBACKEND=Agg /usr/bin/python3 '" +
         (sourceDir() / "python" / "veridaneprobe-plot").string() + "' '" + script.string() + "'";
}

}  // namespace TestSupport
