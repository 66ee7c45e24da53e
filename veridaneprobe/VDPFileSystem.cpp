#include "VDPFileSystem.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "VDAtomicFile.h"
#include "VDResultPath.h"

namespace fs = std::filesystem;

namespace VDPFileSystem {

namespace {

std::string homeDirectory() {
  if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
    return home;
  }
  if (const passwd* entry = getpwuid(getuid()); entry != nullptr && entry->pw_dir != nullptr) {
    return entry->pw_dir;
  }
  return "~";
}

// "~" and "~/..." name our home, "~user" and "~user/..." that user's, as the shell's tilde
// expansion does; an unknown user leaves the text as it is.
std::string tildeExpanded(const std::string& value) {
  if (value.empty() || value[0] != '~') {
    return value;
  }
  const size_t slash = value.find('/');
  const std::string user = value.substr(1, slash == std::string::npos ? slash : slash - 1);
  const std::string rest = slash == std::string::npos ? "" : value.substr(slash);
  if (user.empty()) {
    return homeDirectory() + rest;
  }
  const passwd* entry = getpwnam(user.c_str());
  if (entry == nullptr || entry->pw_dir == nullptr) {
    return value;
  }
  return entry->pw_dir + rest;
}

}  // namespace

std::string standardisedPath(const std::string& value) {
  const std::string expanded = tildeExpanded(value);
  if (expanded.empty()) {
    return expanded;
  }
  std::string normal = fs::path(expanded).lexically_normal().string();
  while (normal.size() > 1 && normal.back() == '/') {
    normal.pop_back();
  }
  return normal;
}

std::optional<std::string> resolvedPath(const std::optional<std::string>& path) {
  if (!path || (!path->empty() && (*path)[0] == '/')) {
    return path;
  }
  const char* pwd = std::getenv("PWD");
  if (pwd == nullptr) {
    return std::nullopt;
  }
  return (fs::path(pwd) / *path).string();
}

std::optional<std::string> resolvedOutputPath(const std::optional<std::string>& path) {
  if (!path) {
    const char* pwd = std::getenv("PWD");
    return pwd != nullptr ? std::optional<std::string>(pwd) : std::nullopt;
  }
  return resolvedPath(path);
}

std::string joinedPath(const std::string& directory, const std::string& component) {
  return VDResultPath::inDirectory(directory, component).string();
}

bool exists(const std::optional<std::string>& path) {
  struct stat status;
  return path && stat(path->c_str(), &status) == 0;
}

bool prepareDirectory(const std::optional<std::string>& path, std::FILE* messageStream) {
  const char* text = path ? path->c_str() : "";
  struct stat status;
  if (path && stat(text, &status) == 0) {
    if (S_ISDIR(status.st_mode)) {
      return true;
    }
    std::fprintf(messageStream, "\"%s\" is not a directory. Please use a different path.\n", text);
    return false;
  }
  std::error_code error;
  if (!path) {
    error = std::make_error_code(std::errc::no_such_file_or_directory);
  } else {
    fs::create_directories(*path, error);
  }
  if (error) {
    std::fprintf(messageStream, "Failed to create directory \"%s\" with error %s.\n", text,
                 error.message().c_str());
    return false;
  }
  return true;
}

void saveScript(const std::string& path, const std::string& text) {
  VDAtomicFile::replace(path, text);
  // Whatever the write's outcome: a script saved earlier stays runnable.
  chmod(path.c_str(), 0744);
}

}  // namespace VDPFileSystem
