#pragma once

#include <filesystem>
#include <string_view>

// VDResultPath names a result file: the directory, "/" and the file name appended as plain
// text. A file name is an output name plus a suffix, never a path of its own, so a name that
// starts with "/" still lands inside the directory instead of replacing it as
// std::filesystem's operator/ would.
namespace VDResultPath {

std::filesystem::path inDirectory(const std::filesystem::path& directory,
                                  std::string_view fileName);

}  // namespace VDResultPath
