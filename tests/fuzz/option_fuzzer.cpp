// Arbitrary command lines for every analyser's initialiser: the shared option grammar, the
// audio analyser's own options, their checks and messages, and the output preparation.
//
// The input is the command's index (first byte) and its arguments separated by NUL bytes. The
// initialisers create output directories, so every path is kept inside one scratch directory:
// PWD and HOME point into it and a "/" in an argument becomes "_", which leaves only relative
// paths, "~" and ".." to resolve. The scratch directory is emptied after every input.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "VDPAnalyseAudio.h"
#include "VDPAnalyseDualCheck.h"
#include "VDPAnalyseDualLink.h"
#include "VDPAnalyseMarten.h"
#include "VDPAnalyseOsprey.h"
#include "VDPAnalyseTimeError.h"
#include "VDPConsole.h"

namespace {

namespace fs = std::filesystem;

template <typename Analyser>
std::unique_ptr<VDPAnalyser> make(const std::vector<std::string>& arguments) {
  return Analyser::initWithArguments(arguments);
}

const VDPAnalyserInitialiser kInitialisers[] = {
    make<VDPAnalyseAudio>,  make<VDPAnalyseTimeError>, make<VDPAnalyseDualCheck>,
    make<VDPAnalyseMarten>, make<VDPAnalyseOsprey>,    make<VDPAnalyseDualLink>,
};

// scratch/work is PWD and holds an existing data file "d" and channel file "a"; scratch/home is
// HOME. The scratch directory's own parent is never touched: ".." from work is scratch.
struct Scratch {
  fs::path root;
  fs::path work;
  fs::path home;

  Scratch() {
    char pattern[] = "/tmp/veridaneprobe-option-fuzz-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
      std::abort();
    }
    root = pattern;
    work = root / "work";
    home = root / "home";
    setenv("PWD", work.c_str(), 1);
    setenv("HOME", home.c_str(), 1);
    VDPConsole::setProgramPath("veridaneprobe");
  }

  ~Scratch() { fs::remove_all(root); }

  // Empties the scratch directory and lays it out again when the last input changed it. An
  // initialiser only ever adds directories, and each new one shows in the entries of root, work
  // or home (four when unchanged: work and home in root, "d" and "a" in work).
  void reset() const {
    if (entryCount() == 4) {
      return;
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(root)) {
      fs::remove_all(entry.path());
    }
    fs::create_directory(work);
    fs::create_directory(home);
    std::FILE* data = std::fopen((work / "d").c_str(), "w");
    std::fclose(data);
    std::FILE* channel = std::fopen((work / "a").c_str(), "w");
    std::fclose(channel);
  }

  size_t entryCount() const {
    size_t count = 0;
    std::error_code error;
    for (const fs::path& directory : {root, work, home}) {
      for (auto entry = fs::directory_iterator(directory, error);
           !error && entry != fs::directory_iterator(); entry.increment(error)) {
        ++count;
      }
    }
    return error ? 0 : count;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const Scratch scratch;
  if (size == 0) {
    return 0;
  }
  scratch.reset();
  const VDPAnalyserInitialiser initialise = kInitialisers[data[0] % std::size(kInitialisers)];
  std::vector<std::string> arguments(1);
  for (size_t i = 1; i < size; ++i) {
    if (data[i] == '\0') {
      arguments.emplace_back();
    } else {
      arguments.back() += data[i] == '/' ? '_' : static_cast<char>(data[i]);
    }
  }
  initialise(arguments);
  std::fflush(stdout);
  return 0;
}
