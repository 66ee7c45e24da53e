#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

class VDAtomicFile;

// A VDCSVBuffer collects the text of a CSV file in memory and writes it out in one call, so a
// million-row export costs one allocation pattern and one write. A buffer made for a path
// instead passes its text on to the file's temporary as rows end, a few MB at a time, so that a
// CSV of any length (a year of 1 PPS: GBs of text) takes little memory.
class VDCSVBuffer {
 public:
  VDCSVBuffer();
  explicit VDCSVBuffer(const std::filesystem::path& path);
  ~VDCSVBuffer();

  void appendText(std::string_view text) { _text.append(text); }
  void appendInteger(int64_t value);
  void appendUnsigned(uint64_t value);
  // Shortest text that reads back as the same double.
  void appendDouble(double value);
  void appendSeparator() { _text.push_back(','); }
  void endRow() {
    _text.push_back('\n');
    if (_file && _text.size() >= kPassedOnBytes) {
      passOn();
    }
  }

  // The text collected so far (of a buffer made for a path: since the last part passed on).
  const std::string& text() const { return _text; }

  // Replaces the file at path with the collected text, atomically (VDAtomicFile). When it could
  // not be written the earlier file stays, one line naming the file and the system's error goes
  // to standard error, and the result is false.
  bool writeToFile(const std::filesystem::path& path) const;
  // The same for a buffer made for a path: its last part goes out and the file is complete.
  bool finish();

 private:
  static constexpr size_t kPassedOnBytes = size_t{1} << 22;

  void passOn();

  std::string _text;
  std::filesystem::path _path;
  std::unique_ptr<VDAtomicFile> _file;
};
