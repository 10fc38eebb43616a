#include <chrono>
#include <string>

#include "inspect/HostProgram.h"
#include "inspect/HostTrial.h"

namespace velarix::inspect::host
{

std::string shellRefusal(const std::string& command, const char* shell)
{
	const ProgramEnd end = runProgram({.arguments = {shell, "-n", "-c", command}});
	if (end.fine() || !end.inTime || end.status == ProgramEnd::kNotStarted)
	{
		return {};
	}
	// "sh: 1: Syntax error: Unterminated quoted string": the end tells it.
	const std::string first = end.errors.substr(0, end.errors.find('\n'));
	const std::size_t at = first.rfind(": ");
	return at == std::string::npos ? "the shell refuses it" : first.substr(at + 2);
}

} // namespace velarix::inspect::host
