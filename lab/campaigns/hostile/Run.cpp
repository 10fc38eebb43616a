#include "lab/campaigns/hostile/Run.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <thread>

#include "lab/campaigns/Measure.h"
#include "lab/campaigns/hostile/Attacker.h"
#include "lab/core/Basics.h"
#include "lab/core/Host.h"
#include "lab/core/Plan.h"

namespace velarix::lab::hostile
{

namespace
{

/// A service that comes back at all is back by then: a burst holds up the receiver.
constexpr Millis backLimit{240000};

void takeLowest(AgentFigures& lowest, const Process& agent)
{
	const AgentFigures now{agent.pid, agent.threads, static_cast<int>(descriptorsOf(agent.pid).size()),
	                       residentKibOf(agent.pid)};
	if (lowest.pid != agent.pid)
	{
		lowest = now;
		return;
	}
	lowest.threads = std::min(lowest.threads, now.threads);
	lowest.descriptors = std::min(lowest.descriptors, now.descriptors);
	lowest.residentKib = std::min(lowest.residentKib, now.residentKib);
}

KeeperFigures keeperOn(Lab& lab, HostId node)
{
	const std::vector<Process> guards = lab.node(node).isOn()
	                                        ? processesNamed(lab.node(node).host().pid(), plan::addressKeeper)
	                                        : std::vector<Process>();
	for (const Process& entry : guards.empty() ? guards : processesOf(lab.node(node).host().pid()))
	{
		if (entry.parent == guards.front().pid)
		{
			// Nanoseconds come first in it.
			return {entry.pid, std::atol(procText(entry.pid, "schedstat").c_str()) / 1000000, residentKibOf(entry.pid)};
		}
	}
	return {};
}

std::array<std::string, 2> rolesOf(Lab& lab)
{
	return {lab.role(HostId::a), lab.role(HostId::b)};
}

/// The agents' figures and roles now. Takes two seconds.
PairSnapshot snapshotOf(Lab& lab)
{
	PairSnapshot moment;
	for (int look = 0; look < 8; ++look)
	{
		for (const HostId node : nodes)
		{
			const std::optional<Process> agent = lab.node(node).isOn() ? lab.node(node).agent() : std::nullopt;
			if (agent)
			{
				takeLowest(moment.agents[indexOf(node)], *agent);
			}
		}
		std::this_thread::sleep_for(Millis(250));
	}
	moment.roles = rolesOf(lab);
	return moment;
}

/// What the watched time came to, without its roles.
Observation observationOf(const PhaseRecord& seen)
{
	Observation observation;
	observation.owner = seen.owner;
	observation.durationMs = (seen.to - seen.from).count();
	observation.outageMs = seen.outage.count();
	observation.outageOpen = seen.outageOpen;
	observation.noAnswerMs = seen.noAnswer.count();
	observation.duplicateMs = seen.splitBrain.count();
	observation.moves = seen.moves;
	observation.ended = seen.ended;
	return observation;
}

AttackerPlan attackerPlanOf(const Plan& plan)
{
	return {plan.cell.attack, plan.cell.detail, plan.cell.target,
	        plan.seed,        plan.count,       plan.mitigation == Mitigation::tunnel,
	        plan.beside};
}

/// The attack and the event, in the order that is the attack's.
std::unique_ptr<Attacker> beginAttack(Lab& lab, const Plan& plan)
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
		return std::make_unique<Attacker>(lab, attackerPlanOf(plan));
	}
	auto attacker = std::make_unique<Attacker>(lab, attackerPlanOf(plan));
	if (event || attacker->lasting())
	{
		attacker->awaitHold(plan.mitigation != Mitigation::none);
	}
	if (event)
	{
		lab.inject(*event);
	}
	return attacker;
}

std::unique_ptr<Attacker> watchAttack(Lab& lab, const Plan& plan, Record& record)
{
	const Outcome& expected = plan.cell.expected(plan.mitigation);
	const ReceivedCounts receivedBefore = receivedBy(lab, plan.cell.target);
	record.keeperBefore = keeperOn(lab, plan.cell.target);
	const Millis from = lab.clock().now();
	std::unique_ptr<Attacker> attacker = beginAttack(lab, plan);
	if (!attacker->lasting())
	{
		attacker->awaitEnd();
	}
	if (plan.cell.event && expected.outage == Outage::some)
	{
		const auto back = [&] { return isOwner(lab.owners(), expected.owner) && lab.answeredBy() == lab.owners(); };
		waitFor(back, backLimit, "the service to be back", [&] { return lab.stateText(); });
	}
	const bool forGood = expected.outage == Outage::lasting;
	const Millis quiet = forGood ? plan.times.patience() : plan.times.quiet();
	const Millis took = lab.clock().now() - from;
	record.during = observationOf(observe(lab, from, quiet, took + plan.times.patience() + quiet, took));
	record.keeperAfter = keeperOn(lab, plan.cell.target);
	record.during.roles = rolesOf(lab);
	const ReceivedCounts received = receivedBy(lab, plan.cell.target);
	record.read = received.all - receivedBefore.all;
	record.partner = received.partner - receivedBefore.partner;
	return attacker;
}

void watchAftermath(Lab& lab, const Plan& plan, Attacker& attacker)
{
	const bool lasting = attacker.lasting();
	attacker.end();
	if (lasting)
	{
		const HostId after = *hostNamed(plan.cell.expected(plan.mitigation).after);
		lab.waitForService(after, plan.times.serveLimit());
		observe(lab, lab.clock().now(), plan.times.quiet(), plan.times.patience());
	}
}

} // namespace

ReceivedCounts receivedBy(Lab& lab, HostId node)
{
	return receivedIn(contentIfAny(lab.node(node).diskFile(plan::logFile)));
}

LabOptions optionsFor(const Plan& plan)
{
	LabOptions options(plan.installRoot, plan.times.pair);
	options.seed = seedOfRun(plan.seed, 1, plan.cell.name);
	return options;
}

void runIn(Lab& lab, const Plan& plan, Record& record)
{
	applyMitigation(lab, plan.mitigation);
	letServe(lab, plan.cell.master, plan.times.serveLimit());
	record.before = snapshotOf(lab);
	const std::unique_ptr<Attacker> attacker = watchAttack(lab, plan, record);
	watchAftermath(lab, plan, *attacker);
	static_cast<AttackTally&>(record) = attacker->tally();
	record.dropped = plan.mitigation == Mitigation::none ? 0 : droppedByFirewall(lab, plan.cell.target);
	record.owner = lab.owners();
	record.after = snapshotOf(lab);
	record.differences = differencesOf(record, plan);
}

Record recordOf(const Plan& plan)
{
	Record record;
	record.name = plan.cell.name;
	record.mitigation = nameOf(plan.mitigation);
	return record;
}

} // namespace velarix::lab::hostile
