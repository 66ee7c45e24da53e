// Both programs as a user runs them, one case per file of tests/data/runs/ (the layout is in
// tests/data/README.md): the inputs a case writes into a scratch directory, then its runs, each
// with its exact standard output, standard error and exit status and the files it must leave.
// VDP_UPDATE_RUNS=1 writes what the runs gave back into the case files, for review as a diff.

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>

#include "AudioFileWriter.h"
#include "TestSupport.h"

namespace {

namespace fs = std::filesystem;

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); !from.empty() && at != std::string::npos;
       at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

// What a user sees, with the places that change from build to build and run to run named.
std::string shown(std::string text, const fs::path& work) {
  replaceAll(text, work.string(), "WORK");
  replaceAll(text, TestSupport::toolPath().string(), "TOOL");
  replaceAll(text, TestSupport::sourceDir().string(), "SRC");
  replaceAll(text, TestSupport::banner(), "veridaneprobe VERSION\n\n");
  return text;
}

// A mono 16-bit tone of 997 Hz, FLAC when the name says so, WAV otherwise. A FLAC stream's
// information may claim another length (36 bits from bit 4 of byte 18; 0 means unknown).
void writeTone(const fs::path& path, uint32_t rate, double seconds,
               std::optional<uint64_t> claimedFrames) {
  const auto container =
      path.extension() == ".flac" ? AudioFileContainer::FLAC : AudioFileContainer::WAV;
  AudioFileWriterRef writer = nullptr;
  ASSERT_EQ(AudioFileWriterCreate(path, {container, AudioSampleEncoding::PCM16, rate, 1}, &writer),
            kAudioFileWriterNoError);
  std::vector<float> samples(static_cast<size_t>(seconds * rate));
  for (size_t i = 0; i < samples.size(); ++i) {
    samples[i] = 0.5f * static_cast<float>(std::sin(2 * M_PI * 997.0 * i / rate));
  }
  ASSERT_EQ(AudioFileWriterWrite(writer, samples.data(), samples.size()), kAudioFileWriterNoError);
  ASSERT_EQ(AudioFileWriterDispose(writer), kAudioFileWriterNoError);
  if (claimedFrames) {
    std::string bytes = TestSupport::readFile(path);
    bytes[21] = static_cast<char>((bytes[21] & 0xF0) | (*claimedFrames >> 32));
    for (int i = 0; i < 4; ++i) {
      bytes[22 + i] = static_cast<char>(*claimedFrames >> (24 - 8 * i));
    }
    TestSupport::writeFile(path, bytes);
  }
}

// A PNG's size, "PDF" for a whole PDF file, or else the file's mode (octal).
std::string madeAs(const fs::path& path) {
  const std::string bytes = fs::is_regular_file(path) ? TestSupport::readFile(path) : "";
  if (bytes.size() >= 24 && bytes.compare(1, 3, "PNG") == 0) {
    uint32_t size[2];  // width and height, big-endian, from byte 16
    std::memcpy(size, bytes.data() + 16, sizeof size);
    return "PNG " + std::to_string(ntohl(size[0])) + "x" + std::to_string(ntohl(size[1]));
  }
  if (bytes.rfind("%PDF-", 0) == 0 && bytes.find("%%EOF", bytes.size() - 16) != std::string::npos) {
    return "PDF";
  }
  if (!fs::exists(path)) {
    return "missing";
  }
  char mode[8];
  std::snprintf(mode, sizeof mode, "%o", static_cast<unsigned>(fs::status(path).permissions()));
  return "mode " + std::string(mode);
}

struct Section {
  std::string line;  // the "--- " or "$ " line, empty for the case's description
  std::string content;
};

std::vector<Section> sectionsOf(const std::string& text) {
  std::vector<Section> sections;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("--- ") || line.starts_with("$ ")) {
      sections.push_back({line, ""});
    } else if (sections.empty()) {
      sections.push_back({"", line + "\n"});
    } else {
      sections.back().content += line + "\n";
    }
  }
  return sections;
}

// Words separated by spaces ('' an empty word), or by "|" when the line holds one.
std::vector<std::string> wordsOf(const std::string& line) {
  std::vector<std::string> words;
  const char separator = line.find('|') == std::string::npos ? ' ' : '|';
  std::istringstream stream(line + separator);
  for (std::string word; std::getline(stream, word, separator);) {
    if (separator == '|' || !word.empty()) {
      words.push_back(word == "''" ? "" : word);
    }
  }
  return words;
}

