/// The daemon's real log file, taken apart.
#pragma once

#include <string>
#include <vector>

/// @return the lines of the file as they are, without the library's remark "# ..."; empty
///         without a file
std::vector<std::string> logFileLines(const std::string& path);

/// @return the same from the caller's label on, "[SOURCE:LINE] <LETTER> TEXT"
std::vector<std::string> logFileTexts(const std::string& path);
