/// The daemon's surroundings inside a fuzz target: its console, its settings.
#pragma once

#include <iosfwd>
#include <string>

namespace fuzz
{

/// From now on standard output and standard error of the daemon's code end in one
/// text, in the order in which they were written. The fuzzer's own words, which do
/// not go through the streams, stay where they were.
void captureConsole();

/// What the daemon has written; the target empties it and may write to it, too.
std::string& console();

/// @return the path of a new file in memory that holds `text`; it lives as long as
///         the program
std::string memoryFile(const std::string& text);

/// The daemon's store of settings is made anew from this text.
void useSettings(const std::string& text);

} // namespace fuzz
