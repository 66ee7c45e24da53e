#include "VDMaskTable.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>

#include "VDMaskDefinitions.h"

namespace {

constexpr std::array<std::string_view, 5> kScalarMetrics = {"max_abs_te", "max_abs_te_l", "cte",
                                                            "cte_moving", "dte_h_pkpk"};
constexpr std::array<std::string_view, 4> kCurveMetrics = {"mtie", "tdev", "dte_l_mtie",
                                                           "dte_l_tdev"};

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> fields;
  size_t start = 0;
  while (true) {
    const size_t end = text.find(separator, start);
    fields.push_back(trimmed(text.substr(start, end - start)));
    if (end == std::string_view::npos) {
      return fields;
    }
    start = end + 1;
  }
}

std::optional<double> number(std::string_view text) {
  if (text == "inf") {
    return std::numeric_limits<double>::infinity();
  }
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
    return std::nullopt;
  }
  return value;
}

// "C", "C tau" or "C tau^P", with an optional sign before C where the term follows a '-'.
std::optional<VDMaskSegment::Term> term(std::string_view text, bool negated) {
  const size_t tau = text.find("tau");
  VDMaskSegment::Term result{0, 0};
  const std::optional<double> coefficient =
      tau == 0 ? std::optional<double>(1.0) : number(trimmed(text.substr(0, tau)));
  if (!coefficient) {
    return std::nullopt;
  }
  result.coefficient = negated ? -*coefficient : *coefficient;
  if (tau == std::string_view::npos) {
    return result;
  }
  const std::string_view rest = trimmed(text.substr(tau + 3));
  if (rest.empty()) {
    result.power = 1;
    return result;
  }
  const std::optional<double> power =
      rest[0] == '^' ? number(trimmed(rest.substr(1))) : std::nullopt;
  if (!power) {
    return std::nullopt;
  }
  result.power = *power;
  return result;
}

// A sum of terms separated by " + " or " - ".
std::optional<std::vector<VDMaskSegment::Term>> expression(std::string_view text) {
  std::vector<VDMaskSegment::Term> terms;
  bool negated = false;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = start;
    // A sign separates terms only between blanks, so exponents like tau^-0.5 and 1e-3 stay whole.
    while (end < text.size() &&
           !((text[end] == '+' || text[end] == '-') && end > 0 && text[end - 1] == ' ' &&
             end + 1 < text.size() && text[end + 1] == ' ')) {
      ++end;
    }
    const std::optional<VDMaskSegment::Term> next =
        term(trimmed(text.substr(start, end - start)), negated);
    if (!next) {
      return std::nullopt;
    }
    terms.push_back(*next);
    if (end >= text.size()) {
      return terms;
    }
    negated = text[end] == '-';
    start = end + 1;
  }
  return terms;
}

// "LO < tau <= HI: EXPRESSION" or "LO < tau <= HI?: EXPRESSION".
std::optional<VDMaskSegment> segment(std::string_view text) {
  const size_t colon = text.find(':');
  const size_t less = text.find("< tau <=");
  if (colon == std::string_view::npos || less == std::string_view::npos || less > colon) {
    return std::nullopt;
  }
  VDMaskSegment result;
  std::string_view upper = trimmed(text.substr(less + 8, colon - less - 8));
  if (!upper.empty() && upper.back() == '?') {
    result.upperUnsure = true;
    upper = trimmed(upper.substr(0, upper.size() - 1));
  }
  const std::optional<double> lowerValue = number(trimmed(text.substr(0, less)));
  const std::optional<double> upperValue = number(upper);
  const auto terms = expression(trimmed(text.substr(colon + 1)));
  if (!lowerValue || !upperValue || !terms || std::isinf(*lowerValue) ||
      !(*lowerValue < *upperValue)) {
    return std::nullopt;
  }
  result.lower = *lowerValue;
  result.upper = *upperValue;
  result.terms = *terms;
  return result;
}

