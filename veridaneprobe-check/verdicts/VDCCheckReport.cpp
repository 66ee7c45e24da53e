#include "VDCCheckReport.h"

#include <cmath>
#include <cstdio>

#include "VDCSVBuffer.h"

namespace {

using Outcome = VDMaskVerdict::Outcome;

std::string shortNumber(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.4g", value);
  return text;
}

// A JSON number that reads back as the same double; null where JSON has no number.
std::string jsonNumber(double value) {
  if (!std::isfinite(value)) {
    return "null";
  }
  VDCSVBuffer text;
  text.appendDouble(value);
  return text.text();
}

std::string jsonString(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
      quoted += escaped;
    } else {
      quoted += c;
    }
  }
  return quoted + "\"";
}

std::string xmlText(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

// "8.123 ns at tau 1000 s, limit 10 ns, margin 1.877 ns (tau 0.0625 to 1000 s, 0 of 16000
// above)" for a curve, without the tau parts for a single number.
std::string measurement(const VDMaskVerdict& verdict) {
  std::string text = shortNumber(verdict.value) + " ns";
  if (verdict.atTau) {
    text += " at tau " + shortNumber(*verdict.atTau) + " s";
  }
  text += ", limit " + shortNumber(verdict.limit) + " ns, margin " + shortNumber(verdict.margin) +
          " ns";
  if (verdict.atTau) {
    text += " (tau " + shortNumber(verdict.firstTau) + " to " + shortNumber(verdict.lastTau) +
            " s, " + std::to_string(verdict.exceeding) + " of " +
            std::to_string(verdict.evaluated) + " above)";
  }
  return text;
}

}  // namespace

VDCCheckReport::VDCCheckReport(Input input, std::vector<VDCMaskCheck> checks, bool lostLock)
    : _input(std::move(input)),
      _checks(std::move(checks)),
      _lostLock(lostLock),
      _verdict(Verdict::pass) {
  bool anyFailed = lostLock;
  bool anyNotEvaluated = _checks.empty();
  for (const VDCMaskCheck& check : _checks) {
    anyFailed = anyFailed || check.verdict.outcome == Outcome::fail;
    anyNotEvaluated = anyNotEvaluated || check.verdict.outcome == Outcome::notEvaluated;
  }
  _verdict = anyFailed ? Verdict::fail : anyNotEvaluated ? Verdict::notEvaluated : Verdict::pass;
}

int VDCCheckReport::exitStatusOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::pass:
      return 0;
    case Verdict::fail:
      return 1;
    case Verdict::notEvaluated:
      break;
  }
  return 3;
}

std::string VDCCheckReport::consoleText() const {
  std::string text;
  for (const VDCMaskCheck& check : _checks) {
    const VDMaskVerdict& verdict = check.verdict;
    text += "Check " + check.mask->id + " " + check.mask->metric + ": ";
    if (verdict.outcome != Outcome::notEvaluated) {
      text += measurement(verdict) + ": ";
    }
    text += VDMaskVerdict::outcomeText(verdict.outcome);
    if (!verdict.note.empty()) {
      text += " (" + verdict.note + ")";
    }
    text += "\n";
  }
  return text + "Verdict: " + VDMaskVerdict::outcomeText(_verdict) + "\n";
}

std::string VDCCheckReport::json() const {
  std::string text =
      "{\n  \"verdict\": " + jsonString(VDMaskVerdict::outcomeText(_verdict)) + ",\n";
  text += "  \"input\": {\"path\": " + jsonString(_input.path) +
          ", \"format\": " + jsonString(_input.format) +
          ", \"samples\": " + std::to_string(_input.samples) +
          ", \"tau0_s\": " + jsonNumber(_input.tau0Seconds) +
          ", \"gaps\": " + std::to_string(_input.gaps) + ",\n";
  text += "    \"settled\": {\"start_s\": " + jsonNumber(_input.settledStartSeconds) +
          ", \"end_s\": " + jsonNumber(_input.settledEndSeconds) +
          ", \"samples\": " + std::to_string(_input.settledSamples) + "}},\n";
  text += "  \"checks\": [";
  for (size_t i = 0; i < _checks.size(); ++i) {
    const VDMaskVerdict& verdict = _checks[i].verdict;
    const bool evaluated = verdict.outcome != Outcome::notEvaluated;
    text += i == 0 ? "\n" : ",\n";
    text += "    {\"mask\": " + jsonString(_checks[i].mask->id) +
            ", \"metric\": " + jsonString(_checks[i].mask->metric) +
            ", \"value_ns\": " + (evaluated ? jsonNumber(verdict.value) : "null") +
            ", \"limit_ns\": " + (evaluated ? jsonNumber(verdict.limit) : "null") +
            ", \"margin_ns\": " + (evaluated ? jsonNumber(verdict.margin) : "null") +
            ", \"at_tau_s\": " + (verdict.atTau ? jsonNumber(*verdict.atTau) : "null") +
            ", \"verdict\": " + jsonString(VDMaskVerdict::outcomeText(verdict.outcome)) +
            ", \"note\": " + jsonString(verdict.note) + "}";
  }
  return text + (_checks.empty() ? "]\n}\n" : "\n  ]\n}\n");
}

std::string VDCCheckReport::junitXML() const {
  int failures = 0;
  int skipped = 0;
  for (const VDCMaskCheck& check : _checks) {
    failures += check.verdict.outcome == Outcome::fail ? 1 : 0;
    skipped += check.verdict.outcome == Outcome::notEvaluated ? 1 : 0;
  }
  // A loss of lock fails the run whatever the metrics say, so it is a case of its own.
  failures += _lostLock ? 1 : 0;
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  text += "<testsuites>\n  <testsuite name=\"" + xmlText(_input.path) + "\" tests=\"" +
          std::to_string(_checks.size() + (_lostLock ? 1 : 0)) + "\" failures=\"" +
          std::to_string(failures) + "\" skipped=\"" + std::to_string(skipped) + "\">\n";
  for (const VDCMaskCheck& check : _checks) {
    const VDMaskVerdict& verdict = check.verdict;
    text += "    <testcase classname=\"" + xmlText(check.mask->id) + "\" name=\"" +
            xmlText(check.mask->metric) + "\"";
    const std::string message =
        verdict.outcome == Outcome::notEvaluated
            ? verdict.note
            : measurement(verdict) + (verdict.note.empty() ? "" : " (" + verdict.note + ")");
    if (verdict.outcome == Outcome::pass) {
      text += "/>\n";
    } else {
      const char* element = verdict.outcome == Outcome::fail ? "failure" : "skipped";
      text += ">\n      <" + std::string(element) + " message=\"" + xmlText(message) +
              "\"/>\n    </testcase>\n";
    }
  }
  if (_lostLock) {
    text +=
        "    <testcase classname=\"servo\" name=\"lock\">\n"
        "      <failure message=\"loss of lock\"/>\n    </testcase>\n";
  }
  return text + "  </testsuite>\n</testsuites>\n";
}

bool VDCCheckReport::writeFiles(const std::filesystem::path& directory) const {
  VDCSVBuffer jsonFile;
  jsonFile.appendText(json());
  VDCSVBuffer junitFile;
  junitFile.appendText(junitXML());
  const bool jsonWritten = jsonFile.writeToFile(directory / "check.json");
  return junitFile.writeToFile(directory / "check.junit.xml") && jsonWritten;
}
