#include "lab/campaigns/hostile/Run.h"

#include <algorithm>

#include "lab/core/Basics.h"
#include "lab/core/Console.h"

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

void outageDifferences(const Observation& seen, Outage expected, Millis noOutage, Differences& found)
{
	if (expected == Outage::any)
	{
		return;
	}
	if (expected == Outage::mostly)
	{
		if (seen.noAnswerMs <= seen.durationMs / 2)
		{
			found.add("outage for",
			          secondsText(Millis(seen.noAnswerMs)) + " of " + secondsText(Millis(seen.durationMs)),
			          nameOf(expected));
		}
		return;
	}
	const Outage lasted = seen.outageOpen ? Outage::lasting : Outage::some;
	const Outage was = seen.outageMs > noOutage.count() ? lasted : Outage::none;
	if (was != expected)
	{
		found.add("outage", nameOf(was) + (" (" + secondsText(Millis(seen.outageMs)) + ")"), nameOf(expected));
	}
}

void serviceDifferences(const Record& record, const Outcome& expected, Millis noOutage, Differences& found)
{
	const Observation& seen = record.during;
	if (!isOwner(seen.owner, expected.owner))
	{
		found.add("owner while attacked", seen.owner, expected.owner);
	}
	outageDifferences(seen, expected.outage, noOutage, found);
	if (expected.outage == Outage::none && seen.moves > 0)
	{
		found.add("moves", std::to_string(seen.moves), "none");
	}
	if (expected.duplicate && *expected.duplicate != (seen.duplicateMs > 0))
	{
		found.add("duplicate address for", secondsText(Millis(seen.duplicateMs)),
		          *expected.duplicate ? "some time" : "no time");
	}
	if (!seen.ended.empty())
	{
		found.add("agents that ended by themselves:", seen.ended, "none");
	}
	if (!isOwner(record.owner, expected.after))
	{
		found.add("owner at rest", record.owner, expected.after);
	}
}

void agentDifferences(const Record& record, HostId node, bool serves, Differences& found)
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
		found.add("role of " + nodeText(node), role, wanted);
	}
	const AgentFigures& before = record.before.agents[index];
	const AgentFigures& after = record.after.agents[index];
	if (after.pid != before.pid)
	{
		found.add("agent of " + nodeText(node), after.pid == 0 ? "gone" : "another process", "the same process");
		return;
	}
	if (after.threads != before.threads)
	{
		found.add("threads of " + nodeText(node), std::to_string(after.threads), std::to_string(before.threads));
	}
	found.atMost("descriptors of " + nodeText(node), after.descriptors, before.descriptors + moreDescriptors);
	found.atMost("resident KiB of " + nodeText(node), after.residentKib, before.residentKib + moreResidentKib);
}

/// The keeper of a target that keeps the address stays the same process; the work of each is bounded.
void keeperDifferences(const Record& record, const Plan& plan, Differences& found)
{
	const KeeperFigures& before = record.keeperBefore;
	const KeeperFigures& after = record.keeperAfter;
	const bool keeps =
	    plan.cell.master == plan.cell.target && plan.cell.expected(plan.mitigation).owner == nameOf(plan.cell.target);
	if (keeps && (after.pid == 0 || after.pid != before.pid))
	{
		found.add("keeper's process", std::to_string(after.pid), std::to_string(before.pid));
	}
	const long cpuMs = after.cpuMs - (after.pid == before.pid ? before.cpuMs : 0);
	const long mostMs = record.during.durationMs * keeperPercent / 100;
	found.atMost("processor time of the keeper (ms)", cpuMs, mostMs);
	found.atMost("resident KiB of the keeper", after.residentKib, keeperResidentKib);
}

/// A pair that has lost a node, is busy with a failure, or may be, says nothing about received heartbeats.
void partnerDifferences(const Record& record, const Plan& plan, bool keptOut, Differences& found)
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
		found.atLeast("heartbeats of the partner read", record.partner, lasted / longestGap);
	}
	else
	{
		found.atMost("heartbeats of the partner read", record.partner, lasted / hardlyReceived);
	}
}

/// Whether the attack happened at all, and whether what keeps it out did so. What the
/// firewall lets pass, the neighbours stop without a packet dropped.
void attackDifferences(const Record& record, const Plan& plan, Differences& found)
{
	const AttackInfo& attack = attackNamed(plan.cell.attack);
	found.atLeast("tries", record.tries, attack.leastTries);
	const bool keptOut = attack.isStoppedBy(plan.mitigation);
	partnerDifferences(record, plan, keptOut, found);
	if (keptOut && record.connections > 0)
	{
		found.add("connections behind the mitigation", std::to_string(record.connections), "none");
	}
	if (keptOut && attack.stoppedBy <= Mitigation::firewall)
	{
		found.atLeast("packets dropped by the firewall", record.dropped, 1);
	}
	if (keptOut || attack.portUse != PortUse::connects)
	{
		return;
	}
	const AttackGoal& goal = attack.goal;
	const auto least = [&plan](long fixed, long per) { return per == 0 ? fixed : std::max(1L, plan.count / per); };
	found.atLeast("connections", record.connections, least(goal.connections, goal.connectionsPer));
	found.atLeast("messages written", record.messages, least(goal.messages, goal.messagesPer));
	found.atLeast("clients at once", record.atOnce, goal.atOnce);
	found.atLeast("clients connected at once", record.open, goal.open);
	found.atLeast("messages received by the target", record.received, goal.received);
	found.atLeast("messages read that are not the partner's", record.read - record.partner,
	              least(goal.read, goal.readPer));
}

} // namespace

std::vector<std::string> differencesOf(const Record& record, const Plan& plan)
{
	Differences found;
	const Outcome& expected = plan.cell.expected(plan.mitigation);
	attackDifferences(record, plan, found);
	if (attackNamed(plan.cell.attack).onKeeper)
	{
		keeperDifferences(record, plan, found);
	}
	serviceDifferences(record, expected, plan.times.noOutage, found);
	const std::string& after = expected.after == "either" ? record.owner : expected.after;
	for (const HostId node : nodes)
	{
		agentDifferences(record, node, after == nameOf(node), found);
	}
	return found;
}

namespace
{

Row rowOf(const Record& record)
{
	const Observation& during = record.during;
	return {record.name,
	        std::to_string(record.tries),
	        std::to_string(record.read) + "/" + std::to_string(record.partner),
	        std::to_string(record.dropped),
	        during.roles[0] + ", " + during.roles[1],
	        secondsText(Millis(during.noAnswerMs)) + " of " + secondsText(Millis(during.durationMs)),
	        secondsText(Millis(during.duplicateMs)),
	        record.differences.empty() ? "as expected" : "DIFFERS"};
}

} // namespace

std::string titleOf(const Record& record)
{
	return record.name + ", mitigation " + record.mitigation;
}

std::string toText(const std::vector<Record>& records)
{
	std::vector<Row> rows{{"case", "tries", "read/partner's", "dropped", "roles", "outage", "duplicate", "verdict"}};
	std::string differences;
	for (const Record& record : records)
	{
		rows.push_back(rowOf(record));
		for (const std::string& difference : record.differences)
		{
			differences += record.name + ": " + difference + "\n";
		}
	}
	return aligned(rows) + differences;
}

} // namespace velarix::lab::hostile
