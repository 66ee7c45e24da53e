#include "VDResultPath.h"

#include <string>

namespace VDResultPath {

std::filesystem::path inDirectory(const std::filesystem::path& directory,
                                  std::string_view fileName) {
  std::string path = directory.native();
  if (!path.empty() && path.back() != '/') {
    path.push_back('/');
  }
  path.append(fileName);
  return path;
}

}  // namespace VDResultPath
