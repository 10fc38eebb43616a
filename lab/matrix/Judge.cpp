#include "CellRun.h"
#include "Waits.h"

namespace velarix::lab
{

namespace
{

bool single(const std::string& owner)
{
	return owner == "a" || owner == "b";
}

bool ownerFits(const LegRecord& leg, const std::string& expected)
{
	if (expected == "unsteady")
	{
		return !leg.steady;
	}
	if (expected == "any")
	{
		return true;
	}
	return leg.steady && (expected == "one" ? single(leg.owner) : leg.owner == expected);
}

/// "owner" stands for whoever holds the address.
bool placeFits(const std::string& seen, const std::string& expected, const std::string& owner)
{
	return expected == "any" || seen == (expected == "owner" ? owner : expected);
}

std::string orNothing(const std::string& text)
{
	return text.empty() ? "none" : text;
}

} // namespace

std::vector<std::string> differencesOf(const LegRecord& leg, const Outcome& expected, const CellPlan& plan)
{
	std::vector<std::string> found;
	const auto differs = [&](const std::string& what, const std::string& seen, const std::string& wanted)
	{ found.push_back(what + " " + seen + ", expected " + wanted); };
	if (!ownerFits(leg, expected.owner))
	{
		differs("owner", leg.owner + (leg.steady ? "" : " (not steady)"), expected.owner);
	}
	if (!placeFits(leg.answer, expected.answer, leg.owner))
	{
		differs("answer", leg.answer, expected.answer);
	}
	if (!placeFits(leg.programs, expected.programs, leg.owner))
	{
		differs("programs on", leg.programs, expected.programs);
	}
	if (expected.moves && leg.moves > *expected.moves)
	{
		differs("moves", std::to_string(leg.moves), "at most " + std::to_string(*expected.moves));
	}
	const std::optional<Millis> bound =
	    outageBound(expected, plan.paths, plan.times.pair, plan.times.blink, plan.times.slack);
	const Millis excused = expected.path == "-" ? Millis(0) : leg.took;
	if (bound && leg.outage > *bound + excused)
	{
		differs("outage", secondsText(leg.outage), "at most " + secondsText(*bound + excused));
	}
	if (expected.twice)
	{
		const Millis twice = sumOf(*expected.twice, plan.times.pair);
		const Millis allowed = twice == Millis(0) ? Millis(0) : twice + plan.times.slack;
		leg.twoOwners > allowed
		    ? differs("two owners for", secondsText(leg.twoOwners), "at most " + secondsText(allowed))
		    : void();
	}
	if (leg.ended != expected.ended)
	{
		differs("agents that ended by themselves:", orNothing(leg.ended), orNothing(expected.ended));
	}
	for (const std::string& disagreement : leg.disagreements)
	{
		expected.logDiffers ? void() : found.push_back("log and observation: " + disagreement);
	}
	return found;
}

} // namespace velarix::lab
