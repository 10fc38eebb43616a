/// Whole files as texts.
#pragma once

#include <filesystem>
#include <string>

namespace velarix::lab
{

/// @return what the file holds; empty when it is not there
/// @throws LabError when it is there and cannot be read
std::string contentIfAny(const std::filesystem::path& path);

/// @return what the file holds
/// @throws LabError when it cannot be read
std::string contentOf(const std::filesystem::path& path);

/// @return how often the text, which may have several lines, stands in the file; 0 when
///         there is no such file
/// @throws LabError when it is there and cannot be read
long timesIn(const std::filesystem::path& path, const std::string& text);

/// Replaces what the file holds, or makes it.
/// @throws LabError when that fails, a full disk included
void writeFile(const std::filesystem::path& path, const std::string& text);

} // namespace velarix::lab
