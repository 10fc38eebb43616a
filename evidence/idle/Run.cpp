#include "evidence/idle/Run.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "evidence/idle/Monit.h"
#include "evidence/peers/Pair.h"
#include "lab/core/Files.h"
#include "lab/core/Lab.h"
#include "lab/core/Plan.h"

namespace velarix::evidence::idle
{

namespace
{

constexpr Millis serveLimit{90000};
constexpr const char* peerLog = "/run/peer.log";
/// Every second as the agent's own look, and the package's default.
constexpr int monitSecondsOf(HostId node)
{
	return node == HostId::a ? 1 : 120;
}

using Clock = std::chrono::steady_clock;

/// A guard's lasting processes: a child is of the same name until it has become another program.
std::vector<pid_t> guardsOn(Lab& lab, HostId node, const std::string& guard)
{
	const pid_t init = lab.node(node).host().pid();
	const std::vector<Process> first = processesNamed(init, guard);
	std::this_thread::sleep_for(Millis(300));
	const std::vector<Process> second = processesNamed(init, guard);
	std::vector<pid_t> lasting;
	for (const Process& entry : first)
	{
		const bool there =
		    std::any_of(second.begin(), second.end(), [&](const Process& other) { return other.pid == entry.pid; });
		if (there)
		{
			lasting.push_back(entry.pid);
		}
	}
	if (lasting.empty())
	{
		throw LabError(guard + " does not run on " + nodeText(node));
	}
	return lasting;
}

/// The shells that the start command has left to process 1 of the node.
ProcessTotals announcerOn(const Host& host)
{
	ProcessTotals totals;
	for (const Process& entry : processesNamed(host.pid(), "sh"))
	{
		if (entry.parent == host.pid())
		{
			totals += totalsOf(entry.pid);
		}
	}
	return totals;
}

std::int64_t sizeOf(const std::filesystem::path& file)
{
	std::error_code missing;
	const auto size = std::filesystem::file_size(file, missing);
	return missing ? 0 : static_cast<std::int64_t>(size);
}

NodeLook lookAt(Lab& lab, HostId node, const std::vector<pid_t>& guards)
{
	const Host& host = lab.node(node).host();
	NodeLook look;
	for (const pid_t guard : guards)
	{
		look.guard += totalsOf(guard);
	}
	look.announcer = announcerOn(host);
	look.lastProcess = lastProcessIn(lab.run(node, {"cat", "/proc/loadavg"}).output);
	const std::string cards = contentOf("/proc/" + std::to_string(host.pid()) + "/net/dev");
	look.cards = {cardIn(cards, plan::serviceCard), cardIn(cards, plan::communicationCard)};
	look.logBytes = sizeOf(lab.node(node).file(plan::logFile)) + sizeOf(lab.node(node).file(peerLog)) +
	                sizeOf(lab.node(node).file(monitLog));
	look.consoleBytes = sizeOf(lab.node(node).file(plan::consoleFile));
	return look;
}

MemoryByMapping memoryOfAll(const std::vector<pid_t>& guards)
{
	MemoryByMapping memory;
	for (const pid_t guard : guards)
	{
		for (const auto& [name, figures] : memoryOf(guard))
		{
			memory[name] += figures;
		}
	}
	return memory;
}

void awaitService(Lab& lab)
{
	if (!lab.waitForService(HostId::a, serveLimit, Millis(2000)))
	{
		throw LabError("node a did not come to serve: " + lab.stateText());
	}
}

/// Starts the guard on one node or on both, and waits until it has nothing to do.
void letRest(Lab& lab, const Plan& plan, const std::vector<HostId>& where)
{
	if (plan.guard == "monit")
	{
		for (const HostId node : where)
		{
			lab.node(node).startService();
			startMonit(lab, node, monitSecondsOf(node));
		}
	}
	else if (plan.guard == "keepalived")
	{
		peers::Pair pair(lab, peers::settingsNamed("keepalived", "defaults"));
		for (const HostId node : where)
		{
			pair.start(node);
			awaitService(lab);
		}
	}
	else
	{
		for (const HostId node : where)
		{
			lab.startAgent(node);
		}
		awaitService(lab);
	}
	std::this_thread::sleep_for(plan.settle);
}

struct Watch
{
	HostId node;
	std::vector<pid_t> guards;
	NodeLook before;
	Clock::time_point begin;
	std::vector<Figures> windows;
};

std::string settingsText(const Plan& plan, HostId node)
{
	if (plan.guard == "monit")
	{
		return "every " + std::to_string(monitSecondsOf(node)) + " s";
	}
	return plan.guard == "keepalived" ? "advertisement and check every 1 s"
	                                  : "heartbeat every " + std::to_string(plan.times.interval) + " s";
}

std::string roleText(const Plan& plan, HostId node)
{
	return plan.guard == "monit" ? "watches" : (node == HostId::a ? "master" : "standby");
}

/// The end of a window is the beginning of the next one.
void endWindow(Lab& lab, const Plan& plan, Watch& watch)
{
	const NodeLook after = lookAt(lab, watch.node, watch.guards);
	const Clock::time_point end = Clock::now();
	Figures node;
	node.guard = plan.guard;
	node.settings = settingsText(plan, watch.node);
	node.node = nameOf(watch.node);
	node.role = roleText(plan, watch.node);
	compare(watch.before, after, std::chrono::duration<double>(end - watch.begin).count(), node);
	node.mappings = memoryOfAll(watch.guards);
	node.memory = sumOf(node.mappings);
	watch.windows.push_back(std::move(node));
	watch.before = after;
	watch.begin = end;
}

LabOptions optionsFor(const Plan& plan)
{
	return {plan.installRoot, plan.times};
}

} // namespace

const std::vector<std::string>& allGuards()
{
	static const std::vector<std::string> guards{plan::agentName, "keepalived", "monit"};
	return guards;
}

void requireGuard(const std::string& guard)
{
	if (guard == "keepalived")
	{
		peers::requirePeer(peers::Program::keepalived);
	}
	else if (guard == "monit")
	{
		requireMonit();
	}
}

std::vector<Figures> measureIdle(const Plan& plan)
{
	Lab lab(optionsFor(plan));
	letRest(lab, plan, {HostId::a, HostId::b});
	lab.stillClient();
	std::vector<Watch> watches;
	for (const HostId node : nodes)
	{
		const std::vector<pid_t> guards = guardsOn(lab, node, plan.guard);
		watches.push_back({node, guards, lookAt(lab, node, guards), Clock::now(), {}});
	}
	for (int window = 0; window < plan.windows; ++window)
	{
		std::this_thread::sleep_for(plan.length);
		for (Watch& watch : watches)
		{
			endWindow(lab, plan, watch);
		}
	}
	std::vector<Figures> figures;
	figures.reserve(watches.size());
	for (const Watch& watch : watches)
	{
		figures.push_back(medianOf(watch.windows));
	}
	return figures;
}

MemoryFigures measureAlone(const Plan& plan, HostId node)
{
	Lab lab(optionsFor(plan));
	const bool standby = roleText(plan, node) == "standby";
	if (!standby)
	{
		lab.powerOff(otherNode(node));
	}
	letRest(lab, plan, standby ? std::vector<HostId>(nodes.begin(), nodes.end()) : std::vector<HostId>{node});
	const std::vector<pid_t> guards = guardsOn(lab, node, plan.guard);
	if (standby)
	{
		lab.powerOff(otherNode(node));
	}
	const std::vector<std::string> before = sharersOf(guards);
	const MemoryFigures memory = sumOf(memoryOfAll(guards));
	const std::vector<std::string> after = sharersOf(guards);
	if (!before.empty() || !after.empty())
	{
		throw LabError("other processes of the machine share its pages: " + (before.empty() ? after : before).front());
	}
	return memory;
}

} // namespace velarix::evidence::idle
