/// Reading a whole file with an error that names the reason.
#pragma once

#include <filesystem>
#include <string>

namespace velarix::inspect
{

/// @return the file's bytes
/// @throws Failure noInput when it is missing, a directory or unreadable,
///         noPermission when only the rights are lacking
std::string readInputFile(const std::filesystem::path& path);

} // namespace velarix::inspect
