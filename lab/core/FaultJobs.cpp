/// The faults that keep a program running: crash loops, zombies, attackers.

#include <algorithm>

#include "lab/core/FaultActions.h"
#include "lab/core/Lab.h"
#include "lab/core/Plan.h"

namespace velarix::lab::action
{

namespace
{

std::string crashJob(HostId node)
{
	return "crash the managed program of " + nodeText(node);
}

std::string zombieJob(HostId node)
{
	return "keep a zombie on " + nodeText(node);
}

bool zombieOn(const Host& host)
{
	const std::vector<Process> all = processesOf(host.pid());
	return std::any_of(all.begin(), all.end(),
	                   [](const Process& entry)
	                   { return entry.name == plan::serviceProgramName && entry.state == 'Z'; });
}

} // namespace

void crashProgram(Lab& lab, HostId node)
{
	const std::string loop = std::string("while :; do killall -q -9 ") + plan::serviceProgramName + "; sleep 0.1; done";
	lab.jobs().start(lab.node(node).host(), crashJob(node), {"sh", "-c", loop});
}

void programNoZombie(Lab& lab, HostId node)
{
	programRuns(lab, node);
	if (lab.jobs().underWay(zombieJob(node)))
	{
		throw LabError("there is a zombie on " + nodeText(node) + " already");
	}
}

void noCrashing(Lab& lab, HostId node)
{
	nodeOn(lab, node);
	if (lab.jobs().underWay(crashJob(node)))
	{
		throw LabError("the managed program of " + nodeText(node) + " crashes already");
	}
}

void noCrashingAnywhere(Lab& lab, HostId /*node*/)
{
	for (const HostId node : nodes)
	{
		noCrashing(lab, node);
	}
}

void endCrashing(Lab& lab, HostId node)
{
	lab.jobs().end(crashJob(node));
}

void crashEverywhere(Lab& lab, HostId /*node*/)
{
	for (const HostId node : nodes)
	{
		crashProgram(lab, node);
	}
}

/// One loop that has ended already does not keep the other one going.
void endCrashingEverywhere(Lab& lab, HostId /*node*/)
{
	std::string problems;
	for (const HostId node : nodes)
	{
		try
		{
			endCrashing(lab, node);
		}
		catch (const LabError& error)
		{
			problems += (problems.empty() ? "" : "; ") + std::string(error.what());
		}
	}
	if (!problems.empty())
	{
		throw LabError(problems);
	}
}

/// A second copy finds its port taken and ends at once; its parent, which is
/// not the first process of the host, never asks for its status.
void makeZombie(Lab& lab, HostId node)
{
	const Host& host = lab.node(node).host();
	lab.jobs().start(host, zombieJob(node), {"sh", "-c", std::string(plan::serviceProgram) + " & exec sleep infinity"});
	if (!waitFor([&] { return zombieOn(host); }, Millis(5000), "the zombie"))
	{
		lab.jobs().end(zombieJob(node));
		throw LabError("no zombie could be made on " + nodeText(node));
	}
	lab.node(node).killService();
}

void reapZombie(Lab& lab, HostId node)
{
	lab.jobs().end(zombieJob(node));
}

/// The attacker is the gateway: it is on the communication network and no node. A node that
/// refuses one message gets the next one.
void sendMessages(Lab& lab, const Fault& fault, const char* messages)
{
	const std::string target = std::string("/dev/tcp/") + plan::addressOf(fault.node, Network::communication) + "/" +
	                           std::to_string(plan::heartbeatPort);
	const std::string loop = std::string("while :; do for text in ") + messages + "; do printf \"$text\" >" + target +
	                         "; sleep 0.5 || exit; done; done";
	lab.jobs().start(lab.host(HostId::gateway), toName(fault), {"bash", "-c", loop});
}

void endMessages(Lab& lab, const Fault& fault)
{
	lab.jobs().end(toName(fault));
}

} // namespace velarix::lab::action
