#pragma once

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>

// VDPFileSystem gathers the path handling and file operations the analysers and processors
// share: option paths, PWD resolution, output directory preparation and saved scripts.
namespace VDPFileSystem {

// An option's path value: a leading "~" or "~user" expanded to that home directory, then
// standardised (redundant "." and ".." components, duplicate and trailing separators removed).
std::string standardisedPath(const std::string& value);

// A relative path joined onto PWD. With PWD unset a relative path cannot be resolved and
// becomes absent; an absent path stays absent, except that an absent output directory means
// the PWD directory itself (resolveOutputPath).
std::optional<std::string> resolvedPath(const std::optional<std::string>& path);
std::optional<std::string> resolvedOutputPath(const std::optional<std::string>& path);

// directory, "/" and component appended as text: a component starting with "/" stays inside.
std::string joinedPath(const std::string& directory, const std::string& component);

// True when a file or directory (or anything else) exists at path.
bool exists(const std::optional<std::string>& path);

// Accepts an existing directory, refuses anything else that exists, creates a missing one with
// its intermediate directories. Failures print the directory messages on messageStream.
bool prepareDirectory(const std::optional<std::string>& path, std::FILE* messageStream);

// Writes text to path through a temporary file that then replaces it, and makes the result
// executable by its owner (mode 0744) whatever the write's outcome. Failures are ignored: a plot
// script is a convenience.
void saveScript(const std::string& path, const std::string& text);

}  // namespace VDPFileSystem
