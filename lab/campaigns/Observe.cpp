#include "lab/campaigns/Measure.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <thread>

#include "inspect/LogLine.h"
#include "lab/core/Plan.h"

namespace velarix::lab
{

namespace
{

constexpr Millis betweenLooks{1500};

/// A service's keeper waits for the address for as long as nobody stops it; the address' one
/// is a master's, or that of whoever holds it.
bool isKeepers(Lab& lab, HostId node, const Process& entry)
{
	if (entry.state == 'Z' || !lab.node(node).hasKeeper())
	{
		return false;
	}
	const bool wanted = lab.role(node) != "slave" || holds(lab.owners(), node);
	const bool always = entry.name == plan::serviceKeeper || entry.name == plan::reachKeeper || entry.name == "keeper";
	return always || (entry.name == plan::addressKeeper && wanted);
}

/// The processes of a node that are neither the system's nor meant to be there, and its agents.
struct Look
{
	std::map<pid_t, Process> unexpected;
	std::set<pid_t> agents;
};

Look lookAt(Lab& lab, HostId node)
{
	Look look;
	for (const Process& entry : processesOf(lab.node(node).host().pid()))
	{
		const bool zombie = entry.state == 'Z';
		const bool known =
		    entry.name == plan::serviceProgramName || entry.name == "tunnel" || entry.name == "wireguard-go";
		if (entry.name == plan::agentName)
		{
			zombie ? void() : void(look.agents.insert(entry.pid));
		}
		else if (entry.pidInside != 1 && (zombie || !known) && !isKeepers(lab, node, entry))
		{
			look.unexpected.emplace(entry.pid, entry);
		}
	}
	return look;
}

/// What is there at both looks: an agent that starts a command is two of that name for a moment.
std::vector<std::string> leftOnNode(Lab& lab, HostId node, const Look& first)
{
	std::vector<std::string> left;
	const bool owns = holds(lab.owners(), node);
	// An owner has an announcer: a shell, and what that runs for the moment. When
	// the address was raised twice in a row, the first one goes on as well.
	int allowedShells = owns && !lab.node(node).hasKeeper() ? 2 : 0;
	const Look second = lookAt(lab, node);
	for (const auto& [pid, entry] : second.unexpected)
	{
		const bool passing = !first.unexpected.contains(pid) || entry.name == "sleep" || entry.name == "arping";
		if (!passing && (entry.name != "sh" || allowedShells-- <= 0))
		{
			left.push_back(nodeText(node) + ": process " + entry.name + (entry.state == 'Z' ? " (zombie)" : ""));
		}
	}
	if (!owns && !processesNamed(lab.node(node).host().pid(), plan::serviceProgramName).empty())
	{
		left.push_back(nodeText(node) + ": the managed program without the address");
	}
	if (std::ranges::count_if(second.agents, [&](pid_t pid) { return first.agents.contains(pid); }) > 1)
	{
		left.push_back(nodeText(node) + ": more than one agent");
	}
	return left;
}

bool onStandby(Lab& lab, HostId node, Millis limit)
{
	return waitFor([&] { return lab.role(node) == "slave"; }, limit, "the other node to be on standby",
	               [&] { return lab.stateText(); });
}

} // namespace

void letServe(Lab& lab, HostId master, Millis limit)
{
	lab.startAgents();
	bool served = lab.waitForService(HostId::a, limit, Millis(2000)) && onStandby(lab, HostId::b, limit);
	if (served && master == HostId::b)
	{
		if (lab.node(HostId::a).hasKeeper())
		{
			// A program that is killed is started again at once.
			lab.run(HostId::a, {plan::keeperProgram, "stop", plan::serviceKeeper});
		}
		else
		{
			lab.inject({"program-kill", HostId::a});
		}
		served = lab.waitForService(HostId::b, limit) && onStandby(lab, HostId::a, limit);
	}
	if (!served)
	{
		throw LabError(std::string("node ") + nameOf(master) + " did not come to serve: " + lab.stateText());
	}
}

PhaseRecord observe(Lab& lab, Millis from, Millis quiet, Millis limit, Millis took)
{
	PhaseRecord phase;
	phase.from = from;
	phase.took = took;
	Millis now = lab.clock().now();
	Millis change = from;
	while (!phase.steady && now - from < limit)
	{
		std::this_thread::sleep_for(Millis(50));
		now = lab.clock().now();
		change = lastChange(lab.timeline(), from, now);
		phase.steady = now - change >= quiet;
	}
	phase.to = now;
	phase.steadyAfter = change - from;
	phase.programs = programsOf(lab);
	measure(lab.timeline(), phase);
	return phase;
}

std::string programsOf(Lab& lab)
{
	std::array<bool, 2> runs{};
	for (const HostId node : nodes)
	{
		runs[static_cast<std::size_t>(node)] =
		    lab.node(node).isOn() && !processesNamed(lab.node(node).host().pid(), plan::serviceProgramName).empty();
	}
	return ownersText(runs[0], runs[1]);
}

std::string errorsIn(Lab& lab)
{
	std::string text;
	for (const HostId node : nodes)
	{
		std::ifstream log(lab.node(node).diskFile(plan::logFile));
		inspect::LogClock clock;
		for (std::string line; std::getline(log, line);)
		{
			const std::optional<inspect::LogLine> parsed = inspect::parseHead(line, clock);
			const bool reported = parsed && parsed->letter == 'E' && !parsed->text.empty() &&
			                      parsed->text.find("Timed Out") == std::string::npos &&
			                      !parsed->text.starts_with("Sender ");
			text += reported ? std::string("log of node ") + nameOf(node) + ": " + line + "\n" : std::string();
		}
	}
	return text;
}

std::vector<std::string> leftOn(Lab& lab)
{
	std::map<HostId, Look> first;
	for (const HostId node : nodes)
	{
		if (lab.node(node).isOn())
		{
			first[node] = lookAt(lab, node);
		}
	}
	std::this_thread::sleep_for(betweenLooks);
	std::vector<std::string> left;
	for (const auto& [node, look] : first)
	{
		const std::vector<std::string> here = leftOnNode(lab, node, look);
		left.insert(left.end(), here.begin(), here.end());
	}
	return left;
}

} // namespace velarix::lab
