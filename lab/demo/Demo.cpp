#include "lab/demo/Demo.h"

#include "lab/core/Console.h"
#include "lab/core/Files.h"
#include "lab/core/Lab.h"
#include "lab/core/Plan.h"

namespace velarix::lab::demo
{

namespace
{

constexpr Fault powerA{FaultKind::powerOff, HostId::a};

Phase startOf(const std::string& prospect)
{
	return {.title = "both nodes start",
	        .prospect = prospect,
	        .ownerAfter = HostId::a,
	        .happens = [](Lab& lab) { lab.startAgents(); },
	        .ownerBefore = false};
}

Phase fault(const std::string& title, const std::string& prospect, HostId ownerAfter, const Fault& fault,
            const std::string& otherAfter = "slave")
{
	return {.title = title,
	        .prospect = prospect,
	        .ownerAfter = ownerAfter,
	        .happens = [fault](Lab& lab) { lab.inject(fault); },
	        .otherAfter = otherAfter};
}

Phase repair(const std::string& title, const std::string& prospect, HostId ownerAfter, const Fault& fault)
{
	return {.title = title, .prospect = prospect, .ownerAfter = ownerAfter, .happens = [fault](Lab& lab) {
		        lab.repair(fault);
	        }};
}

std::vector<Phase> keeperPhases()
{
	const Fault cut{FaultKind::communicationCut};
	return {startOf("node a, configured as master, gets the address and runs the service"),
	        fault("the service crashes on node a",
	              "the keeper starts it again on the same node, in some tenths of a second", HostId::a,
	              {FaultKind::programKilled, HostId::a}),
	        fault("node a loses its power",
	              "node b hears nothing of node a, asks the network for the address, and takes over", HostId::b, powerA,
	              ""),
	        repair("node a has power again", "node a comes back as standby: the service is not moved a second time",
	               HostId::b, powerA),
	        fault("the communication network between the nodes is cut",
	              "each node takes the other one for dead; node a asks for the address before it raises it, and waits: "
	              "no split-brain",
	              HostId::b, cut, "master"),
	        repair("the communication network is repaired",
	               "the nodes agree again: node a, configured as master, serves", HostId::a, cut)};
}

std::vector<Phase> plainPhases()
{
	const Fault carrierA{FaultKind::serviceInterfacePulled, HostId::a};
	return {startOf("both agents begin as standby; node a, configured as master, raises the address and the programs"),
	        fault("node a, the master, loses its power",
	              "node b hears nothing, finds node a and the address silent, and takes over", HostId::b, powerA, ""),
	        repair("node a is powered on again", "node a comes back as standby: the service is not moved back",
	               HostId::b, powerA),
	        fault("the managed program on node b is killed",
	              "node b notices, drops the address and asks node a, which takes over", HostId::a,
	              {FaultKind::programKilled, HostId::b}),
	        fault("the service interface of node a loses its carrier",
	              "node a drops the address and asks node b, which takes over", HostId::b, carrierA),
	        repair("the service interface of node a is plugged in again", "nothing moves: node a stays standby",
	               HostId::b, carrierA)};
}

void introduce(Console& console, const PairSettings& pair)
{
	console.line("velarix-demo: two nodes, a gateway and a client, each in namespaces of its own");
	console.line("  virtual address " + std::string(plan::virtualAddress) + ", fetched by the client every 20 ms");
	console.line("  " + toText(pair) + "; node a is configured as master");
	console.line("  columns: seconds since the start, node, what happened");
}

} // namespace

std::vector<Phase> phasesOf(Profile profile)
{
	return profile == Profile::keeper ? keeperPhases() : plainPhases();
}

int run(const Options& options)
{
	requireLab(options.installRoot);
	Console console;
	introduce(console, options.pair);
	Lab lab(LabOptions(options.installRoot, options.pair));
	lab.timeline().listen([&](const Event& event) { console.event(event); });

	std::vector<PhaseResult> results;
	for (const Phase& phase : phasesOf(options.pair.profile))
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
	if (!options.timelineFile.empty())
	{
		writeFile(options.timelineFile, toText(lab.timeline()));
	}
	return good ? 0 : 1;
}

} // namespace velarix::lab::demo
