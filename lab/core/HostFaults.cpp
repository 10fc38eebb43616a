/// Faults of the servers, the agents and their files.

#include <csignal>
#include <filesystem>

#include "lab/core/FaultTables.h"
#include "lab/core/Lab.h"

namespace velarix::lab
{

namespace
{

namespace fs = std::filesystem;

template <auto method, auto... arguments> void call(Lab& lab, HostId node)
{
	(lab.*method)(node, arguments...);
}

/// Both are off, also one that was so before.
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

void coldStart(Lab& lab, HostId /*node*/)
{
	bothOff(lab);
	for (const HostId node : nodes)
	{
		lab.powerOn(node, false);
	}
	lab.startAgents();
}

void agentRuns(Lab& lab, HostId node)
{
	refuse(!lab.node(node).agent(), nodeText(node) + " has no agent");
}

void hostNotFrozen(Lab& lab, HostId node)
{
	nodeOn(lab, node);
	refuse(lab.role(node) == "frozen", "the agent of " + nodeText(node) + " is frozen already");
}

void agentNotFrozen(Lab& lab, HostId node)
{
	agentRuns(lab, node);
	hostNotFrozen(lab, node);
}

/// @param hours  ahead of the machine's clock
template <int hours> void stepClock(Lab& lab, HostId node)
{
	lab.node(node).stepClock(std::chrono::hours(hours));
}

void clockSteppable(Lab& lab, HostId node)
{
	refuse(!lab.node(node).hasClock(), "the agent of " + nodeText(node) + " has no clock that can be stepped");
}

void withClock(LabOptions& options)
{
	options.clockShim = true;
}

/// What a script prints when it finds a reason to refuse, behind "the record of node a ".
template <const char* script> void checkRecord(Lab& lab, HostId node)
{
	const std::string reason = shell(lab.host(node), std::string("exec 2>/dev/null; file=") + plan::runInfoFile +
	                                                     "; readOnly() { findmnt -no OPTIONS $file | "
	                                                     "grep -q '^ro'; }; " +
	                                                     script);
	refuse(!reason.empty(), "the record of " + nodeText(node) + " " + reason.substr(0, reason.find('\n')));
}

template <const char* script> void changeRecord(Lab& lab, HostId node)
{
	shell(lab.host(node), std::string("file=") + plan::runInfoFile + "; " + script);
}

constexpr char canGo[] = "[ ! -e $file.away ] || echo is away already; "
                         "! readOnly || echo 'is read-only: it cannot be removed'";
constexpr char isAway[] = "[ -e $file.away ] || echo is not away";
constexpr char canBeProtected[] = "[ -e $file ] || echo is away; ! readOnly || echo is read-only already";
constexpr char isProtected[] = "readOnly || echo is not read-only";
constexpr char takeAway[] = "mv $file $file.away";
constexpr char bringBack[] = "mv $file.away $file";
/// The permissions of a file do not bind root; a read-only mount does.
constexpr char protect[] = "mount --bind $file $file; mount -o remount,bind,ro $file || { umount $file; exit 1; }";
constexpr char release[] = "umount $file";

/// Starts the agent, should it have ended.
void restoreRecord(Lab& lab, HostId node)
{
	checkRecord<isAway>(lab, node);
	changeRecord<bringBack>(lab, node);
	if (!lab.node(node).agent())
	{
		lab.startAgent(node);
	}
}

/// A node that was off since has the mount no more.
void freeRecord(Lab& lab, HostId node)
{
	checkRecord<isProtected>(lab, node);
	changeRecord<release>(lab, node);
}

/// Returns when the log has come to its end, too: its last page has room left.
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

constexpr FaultInfo table[]{
    {"power-off", true, "host powered off", "host powered on", call<&Lab::powerOff>, call<&Lab::powerOn, true>, nodeOn},
    {"reboot", true, "host rebooted", nullptr,
     [](Lab& lab, HostId node)
     {
	     lab.powerOff(node);
	     lab.powerOn(node);
     },
     nullptr, nodeOn},
    {"cold-start", false, "both hosts off, and on at once", nullptr, coldStart, nullptr},
    {"cold-start-alone", true, "both hosts off, only this one on", "the other host on, too",
     [](Lab& lab, HostId node)
     {
	     bothOff(lab);
	     lab.powerOn(node);
     },
     [](Lab& lab, HostId node) { lab.powerOn(otherNode(node)); }},
    {"host-freeze", true, "host stands still", "host goes on", call<&Lab::freezeHost>, call<&Lab::thawHost>,
     hostNotFrozen},
    {"agent-kill", true, "agent killed", "agent started", call<&Lab::killAgent, SIGKILL>, call<&Lab::startAgent>,
     agentRuns},
    {"agent-term", true, "agent terminated", "agent started", call<&Lab::killAgent, SIGTERM>, call<&Lab::startAgent>,
     agentNotFrozen}, // the signal would wait until it goes on
    {"agent-freeze", true, "agent frozen", "agent thawed", call<&Lab::freezeAgent>, call<&Lab::thawAgent>,
     agentNotFrozen},
    {"clock-ahead", true, "agent's clock two hours ahead", "agent's clock set right", stepClock<2>, stepClock<0>,
     clockSteppable, withClock},
    {"clock-behind", true, "agent's clock two hours behind", "agent's clock set right", stepClock<-2>, stepClock<0>,
     clockSteppable, withClock},
    {"run-info-missing", true, "run-info record removed", "run-info record restored", changeRecord<takeAway>,
     restoreRecord, checkRecord<canGo>},
    {"run-info-read-only", true, "run-info record read-only", "run-info record writable", changeRecord<protect>,
     freeRecord, checkRecord<canBeProtected>},
    {"disk-full", true, "disk full", "disk has room", fillDisk,
     [](Lab& lab, HostId node) { lab.node(node).setDiskFull(false); }},
};

} // namespace

std::span<const FaultInfo> hostFaults()
{
	return table;
}

} // namespace velarix::lab
