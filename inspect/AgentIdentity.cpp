#include <string>

#include "inspect/HostProcesses.h"
#include "inspect/Names.h"

namespace velarix::inspect::host
{

bool isAgent(const Process& process)
{
	// Who may not ask for the file has the user alone to go by.
	const bool fileFits = process.executable.empty() || process.executable == kAgentFile ||
	                      process.executable == std::string(kAgentFile) + " (deleted)";
	return process.name == kAgentName && process.user == 0 && !process.inContainer && fileFits;
}

} // namespace velarix::inspect::host
