#include "evidence/peers/ControlRun.h"

#include <functional>

#include "lab/campaigns/matrix/Moment.h"
#include "lab/campaigns/matrix/Observe.h"

namespace velarix::lab
{

namespace
{

/// Of a second, the longest interval of both.
constexpr Millis pass{1000};

/// The matrix compares the logs of agents with what was observed; there are none.
LegRecord runLeg(ControlPair& pair, const ControlPlan& plan, const std::function<void()>& step)
{
	const LabClock& clock = pair.lab().clock();
	const Millis from = clock.now();
	step();
	const Millis took = clock.now() - from;
	LegRecord leg = observe(pair.lab(), from, plan.quiet(), took + plan.patience + plan.quiet(), took);
	leg.disagreements.clear();
	return leg;
}

void runLegs(ControlPair& pair, const ControlPlan& plan, RunRecord& record)
{
	std::mt19937_64 random(seedOfRun(plan.seed, plan.run, plan.cell.name));
	const ControlFault& fault = *plan.cell.fault;
	const std::optional<HostId> node = fault.onNode ? std::optional<HostId>(plan.cell.node) : std::nullopt;
	pair.letServe(plan.cell.master);
	waitForTheMoment(random, pass);
	record.legs.push_back(runLeg(pair, plan,
	                             [&]
	                             {
		                             pair.note(EventKind::fault, node, fault.what);
		                             fault.inject(pair, plan.cell.node, random());
	                             }));
	if (fault.heal == nullptr)
	{
		return;
	}
	waitForTheMoment(random, pass);
	record.legs.push_back(runLeg(pair, plan,
	                             [&]
	                             {
		                             pair.note(EventKind::heal, node, fault.healed);
		                             fault.heal(pair, plan.cell.node);
	                             }));
}

std::string logsOf(const ControlPair& pair, Lab& lab)
{
	std::string text;
	for (const HostId node : nodes)
	{
		text +=
		    std::string("\nlog of node ") + nameOf(node) + ":\n" + (lab.node(node).isOn() ? pair.logOf(node) : "off\n");
	}
	return text;
}

} // namespace

Millis ControlPlan::quiet() const
{
	return 2 * settings.times.silence(settings.program) + Millis(2000) +
	       std::chrono::seconds(2 * settings.times.checkSeconds * settings.times.checkFailures);
}

RunRecord runControlCell(const ControlPlan& plan)
{
	RunRecord record;
	record.cell = plan.cell.name;
	record.run = plan.run;
	record.seed = plan.seed;
	LabOptions options;
	options.installRoot = plan.installRoot;
	options.seed = seedOfRun(plan.seed, plan.run, plan.cell.name);
	Lab lab(options);
	ControlPair pair(lab, plan.settings, plan.cell.fault->stepsClock);
	try
	{
		runLegs(pair, plan, record);
	}
	catch (const LabError& error)
	{
		record.differences.push_back(std::string("the run did not get to its end: ") + error.what());
	}
	record.timeline = toText(lab.timeline()) + logsOf(pair, lab);
	return record;
}

} // namespace velarix::lab
