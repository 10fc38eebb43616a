/// Whole files as texts.
#pragma once

#include <filesystem>
#include <string>

#include "lab/core/Basics.h"

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

/// @return a file without a name that holds the text, to be read from its beginning; it ends
///         with the last descriptor
Descriptor fileInMemory(const std::string& text = {});
/// @return all that such a file holds, whoever has written it
std::string contentOf(const Descriptor& file);

/// Replaces what the file holds, or makes it.
/// @throws LabError when that fails, a full disk included
void writeFile(const std::filesystem::path& path, const std::string& text);

} // namespace velarix::lab
