#include "lab/campaigns/matrix/CellRun.h"

#include "lab/campaigns/matrix/Judge.h"
#include "lab/campaigns/matrix/Measure.h"
#include "lab/campaigns/matrix/Moment.h"
#include "lab/campaigns/matrix/Observe.h"
#include "lab/campaigns/matrix/Waits.h"
#include "lab/core/Lab.h"

namespace velarix::lab
{

namespace
{

LabOptions optionsFor(const CellPlan& plan)
{
	LabOptions options;
	options.installRoot = plan.installRoot;
	options.settingsA = NodeSettings::standard(HostId::a, plan.times.pair);
	options.settingsB = NodeSettings::standard(HostId::b, plan.times.pair);
	options.seed = seedOfRun(plan.seed, plan.run, plan.cell.name);
	for (const Fault& fault : plan.cell.inject)
	{
		const FaultInfo& info = infoOf(fault.kind);
		if (info.prepare != nullptr)
		{
			info.prepare(options);
		}
	}
	return options;
}

bool onStandby(Lab& lab, HostId node, Millis limit)
{
	return waitFor([&] { return lab.role(node) == "slave"; }, limit, "the other node to be on standby",
	               [&] { return lab.stateText(); });
}

/// What has no bound is expected to stay so: it is watched for longer.
Millis quietFor(const Outcome& expected, const MatrixTimes& times)
{
	const bool forGood = expected.path == "*" && expected.owner != "unsteady";
	return forGood ? times.patience() : times.quiet();
}

Millis limitFor(const Outcome& expected, const MatrixTimes& times)
{
	return expected.lasts ? sumOf(*expected.lasts, times.pair) : times.patience() + quietFor(expected, times);
}

Observed observedBy(Lab& lab)
{
	return {{lab.passes(HostId::a), lab.passes(HostId::b)},
	        {lab.silentProbes(HostId::a), lab.silentProbes(HostId::b)},
	        {lab.agentStarts(HostId::a), lab.agentStarts(HostId::b)}};
}

LegRecord watched(Lab& lab, const CellPlan& plan, const Outcome& expected, Millis from, Millis took)
{
	const Millis quiet = quietFor(expected, plan.times);
	if (!plan.untilBack || expected.lasts)
	{
		return observe(lab, from, quiet, took + limitFor(expected, plan.times), took);
	}
	if (plan.paths.contains(expected.path))
	{
		return observeUntilBack(lab, from, plan.times.noOutage, took + plan.times.patience(), took);
	}
	// Where there is nothing to see, what is begun has its time to happen, and no more.
	const Millis rest = expected.path == "*" ? plan.times.quiet() : Millis(2000);
	return observe(lab, from, rest, took + rest, took);
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
	LegRecord leg = watched(lab, plan, expected, from, took);
	if (plan.paths.contains(expected.path))
	{
		measureOverhead(lab.timeline(), observedBy(lab), plan.paths.at(expected.path), plan.times.pair, leg);
	}
	return leg;
}

void runLegs(Lab& lab, const CellPlan& plan, RunRecord& record)
{
	std::mt19937_64 random(seedOfRun(plan.seed, plan.run, plan.cell.name));
	const Millis pass = sumOf("silence", plan.times.pair);
	letServe(lab, plan.cell.master, plan.times.serveLimit());
	waitForTheMoment(random, pass);
	record.legs.push_back(runLeg(lab, plan, plan.cell.stands, &Lab::inject, plan.cell.inject));
	if (!plan.cell.heal.empty() && (!plan.untilBack || !plan.paths.contains(plan.cell.stands.path)))
	{
		if (!plan.cell.stands.lasts)
		{
			waitForTheMoment(random, pass);
		}
		record.legs.push_back(runLeg(lab, plan, plan.cell.healed, &Lab::heal, plan.cell.heal));
	}
	record.left = plan.untilBack ? std::vector<std::string>() : leftOn(lab);
}

} // namespace

void letServe(Lab& lab, HostId master, Millis limit)
{
	lab.startAgents();
	bool served = lab.waitForService(HostId::a, limit, Millis(2000)) && onStandby(lab, HostId::b, limit);
	if (served && master == HostId::b)
	{
		lab.inject({FaultKind::programKilled, HostId::a});
		served = lab.waitForService(HostId::b, limit) && onStandby(lab, HostId::a, limit);
	}
	if (!served)
	{
		throw LabError(std::string("node ") + nameOf(master) + " did not come to serve: " + lab.stateText());
	}
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
		if (!plan.untilBack)
		{
			judge(record, plan.cell, plan.paths, plan.times);
		}
	}
	catch (const LabError& error)
	{
		record.differences.push_back(std::string("the run did not get to its end: ") + error.what());
	}
	if (!record.asExpected())
	{
		record.timeline = toText(lab.timeline()) + errorsIn(lab);
	}
	return record;
}

} // namespace velarix::lab
