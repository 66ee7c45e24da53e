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
};
