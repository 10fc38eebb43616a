/// What is known of ordinary programs without running them: whether they print,
/// and whether they end.
#pragma once

#include <string>
#include <vector>

#include "ctl/check/ShellCommand.h"

namespace velarix::ctl::shell
{

enum class Output
{
	none,
	some,
	notKnown
};

/// @param words a program and its arguments
/// @return what it writes to its standard output when all goes well
Output outputOf(const std::vector<std::string>& words);

/// @return whether it goes on until it is killed, like "ping" without a count
bool runsForEver(const std::vector<std::string>& words);

/// @return whether the place is in a "while" loop that ends only when the address
///         has gone, or never
bool inEndlessLoop(const Place& place);

/// @return whether it is a program of the node's own, of which nothing is known
bool isOwnProgram(const std::vector<std::string>& words);

} // namespace velarix::ctl::shell
