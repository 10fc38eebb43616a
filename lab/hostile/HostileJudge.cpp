#include <functional>

#include "HostileRun.h"

namespace velarix::lab
{

namespace
{

/// Told with what was seen, and what was wanted.
using Tell = std::function<void(const std::string& what, const std::string& seen, const std::string& wanted)>;

Away awayOf(const LegRecord& leg, Millis noOutage)
{
	if (leg.outageOpen && leg.outage > noOutage)
	{
		return Away::lasting;
	}
	return leg.outage > noOutage ? Away::some : Away::none;
}

void serviceDifferences(const HostileRecord& record, const HostileOutcome& expected, Millis noOutage,
                        const Tell& differs)
{
	const LegRecord& leg = record.during;
	if (expected.owner != "any" && leg.owner != expected.owner)
	{
		differs("owner while attacked", leg.owner, expected.owner);
	}
	const Away away = awayOf(leg, noOutage);
	if (expected.away != Away::any && away != expected.away)
	{
		differs("service away", std::string(nameOf(away)) + " (" + secondsText(leg.outage) + ")",
		        nameOf(expected.away));
	}
	if (expected.away == Away::none && leg.moves > 0)
	{
		differs("moves", std::to_string(leg.moves), "none");
	}
	if (expected.twice && *expected.twice != (leg.twoOwners > Millis(0)))
	{
		differs("two owners for", secondsText(leg.twoOwners), *expected.twice ? "some time" : "no time");
	}
	if (!leg.ended.empty())
	{
		differs("agents that ended by themselves:", leg.ended, "none");
	}
	if (record.owner != expected.after)
	{
		differs("owner at rest", record.owner, expected.after);
	}
}

void agentDifferences(const HostileRecord& record, HostId node, bool isOwner, const GrowthBounds& bounds,
                      const Tell& differs)
{
	const auto index = static_cast<std::size_t>(node);
	const std::string& role = record.after.roles[index];
	if (role == "off")
	{
		return;
	}
	const char* wanted = isOwner ? "master" : "slave";
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

} // namespace

std::vector<std::string> differencesOf(const HostileRecord& record, const HostilePlan& plan, const GrowthBounds& bounds)
{
	std::vector<std::string> found;
	const auto differs = [&](const std::string& what, const std::string& seen, const std::string& wanted)
	{ found.push_back(what + " " + seen + ", expected " + wanted); };
	const HostileOutcome& expected = plan.cell.expected(plan.guard);
	serviceDifferences(record, expected, plan.times.noOutage, differs);
	for (const HostId node : nodes)
	{
		agentDifferences(record, node, expected.after == nameOf(node), bounds, differs);
	}
	return found;
}

} // namespace velarix::lab
