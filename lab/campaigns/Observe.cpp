#include "lab/campaigns/Observe.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <thread>

#include "inspect/LogLine.h"
#include "lab/campaigns/Measure.h"
#include "lab/core/Plan.h"

namespace velarix::lab
{

namespace
{

constexpr Millis betweenLooks{1500};

/// An agent that starts a command is two of that name for a moment, so what matters is
/// who is there at both looks.
std::size_t lastingAgents(const std::vector<Process>& first, const std::vector<Process>& second)
{
	return static_cast<std::size_t>(std::count_if(second.begin(), second.end(),
	                                              [&](const Process& entry) {
		                                              return std::any_of(first.begin(), first.end(),
		                                                                 [&](const Process& before)
		                                                                 { return before.pid == entry.pid; });
	                                              }));
}

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

/// All processes of a node that are neither the system's nor meant to be there.
std::map<pid_t, Process> unexpectedOn(Lab& lab, HostId node)
{
	std::map<pid_t, Process> found;
	for (const Process& entry : processesOf(lab.node(node).host().pid()))
	{
		const bool service = entry.name == plan::serviceProgramName && entry.state != 'Z';
		const bool tunnel = (entry.name == "tunnel" || entry.name == "wireguard-go") && entry.state != 'Z';
		if (entry.pidInside != 1 && !tunnel && entry.name != plan::agentName && !service &&
		    !isKeepers(lab, node, entry))
		{
			found[entry.pid] = entry;
		}
	}
	return found;
}

std::vector<std::string> leftOnNode(Lab& lab, HostId node, const std::map<pid_t, Process>& first)
{
	std::vector<std::string> left;
	const std::string owners = lab.owners();
	const bool owns = holds(owners, node);
	// An owner has an announcer: a shell, and what that runs for the moment. When
	// the address was raised twice in a row, the first one goes on as well.
	int allowedShells = owns && !lab.node(node).hasKeeper() ? 2 : 0;
	for (const auto& [pid, entry] : unexpectedOn(lab, node))
	{
		const bool passing = !first.contains(pid) || entry.name == "sleep" || entry.name == "arping";
		if (passing || (entry.name == "sh" && allowedShells-- > 0))
		{
			continue;
		}
		left.push_back(nodeText(node) + ": process " + entry.name + (entry.state == 'Z' ? " (zombie)" : ""));
	}
	if (!owns && !processesNamed(lab.node(node).host().pid(), plan::serviceProgramName).empty())
	{
		left.push_back(nodeText(node) + ": the managed program without the address");
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
	struct Look
	{
		std::map<pid_t, Process> unexpected;
		std::vector<Process> agents;
	};
	const auto agentsOn = [&](HostId node) { return processesNamed(lab.node(node).host().pid(), plan::agentName); };
	std::map<HostId, Look> first;
	for (const HostId node : nodes)
	{
		if (lab.node(node).isOn())
		{
			first[node] = {unexpectedOn(lab, node), agentsOn(node)};
		}
	}
	std::this_thread::sleep_for(betweenLooks);
	std::vector<std::string> left;
	for (const auto& [node, look] : first)
	{
		const std::vector<std::string> here = leftOnNode(lab, node, look.unexpected);
		left.insert(left.end(), here.begin(), here.end());
		if (lastingAgents(look.agents, agentsOn(node)) > 1)
		{
			left.push_back(nodeText(node) + ": more than one agent");
		}
	}
	return left;
}

} // namespace velarix::lab
