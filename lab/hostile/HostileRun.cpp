#include "HostileRun.h"

#include <algorithm>
#include <fstream>
#include <memory>
#include <thread>

#include "CellRun.h"
#include "Moment.h"
#include "Observe.h"
#include "Stranger.h"

namespace velarix::lab
{

namespace
{

/// A service that comes back at all is back by then: a burst holds up the receiver.
constexpr Millis backLimit{240000};

LabOptions optionsFor(const HostilePlan& plan)
{
	LabOptions options;
	options.installRoot = plan.installRoot;
	options.settingsA = NodeSettings::standard(HostId::a, plan.times.pair);
	options.settingsB = NodeSettings::standard(HostId::b, plan.times.pair);
	options.seed = seedOfRun(plan.seed, 1, plan.cell.name);
	return options;
}

void takeLowest(AgentVitals& lowest, pid_t pid)
{
	AgentVitals now{pid, 0, static_cast<int>(descriptorsOf(pid).size()), 0};
	std::ifstream status("/proc/" + std::to_string(pid) + "/status");
	for (std::string word; status >> word;)
	{
		word == "Threads:" ? status >> now.threads : word == "VmRSS:" ? status >> now.residentKib : status;
	}
	if (lowest.pid != pid)
	{
		lowest = now;
		return;
	}
	lowest.threads = std::min(lowest.threads, now.threads);
	lowest.descriptors = std::min(lowest.descriptors, now.descriptors);
	lowest.residentKib = std::min(lowest.residentKib, now.residentKib);
}

std::array<std::string, 2> rolesOf(Lab& lab)
{
	return {lab.role(HostId::a), lab.role(HostId::b)};
}

StrangerPlan ordersOf(const HostilePlan& plan)
{
	return {plan.cell.attack, plan.cell.detail, plan.cell.target, plan.seed, plan.count};
}

void watchAttack(Lab& lab, const HostilePlan& plan, Stranger& stranger, HostileRecord& record)
{
	const HostileOutcome& expected = plan.cell.expected(plan.guard);
	const Millis from = lab.clock().now();
	if (plan.cell.event)
	{
		stranger.awaitHold(plan.guard != Guard::none);
		lab.inject(*plan.cell.event);
	}
	if (!stranger.lasting())
	{
		stranger.awaitEnd();
	}
	if (plan.cell.event && expected.away == Away::some)
	{
		const auto back = [&] { return lab.owners() == expected.owner && lab.answeredBy() == expected.owner; };
		waitFor(back, backLimit, "the service to be back", [&] { return lab.stateText(); });
	}
	const bool forGood = expected.away == Away::lasting;
	const Millis quiet = forGood ? plan.times.patience() : plan.times.quiet();
	const Millis took = lab.clock().now() - from;
	record.during = observe(lab, from, quiet, took + plan.times.patience() + quiet, took);
	record.roles = rolesOf(lab);
}

void watchAftermath(Lab& lab, const HostilePlan& plan, Stranger& stranger)
{
	const bool lasting = stranger.lasting();
	stranger.end();
	if (lasting)
	{
		const HostId after = *hostNamed(plan.cell.expected(plan.guard).after);
		lab.waitForService(after, plan.times.serveLimit());
		observe(lab, lab.clock().now(), plan.times.quiet(), plan.times.patience());
	}
}

void runInLab(Lab& lab, const HostilePlan& plan, HostileRecord& record)
{
	setUpGuard(lab, plan.guard);
	letServe(lab, plan.cell.master, plan.times.serveLimit());
	record.before = momentOf(lab);
	const auto stranger = std::make_unique<Stranger>(lab, ordersOf(plan));
	record.words = stranger->words();
	const long readBefore = stranger->messagesRead();
	watchAttack(lab, plan, *stranger, record);
	record.read = stranger->messagesRead() - readBefore;
	watchAftermath(lab, plan, *stranger);
	record.tries = stranger->tally().tries;
	record.connections = stranger->tally().connections;
	record.messages = stranger->tally().messages;
	record.bytes = stranger->tally().bytes;
	record.dropped = plan.guard == Guard::none ? 0 : droppedByFirewall(lab, plan.cell.target);
	record.owner = lab.owners();
	record.after = momentOf(lab);
}

} // namespace

PairMoment momentOf(Lab& lab)
{
	PairMoment moment;
	for (int look = 0; look < 8; ++look)
	{
		for (const HostId node : nodes)
		{
			const std::optional<ProcessEntry> agent = lab.node(node).isOn() ? lab.node(node).agent() : std::nullopt;
			if (agent)
			{
				takeLowest(moment.agents[static_cast<std::size_t>(node)], agent->pid);
			}
		}
		std::this_thread::sleep_for(Millis(250));
	}
	moment.roles = rolesOf(lab);
	return moment;
}

HostileRecord runHostile(const HostilePlan& plan)
{
	HostileRecord record;
	record.name = plan.cell.name;
	record.guard = nameOf(plan.guard);
	Lab lab(optionsFor(plan));
	try
	{
		runInLab(lab, plan, record);
		record.differences = differencesOf(record, plan);
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
