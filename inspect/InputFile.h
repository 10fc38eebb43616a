/// Reading a small file whole, with an error that names the reason.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

#include "inspect/Descriptor.h"

namespace velarix::inspect
{

/// No file of the agent but its log comes near it.
inline constexpr std::size_t kLargestInput = 1024UL * 1024UL;

/// @return a regular file open for reading; none, with errno, otherwise: EISDIR or
///         EINVAL for what is no regular file
Descriptor openRegular(const std::filesystem::path& path);

/// Regular files alone: a pipe would be waited for, and a device never ends.
/// @return the file's bytes
/// @throws Failure noInput when it is missing, unreadable, no regular file or
///         larger than kLargestInput, noPermission when only the rights are lacking
std::string readInputFile(const std::filesystem::path& path);

} // namespace velarix::inspect
