/// velarix-demo: shows a newcomer what a pair does. Runs all phases on a lab of its own and prints what
/// happens, and a table of them in the end.

#include <cstdio>

#include <getopt.h>

#include "lab/core/Console.h"
#include "lab/core/Lab.h"
#include "lab/core/Plan.h"

namespace
{

using namespace velarix::lab;

struct Options
{
	std::string installRoot{};
	PairSettings pair{.profile = Profile::keeper};
	std::string timelineFile{}; ///< scripts/lib/timeline_svg.py draws it; empty: none
};

constexpr Millis phaseLimit{60000};

using Step = void (Lab::*)(const Fault&);
constexpr Step inject = &Lab::inject;
constexpr Step repair = &Lab::repair;

/// Something that happens, and an expected end.
struct Phase
{
	std::string title;                ///< what happens, for the table and the picture
	std::string prospect;             ///< what a person will see, one sentence
	HostId ownerAfter;                ///< the node that has to hold the service alone in the end
	Step step = nullptr;              ///< null: the agents start
	Fault fault{};                    ///< that is injected or repaired
	std::string otherAfter = "slave"; ///< role of the other node in the end; empty: any
};

const Fault powerA{"power-off", HostId::a};

std::vector<Phase> keeperPhases()
{
	const Fault cut{"communication-cut"};
	return {{"both nodes start", "node a, configured as master, gets the address and runs the service", HostId::a},
	        {"the service crashes on node a",
	         "the keeper starts it again on the same node, in some tenths of a second",
	         HostId::a,
	         inject,
	         {"program-kill", HostId::a}},
	        {"node a loses its power",
	         "node b hears nothing of node a, asks the network for the address, and takes over", HostId::b, inject,
	         powerA, ""},
	        {"node a has power again", "node a comes back as standby: the service is not moved a second time",
	         HostId::b, repair, powerA},
	        {"the communication network between the nodes is cut",
	         "each node takes the other one for dead; node a asks for the address before it raises it, and waits: "
	         "no split-brain",
	         HostId::b, inject, cut, "master"},
	        {"the communication network is repaired", "the nodes agree again: node a, configured as master, serves",
	         HostId::a, repair, cut}};
}

std::vector<Phase> plainPhases()
{
	const Fault carrierA{"service-interface", HostId::a};
	return {
	    {"both nodes start",
	     "both agents begin as standby; node a, configured as master, raises the address and the programs", HostId::a},
	    {"node a, the master, loses its power",
	     "node b hears nothing, finds node a and the address silent, and takes over", HostId::b, inject, powerA, ""},
	    {"node a is powered on again", "node a comes back as standby: the service is not moved back", HostId::b, repair,
	     powerA},
	    {"the managed program on node b is killed",
	     "node b notices, drops the address and asks node a, which takes over",
	     HostId::a,
	     inject,
	     {"program-kill", HostId::b}},
	    {"the service interface of node a loses its carrier",
	     "node a drops the address and asks node b, which takes over", HostId::b, inject, carrierA},
	    {"the service interface of node a is plugged in again", "nothing moves: node a stays standby", HostId::b,
	     repair, carrierA}};
}

void introduce(Console& console, const PairSettings& pair)
{
	console.line("velarix-demo: two nodes, a gateway and a client, each in namespaces of its own");
	console.line("  virtual address " + std::string(plan::virtualAddress) + ", fetched by the client every 20 ms");
	console.line("  " + toText(pair) + "; node a is configured as master");
	console.line("  columns: seconds since the start, node, what happened");
}

/// The other node has its role, and the expected one has held the service alone, and answered, for
/// three seconds.
bool reachesItsEnd(Lab& lab, const Phase& phase, const WaitObserver& observer)
{
	const HostId other = otherNode(phase.ownerAfter);
	const std::string what = nodeText(other) + " to be " + (phase.otherAfter == "slave" ? "standby" : phase.otherAfter);
	const Wait role{what, phaseLimit, [&] { return lab.stateText(); }, observer};
	const auto hasRole = [&] { return phase.otherAfter.empty() || lab.role(other) == phase.otherAfter; };
	// A master that does not find its programs in its first look is standby again for some seconds.
	const Millis end = lab.clock().now() + phaseLimit;
	bool reached = true;
	do
	{
		reached = role.until(hasRole) && lab.waitForService(phase.ownerAfter, phaseLimit, Millis(3000), observer);
	} while (reached && !hasRole() && lab.clock().now() < end);
	return reached && hasRole() && lab.owners() == nameOf(phase.ownerAfter);
}

/// Notes the phase in the timeline, lets it happen, and adds the row of it to the table.
/// @return whether it ended as expected
bool runPhase(Lab& lab, const Phase& phase, const WaitObserver& observer, std::vector<Row>& table)
{
	const std::string before = lab.owners();
	const Millis from = lab.clock().now();
	lab.timeline().add({from, EventKind::phase, std::nullopt, phase.title});
	phase.step != nullptr ? (lab.*phase.step)(phase.fault) : lab.startAgents();
	const bool good = reachesItsEnd(lab, phase, observer) && (isSingle(before) || phase.step == nullptr);
	const Millis to = lab.clock().now();
	const Millis outage = longestWith(lab.timeline().intervals(serviceTrack, to), "none", from, to);
	const Millis splitBrain = timeWith(lab.timeline().intervals(addressTrack, to), "a+b", from, to);
	table.push_back({std::to_string(table.size()), phase.title, nameOf(phase.ownerAfter), before, lab.owners(),
	                 lab.answeredBy(), secondsText(outage), secondsText(splitBrain),
	                 good ? "as expected" : "NOT AS EXPECTED"});
	return good;
}

/// @return exit status: 0 when every phase ended as expected, else 1
int run(const Options& options)
{
	requireLab(options.installRoot);
	Console console;
	introduce(console, options.pair);
	Lab lab(LabOptions(options.installRoot, options.pair));
	lab.timeline().listen([&](const Event& event) { console.event(event); });

	std::vector<Row> table{
	    {"", "phase", "expected", "owner before", "owner after", "answers", "outage", "split-brain", "verdict"}};
	bool good = true;
	for (const Phase& phase : options.pair.profile == Profile::keeper ? keeperPhases() : plainPhases())
	{
		console.line("\nphase " + std::to_string(table.size()) + ": " + phase.title +
		             "\n  expected: " + phase.prospect);
		good = good && runPhase(lab, phase, console.observer(), table);
		if (!good)
		{
			break;
		}
	}
	lab.timeline().listen(nullptr);

	console.line("\n" + aligned(table));
	console.line(good ? "every phase ended as expected"
	                  : "the last phase did not end as expected; the phases after it were left out");
	if (!options.timelineFile.empty())
	{
		writeFile(options.timelineFile, toText(lab.timeline()));
	}
	return good ? 0 : 1;
}

constexpr const char* usage =
    "usage: velarix-demo [--settings keeper|plain] [--install-root DIRECTORY] [--timeline FILE]\n"
    "\n"
    "Shows on two nodes in namespaces of this machine how a pair fails over. Needs root. Nothing\n"
    "of the machine is changed. Ends with 0 when everything was as expected, else with 1.\n";

/// @return false when the words are not understood
bool read(int argc, char** argv, Options& options)
{
	constexpr option known[] = {{"settings", required_argument, nullptr, 's'},
	                            {"install-root", required_argument, nullptr, 'i'},
	                            {"timeline", required_argument, nullptr, 't'},
	                            {nullptr, 0, nullptr, 0}};
	for (int found = 0; (found = ::getopt_long(argc, argv, "", known, nullptr)) != -1;)
	{
		const std::string value = optarg != nullptr ? optarg : "";
		switch (found)
		{
		case 's':
			options.pair.profile = value == "plain" ? Profile::plain : Profile::keeper;
			if (value != nameOf(options.pair.profile))
			{
				return false;
			}
			break;
		case 'i':
			options.installRoot = value;
			break;
		case 't':
			options.timelineFile = value;
			break;
		default:
			return false;
		}
	}
	return optind == argc;
}

} // namespace

int main(int argc, char** argv)
{
	try
	{
		Options options;
		if (!read(argc, argv, options))
		{
			std::fputs(usage, stderr);
			return 2;
		}
		return run(options);
	}
	catch (const std::exception& error)
	{
		std::fprintf(stderr, "velarix-demo: %s\n", error.what());
		return 2;
	}
}
