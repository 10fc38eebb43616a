#include "lab/campaigns/matrix/CellRun.h"

#include "lab/campaigns/Measure.h"
#include "lab/campaigns/Observe.h"
#include "lab/campaigns/Waits.h"
#include "lab/campaigns/matrix/Judge.h"
#include "lab/core/Lab.h"

namespace velarix::lab::matrix
{

namespace
{

LabOptions optionsFor(const CellPlan& plan)
{
	LabOptions options(plan.installRoot, plan.times.pair);
	options.seed = seedOfRun(plan.seed, plan.run, plan.cell.name);
	for (const Fault& fault : plan.cell.inject)
	{
		options.prepareFor({fault.name});
	}
	return options;
}

/// What has no bound is expected to stay so: it is watched for longer.
Millis quietFor(const Outcome& expected, const CampaignTimes& times)
{
	const bool forGood = !expected.isBounded() && expected.owner != "unsteady";
	return forGood ? times.patience() : times.quiet();
}

Millis limitFor(const Outcome& expected, const CampaignTimes& times)
{
	return expected.lasts ? sumOf(*expected.lasts, times.pair) : times.patience() + quietFor(expected, times);
}

PhaseRecord runPhase(Lab& lab, const CellPlan& plan, const Outcome& expected, void (Lab::*step)(const Fault&),
                     const std::vector<Fault>& faults)
{
	const Millis from = lab.clock().now();
	for (const Fault& fault : faults)
	{
		(lab.*step)(fault);
	}
	const Millis took = lab.clock().now() - from;
	PhaseRecord phase = observe(lab, from, quietFor(expected, plan.times), took + limitFor(expected, plan.times), took);
	if (plan.paths.contains(expected.path))
	{
		measureOverhead(lab.timeline(), lab.seenInLogs(), plan.paths.at(expected.path), plan.times.pair, phase);
	}
	return phase;
}

void runPhases(Lab& lab, const CellPlan& plan, RunRecord& record)
{
	std::mt19937_64 random(seedOfRun(plan.seed, plan.run, plan.cell.name));
	const Millis pass = sumOf("silence", plan.times.pair);
	letServe(lab, plan.cell.master, plan.times.serveLimit());
	waitForJitter(random, pass);
	record.phases.push_back(runPhase(lab, plan, plan.cell.stands, &Lab::inject, plan.cell.inject));
	if (!plan.cell.repair.empty())
	{
		if (!plan.cell.stands.lasts)
		{
			waitForJitter(random, pass);
		}
		record.phases.push_back(runPhase(lab, plan, plan.cell.repaired, &Lab::repair, plan.cell.repair));
	}
	record.left = leftOn(lab);
}

} // namespace

RunRecord recordOf(const CellPlan& plan)
{
	RunRecord record;
	record.cell = plan.cell.name;
	record.run = plan.run;
	record.seed = plan.seed;
	return record;
}

RunRecord runCell(const CellPlan& plan)
{
	RunRecord record = recordOf(plan);
	Lab lab(optionsFor(plan));
	try
	{
		runPhases(lab, plan, record);
		judge(record, plan.cell, plan.paths, plan.times);
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

} // namespace velarix::lab::matrix