// The limit column of one line, or a reason it is refused.
std::string readLimit(std::string_view text, VDMask& mask) {
  if (!mask.curve) {
    const auto terms = expression(text);
    if (!terms || terms->size() != 1 || terms->front().power != 0) {
      return "the limit of a single-number metric is one number of ns";
    }
    mask.segments.push_back({-std::numeric_limits<double>::infinity(),
                             std::numeric_limits<double>::infinity(), false, *terms});
    return {};
  }
  for (std::string_view part : split(text, ';')) {
    const std::optional<VDMaskSegment> next = segment(part);
    if (!next) {
      return "a segment is \"LO < tau <= HI: C tau^P + ...\", LO below HI";
    }
    if (!mask.segments.empty() && next->lower != mask.segments.back().upper) {
      return "a segment must start where the one before it ends";
    }
    if (!mask.segments.empty() && mask.segments.back().upperUnsure) {
      return "only the last segment's upper end can be unsure";
    }
    mask.segments.push_back(*next);
  }
  return {};
}

}  // namespace

bool VDMaskTable::isCurveMetric(std::string_view metric) {
  return std::find(kCurveMetrics.begin(), kCurveMetrics.end(), metric) != kCurveMetrics.end();
}

bool VDMaskTable::isKnownMetric(std::string_view metric) {
  return isCurveMetric(metric) ||
         std::find(kScalarMetrics.begin(), kScalarMetrics.end(), metric) != kScalarMetrics.end();
}

bool VDMaskTable::addDefinitions(std::string_view text, const std::string& sourceName,
                                 std::string& error) {
  std::vector<VDMask> added;
  size_t lineNumber = 0;
  for (std::string_view line : split(text, '\n')) {
    ++lineNumber;
    if (line.empty() || line[0] == '#') {
      continue;
    }
    const std::vector<std::string_view> fields = split(line, '|');
    std::string reason;
    VDMask mask;
    if (fields.size() != 9) {
      reason = "a mask has 9 fields separated by '|'";
    } else if (fields[0].empty()) {
      reason = "a mask needs an id";
    } else if (!isKnownMetric(fields[1])) {
      reason = "unknown metric \"" + std::string(fields[1]) + "\"";
    } else {
      mask.id = fields[0];
      mask.metric = fields[1];
      mask.curve = isCurveMetric(fields[1]);
      reason = readLimit(fields[2], mask);
    }
    if (reason.empty() && (find(mask.id, mask.metric) != nullptr ||
                           std::any_of(added.begin(), added.end(), [&](const VDMask& other) {
                             return other.id == mask.id && other.metric == mask.metric;
                           }))) {
      reason = "mask " + mask.id + " has " + mask.metric + " twice";
    }
    if (!reason.empty()) {
      error = sourceName + ":" + std::to_string(lineNumber) + ": " + reason;
      return false;
    }
    mask.standard = fields[3];
    mask.edition = fields[4];
    mask.table = fields[5];
    mask.filter = fields[6];
    mask.condition = fields[7];
    mask.source = fields[8];
    added.push_back(std::move(mask));
  }
  _masks.insert(_masks.end(), added.begin(), added.end());
  return true;
}

const VDMaskTable& VDMaskTable::builtIn() {
  static const VDMaskTable table = [] {
    VDMaskTable result;
    std::string error;
    // The built-in text is checked by the tests; a bad line would leave the table empty.
    result.addDefinitions(kVDMaskDefinitions, "masks.txt", error);
    return result;
  }();
  return table;
}

std::vector<const VDMask*> VDMaskTable::masksWithId(std::string_view id) const {
  std::vector<const VDMask*> result;
  for (const VDMask& mask : _masks) {
    if (mask.id == id) {
      result.push_back(&mask);
    }
  }
  return result;
}

const VDMask* VDMaskTable::find(std::string_view id, std::string_view metric) const {
  for (const VDMask& mask : _masks) {
    if (mask.id == id && mask.metric == metric) {
      return &mask;
    }
  }
  return nullptr;
}

std::vector<std::string> VDMaskTable::ids() const {
  std::vector<std::string> result;
  for (const VDMask& mask : _masks) {
    if (std::find(result.begin(), result.end(), mask.id) == result.end()) {
      result.push_back(mask.id);
    }
  }
  return result;
}
