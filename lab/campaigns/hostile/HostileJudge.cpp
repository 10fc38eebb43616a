#include "lab/campaigns/hostile/HostileJudge.h"

#include <functional>

namespace velarix::lab
{

namespace
{

/// Told with what was seen, and what was wanted.
using Tell = std::function<void(const std::string& what, const std::string& seen, const std::string& wanted)>;

bool isAway(const PhaseRecord& phase, Away expected, Millis noOutage)
{
	const bool some = phase.outage > noOutage;
	switch (expected)
	{
	case Away::none:
		return !some;
	case Away::some:
		return some && !phase.outageOpen;
	case Away::mostly:
		return phase.noAnswer > (phase.to - phase.from) / 2;
	case Away::lasting:
		return some && phase.outageOpen;
	default:
		return true;
	}
}

std::string awayText(const PhaseRecord& phase, Away expected, Millis noOutage)
{
	if (expected == Away::mostly)
	{
		return "for " + secondsText(phase.noAnswer) + " of " + secondsText(phase.to - phase.from);
	}
	const Away seen = phase.outage <= noOutage ? Away::none : (phase.outageOpen ? Away::lasting : Away::some);
	return std::string(nameOf(seen)) + " (" + secondsText(phase.outage) + ")";
}

void serviceDifferences(const HostileRecord& record, const HostileOutcome& expected, Millis noOutage,
                        const Tell& differs)
{
	const PhaseRecord& phase = record.during;
	if (!isOwner(phase.owner, expected.owner))
	{
		differs("owner while attacked", phase.owner, expected.owner);
	}
	if (!isAway(phase, expected.away, noOutage))
	{
		differs("service away", awayText(phase, expected.away, noOutage), nameOf(expected.away));
	}
	if (expected.away == Away::none && phase.moves > 0)
	{
		differs("moves", std::to_string(phase.moves), "none");
	}
	if (expected.twice && *expected.twice != (phase.splitBrain > Millis(0)))
	{
		differs("two owners for", secondsText(phase.splitBrain), *expected.twice ? "some time" : "no time");
	}
	if (!phase.ended.empty())
	{
		differs("agents that ended by themselves:", phase.ended, "none");
	}
	if (!isOwner(record.owner, expected.after))
	{
		differs("owner at rest", record.owner, expected.after);
	}
}

void agentDifferences(const HostileRecord& record, HostId node, bool serves, const GrowthBounds& bounds,
                      const Tell& differs)
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
	const AgentVitals& before = record.before.agents[index];
	const AgentVitals& after = record.after.agents[index];
	if (after.pid != before.pid)
	{
		differs("agent of " + nodeText(node), after.pid == 0 ? "gone" : "another process", "the same process");
		return;
	}
	const auto atMost = [&](const char* what, long seen, long most)
	{
		if (seen > most)
		{
			differs(what + nodeText(node), std::to_string(seen), "at most " + std::to_string(most));
		}
	};
	if (after.threads != before.threads)
	{
		differs("threads of " + nodeText(node), std::to_string(after.threads), std::to_string(before.threads));
	}
	atMost("descriptors of ", after.descriptors, before.descriptors + bounds.descriptors);
	atMost("resident KiB of ", after.residentKib, before.residentKib + bounds.residentKib);
}

void atLeast(const char* what, long seen, long least, const Tell& differs)
{
	if (seen < least)
	{
		differs(what, std::to_string(seen), "at least " + std::to_string(least));
	}
}

/// A pair that has lost a node, or is busy with a failure, says nothing about who is heard.
void partnerDifferences(const HostileRecord& record, const HostilePlan& plan, bool keptOut, const Tell& differs)
{
	const Millis lasted = record.during.to - record.during.from;
	const PartnerHeard open = attackNamed(plan.cell.attack).partner;
	const PartnerHeard wanted = keptOut ? PartnerHeard::always : open;
	if (plan.cell.event || wanted == PartnerHeard::sometimes)
	{
		return;
	}
	if (wanted == PartnerHeard::always)
	{
		atLeast("heartbeats of the partner read", record.partner, lasted / longestUnheard, differs);
	}
	else if (record.partner > lasted / hardlyHeard)
	{
		differs("heartbeats of the partner read", std::to_string(record.partner),
		        "at most " + std::to_string(lasted / hardlyHeard));
	}
}

/// Whether the attack happened at all, and whether what keeps it out did so. What the
/// firewall lets pass, the neighbours stop without a packet dropped.
void attackDifferences(const HostileRecord& record, const HostilePlan& plan, const Tell& differs)
{
	const AttackInfo& attack = attackNamed(plan.cell.attack);
	atLeast("tries", record.tries, attack.leastTries, differs);
	const bool keptOut = attack.isStoppedBy(plan.guard);
	partnerDifferences(record, plan, keptOut, differs);
	if (keptOut && record.connections > 0)
	{
		differs("connections behind the guard", std::to_string(record.connections), "none");
	}
	if (keptOut && attack.stoppedBy == Guard::firewall)
	{
		atLeast("packets dropped by the firewall", record.dropped, 1, differs);
	}
	if (keptOut || attack.knock != Knock::connects)
	{
		return;
	}
	const AttackGoal goal = attack.goal(plan.count);
	atLeast("connections", record.connections, goal.connections, differs);
	atLeast("messages written", record.messages, goal.messages, differs);
	atLeast("clients at once", record.atOnce, goal.atOnce, differs);
	atLeast("clients connected at once", record.open, goal.open, differs);
	atLeast("messages heard by the target", record.heard, goal.heard, differs);
	atLeast("messages read that are not the partner's", record.read - record.partner, goal.read, differs);
}

} // namespace

std::vector<std::string> differencesOf(const HostileRecord& record, const HostilePlan& plan, const GrowthBounds& bounds)
{
	std::vector<std::string> found;
	const auto differs = [&](const std::string& what, const std::string& seen, const std::string& wanted)
	{ found.push_back(what + " " + seen + ", expected " + wanted); };
	const HostileOutcome& expected = plan.cell.expected(plan.guard);
	attackDifferences(record, plan, differs);
	serviceDifferences(record, expected, plan.times.noOutage, differs);
	const std::string& after = expected.after == "either" ? record.owner : expected.after;
	for (const HostId node : nodes)
	{
		agentDifferences(record, node, after == nameOf(node), bounds, differs);
	}
	return found;
}

} // namespace velarix::lab
