#include "evidence/peers/Run.h"

#include <functional>

#include "lab/campaigns/Jitter.h"
#include "lab/campaigns/Observe.h"

namespace velarix::evidence::peers
{

namespace
{

/// Of a second, the longest interval of both.
constexpr Millis pass{1000};

/// The matrix compares the logs of agents with what was observed; there are none.
PhaseRecord runPhase(Pair& pair, const RunPlan& plan, const std::function<void()>& step)
{
	const LabClock& clock = pair.lab().clock();
	const Millis from = clock.now();
	step();
	const Millis took = clock.now() - from;
	PhaseRecord phase = observe(pair.lab(), from, plan.quiet(), took + plan.patience + plan.quiet(), took);
	phase.disagreements.clear();
	return phase;
}

void runPhases(Pair& pair, const RunPlan& plan, RunRecord& record)
{
	std::mt19937_64 random(seedOfRun(plan.seed, plan.run, plan.cell.name));
	const PeerFault& fault = *plan.cell.fault;
	const std::optional<HostId> node = fault.onNode ? std::optional<HostId>(plan.cell.node) : std::nullopt;
	pair.letServe(plan.cell.master);
	waitForJitter(random, pass);
	record.phases.push_back(runPhase(pair, plan,
	                                 [&]
	                                 {
		                                 pair.note(EventKind::fault, node, fault.what);
		                                 fault.inject(pair, plan.cell.node, random());
	                                 }));
	if (fault.repair == nullptr)
	{
		return;
	}
	waitForJitter(random, pass);
	record.phases.push_back(runPhase(pair, plan,
	                                 [&]
	                                 {
		                                 pair.note(EventKind::repair, node, fault.repaired);
		                                 fault.repair(pair, plan.cell.node);
	                                 }));
}

std::string logsOf(const Pair& pair, Lab& lab)
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

Millis RunPlan::quiet() const
{
	return 2 * settings.times.silence(settings.program) + Millis(2000) +
	       std::chrono::seconds(2 * settings.times.checkSeconds * settings.times.checkFailures);
}

RunRecord runCell(const RunPlan& plan)
{
	RunRecord record;
	record.cell = plan.cell.name;
	record.run = plan.run;
	record.seed = plan.seed;
	LabOptions options;
	options.installRoot = plan.installRoot;
	options.seed = seedOfRun(plan.seed, plan.run, plan.cell.name);
	Lab lab(options);
	Pair pair(lab, plan.settings, plan.cell.fault->stepsClock);
	try
	{
		runPhases(pair, plan, record);
	}
	catch (const LabError& error)
	{
		record.differences.push_back(std::string("the run did not get to its end: ") + error.what());
	}
	record.timeline = toText(lab.timeline()) + logsOf(pair, lab);
	return record;
}

} // namespace velarix::evidence::peers