void runCase(const fs::path& file) {
  SCOPED_TRACE(file.filename().string());
  const TestSupport::TempDir work;
  std::vector<Section> sections = sectionsOf(TestSupport::readFile(file));
  TestSupport::ToolRun run;
  for (Section& section : sections) {
    std::istringstream words(section.line.starts_with("--- ") ? section.line.substr(4)
                                                              : section.line);
    std::string directive, path;
    words >> directive;
    std::getline(words >> std::ws, path);
    // "(no line end)" after an input's name: the content's last line has none.
    const bool noLineEnd = path.ends_with(" (no line end)");
    path = noLineEnd ? path.substr(0, path.size() - 14) : path;
    const fs::path target = work / path;
    std::string actual = section.content;
    if (directive == "input") {
      fs::create_directories(target.parent_path());
      TestSupport::writeFile(target, section.content.substr(0, section.content.size() - noLineEnd));
    } else if (directive == "dir") {
      fs::create_directories(target);
    } else if (directive == "tone") {  // tone PATH RATE SECONDS [CLAIMED]
      std::istringstream fields(path);
      uint32_t rate = 0;
      double seconds = 0;
      uint64_t claimed = 0;
      fields >> path >> rate >> seconds;
      writeTone(work / path, rate, seconds,
                fields >> claimed ? std::optional(claimed) : std::nullopt);
    } else if (directive == "$") {
      // " 2>&1" at the end: standard error into standard output's file, as in "2>&1 | cat".
      const bool oneStream = section.line.ends_with(" 2>&1");
      std::vector<std::string> arguments =
          wordsOf(section.line.substr(2, section.line.size() - 2 - 5 * oneStream));
      std::map<std::string, std::optional<std::string>> environment = {
          {"PYTHONUNBUFFERED", std::nullopt}};
      // On a line split at spaces, "NAME=VALUE" before the program sets a variable, "-NAME"
      // unsets one.
      while (section.line.find('|') == std::string::npos &&
             (arguments[0][0] == '-' || arguments[0].find('=') != std::string::npos)) {
        std::string entry = arguments[0][0] == '-' ? arguments[0].substr(1) : arguments[0];
        replaceAll(entry, "WORK", work.path().string());
        const size_t equals = entry.find('=');
        environment[entry.substr(0, equals)] =
            equals == std::string::npos ? std::nullopt : std::optional(entry.substr(equals + 1));
        arguments.erase(arguments.begin());
      }
      for (std::string& argument : arguments) {  // WORK and SRC begin paths
        if (argument.starts_with("WORK") || argument.starts_with("SRC")) {
          replaceAll(argument, "WORK", work.path().string());
          replaceAll(argument, "SRC", TestSupport::sourceDir().string());
        }
      }
      const fs::path program = arguments[0] == "veridaneprobe-check"
                                   ? TestSupport::toolPath().parent_path() / "veridaneprobe-check"
                               : arguments[0] == "veridaneprobe" ? TestSupport::toolPath()
                                                                 : fs::path(arguments[0]);
      arguments.erase(arguments.begin());
      run = TestSupport::runProgram(program, arguments, work.path(), environment, oneStream);
    } else if (directive == "stdout" || directive == "stderr") {
      actual = shown(directive == "stdout" ? run.out : run.err, work.path());
    } else if (directive == "exit") {
      EXPECT_EQ(section.line, "--- exit " + std::to_string(run.status));
      section.line = "--- exit " + std::to_string(run.status);
    } else if (directive == "file") {
      actual = fs::is_regular_file(target) ? shown(TestSupport::readFile(target), work.path())
                                           : "(missing)\n";
    } else if (directive == "made") {  // one path a line: what each file is
      std::istringstream lines(section.content);
      actual.clear();
      for (std::string line; std::getline(lines, line);) {
        const std::string name = line.substr(0, line.find(' '));
        actual += name + " " + madeAs(work / name) + "\n";
      }
    } else if (directive == "exists" || directive == "absent") {  // one path a line
      std::istringstream names(section.content);
      for (std::string name; std::getline(names, name);) {
        EXPECT_EQ(fs::exists(work / name), directive == "exists") << name;
      }
    } else if (!directive.empty() && directive != "note") {
      ADD_FAILURE() << "unknown directive " << section.line;
    }
    EXPECT_EQ(actual, section.content) << section.line;
    section.content = actual;
  }
  if (std::getenv("VDP_UPDATE_RUNS") != nullptr) {
    std::string text;
    for (const Section& section : sections) {
      text += section.line + (section.line.empty() ? "" : "\n") + section.content;
    }
    TestSupport::writeFile(file, text);
  }
}

// One test a case, named after its file ("-" becoming "_"), so that CTest runs them apart and in
// parallel (tests/CMakeLists.txt).
class ProgramRuns : public testing::TestWithParam<fs::path> {};

TEST_P(ProgramRuns, Case) { runCase(GetParam()); }

std::vector<fs::path> cases() {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(TestSupport::sourceDir() / "tests/data/runs")) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

INSTANTIATE_TEST_SUITE_P(Runs, ProgramRuns, testing::ValuesIn(cases()),
                         [](const testing::TestParamInfo<fs::path>& info) {
                           std::string name = info.param.stem().string();
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

}  // namespace
