#include <algorithm>
#include <array>
#include <string>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "inspect/Descriptor.h"
#include "inspect/HostTrial.h"

namespace velarix::inspect::host
{

std::string shellRefusal(const std::string& command, const char* shellPath)
{
	std::array<int, 2> ends{};
	if (::pipe2(ends.data(), O_CLOEXEC) != 0)
	{
		return {};
	}
	const Descriptor errors(ends[0]);
	Descriptor shellsErrors(ends[1]);
	const pid_t shell = ::fork();
	if (shell == 0)
	{
		::dup2(shellsErrors.get(), STDERR_FILENO);
		::execl(shellPath, shellPath, "-n", "-c", command.c_str(), nullptr);
		::_exit(0);
	}
	shellsErrors.close();
	std::string text;
	std::array<char, 512> piece{};
	for (ssize_t got = 0; (got = ::read(errors.get(), piece.data(), piece.size())) > 0;)
	{
		text.append(piece.data(), static_cast<std::size_t>(got));
	}
	int status = 0;
	::waitpid(shell, &status, 0);
	if (shell < 0 || status == 0)
	{
		return {};
	}
	// "sh: 1: Syntax error: Unterminated quoted string": the end tells it.
	text.resize(std::min(text.find('\n'), text.size()));
	const std::size_t at = text.rfind(": ");
	return at == std::string::npos ? "the shell refuses it" : text.substr(at + 2);
}

} // namespace velarix::inspect::host
