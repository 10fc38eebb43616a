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

/// Replaces what the file holds, or makes it.
/// @throws LabError when that fails, a full disk included
void writeFile(const std::filesystem::path& path, const std::string& text);

} // namespace velarix::lab
