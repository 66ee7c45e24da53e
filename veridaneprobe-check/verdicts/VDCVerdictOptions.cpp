#include "VDCVerdictOptions.h"

#include <charconv>
#include <cmath>
#include <fstream>
#include <sstream>
#include <string>

namespace {

std::optional<double> number(const std::string& text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size() ||
      !std::isfinite(value)) {
    return std::nullopt;
  }
  return value;
}

}  // namespace

bool VDCVerdictOptions::isVerdictOption(const std::string& option) {
  return option == "--list-masks" || takesValue(option);
}

bool VDCVerdictOptions::takesValue(const std::string& option) {
  return option == "--mask" || option == "--mask-file" || option == "--settle" ||
         option == "--average" || option == "--window";
}

bool VDCVerdictOptions::take(const std::string& option, const std::string& value,
                             std::string& error) {
  if (option == "--list-masks") {
    listMasks = true;
    return true;
  }
  if (option == "--mask") {
    std::stringstream ids(value);
    std::string id;
    while (std::getline(ids, id, ',')) {
      if (!id.empty()) {
        maskIds.push_back(id);
      }
    }
    if (maskIds.empty()) {
      error = "--mask needs a mask id (--list-masks lists them)";
    }
    return error.empty();
  }
  if (option == "--mask-file") {
    maskFiles.push_back(value);
    return true;
  }
  const std::optional<double> parsed = number(value);
  if (option == "--settle") {
    if (value == "servo") {
      settleSeconds.reset();
      return true;
    }
    if (!parsed || *parsed < 0) {
      error = "--settle takes seconds (0 or more) or servo, not \"" + value + "\"";
      return false;
    }
    settleSeconds = parsed;
    return true;
  }
  if (option == "--average") {
    if (!parsed || *parsed != std::floor(*parsed) || *parsed < kSmallestAverage || *parsed > 1e12) {
      error = "--average takes a whole number of samples of at least 100, not \"" + value + "\"";
      return false;
    }
    average = static_cast<int64_t>(*parsed);
    return true;
  }
  if (!parsed || !(*parsed > 0)) {
    error = "--window takes seconds above 0, not \"" + value + "\"";
    return false;
  }
  windowSeconds = *parsed;
  return true;
}

bool VDCVerdictOptions::readMaskTable(VDMaskTable& table, std::string& error) const {
  table = VDMaskTable::builtIn();
  for (const std::string& path : maskFiles) {
    // A definitions file is a few kilobytes; the cap keeps a wrong path (a device, a capture)
    // from filling memory.
    constexpr std::streamsize kLargestFile = 1 << 20;
    std::ifstream file(path, std::ios::binary);
    std::string text(kLargestFile + 1, '\0');
    file.read(text.data(), kLargestFile + 1);
    text.resize(static_cast<size_t>(file.gcount()));
    if (!file.is_open() || file.bad() || (file.fail() && !file.eof())) {
      error = "cannot read the mask file " + path;
      return false;
    }
    if (text.size() > static_cast<size_t>(kLargestFile)) {
      error = "the mask file " + path + " is larger than 1 MiB";
      return false;
    }
    if (!table.addDefinitions(text, path, error)) {
      return false;
    }
  }
  return true;
}

bool VDCVerdictOptions::selectedMasks(const VDMaskTable& table, std::vector<const VDMask*>& masks,
                                      std::string& error) const {
  for (const std::string& id : maskIds) {
    const std::vector<const VDMask*> ofId = table.masksWithId(id);
    if (ofId.empty()) {
      error = "unknown mask \"" + id + "\" (--list-masks lists them)";
      return false;
    }
    masks.insert(masks.end(), ofId.begin(), ofId.end());
  }
  return true;
}
