#include "TestSupport.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <thread>

#include "VDPVersion.h"

namespace TestSupport {

std::string banner() { return std::string("veridaneprobe ") + VDP_VERSION + "\n\n"; }

std::vector<std::string> withoutStatistics(std::vector<std::string> arguments) {
  arguments.insert(arguments.end(),
                   {"--no-adev", "--no-madev", "--no-tdev", "--no-rmstie", "--no-mtie"});
  return arguments;
}

std::filesystem::path sourceDir() { return VDP_SOURCE_DIR; }
std::filesystem::path toolPath() { return VDP_TOOL_PATH; }

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

std::vector<std::string> csvRows(const std::filesystem::path& path, const std::string& header) {
  std::istringstream text(readFile(path));
  std::vector<std::string> rows;
  for (std::string line; std::getline(text, line);) {
    rows.push_back(line);
  }
  EXPECT_EQ(rows.at(0), header);
  rows.erase(rows.begin());
  return rows;
}

std::vector<PublishedAdev> publishedPhaseDatAdev() {
  std::istringstream rows(readFile(sourceDir() / "tests/data/PHASE.DAT-adev.txt"));
  std::vector<PublishedAdev> table;
  for (std::string line; std::getline(rows, line);) {
    PublishedAdev row{};
    if (line[0] != '#' &&
        std::istringstream(line) >> row.window >> row.sigma >> row.low >> row.high >> row.alpha) {
      table.push_back(row);
    }
  }
  return table;
}

std::string expected(const std::string& name) {
  return readFile(sourceDir() / "tests/data/expected" / name);
}

void writeFile(const std::filesystem::path& path, const std::string& content) {
  std::ofstream stream(path, std::ios::binary | std::ios::trunc);
  stream << content;
}

BackgroundRun::BackgroundRun(const std::filesystem::path& program,
                             const std::vector<std::string>& arguments,
                             const std::filesystem::path& workingDir,
                             const std::filesystem::path& logDir,
                             const std::map<std::string, std::optional<std::string>>& environment,
                             bool oneStream, const std::function<void()>& inChild) {
  const std::string tool = program.string();
  const std::string out = (logDir / "stdout").string();
  const std::string err = (logDir / "stderr").string();
  std::vector<char*> argv{const_cast<char*>(tool.c_str())};
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  _pid = fork();
  if (_pid == 0) {
    signal(SIGINT, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    const int output = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(oneStream ? output : open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), STDERR_FILENO);
    if (!workingDir.empty() && chdir(workingDir.c_str()) != 0) {
      _exit(127);
    }
    if (!workingDir.empty()) {
      setenv("PWD", workingDir.c_str(), 1);
    }
    for (const auto& [name, value] : environment) {
      value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
    }
    if (inChild) {
      inChild();
    }
    execv(tool.c_str(), argv.data());
    _exit(127);
  }
}

BackgroundRun::~BackgroundRun() {
  if (_pid > 0 && !_status) {
    kill(_pid, SIGKILL);
    waitpid(_pid, nullptr, 0);
  }
}

std::optional<int> BackgroundRun::waitFor(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!_status) {
    int status = 0;
    rusage usage{};
    if (wait4(_pid, &status, WNOHANG, &usage) == _pid) {
      _status = status;
      _peakResidentBytes = static_cast<uint64_t>(usage.ru_maxrss) * 1024;
    } else if (std::chrono::steady_clock::now() >= deadline) {
      break;
    } else {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  return _status;
}

uint64_t BackgroundRun::procFigure(const std::string& file, const std::string& name) const {
  std::ifstream figures("/proc/" + std::to_string(_pid) + "/" + file);
  for (std::string line; std::getline(figures, line);) {
    if (line.rfind(name + ":", 0) == 0) {
      return std::stoull(line.substr(name.size() + 1));
    }
  }
  return 0;
}

ToolRun runProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const std::filesystem::path& workingDir,
                   const std::map<std::string, std::optional<std::string>>& environment,
                   bool oneStream) {
  const TempDir logs;
  BackgroundRun background(program, arguments, workingDir, logs.path(), environment, oneStream);
  const std::optional<int> status = background.waitFor(std::chrono::hours(1));
  ToolRun run{readFile(logs / "stdout"), oneStream ? "" : readFile(logs / "stderr")};
  run.status = status && WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
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

}  // namespace TestSupport
