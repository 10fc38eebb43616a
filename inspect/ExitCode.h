/// What the program's exit status says to a script. Listed in velarixctl(1).
#pragma once

#include <stdexcept>
#include <string>

namespace velarix::inspect
{

enum class ExitCode : int
{
	fine = 0,
	/// The answer is no: the wish was not fulfilled, or the agent is dead though
	/// its pid file is there.
	notAsWished = 1,
	/// The command line is wrong.
	usage = 2,
	/// status: the agent does not run; nagios: unknown.
	notRunning = 3,
	/// status: it is not known.
	notKnown = 4,
	/// An input file is missing or cannot be read.
	noInput = 66,
	/// Refused, since the pair is not in a state for it.
	refused = 69,
	/// Something in this program or the system went wrong that nothing here foresees.
	internal = 70,
	/// An output file cannot be written.
	cannotWrite = 73,
	/// The time allowed has passed.
	timeOut = 75,
	noPermission = 77,
	/// The settings are wrong.
	settings = 78
};

/// @return the number that goes to the system
constexpr int number(ExitCode code)
{
	return static_cast<int>(code);
}

/// Ends the program with one line on standard error and the given status.
class Failure : public std::runtime_error
{
public:
	Failure(ExitCode code, const std::string& text) : std::runtime_error(text), m_code(code) {}

	ExitCode code() const { return m_code; }

private:
	ExitCode m_code;
};

} // namespace velarix::inspect
