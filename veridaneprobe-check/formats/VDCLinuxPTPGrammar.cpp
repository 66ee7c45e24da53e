#include "VDCLinuxPTPGrammar.h"

#include <array>
#include <optional>
#include <utility>

#include "VDCNumbers.h"

namespace {

using Program = VDCLinuxPTPGrammar::Program;

constexpr std::array<std::pair<std::string_view, Program>, 3> kPrograms = {
    {{"ptp4l", Program::ptp4l}, {"phc2sys", Program::phc2sys}, {"ts2phc", Program::ts2phc}}};

// "[MONO.mmm]" at the front of text: the seconds, with the text after it.
std::optional<double> monotonicSeconds(std::string_view& text) {
  if (text.empty() || text[0] != '[') {
    return std::nullopt;
  }
  const size_t close = text.find(']');
  if (close == std::string_view::npos) {
    return std::nullopt;
  }
  const std::optional<double> seconds = VDCNumbers::decimal(text.substr(1, close - 1));
  if (!seconds || *seconds < 0 || text.substr(1, close - 1).find('.') == std::string_view::npos) {
    return std::nullopt;
  }
  text.remove_prefix(close + 1);
  return seconds;
}

bool consume(std::string_view& text, std::string_view expected) {
  if (text.substr(0, expected.size()) != expected) {
    return false;
  }
  text.remove_prefix(expected.size());
  return true;
}

// The program, the monotonic time and the message after the prefix.
std::optional<std::string_view> message(std::string_view line, Program& program, double& time) {
  for (const auto& [name, candidate] : kPrograms) {
    for (size_t at = line.find(name); at != std::string_view::npos; at = line.find(name, at + 1)) {
      // The name must start the line or follow a blank (a host name may contain it).
      if (at > 0 && line[at - 1] != ' ') {
        continue;
      }
      std::string_view rest = line.substr(at + name.size());
      std::optional<double> seconds;
      if (!rest.empty() && rest[0] == '[') {
        seconds = monotonicSeconds(rest);
        if (seconds) {
          // ptp4l[MONO]: TEXT
          if (!consume(rest, ": ")) {
            continue;
          }
        } else {
          // ptp4l[PID]: [MONO] TEXT
          const size_t close = rest.find("]: ");
          if (close == std::string_view::npos || !VDCNumbers::integer(rest.substr(1, close - 1))) {
            continue;
          }
          rest.remove_prefix(close + 3);
          seconds = monotonicSeconds(rest);
          if (!seconds || !consume(rest, " ")) {
            continue;
          }
        }
      } else {
        // host ptp4l: [MONO] TEXT
        if (!consume(rest, ": ")) {
          continue;
        }
        seconds = monotonicSeconds(rest);
        if (!seconds || !consume(rest, " ")) {
          continue;
        }
      }
      program = candidate;
      time = *seconds;
      return rest;
    }
  }
  return std::nullopt;
}

// "sS" as the servo state 0 to 3.
std::optional<int> servoState(std::string_view word) {
  if (word.size() != 2 || word[0] != 's' || word[1] < '0' || word[1] > '3') {
    return std::nullopt;
  }
  return word[1] - '0';
}

// "offset N sS freq F" from the cursor on.
bool offsetFields(std::string_view text, size_t& cursor, VDCSample& sample) {
  const std::optional<int64_t> offset = VDCNumbers::integer(VDCNumbers::nextWord(text, cursor));
  const std::optional<int> state = servoState(VDCNumbers::nextWord(text, cursor));
  if (!offset || !state || VDCNumbers::nextWord(text, cursor) != "freq" ||
      !VDCNumbers::decimal(VDCNumbers::nextWord(text, cursor))) {
    return false;
  }
  sample.error = *offset;
  sample.servoState = *state;
  return true;
}

}  // namespace

VDCLineKind VDCLinuxPTPGrammar::parse(std::string_view line, VDCSample& sample, Program* program) {
  if (!line.empty() && line.back() == '\r') {
    line.remove_suffix(1);
  }
  Program printer = Program::ptp4l;
  double time = 0;
  std::optional<std::string_view> text = message(line, printer, time);
  if (!text) {
    return VDCLineKind::other;
  }
  if (program != nullptr) {
    *program = printer;
  }
  std::string tag;
  // A message tag: "[ptp4l.0.config:6] ".
  if (!text->empty() && (*text)[0] == '[') {
    const size_t close = text->find("] ");
    if (close == std::string_view::npos) {
      return VDCLineKind::other;
    }
    tag = text->substr(1, close - 1);
    text->remove_prefix(close + 2);
  }
  size_t cursor = 0;
  const std::string_view first = VDCNumbers::nextWord(*text, cursor);
  std::string_view second = VDCNumbers::nextWord(*text, cursor);
  if (first == "rms" || second == "rms") {
    return VDCLineKind::summary;
  }
  sample.time = time;
  if (printer == Program::ptp4l) {
    if (first != "master" || second != "offset" || !offsetFields(*text, cursor, sample) ||
        VDCNumbers::nextWord(*text, cursor) != "path") {
      return VDCLineKind::other;
    }
    sample.stream = tag.empty() ? "ptp4l" : tag;
    return VDCLineKind::sample;
  }
  if (printer == Program::phc2sys) {
    if ((second != "phc" && second != "sys" && second != "pps") ||
        VDCNumbers::nextWord(*text, cursor) != "offset" || !offsetFields(*text, cursor, sample)) {
      return VDCLineKind::other;
    }
    sample.stream = first;
    return VDCLineKind::sample;
  }
  // ts2phc: NAME offset ..., NAME master offset ..., NAME source offset ...
  if (second == "master" || second == "source") {
    second = VDCNumbers::nextWord(*text, cursor);
  }
  if (second != "offset" || !offsetFields(*text, cursor, sample)) {
    return VDCLineKind::other;
  }
  sample.stream = first;
  return VDCLineKind::sample;
}
