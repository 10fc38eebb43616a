#include "lab/campaigns/matrix/Observe.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <thread>

#include "lab/campaigns/matrix/Measure.h"
#include "lab/core/LogLine.h"
#include "lab/core/Owners.h"
#include "lab/core/Plan.h"

namespace velarix::lab
{

namespace
{

constexpr Millis betweenLooks{1500};

/// An agent that starts a command is two of that name for a moment, so what matters is
/// who is there at both looks.
std::size_t lastingAgents(const std::vector<ProcessEntry>& first, const std::vector<ProcessEntry>& second)
{
	return static_cast<std::size_t>(std::count_if(second.begin(), second.end(),
	                                              [&](const ProcessEntry& entry)
	                                              {
		                                              return std::any_of(first.begin(), first.end(),
		                                                                 [&](const ProcessEntry& before)
		                                                                 { return before.pid == entry.pid; });
	                                              }));
}

/// All processes of a node that are neither the system's nor meant to be there.
std::map<pid_t, ProcessEntry> strangersOn(Lab& lab, HostId node)
{
	std::map<pid_t, ProcessEntry> found;
	for (const ProcessEntry& entry : processesOf(lab.node(node).host().pid()))
	{
		const bool service = entry.name == plan::serviceProgramName && entry.state != 'Z';
		if (entry.pidInHost != 1 && entry.name != plan::agentName && !service)
		{
			found[entry.pid] = entry;
		}
	}
	return found;
}

std::vector<std::string> leftOnNode(Lab& lab, HostId node, const std::map<pid_t, ProcessEntry>& first)
{
	std::vector<std::string> left;
	const std::string owners = lab.owners();
	const bool owns = holds(owners, node);
	// An owner has an announcer: a shell, and what that runs for the moment. When
	// the address was raised twice in a row, the first one goes on as well.
	int allowedShells = owns ? 2 : 0;
	for (const auto& [pid, entry] : strangersOn(lab, node))
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

/// Answered for the last second, after a time without an answer.
bool backAgain(const std::vector<Interval>& service, Millis from, Millis blink, Millis now)
{
	const bool was =
	    std::any_of(service.begin(), service.end(),
	                [&](const Interval& interval)
	                { return interval.value == "none" && interval.to - std::max(interval.from, from) > blink; });
	return was && timeWith(service, {"none"}, std::max(from, now - Millis(1000)), now) == Millis(0);
}

} // namespace

LegRecord observe(Lab& lab, Millis from, Millis quiet, Millis limit, Millis took)
{
	LegRecord leg;
	leg.from = from;
	leg.took = took;
	Millis now = lab.clock().now();
	Millis change = from;
	while (!leg.steady && now - from < limit)
	{
		std::this_thread::sleep_for(Millis(50));
		now = lab.clock().now();
		change = lastChange(lab.timeline(), from, now);
		leg.steady = now - change >= quiet;
	}
	leg.to = now;
	leg.steadyAfter = change - from;
	leg.programs = programsOf(lab);
	measure(lab.timeline(), leg);
	return leg;
}

LegRecord observeUntilBack(Lab& lab, Millis from, Millis blink, Millis limit, Millis took)
{
	LegRecord leg;
	leg.from = from;
	leg.took = took;
	while (!leg.steady && lab.clock().now() - from < limit)
	{
		std::this_thread::sleep_for(Millis(50));
		leg.to = lab.clock().now();
		leg.steady = backAgain(lab.timeline().intervals(serviceLane, leg.to), from, blink, leg.to);
	}
	leg.steadyAfter = leg.to - from;
	leg.programs = programsOf(lab);
	measure(lab.timeline(), leg);
	return leg;
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
		for (std::string line; std::getline(log, line);)
		{
			const std::optional<LogLine> parsed = parseLogLine(line);
			const bool told = parsed && parsed->priority == 'E' && !parsed->text.empty() &&
			                  parsed->text.find("Timed Out") == std::string::npos &&
			                  !parsed->text.starts_with("Sender ");
			text += told ? std::string("log of node ") + nameOf(node) + ": " + line + "\n" : std::string();
		}
	}
	return text;
}

std::vector<std::string> leftOn(Lab& lab)
{
	struct Look
	{
		std::map<pid_t, ProcessEntry> strangers;
		std::vector<ProcessEntry> agents;
	};
	const auto agentsOn = [&](HostId node) { return processesNamed(lab.node(node).host().pid(), plan::agentName); };
	std::map<HostId, Look> first;
	for (const HostId node : nodes)
	{
		if (lab.node(node).isOn())
		{
			first[node] = {strangersOn(lab, node), agentsOn(node)};
		}
	}
	std::this_thread::sleep_for(betweenLooks);
	std::vector<std::string> left;
	for (const auto& [node, look] : first)
	{
		const std::vector<std::string> here = leftOnNode(lab, node, look.strangers);
		left.insert(left.end(), here.begin(), here.end());
		if (lastingAgents(look.agents, agentsOn(node)) > 1)
		{
			left.push_back(nodeText(node) + ": more than one agent");
		}
	}
	return left;
}

} // namespace velarix::lab
