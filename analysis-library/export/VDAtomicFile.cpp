#include "VDAtomicFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <utility>

namespace {

std::error_code lastSystemError() { return {errno, std::generic_category()}; }

bool writeAll(int fileDescriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(fileDescriptor, text.data(), text.size());
    if (written < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    text.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

// Creates a temporary file beside path under a name no other file has; -1 on failure.
int createTemporaryBeside(const std::filesystem::path& path, std::filesystem::path& temporary) {
  // Hidden, and named after the target and this process, so a run stopped half-way leaves
  // nothing that looks like a result.
  std::string stem = ".";
  stem += path.filename().string();
  stem += ".tmp-";
  stem += std::to_string(getpid());
  for (int attempt = 0;; ++attempt) {
    std::string name = stem;
    if (attempt > 0) {
      name += '-';
      name += std::to_string(attempt);
    }
    temporary = path;
    temporary.replace_filename(name);
    const int fileDescriptor =
        ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fileDescriptor >= 0 || errno != EEXIST || attempt == 100) {
      return fileDescriptor;
    }
  }
}

}  // namespace

VDAtomicFile::VDAtomicFile(std::filesystem::path path) : _path(std::move(path)) {
  _fileDescriptor = createTemporaryBeside(_path, _temporary);
  if (_fileDescriptor < 0) {
    _error = lastSystemError();
  }
}

VDAtomicFile::~VDAtomicFile() {
  if (_fileDescriptor >= 0) {
    ::close(_fileDescriptor);
    ::unlink(_temporary.c_str());
  }
}

void VDAtomicFile::append(std::string_view text) {
  if (!_error && _fileDescriptor >= 0 && !writeAll(_fileDescriptor, text)) {
    _error = lastSystemError();
  }
}

std::error_code VDAtomicFile::commit() {
  if (_fileDescriptor < 0) {
    return _error;
  }
  // Some file systems report a failed write only when the file is closed.
  if (::close(_fileDescriptor) != 0 && !_error) {
    _error = lastSystemError();
  }
  _fileDescriptor = -1;
  if (!_error && std::rename(_temporary.c_str(), _path.c_str()) != 0) {
    _error = lastSystemError();
  }
  if (_error) {
    ::unlink(_temporary.c_str());
  }
  return _error;
}

std::error_code VDAtomicFile::replace(const std::filesystem::path& path, std::string_view text) {
  VDAtomicFile file(path);
  file.append(text);
  return file.commit();
}
