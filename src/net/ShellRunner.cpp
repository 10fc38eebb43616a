#include "ShellRunner.h"

#include <array>
#include <cstdio>

#include <Poco/Thread.h>

#include "Outside.h"
#include "VelarixLog.h"
#include "velarix/velarix.h"

namespace
{

constexpr char kSource[] = "Utill";

} // namespace

std::string shellCommand(std::string& command)
{
	std::FILE* pipe = outside::openPipe(command);
	if (pipe == nullptr)
	{
		velarixLog->error(kSource, 550, "shell command run error(fp is NULL): %s", command.c_str());
		Poco::Thread::sleep(1000);
		return kShellError;
	}
	// Callers only search the result, so the doubled line feeds do no harm; the
	// log shows them, and operators' log filters count on that shape.
	std::string output;
	std::array<char, 256> piece{};
	while (std::fgets(piece.data(), static_cast<int>(piece.size()), pipe) != nullptr)
	{
		output += piece.data();
		output += "\n";
	}
	outside::closePipe(pipe);
	velarixLog->info(kSource, 573, "command(%s) : %s", command.c_str(), output.c_str());
	return output;
}
