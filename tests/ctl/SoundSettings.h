/// A settings file without a fault, for tests that put faults into it.
#pragma once

#include <string>
#include <vector>

/// Its lines, the first of which is line 1 of the file.
std::vector<std::string> soundLines();

/// @return the text with each line ended by a line feed
std::string joined(const std::vector<std::string>& lines);

/// @return the sound file of node 1 (master) or 2
std::string soundSettings(int node = 1);

/// Writes "KEY = VALUE" over the key's line.
void setKey(std::vector<std::string>& lines, const std::string& key, const std::string& value);

/// Empties the key's line, so that the others keep their numbers.
void dropKey(std::vector<std::string>& lines, const std::string& key);
