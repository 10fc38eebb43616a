#include "FaultActions.h"

#include <csignal>
#include <filesystem>

#include "Lab.h"

namespace velarix::lab::action
{

namespace
{

namespace fs = std::filesystem;

/// @throws LabError with the command's own words when it fails
void runOn(Lab& lab, HostId host, const std::vector<std::string>& argv)
{
	runOrThrow({argv, {}, lab.host(host).inside()});
}

void requireProgram(Lab& lab, HostId node)
{
	if (processesNamed(lab.node(node).host().pid(), plan::serviceProgramName).empty())
	{
		throw LabError("no managed program runs on " + nodeText(node));
	}
}

std::string crashErrand(HostId node)
{
	return "crash the managed program of " + nodeText(node);
}

void startCrashing(Lab& lab, HostId node)
{
	const std::string loop = std::string("while :; do killall -q -9 ") + plan::serviceProgramName + "; sleep 0.1; done";
	lab.errands().start(lab.node(node).host(), crashErrand(node), {"sh", "-c", loop});
}

fs::path hiddenRunInfo(Lab& lab, HostId node)
{
	return lab.node(node).file(std::string(plan::runInfoFile) + ".away");
}

/// The stranger is the gateway: it is on the communication network and no node.
std::string connectionTo(HostId node)
{
	return std::string("/dev/tcp/") + plan::addressOf(node, Network::communication) + "/" +
	       std::to_string(plan::heartbeatPort);
}

/// One connection after the other, each with the next of `messages`, as printf knows them.
std::vector<std::string> strangerCommand(HostId node, const std::string& messages)
{
	return {"bash", "-c",
	        "while :; do for text in " + messages + "; do printf \"$text\" >" + connectionTo(node) +
	            "; sleep 0.5; done; done 2>/dev/null"};
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

void powerOff(Lab& lab, HostId node)
{
	lab.powerOff(node);
}

void powerOn(Lab& lab, HostId node)
{
	lab.powerOn(node);
}

void reboot(Lab& lab, HostId node)
{
	lab.powerOff(node);
	lab.powerOn(node);
}

void coldStart(Lab& lab, HostId /*node*/)
{
	for (const HostId node : nodes)
	{
		lab.powerOff(node);
	}
	for (const HostId node : nodes)
	{
		lab.powerOn(node, false);
	}
	lab.startAgents();
}

void coldStartAlone(Lab& lab, HostId node)
{
	for (const HostId each : nodes)
	{
		lab.powerOff(each);
	}
	lab.powerOn(node);
}

void powerOnOther(Lab& lab, HostId node)
{
	lab.powerOn(otherNode(node));
}

void killAgent(Lab& lab, HostId node)
{
	lab.killAgent(node);
}

void terminateAgent(Lab& lab, HostId node)
{
	lab.killAgent(node, SIGTERM);
}

void startAgent(Lab& lab, HostId node)
{
	lab.startAgent(node);
}

void freezeAgent(Lab& lab, HostId node)
{
	lab.freezeAgent(node);
}

void thawAgent(Lab& lab, HostId node)
{
	lab.thawAgent(node);
}

void wantClockShim(LabOptions& options)
{
	options.clockShim = true;
}

void killProgram(Lab& lab, HostId node)
{
	if (lab.node(node).killService() == 0)
	{
		throw LabError("no managed program runs on " + nodeText(node));
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

void endCrashingEverywhere(Lab& lab, HostId /*node*/)
{
	for (const HostId node : nodes)
	{
		lab.errands().end(crashErrand(node));
	}
}

/// A second copy finds its port taken and ends at once; its parent, which is
/// not the first process of the host, never asks for its status.
void makeZombie(Lab& lab, HostId node)
{
	requireProgram(lab, node);
	const Host& host = lab.node(node).host();
	lab.errands().start(host, "keep a zombie on " + nodeText(node),
	                    {"sh", "-c", std::string(plan::serviceProgram) + " & exec sleep infinity"});
	const auto zombieThere = [&]
	{
		for (const ProcessEntry& entry : processesOf(host.pid()))
		{
			if (entry.name == plan::serviceProgramName && entry.state == 'Z')
			{
				return true;
			}
		}
		return false;
	};
	if (!waitFor(zombieThere, Millis(5000), "the zombie"))
	{
		throw LabError("no zombie could be made on " + nodeText(node));
	}
	lab.node(node).killService();
}

void reapZombie(Lab& lab, HostId node)
{
	lab.errands().end("keep a zombie on " + nodeText(node));
}

/// The gateway sends its answers to a card that nobody has.
void loseGateway(Lab& lab, HostId node)
{
	lab.node(node).host();
	runOn(lab, HostId::gateway,
	      {"ip", "neigh", "replace", plan::addressOf(node, Network::communication), "lladdr", "02:00:00:00:00:01",
	       "nud", "permanent", "dev", plan::communicationCard});
}

void findGateway(Lab& lab, HostId node)
{
	runOn(lab, HostId::gateway,
	      {"ip", "neigh", "del", plan::addressOf(node, Network::communication), "dev", plan::communicationCard});
}

void makeDeaf(Lab& lab, HostId node)
{
	Impairment impairment;
	impairment.lossPercent = 100;
	impairment.direction = Direction::toHost;
	impairment.peer = otherNode(node);
	lab.wiring().impair(node, Network::communication, impairment);
}

void makeMute(Lab& lab, HostId node)
{
	makeDeaf(lab, otherNode(node));
}

void removeAddress(Lab& lab, HostId node)
{
	runOn(lab, node,
	      {"ip", "addr", "del", std::string(plan::virtualAddress) + "/" + std::to_string(plan::prefixLength), "dev",
	       plan::serviceCard});
}

void removeRunInfo(Lab& lab, HostId node)
{
	lab.node(node).host();
	fs::rename(lab.node(node).file(plan::runInfoFile), hiddenRunInfo(lab, node));
}

void restoreRunInfo(Lab& lab, HostId node)
{
	lab.node(node).host();
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
	runOn(lab, node, {"mount", "-o", "remount,bind,ro", plan::runInfoFile});
}

void freeRunInfo(Lab& lab, HostId node)
{
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
	waitFor(still, Millis(30000), "the log to come to its end");
}

void freeDisk(Lab& lab, HostId node)
{
	lab.node(node).setDiskFull(false);
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
