#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

// A VDCSVBuffer collects the text of a CSV file in memory and writes it out in one call, so a
// million-row export costs one allocation pattern and one write.
class VDCSVBuffer {
 public:
  void reserve(size_t bytes) { _text.reserve(bytes); }

  void appendText(std::string_view text) { _text.append(text); }
  void appendInteger(int64_t value);
  void appendUnsigned(uint64_t value);
  // Shortest text that reads back as the same double.
  void appendDouble(double value);
  void appendSeparator() { _text.push_back(','); }
  void endRow() { _text.push_back('\n'); }

  const std::string& text() const { return _text; }

  // Replaces the file at path with the collected text, atomically (VDAtomicFile). When it could
  // not be written the earlier file stays, one line naming the file and the system's error goes
  // to standard error, and the result is false.
  bool writeToFile(const std::filesystem::path& path) const;

 private:
  std::string _text;
};
