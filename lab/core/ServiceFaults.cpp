/// Faults of the address, the managed program, the commands and the keeper.

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "lab/core/FaultTables.h"
#include "lab/core/Lab.h"

namespace velarix::lab
{

namespace
{

constexpr const char* crashJob = "program-crash";
constexpr const char* zombieJob = "program-zombie";

void programRuns(Lab& lab, HostId node)
{
	refuse(processesNamed(lab.host(node).pid(), plan::serviceProgramName).empty(),
	       "no managed program runs on " + nodeText(node));
}

void killProgram(Lab& lab, HostId node)
{
	refuse(lab.node(node).killService() == 0, "no managed program runs on " + nodeText(node));
}

template <int signal> void signalProgram(Lab& lab, HostId node)
{
	lab.node(node).signalAll(plan::serviceProgramName, signal);
}

void noCrashing(Lab& lab, HostId node)
{
	refuse(jobUnderWay(lab.host(node), crashJob), "the managed program of " + nodeText(node) + " crashes already");
}

void crashProgram(Lab& lab, HostId node)
{
	const std::string loop = std::string("while :; do killall -q -9 ") + plan::serviceProgramName + "; sleep 0.1; done";
	startJob(lab.host(node), crashJob, {"sh", "-c", loop});
}

void endCrashing(Lab& lab, HostId node)
{
	endJob(lab.host(node), crashJob);
}

/// A node at which it fails does not keep the other one from it.
template <FaultInfo::Step step> void onBoth(Lab& lab, HostId /*node*/)
{
	std::string problems;
	for (const HostId node : nodes)
	{
		try
		{
			step(lab, node);
		}
		catch (const LabError& error)
		{
			problems += (problems.empty() ? "" : "; ") + std::string(error.what());
		}
	}
	refuse(!problems.empty(), problems);
}

bool zombieOn(const Host& host)
{
	return std::ranges::any_of(processesOf(host.pid()), [](const Process& entry)
	                           { return entry.name == plan::serviceProgramName && entry.state == 'Z'; });
}

void noZombie(Lab& lab, HostId node)
{
	programRuns(lab, node);
	refuse(jobUnderWay(lab.host(node), zombieJob), "there is a zombie on " + nodeText(node) + " already");
}

/// A second copy that may not open anything ends at once; its parent, which is
/// not the first process of the host, never asks for its status.
void makeZombie(Lab& lab, HostId node)
{
	const Host& host = lab.host(node);
	const std::string copy = std::string("(ulimit -n 3; exec ") + plan::serviceProgram + ")";
	startJob(host, zombieJob, {"sh", "-c", copy + " & exec sleep infinity"});
	if (!waitFor([&] { return zombieOn(host); }, Millis(5000), "the zombie"))
	{
		endJob(host, zombieJob);
		throw LabError("no zombie could be made on " + nodeText(node));
	}
	lab.node(node).killService();
}

void addressHeld(Lab& lab, HostId node)
{
	nodeOn(lab, node);
	refuse(!holds(lab.owners(), node), nodeText(node) + " does not hold the virtual address");
}

/// Whatever its prefix.
void removeAddress(Lab& lab, HostId node)
{
	shell(lab.host(node), std::string("ip addr flush dev ") + plan::serviceInterface + " to " + plan::virtualAddress);
}

using plan::SetCommand;

bool isSpoilt(Lab& lab, HostId node, SetCommand command)
{
	nodeOn(lab, node);
	return std::filesystem::exists(lab.node(node).file(plan::hookPath(command)));
}

template <SetCommand command> void commandWhole(Lab& lab, HostId node)
{
	refuse(isSpoilt(lab, node, command), "a command of " + nodeText(node) + " is spoilt already");
}

constexpr char fails[] = "exit 1";
constexpr char prints[] = "echo done";
/// Until repair(); then it does its work. A named pipe is its gate.
constexpr char hangs[] = "cat $hook.gate";

/// The hook comes in one step, so that no command includes half of it, and after its gate: without
/// one it would print. A hook that cannot be placed leaves nothing.
template <SetCommand command, const char* text> void spoil(Lab& lab, HostId node)
{
	shell(lab.host(node), "hook=" + plan::hookPath(command) +
	                          "; trap '[ -e $hook ] || rm -f $hook.new $hook.gate' EXIT; " +
	                          (text == hangs ? "mkfifo -m 600 $hook.gate; " : "") + "echo \"" + text +
	                          "\" >$hook.new; mv $hook.new $hook");
}

/// Whoever waits at the gate finds the end of the file once it has been opened for writing and
/// closed again.
template <SetCommand command> void repairCommand(Lab& lab, HostId node)
{
	refuse(!isSpoilt(lab, node, command), "no command of " + nodeText(node) + " is spoilt");
	shell(lab.host(node), "hook=" + plan::hookPath(command) +
	                          "; rm $hook; if [ -p $hook.gate ]; then : <>$hook.gate; rm $hook.gate; fi");
}

template <const char* const& program> void keeperRuns(Lab& lab, HostId node)
{
	refuse(processesNamed(lab.host(node).pid(), program).empty(),
	       std::string("no ") + program + " runs on " + nodeText(node));
}

/// Both at once: the one that the agent counts, and its child that works.
template <const char* const& program> void killKeeper(Lab& lab, HostId node)
{
	shell(lab.host(node), std::string("guards=$(pgrep -d, -x ") + program + "); all=$(pgrep -x " + program +
	                          "; pgrep -P $guards || :); "
	                          "for signal in STOP KILL; do kill -$signal $all || :; done");
}

template <const char* const& verb> void runKeeper(Lab& lab, HostId node)
{
	shell(lab.host(node), std::string(plan::keeperProgram) + " " + verb);
}

constexpr const char* mark = "mark";
constexpr const char* unmark = "unmark";

void hasKeeper(Lab& lab, HostId node)
{
	nodeOn(lab, node);
	refuse(!lab.node(node).hasKeeper(), nodeText(node) + " has no keeper");
}

using enum SetCommand;

constexpr FaultInfo table[]{
    {"program-kill", true, "managed program killed", nullptr, killProgram, nullptr, programRuns},
    {"program-hang", true, "managed program hangs", "managed program goes on", signalProgram<SIGSTOP>,
     signalProgram<SIGCONT>, programRuns},
    {"program-crash", true, "managed program crashes again and again", "managed program is well", crashProgram,
     endCrashing, noCrashing},
    {"program-crash-both", false, "managed program crashes again and again on both nodes", "managed program is well",
     onBoth<crashProgram>, onBoth<endCrashing>, onBoth<noCrashing>},
    {"program-zombie", true, "managed program is a zombie", "zombie reaped", makeZombie,
     [](Lab& lab, HostId node) { endJob(lab.host(node), zombieJob); }, noZombie},
    {"address-removed", true, "virtual address removed by hand", nullptr, removeAddress, nullptr, addressHeld},
    {"start-hangs", true, "start command hangs", "start command goes on", spoil<start, hangs>, repairCommand<start>,
     commandWhole<start>},
    {"start-fails", true, "start command fails silently", "start command repaired", spoil<start, fails>,
     repairCommand<start>, commandWhole<start>},
    {"start-prints", true, "start command prints", "start command is silent", spoil<start, prints>,
     repairCommand<start>, commandWhole<start>},
    {"stop-fails", true, "stop command fails", "stop command repaired", spoil<stop, fails>, repairCommand<stop>,
     commandWhole<stop>},
    {"kill-fails", true, "kill command fails", "kill command repaired", spoil<SetCommand::kill, fails>,
     repairCommand<SetCommand::kill>, commandWhole<SetCommand::kill>},
    {"keeper-kill-address", true, "the keeper of the address killed", nullptr, killKeeper<plan::addressKeeper>, nullptr,
     keeperRuns<plan::addressKeeper>},
    {"keeper-kill-service", true, "the keeper of the service killed", nullptr, killKeeper<plan::serviceKeeper>, nullptr,
     keeperRuns<plan::serviceKeeper>},
    {"marker-missing", true, "the keeper's marker removed", "the marker is back", runKeeper<unmark>, runKeeper<mark>,
     hasKeeper},
};

} // namespace

std::span<const FaultInfo> serviceFaults()
{
	return table;
}

} // namespace velarix::lab
