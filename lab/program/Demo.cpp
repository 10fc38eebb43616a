#include "lab/program/Demo.h"

#include <iostream>

#include <nlohmann/json.hpp>

#include "lab/core/Files.h"
#include "lab/core/Lab.h"
#include "lab/core/Plan.h"
#include "lab/core/Scenario.h"
#include "lab/core/SvgTimeline.h"
#include "lab/program/Console.h"

namespace velarix::lab::program
{

namespace
{

std::vector<Phase> demoPhases()
{
	const Fault powerA{FaultKind::powerOff, HostId::a};
	const Fault cardA{FaultKind::serviceCardPulled, HostId::a};
	const Fault programB{FaultKind::programKilled, HostId::b};
	Phase start{"both nodes start",
	            "both agents begin as standby; node a, configured as master, raises the address and the programs",
	            HostId::a, [](Lab& lab) { lab.startAgents(); }};
	start.ownerBefore = false;
	Phase off{"node a, the master, loses its power",
	          "node b hears nothing, finds node a and the address silent, and takes over", HostId::b,
	          [powerA](Lab& lab) { lab.inject(powerA); }};
	off.standbyAfter = false;
	return {start,
	        off,
	        {"node a is powered on again", "node a comes back as standby: the service is not moved back", HostId::b,
	         [powerA](Lab& lab) { lab.repair(powerA); }},
	        {"the managed program on node b is killed",
	         "node b notices, drops the address and asks node a, which takes over", HostId::a,
	         [programB](Lab& lab) { lab.inject(programB); }},
	        {"the service card of node a is unplugged",
	         "node a has no carrier, drops the address and asks node b, which takes over", HostId::b,
	         [cardA](Lab& lab) { lab.inject(cardA); }},
	        {"the service card of node a is plugged in again", "nothing moves: node a stays standby", HostId::b,
	         [cardA](Lab& lab) { lab.repair(cardA); }}};
}

void introduce(Console& console, const PairSettings& times)
{
	console.line("velarix-lab demo: two nodes, a gateway and a client, each in namespaces of its own");
	console.line("  virtual address " + std::string(plan::virtualAddress) + ", fetched by the client every 20 ms");
	console.line("  heartbeat every " + std::to_string(times.interval) + " s, receiving time " +
	             std::to_string(times.receivingTime) + " s, waiting time " + std::to_string(times.waitingTime) +
	             " s; node a is configured as master");
	console.line("  columns: seconds since the start, node, what happened");
}

void keep(const std::string& path, const std::string& text, Console& console)
{
	if (path.empty())
	{
		return;
	}
	writeFile(path, text);
	console.line("wrote " + path);
}

std::string jsonOf(const Timeline& timeline, const std::vector<PhaseResult>& results)
{
	nlohmann::ordered_json whole = nlohmann::ordered_json::parse(toJson(results));
	whole.update(nlohmann::ordered_json::parse(toJson(timeline)));
	return whole.dump(1, '\t') + "\n";
}

} // namespace

int runDemo(const DemoOptions& options)
{
	requireLab(options.installRoot);
	Console console;
	introduce(console, options.times);
	Lab lab(LabOptions(options.installRoot, options.times));
	lab.timeline().listen([&](const Event& event) { console.event(event); });

	std::vector<PhaseResult> results;
	for (const Phase& phase : demoPhases())
	{
		console.line("\nphase " + std::to_string(results.size() + 1) + ": " + phase.title +
		             "\n  expected: " + phase.prospect);
		results.push_back(runPhase(lab, phase, console.observer()));
		if (!results.back().asExpected)
		{
			break;
		}
	}
	lab.timeline().listen(nullptr);

	console.line("\n" + toTable(results));
	const bool good = allAsExpected(results);
	console.line(good ? "every phase ended as expected"
	                  : "the last phase did not end as expected; the phases after it were left out");
	keep(options.svgFile, toSvg(lab.timeline(), "velarix-lab demo", lab.clock().now()), console);
	keep(options.jsonFile, jsonOf(lab.timeline(), results), console);
	return good ? 0 : 1;
}

} // namespace velarix::lab::program
