#include "lab/core/FaultActions.h"

#include <csignal>
#include <filesystem>
#include <utility>

#include <sys/statvfs.h>

#include "lab/core/Lab.h"

namespace velarix::lab::action
{

namespace
{

namespace fs = std::filesystem;

constexpr std::pair<Network, const char*> networksOfNodes[]{{Network::service, plan::serviceInterface},
                                                            {Network::communication, plan::communicationInterface}};

/// @throws LabError with the command's own words when it fails
void runOn(Lab& lab, HostId host, const std::vector<std::string>& argv)
{
	runOrThrow({argv, {}, lab.host(host).inside()});
}

void bothOff(Lab& lab)
{
	for (const HostId node : nodes)
	{
		if (lab.node(node).isOn())
		{
			lab.powerOff(node);
		}
	}
}

fs::path hiddenRunInfo(Lab& lab, HostId node)
{
	return lab.node(node).file(std::string(plan::runInfoFile) + ".away");
}

bool runInfoReadOnly(Lab& lab, HostId node)
{
	struct statvfs found
	{
	};
	const fs::path record = lab.node(node).file(plan::runInfoFile);
	return ::statvfs(record.c_str(), &found) == 0 && (found.f_flag & ST_RDONLY) != 0;
}

} // namespace

void nodeOn(Lab& lab, HostId node)
{
	lab.node(node).host();
}

void agentRuns(Lab& lab, HostId node)
{
	if (!lab.node(node).agent())
	{
		throw LabError(nodeText(node) + " has no agent");
	}
}

void agentNotFrozen(Lab& lab, HostId node)
{
	agentRuns(lab, node);
	hostNotFrozen(lab, node);
}

void hostNotFrozen(Lab& lab, HostId node)
{
	nodeOn(lab, node);
	if (lab.role(node) == "frozen")
	{
		throw LabError("the agent of " + nodeText(node) + " is frozen already");
	}
}

void clockSteppable(Lab& lab, HostId node)
{
	if (!lab.node(node).hasClock())
	{
		throw LabError("the agent of " + nodeText(node) + " has no clock that can be stepped");
	}
}

void programRuns(Lab& lab, HostId node)
{
	if (processesNamed(lab.node(node).host().pid(), plan::serviceProgramName).empty())
	{
		throw LabError("no managed program runs on " + nodeText(node));
	}
}

void addressHeld(Lab& lab, HostId node)
{
	nodeOn(lab, node);
	if (!holds(lab.owners(), node))
	{
		throw LabError(nodeText(node) + " does not hold the virtual address");
	}
}

void runInfoThere(Lab& lab, HostId node)
{
	nodeOn(lab, node);
	if (fs::exists(hiddenRunInfo(lab, node)))
	{
		throw LabError("the record of " + nodeText(node) + " is away already");
	}
	if (runInfoReadOnly(lab, node))
	{
		throw LabError("the record of " + nodeText(node) + " is read-only: it cannot be removed");
	}
}

void runInfoWritable(Lab& lab, HostId node)
{
	nodeOn(lab, node);
	if (!fs::exists(lab.node(node).file(plan::runInfoFile)))
	{
		throw LabError("the record of " + nodeText(node) + " is away");
	}
	if (runInfoReadOnly(lab, node))
	{
		throw LabError("the record of " + nodeText(node) + " is read-only already");
	}
}

void hasKeeper(Lab& lab, HostId node)
{
	nodeOn(lab, node);
	if (!lab.node(node).hasKeeper())
	{
		throw LabError(nodeText(node) + " has no keeper");
	}
}

void reboot(Lab& lab, HostId node)
{
	lab.powerOff(node);
	lab.powerOn(node);
}

void coldStart(Lab& lab, HostId /*node*/)
{
	bothOff(lab);
	for (const HostId node : nodes)
	{
		lab.powerOn(node, false);
	}
	lab.startAgents();
}

void coldStartAlone(Lab& lab, HostId node)
{
	bothOff(lab);
	lab.powerOn(node);
}

void killProgram(Lab& lab, HostId node)
{
	if (lab.node(node).killService() == 0)
	{
		throw LabError("no managed program runs on " + nodeText(node));
	}
}

/// The gateway sends its answers to an interface that nobody has.
void loseGateway(Lab& lab, HostId node)
{
	for (const auto& [network, interface] : networksOfNodes)
	{
		runOn(lab, HostId::gateway,
		      {"ip", "neigh", "replace", plan::addressOf(node, network), "lladdr", "02:00:00:00:00:77", "nud",
		       "permanent", "dev", interface});
	}
}

void findGateway(Lab& lab, HostId node)
{
	for (const auto& [network, interface] : networksOfNodes)
	{
		runOn(lab, HostId::gateway, {"ip", "neigh", "del", plan::addressOf(node, network), "dev", interface});
	}
}

void makeDeaf(Lab& lab, HostId node)
{
	Impairment impairment;
	impairment.lossPercent = 100;
	impairment.direction = Direction::toHost;
	impairment.peer = otherNode(node);
	lab.wiring().impair(node, Network::communication, impairment);
}

void removeAddress(Lab& lab, HostId node)
{
	// Whatever its prefix.
	runOn(lab, node, {"ip", "addr", "flush", "dev", plan::serviceInterface, "to", plan::virtualAddress});
}

void removeRunInfo(Lab& lab, HostId node)
{
	fs::rename(lab.node(node).file(plan::runInfoFile), hiddenRunInfo(lab, node));
}

void restoreRunInfo(Lab& lab, HostId node)
{
	nodeOn(lab, node);
	if (!fs::exists(hiddenRunInfo(lab, node)))
	{
		throw LabError("the record of " + nodeText(node) + " is not away");
	}
	fs::rename(hiddenRunInfo(lab, node), lab.node(node).file(plan::runInfoFile));
	if (!lab.node(node).agent())
	{
		lab.startAgent(node);
	}
}

/// The permissions of a file do not bind root; a read-only mount does.
void protectRunInfo(Lab& lab, HostId node)
{
	runOn(lab, node, {"mount", "--bind", plan::runInfoFile, plan::runInfoFile});
	try
	{
		runOn(lab, node, {"mount", "-o", "remount,bind,ro", plan::runInfoFile});
	}
	catch (const LabError&)
	{
		runOn(lab, node, {"umount", plan::runInfoFile});
		throw;
	}
}

/// A node that was off since has the mount no more.
void freeRunInfo(Lab& lab, HostId node)
{
	nodeOn(lab, node);
	if (!runInfoReadOnly(lab, node))
	{
		throw LabError("the record of " + nodeText(node) + " is not read-only");
	}
	runOn(lab, node, {"umount", plan::runInfoFile});
}

void fillDisk(Lab& lab, HostId node)
{
	constexpr Millis stillFor{3000};
	lab.node(node).setDiskFull(true);
	const fs::path log = lab.node(node).diskFile(plan::logFile);
	std::uintmax_t size = 0;
	Millis since = lab.clock().now();
	const auto still = [&]
	{
		std::error_code none;
		const std::uintmax_t now = fs::file_size(log, none);
		since = now != size ? lab.clock().now() : since;
		size = now;
		return lab.clock().now() - since >= stillFor;
	};
	if (!waitFor(still, Millis(30000), "the log to come to its end"))
	{
		lab.node(node).setDiskFull(false);
		throw LabError("the log of " + nodeText(node) + " goes on, though its disk is full");
	}
}

} // namespace velarix::lab::action
