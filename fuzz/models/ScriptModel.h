/// A second telling of what is made of the configured paths, written from the rules.
#pragma once

#include <string>
#include <vector>

namespace fuzz
{

struct ScriptModel
{
	std::string script;   ///< the run script's bytes
	std::string commands; ///< the kill commands, a line each
	std::string console;  ///< what is told meanwhile
};

/// A path is its parts between slashes: the last one is the program's name, those
/// before it, each with its slash, are where the script goes before the start.
ScriptModel scriptOf(const std::string& kill, const std::vector<std::string>& paths);

} // namespace fuzz
