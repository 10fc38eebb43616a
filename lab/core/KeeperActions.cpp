/// The faults of the keeper: of its processes, of its marker, and a third host that has its
/// address.

#include <csignal>

#include "lab/core/FaultActions.h"
#include "lab/core/Lab.h"

namespace velarix::lab::action
{

namespace
{

void shellOn(const Host& host, const std::string& line)
{
	runOrThrow({{"sh", "-c", line}, {}, host.inside()});
}

} // namespace

void keeperRuns(Lab& lab, HostId node, const char* program)
{
	if (processesNamed(lab.node(node).host().pid(), program).empty())
	{
		throw LabError(std::string("no ") + program + " runs on " + nodeText(node));
	}
}

void killKeeper(Lab& lab, HostId node, const char* program)
{
	const pid_t init = lab.node(node).host().pid();
	std::vector<pid_t> doomed;
	for (const Process& guard : processesNamed(init, program))
	{
		doomed.push_back(guard.pid);
		for (const Process& entry : processesOf(init))
		{
			if (entry.parent == guard.pid)
			{
				doomed.push_back(entry.pid);
			}
		}
	}
	for (const pid_t pid : doomed)
	{
		signalInHost(init, pid, SIGSTOP);
	}
	for (const pid_t pid : doomed)
	{
		signalInHost(init, pid, SIGKILL);
	}
}

void removeMarker(Lab& lab, HostId node)
{
	shellOn(lab.host(node), std::string("exec ") + plan::keeperProgram + " unmark");
}

void restoreMarker(Lab& lab, HostId node)
{
	shellOn(lab.host(node), std::string("exec ") + plan::keeperProgram + " mark");
}

void raiseRogue(Lab& lab, HostId /*node*/)
{
	const std::string address = plan::virtualAddress;
	const std::string interface = plan::serviceInterface;
	shellOn(lab.attacker(), "ip addr replace " + address + "/32 dev " + interface + " && arping -q -A -c 1 -w 1 -I " +
	                            interface + " " + address);
}

void dropRogue(Lab& lab, HostId /*node*/)
{
	shellOn(lab.attacker(), std::string("ip addr flush dev ") + plan::serviceInterface + " to " + plan::virtualAddress);
}

} // namespace velarix::lab::action
