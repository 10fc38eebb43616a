#include "CellRun.h"

#include <random>
#include <thread>

#include "Lab.h"
#include "Measure.h"
#include "Observe.h"
#include "Waits.h"

namespace velarix::lab
{

namespace
{

constexpr Millis serveLimit{90000};

/// The name takes part, so that cells of one seed are not struck at one phase.
std::uint64_t seedOf(const CellPlan& plan)
{
	std::uint64_t mixed = plan.seed * 1000003U + static_cast<std::uint64_t>(plan.run);
	for (const char letter : plan.cell.name)
	{
		mixed = mixed * 131U + static_cast<unsigned char>(letter);
	}
	return mixed;
}

LabOptions optionsFor(const CellPlan& plan)
{
	LabOptions options;
	options.installRoot = plan.installRoot;
	options.settingsA = NodeSettings::standard(HostId::a, plan.times.pair);
	options.settingsB = NodeSettings::standard(HostId::b, plan.times.pair);
	options.seed = seedOf(plan);
	for (const Fault& fault : plan.cell.inject)
	{
		const FaultInfo& info = infoOf(fault.kind);
		info.prepare != nullptr ? info.prepare(options) : void();
	}
	return options;
}

bool onStandby(Lab& lab, HostId node)
{
	return waitFor([&] { return lab.role(node) == "slave"; }, serveLimit, "the other node to be on standby",
	               [&] { return lab.stateText(); });
}

/// @throws LabError when it does not come to that
void letServe(Lab& lab, HostId master)
{
	lab.startAgents();
	bool served = lab.waitForService(HostId::a, serveLimit, Millis(2000)) && onStandby(lab, HostId::b);
	if (served && master == HostId::b)
	{
		lab.inject({FaultKind::programKilled, HostId::a});
		served = lab.waitForService(HostId::b, serveLimit) && onStandby(lab, HostId::a);
	}
	if (!served)
	{
		throw LabError(std::string("node ") + nameOf(master) + " did not come to serve: " + lab.stateText());
	}
}

/// A fault comes at any moment of the receivers' passes.
void waitForTheMoment(std::mt19937_64& random, const PairTimes& times)
{
	const auto longest = static_cast<std::uint64_t>(sumOf("silence", times).count());
	std::this_thread::sleep_for(Millis(static_cast<Millis::rep>(random() % longest)));
}

LegRecord runLeg(Lab& lab, const CellPlan& plan, const Outcome& expected, void (Lab::*step)(const Fault&),
                 const std::vector<Fault>& faults)
{
	const Millis from = lab.clock().now();
	for (const Fault& fault : faults)
	{
		(lab.*step)(fault);
	}
	const Millis took = lab.clock().now() - from;
	LegRecord leg = observe(lab, from, plan.times.quiet(), took + plan.times.patience + plan.times.quiet(), took);
	if (plan.paths.contains(expected.path))
	{
		leg.overhead = overheadOf(lab.timeline(), {lab.passes(HostId::a), lab.passes(HostId::b)}, leg,
		                          plan.paths.at(expected.path), plan.times.pair);
	}
	return leg;
}

void judge(RunRecord& record, const CellPlan& plan)
{
	for (std::size_t index = 0; index < record.legs.size(); ++index)
	{
		const Outcome& expected = index == 0 ? plan.cell.stands : plan.cell.healed;
		for (const std::string& difference : differencesOf(record.legs[index], expected, plan))
		{
			record.differences.push_back((index == 0 ? "fault: " : "healed: ") + difference);
		}
	}
	const Outcome& last = plan.cell.heal.empty() ? plan.cell.stands : plan.cell.healed;
	for (const std::string& left : record.left)
	{
		last.leaves ? void() : record.differences.push_back("left behind: " + left);
	}
}

void runLegs(Lab& lab, const CellPlan& plan, RunRecord& record)
{
	std::mt19937_64 random(seedOf(plan));
	letServe(lab, plan.cell.master);
	waitForTheMoment(random, plan.times.pair);
	record.legs.push_back(runLeg(lab, plan, plan.cell.stands, &Lab::inject, plan.cell.inject));
	if (!plan.cell.heal.empty())
	{
		waitForTheMoment(random, plan.times.pair);
		record.legs.push_back(runLeg(lab, plan, plan.cell.healed, &Lab::heal, plan.cell.heal));
	}
	record.left = leftOn(lab);
}

} // namespace

Millis MatrixTimes::quiet() const
{
	return sumOf("3*silence+4*ping+2*second", pair);
}

RunRecord runCell(const CellPlan& plan)
{
	RunRecord record;
	record.cell = plan.cell.name;
	record.run = plan.run;
	record.seed = plan.seed;
	Lab lab(optionsFor(plan));
	try
	{
		runLegs(lab, plan, record);
		judge(record, plan);
	}
	catch (const LabError& error)
	{
		record.differences.push_back(std::string("the run did not get to its end: ") + error.what());
	}
	if (!record.differences.empty())
	{
		record.timeline = toText(lab.timeline()) + errorsIn(lab);
	}
	return record;
}

} // namespace velarix::lab
