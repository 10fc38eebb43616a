#include "Judge.h"

#include <functional>

#include "Owners.h"
#include "Waits.h"

namespace velarix::lab
{

namespace
{

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
	return leg.steady && (expected == "one" ? isSingle(leg.owner) : leg.owner == expected);
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

/// Told with what was seen, and what was wanted.
using Tell = std::function<void(const std::string& what, const std::string& seen, const std::string& wanted)>;

void boundDifferences(const LegRecord& leg, const Outcome& expected, const std::map<std::string, Path>& paths,
                      const MatrixTimes& times, const Tell& differs)
{
	const std::optional<Millis> bound = outageBound(expected, paths, times.pair, times.noOutage, times.slack);
	const Millis excused = expected.path == "-" ? Millis(0) : leg.took;
	if (bound && leg.outage > *bound + excused)
	{
		differs("outage", secondsText(leg.outage), "at most " + secondsText(*bound + excused));
	}
	if (!expected.twice)
	{
		return;
	}
	const Millis twice = sumOf(*expected.twice, times.pair);
	const Millis allowed = twice == Millis(0) ? Millis(0) : twice + times.slack;
	if (leg.twoOwners > allowed)
	{
		differs("two owners for", secondsText(leg.twoOwners), "at most " + secondsText(allowed));
	}
}

} // namespace

std::vector<std::string> differencesOf(const LegRecord& leg, const Outcome& expected,
                                       const std::map<std::string, Path>& paths, const MatrixTimes& times)
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
	boundDifferences(leg, expected, paths, times, differs);
	if (leg.ended != expected.ended)
	{
		differs("agents that ended by themselves:", orNothing(leg.ended), orNothing(expected.ended));
	}
	for (const std::string& disagreement : leg.disagreements)
	{
		if (!expected.logDiffers)
		{
			found.push_back("log and observation: " + disagreement);
		}
	}
	return found;
}

void judge(RunRecord& record, const Cell& cell, const std::map<std::string, Path>& paths, const MatrixTimes& times)
{
	for (std::size_t index = 0; index < record.legs.size(); ++index)
	{
		LegRecord& leg = record.legs[index];
		leg.differences = differencesOf(leg, index == 0 ? cell.stands : cell.healed, paths, times);
	}
	const Outcome& last = cell.heal.empty() ? cell.stands : cell.healed;
	for (const std::string& left : record.left)
	{
		if (!last.leaves)
		{
			record.differences.push_back("left behind: " + left);
		}
	}
}

} // namespace velarix::lab
