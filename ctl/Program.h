/// The whole program but for what Main.cpp takes from the process.
#pragma once

#include <chrono>
#include <functional>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "inspect/ExitCode.h"
#include "inspect/Paths.h"
#include "inspect/Printable.h"

namespace velarix::ctl
{

using namespace inspect;

/// What every verb gets: where the node's files are, where its words go, what
/// time it is. Nothing else reaches a verb from outside, so that a test can give
/// it a directory, two string streams and a clock of its own.
struct Context
{
	/// Data; nothing else is written there.
	std::ostream& out;
	/// Diagnostics.
	std::ostream& err;
	/// @return the time of day
	std::function<std::chrono::system_clock::time_point()> now;
	/// Standard output is a terminal that knows more than lines.
	bool terminal = false;
	/// ... that wants colours.
	bool colour = false;
	/// The running system's; others with --root.
	Paths paths;
	/// What came of the verb.
	ExitCode code = ExitCode::fine;
	/// Where answers come from; null when nobody is there to be asked.
	std::istream* in = nullptr;
};

/// Writes a line of the diagnostics: "velarixctl: TEXT". Whatever the text quotes,
/// a terminal is not made to obey it.
inline void complain(const Context& context, std::string_view text)
{
	context.err << "velarixctl: " << printable(text) << '\n';
}

/// Reads the command line and runs the verb it names.
/// @param arguments without the program's name
/// @return the exit status, documented in ExitCode.h
int run(const std::vector<std::string>& arguments, Context& context);

} // namespace velarix::ctl
