#include "lab/campaigns/hostile/Judge.h"

#include <algorithm>
#include <functional>

namespace velarix::lab::hostile
{

namespace
{

/// What may come on top of an agent's descriptors by the end of an attack: a connection under way
/// at both looks. Threads may not change at all.
constexpr int moreDescriptors = 2;
constexpr long moreResidentKib = 4096;
/// Where the partner has to be received, a heartbeat is read in this time at least: a pass
/// without one lasts as long.
constexpr Millis longestGap{3000};
/// Where it is hardly received, no more than one is read in this time.
constexpr Millis hardlyReceived{5000};

/// What an attack may cost the keeper of the address: of a core, and of memory.
constexpr long keeperPercent = 10;
constexpr long keeperResidentKib = 4096;

/// Called with what was seen, and what was wanted.
using Report = std::function<void(const std::string& what, const std::string& seen, const std::string& wanted)>;

void atLeast(const char* what, long seen, long least, const Report& differs)
{
	if (seen < least)
	{
		differs(what, std::to_string(seen), "at least " + std::to_string(least));
	}
}

void atMost(const std::string& what, long seen, long most, const Report& differs)
{
	if (seen > most)
	{
		differs(what, std::to_string(seen), "at most " + std::to_string(most));
	}
}

bool hasOutage(const Observation& seen, Outage expected, Millis noOutage)
{
	const bool some = seen.outageMs > noOutage.count();
	switch (expected)
	{
	case Outage::none:
		return !some;
	case Outage::some:
		return some && !seen.outageOpen;
	case Outage::mostly:
		return seen.noAnswerMs > seen.durationMs / 2;
	case Outage::lasting:
		return some && seen.outageOpen;
	default:
		return true;
	}
}

std::string outageText(const Observation& seen, Outage expected, Millis noOutage)
{
	if (expected == Outage::mostly)
	{
		return "for " + secondsText(Millis(seen.noAnswerMs)) + " of " + secondsText(Millis(seen.durationMs));
	}
	const bool none = seen.outageMs <= noOutage.count();
	return std::string(nameOf(none ? Outage::none : (seen.outageOpen ? Outage::lasting : Outage::some))) + " (" +
	       secondsText(Millis(seen.outageMs)) + ")";
}

void serviceDifferences(const Record& record, const Outcome& expected, Millis noOutage, const Report& differs)
{
	const Observation& seen = record.during;
	if (!isOwner(seen.owner, expected.owner))
	{
		differs("owner while attacked", seen.owner, expected.owner);
	}
	if (!hasOutage(seen, expected.outage, noOutage))
	{
		differs("outage", outageText(seen, expected.outage, noOutage), nameOf(expected.outage));
	}
	if (expected.outage == Outage::none && seen.moves > 0)
	{
		differs("moves", std::to_string(seen.moves), "none");
	}
	if (expected.duplicate && *expected.duplicate != (seen.duplicateMs > 0))
	{
		differs("duplicate address for", secondsText(Millis(seen.duplicateMs)),
		        *expected.duplicate ? "some time" : "no time");
	}
	if (!seen.ended.empty())
	{
		differs("agents that ended by themselves:", seen.ended, "none");
	}
	if (!isOwner(record.owner, expected.after))
	{
		differs("owner at rest", record.owner, expected.after);
	}
}

void agentDifferences(const Record& record, HostId node, bool serves, const Report& differs)
{
	const auto index = static_cast<std::size_t>(node);
	const std::string& role = record.after.roles[index];
	if (role == "off")
	{
		return;
	}
	const char* wanted = serves ? "master" : "slave";
	if (role != wanted)
	{
		differs("role of " + nodeText(node), role, wanted);
	}
	const AgentFigures& before = record.before.agents[index];
	const AgentFigures& after = record.after.agents[index];
	if (after.pid != before.pid)
	{
		differs("agent of " + nodeText(node), after.pid == 0 ? "gone" : "another process", "the same process");
		return;
	}
	if (after.threads != before.threads)
	{
		differs("threads of " + nodeText(node), std::to_string(after.threads), std::to_string(before.threads));
	}
	atMost("descriptors of " + nodeText(node), after.descriptors, before.descriptors + moreDescriptors, differs);
	atMost("resident KiB of " + nodeText(node), after.residentKib, before.residentKib + moreResidentKib, differs);
}

/// The keeper of a target that keeps the address stays the same process; the work of each is bounded.
void keeperDifferences(const Record& record, const Plan& plan, const Report& differs)
{
	const KeeperFigures& before = record.keeperBefore;
	const KeeperFigures& after = record.keeperAfter;
	const bool keeps =
	    plan.cell.master == plan.cell.target && plan.cell.expected(plan.mitigation).owner == nameOf(plan.cell.target);
	if (keeps && (after.pid == 0 || after.pid != before.pid))
	{
		differs("keeper's process", std::to_string(after.pid), std::to_string(before.pid));
	}
	const long cpuMs = after.cpuMs - (after.pid == before.pid ? before.cpuMs : 0);
	const long mostMs = record.during.durationMs * keeperPercent / 100;
	atMost("processor time of the keeper (ms)", cpuMs, mostMs, differs);
	atMost("resident KiB of the keeper", after.residentKib, keeperResidentKib, differs);
}

/// A pair that has lost a node, is busy with a failure, or may be, says nothing about received heartbeats.
void partnerDifferences(const Record& record, const Plan& plan, bool keptOut, const Report& differs)
{
	const Millis lasted(record.during.durationMs);
	const PartnerReceived open = attackNamed(plan.cell.attack).partner;
	const PartnerReceived wanted = keptOut ? PartnerReceived::always : open;
	const bool undecided = plan.cell.expected(plan.mitigation).outage == Outage::any;
	if (plan.cell.event || undecided || wanted == PartnerReceived::sometimes)
	{
		return;
	}
	if (wanted == PartnerReceived::always)
	{
		atLeast("heartbeats of the partner read", record.partner, lasted / longestGap, differs);
	}
	else if (record.partner > lasted / hardlyReceived)
	{
		differs("heartbeats of the partner read", std::to_string(record.partner),
		        "at most " + std::to_string(lasted / hardlyReceived));
	}
}

/// Whether the attack happened at all, and whether what keeps it out did so. What the
/// firewall lets pass, the neighbours stop without a packet dropped.
void attackDifferences(const Record& record, const Plan& plan, const Report& differs)
{
	const AttackInfo& attack = attackNamed(plan.cell.attack);
	atLeast("tries", record.tries, attack.leastTries, differs);
	const bool keptOut = attack.isStoppedBy(plan.mitigation);
	partnerDifferences(record, plan, keptOut, differs);
	if (keptOut && record.connections > 0)
	{
		differs("connections behind the mitigation", std::to_string(record.connections), "none");
	}
	if (keptOut && attack.stoppedBy <= Mitigation::firewall)
	{
		atLeast("packets dropped by the firewall", record.dropped, 1, differs);
	}
	if (keptOut || attack.portUse != PortUse::connects)
	{
		return;
	}
	const AttackGoal& goal = attack.goal;
	const auto least = [&plan](long fixed, long per) { return per == 0 ? fixed : std::max(1L, plan.count / per); };
	atLeast("connections", record.connections, least(goal.connections, goal.connectionsPer), differs);
	atLeast("messages written", record.messages, least(goal.messages, goal.messagesPer), differs);
	atLeast("clients at once", record.atOnce, goal.atOnce, differs);
	atLeast("clients connected at once", record.open, goal.open, differs);
	atLeast("messages received by the target", record.received, goal.received, differs);
	atLeast("messages read that are not the partner's", record.read - record.partner, least(goal.read, goal.readPer),
	        differs);
}

} // namespace

std::vector<std::string> differencesOf(const Record& record, const Plan& plan)
{
	std::vector<std::string> found;
	const auto differs = [&](const std::string& what, const std::string& seen, const std::string& wanted)
	{ found.push_back(what + " " + seen + ", expected " + wanted); };
	const Outcome& expected = plan.cell.expected(plan.mitigation);
	attackDifferences(record, plan, differs);
	if (attackNamed(plan.cell.attack).onKeeper)
	{
		keeperDifferences(record, plan, differs);
	}
	serviceDifferences(record, expected, plan.times.noOutage, differs);
	const std::string& after = expected.after == "either" ? record.owner : expected.after;
	for (const HostId node : nodes)
	{
		agentDifferences(record, node, after == nameOf(node), differs);
	}
	return found;
}

} // namespace velarix::lab::hostile
