#include "ControlRun.h"

#include <random>
#include <thread>

#include "Observe.h"

namespace velarix::lab
{

namespace
{

std::uint64_t seedOf(const ControlPlan& plan)
{
	std::uint64_t mixed = plan.seed * 1000003U + static_cast<std::uint64_t>(plan.run);
	for (const char letter : plan.cell.name)
	{
		mixed = mixed * 131U + static_cast<unsigned char>(letter);
	}
	return mixed;
}

/// A fault comes at any moment between two advertisements or checks.
void waitForTheMoment(std::mt19937_64& random)
{
	std::this_thread::sleep_for(Millis(static_cast<Millis::rep>(random() % 1000)));
}

/// The matrix compares the logs of agents with what was observed; there are none.
LegRecord watch(Lab& lab, Millis from, const ControlPlan& plan)
{
	LegRecord leg = observe(lab, from, plan.quiet(), plan.patience + plan.quiet());
	leg.disagreements.clear();
	return leg;
}

void runLegs(ControlPair& pair, const ControlPlan& plan, RunRecord& record)
{
	std::mt19937_64 random(seedOf(plan));
	const ControlFault& fault = *plan.cell.fault;
	const std::optional<HostId> node = fault.onNode ? std::optional<HostId>(plan.cell.node) : std::nullopt;
	pair.letServe(plan.cell.master);
	waitForTheMoment(random);
	Millis from = pair.lab().clock().now();
	pair.note(EventKind::fault, node, fault.what);
	fault.inject(pair, plan.cell.node, random());
	record.legs.push_back(watch(pair.lab(), from, plan));
	if (fault.heal != nullptr)
	{
		waitForTheMoment(random);
		from = pair.lab().clock().now();
		pair.note(EventKind::heal, node, fault.healed);
		fault.heal(pair, plan.cell.node);
		record.legs.push_back(watch(pair.lab(), from, plan));
	}
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
	options.seed = seedOf(plan);
	Lab lab(options);
	ControlPair pair(lab, plan.settings);
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
