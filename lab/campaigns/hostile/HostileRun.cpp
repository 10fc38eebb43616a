#include "lab/campaigns/hostile/HostileRun.h"

#include <algorithm>
#include <memory>
#include <thread>

#include "lab/campaigns/hostile/HostileJudge.h"
#include "lab/campaigns/hostile/Stranger.h"
#include "lab/campaigns/Observe.h"
#include "lab/campaigns/Jitter.h"
#include "lab/campaigns/Observe.h"
#include "lab/core/Files.h"
#include "lab/core/Plan.h"
#include "lab/core/ProcessTable.h"
#include "lab/core/Wait.h"

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
	const std::string status = procText(pid, "status");
	const AgentVitals now{pid, static_cast<int>(numberBehind(status, "Threads").value_or(0)),
	                      static_cast<int>(descriptorsOf(pid).size()), numberBehind(status, "VmRSS").value_or(0)};
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

/// The attack and the event, in the order that is the attack's.
std::unique_ptr<Stranger> beginAttack(Lab& lab, const HostilePlan& plan)
{
	const std::optional<Fault>& event = plan.cell.event;
	if (event && attackNamed(plan.cell.attack).comesAfterEvent())
	{
		const std::string before = lab.role(plan.cell.target);
		lab.inject(*event);
		const auto turned = [&] { return lab.role(plan.cell.target) != before; };
		if (!waitFor(turned, plan.times.patience(), "the role to turn", [&] { return lab.stateText(); }))
		{
			throw LabError("the event has not turned the role of " + nodeText(plan.cell.target));
		}
		return std::make_unique<Stranger>(lab, ordersOf(plan));
	}
	auto stranger = std::make_unique<Stranger>(lab, ordersOf(plan));
	if (event || stranger->lasting())
	{
		stranger->awaitHold(plan.guard != Guard::none);
	}
	if (event)
	{
		lab.inject(*event);
	}
	return stranger;
}

std::unique_ptr<Stranger> watchAttack(Lab& lab, const HostilePlan& plan, HostileRecord& record)
{
	const HostileOutcome& expected = plan.cell.expected(plan.guard);
	const HeardCounts heardBefore = heardBy(lab, plan.cell.target);
	const Millis from = lab.clock().now();
	std::unique_ptr<Stranger> stranger = beginAttack(lab, plan);
	record.words = stranger->words();
	if (!stranger->lasting())
	{
		stranger->awaitEnd();
	}
	if (plan.cell.event && expected.away == Away::some)
	{
		const auto back = [&] { return isOwner(lab.owners(), expected.owner) && lab.answeredBy() == lab.owners(); };
		waitFor(back, backLimit, "the service to be back", [&] { return lab.stateText(); });
	}
	const bool forGood = expected.away == Away::lasting;
	const Millis quiet = forGood ? plan.times.patience() : plan.times.quiet();
	const Millis took = lab.clock().now() - from;
	record.during = observe(lab, from, quiet, took + plan.times.patience() + quiet, took);
	record.roles = rolesOf(lab);
	const HeardCounts heard = heardBy(lab, plan.cell.target);
	record.read = heard.all - heardBefore.all;
	record.partner = heard.partner - heardBefore.partner;
	return stranger;
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
	const std::unique_ptr<Stranger> stranger = watchAttack(lab, plan, record);
	watchAftermath(lab, plan, *stranger);
	keepTally(stranger->tally(), record);
	record.dropped = plan.guard == Guard::none ? 0 : droppedByFirewall(lab, plan.cell.target);
	record.owner = lab.owners();
	record.after = momentOf(lab);
}

} // namespace

void keepTally(const AttackTally& tally, HostileRecord& record)
{
	record.tries = tally.tries;
	record.connections = tally.connections;
	record.messages = tally.messages;
	record.bytes = tally.bytes;
	record.atOnce = tally.mostAtOnce;
	record.open = tally.mostOpen;
	record.heard = tally.heard;
}

HeardCounts heardBy(Lab& lab, HostId node)
{
	return heardIn(contentIfAny(lab.node(node).diskFile(plan::logFile)));
}

PairMoment momentOf(Lab& lab)
{
	PairMoment moment;
	for (int look = 0; look < 8; ++look)
	{
		for (const HostId node : nodes)
		{
			const std::optional<Process> agent = lab.node(node).isOn() ? lab.node(node).agent() : std::nullopt;
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
