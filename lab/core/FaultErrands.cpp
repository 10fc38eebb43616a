/// The faults that keep a program running: crash loops, zombies, strangers.

#include <algorithm>

#include "lab/core/FaultActions.h"
#include "lab/core/Lab.h"
#include "lab/core/Plan.h"

namespace velarix::lab::action
{

namespace
{

std::string crashErrand(HostId node)
{
	return "crash the managed program of " + nodeText(node);
}

void startCrashing(Lab& lab, HostId node)
{
	const std::string loop = std::string("while :; do killall -q -9 ") + plan::serviceProgramName + "; sleep 0.1; done";
	lab.errands().start(lab.node(node).host(), crashErrand(node), {"sh", "-c", loop});
}

/// The stranger is the gateway: it is on the communication network and no node.
std::string connectionTo(HostId node)
{
	return std::string("/dev/tcp/") + plan::addressOf(node, Network::communication) + "/" +
	       std::to_string(plan::heartbeatPort);
}

/// One connection after the other, each with the next of `messages`, as printf
/// knows them. A node that refuses one gets the next one.
std::vector<std::string> strangerCommand(HostId node, const std::string& messages)
{
	return {"bash", "-c",
	        "while :; do for text in " + messages + "; do printf \"$text\" >" + connectionTo(node) +
	            "; sleep 0.5 || exit; done; done"};
}

std::string zombieErrand(HostId node)
{
	return "keep a zombie on " + nodeText(node);
}

bool zombieOn(const Host& host)
{
	const std::vector<ProcessEntry> all = processesOf(host.pid());
	return std::any_of(all.begin(), all.end(),
	                   [](const ProcessEntry& entry)
	                   { return entry.name == plan::serviceProgramName && entry.state == 'Z'; });
}

std::string garbageErrand(HostId node)
{
	return "send garbage to " + nodeText(node);
}

std::string replayErrand(HostId node)
{
	return "replay a master's heartbeat to " + nodeText(node);
}

std::string askErrand(HostId node)
{
	return "replay an ask to " + nodeText(node);
}

} // namespace

void programNoZombie(Lab& lab, HostId node)
{
	programRuns(lab, node);
	if (lab.errands().underWay(zombieErrand(node)))
	{
		throw LabError("there is a zombie on " + nodeText(node) + " already");
	}
}

void noCrashing(Lab& lab, HostId node)
{
	nodeOn(lab, node);
	if (lab.errands().underWay(crashErrand(node)))
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

void crashProgram(Lab& lab, HostId node)
{
	startCrashing(lab, node);
}

void endCrashing(Lab& lab, HostId node)
{
	lab.errands().end(crashErrand(node));
}

void crashEverywhere(Lab& lab, HostId /*node*/)
{
	for (const HostId node : nodes)
	{
		startCrashing(lab, node);
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
	lab.errands().start(host, zombieErrand(node),
	                    {"sh", "-c", std::string(plan::serviceProgram) + " & exec sleep infinity"});
	if (!waitFor([&] { return zombieOn(host); }, Millis(5000), "the zombie"))
	{
		lab.errands().end(zombieErrand(node));
		throw LabError("no zombie could be made on " + nodeText(node));
	}
	lab.node(node).killService();
}

void reapZombie(Lab& lab, HostId node)
{
	lab.errands().end(zombieErrand(node));
}

void sendGarbage(Lab& lab, HostId node)
{
	// Nothing, too little, another prefix, binary, longer than one read.
	const std::string messages = "'' '/process/' '/other/1/1/20260101000000/1/' '\\000\\377\\001\\n' "
	                             "'/process/1/1' '%0300d'";
	lab.errands().start(lab.host(HostId::gateway), garbageErrand(node), strangerCommand(node, messages));
}

void endGarbage(Lab& lab, HostId node)
{
	lab.errands().end(garbageErrand(node));
}

void replayMaster(Lab& lab, HostId node)
{
	lab.errands().start(lab.host(HostId::gateway), replayErrand(node),
	                    strangerCommand(node, "'/process/1/1/20260101000000/0/'"));
}

void endReplayMaster(Lab& lab, HostId node)
{
	lab.errands().end(replayErrand(node));
}

void replayAsk(Lab& lab, HostId node)
{
	lab.errands().start(lab.host(HostId::gateway), askErrand(node),
	                    strangerCommand(node, "'/process/0/2/20260101000000/1/'"));
}

void endReplayAsk(Lab& lab, HostId node)
{
	lab.errands().end(askErrand(node));
}

} // namespace velarix::lab::action
