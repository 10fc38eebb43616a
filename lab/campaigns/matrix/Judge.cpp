#include "lab/campaigns/matrix/Judge.h"

#include <functional>

#include "lab/campaigns/matrix/Waits.h"
#include "lab/core/Owners.h"

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
	if (expected == "served")
	{
		return seen != "none";
	}
	if (expected == "not-both")
	{
		return seen != "a+b";
	}
	return expected == "any" || seen == (expected == "owner" ? owner : expected);
}

std::string orNothing(const std::string& text)
{
	return text.empty() ? "none" : text;
}

/// Told with what was seen, and what was wanted.
using Tell = std::function<void(const std::string& what, const std::string& seen, const std::string& wanted)>;

/// No more than the bound allows; the lab's own work is excused where there is an outage at all.
void outageDifferences(const LegRecord& leg, const Outcome& expected, const std::map<std::string, Path>& paths,
                       const MatrixTimes& times, const Tell& differs)
{
	const std::optional<Millis> bound = outageBound(expected, paths, times.pair, times.noOutage, times.slack);
	if (!bound)
	{
		return;
	}
	const Millis allowed = *bound + (expected.path == "-" ? Millis(0) : leg.took);
	const auto atMost = [&](const char* what, Millis seen, Millis most)
	{
		if (seen > most)
		{
			differs(what, secondsText(seen), "at most " + secondsText(most));
		}
	};
	atMost("outage", leg.outage, allowed);
	if (!leg.steady || !isSingle(expected.owner) || !expected.twice)
	{
		return;
	}
	if (expected.path == "-")
	{
		// The blinks of a loaded machine add up; an address that is never dropped does not blink.
		atMost("without an owner", leg.noOwner, Millis(0));
		return;
	}
	atMost("without an answer in all", leg.noAnswer, allowed);
	atMost("without an owner", leg.noOwner, allowed);
}

/// In a leg that never rests the longest stretch counts.
void twoOwnersDifferences(const LegRecord& leg, const Outcome& expected, const MatrixTimes& times, const Tell& differs)
{
	if (!expected.twice)
	{
		return;
	}
	const Millis twice = sumOf(*expected.twice, times.pair);
	const Millis allowed = twice == Millis(0) ? Millis(0) : twice + times.slack;
	const Millis seen = expected.owner == "unsteady" ? leg.twoOwnersLongest : leg.twoOwners;
	if (seen > allowed)
	{
		differs("two owners for", secondsText(seen), "at most " + secondsText(allowed));
	}
}

void changeDifferences(const LegRecord& leg, const Outcome& expected, const MatrixTimes& times, const Tell& differs)
{
	const Millis since = expected.since ? sumOf(*expected.since, times.pair) : Millis(0);
	if (leg.firstChange && *leg.firstChange < since)
	{
		differs("the owner changed after", secondsText(*leg.firstChange), "not before " + secondsText(since));
	}
}

void logDifferences(const LegRecord& leg, const Outcome& expected, const Tell& differs)
{
	if (expected.logDiffers)
	{
		if (leg.disagreements.empty())
		{
			differs("log and observation", "agree", "that they differ");
		}
		return;
	}
	for (const std::string& disagreement : leg.disagreements)
	{
		differs("log and observation:", disagreement, "that they agree");
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
	outageDifferences(leg, expected, paths, times, differs);
	twoOwnersDifferences(leg, expected, times, differs);
	changeDifferences(leg, expected, times, differs);
	if (leg.ended != expected.ended)
	{
		differs("agents that ended by themselves:", orNothing(leg.ended), orNothing(expected.ended));
	}
	logDifferences(leg, expected, differs);
	return found;
}

void judge(RunRecord& record, const Cell& cell, const std::map<std::string, Path>& paths, const MatrixTimes& times)
{
	for (std::size_t index = 0; index < record.legs.size(); ++index)
	{
		LegRecord& leg = record.legs[index];
		leg.differences = differencesOf(leg, index == 0 ? cell.stands : cell.healed, paths, times);
	}
	for (const std::string& left : record.left)
	{
		record.differences.push_back("left behind: " + left);
	}
}

} // namespace velarix::lab
