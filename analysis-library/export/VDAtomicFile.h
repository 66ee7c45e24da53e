#pragma once

#include <filesystem>
#include <string_view>
#include <system_error>

// A VDAtomicFile replaces a file only with a complete one: the text goes to a temporary file in
// the same directory, which is renamed over the target once it is written and closed. A failed
// write (a full disk, a directory that is not writable) leaves the earlier file as it was and
// removes the temporary one. A new file gets the mode any new file gets (0666 less the umask).
class VDAtomicFile {
 public:
  // Replaces the file at path with text; the system's error when it could not.
  static std::error_code replace(const std::filesystem::path& path, std::string_view text);

  // The same in parts, for text too long to hold at once: the temporary file is made now, each
  // append adds to it, and commit renames it over path. A file never committed is removed.
  explicit VDAtomicFile(std::filesystem::path path);
  ~VDAtomicFile();
  VDAtomicFile(const VDAtomicFile&) = delete;
  VDAtomicFile& operator=(const VDAtomicFile&) = delete;

  // After the first error, appends do nothing and commit returns that error.
  void append(std::string_view text);
  std::error_code commit();

 private:
  std::filesystem::path _path;
  std::filesystem::path _temporary;
  int _fileDescriptor = -1;
  std::error_code _error;
};
