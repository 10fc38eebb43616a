#include "lab/campaigns/matrix/Judge.h"

#include <functional>

#include "lab/campaigns/Waits.h"

namespace velarix::lab::matrix
{

namespace
{

bool ownerFits(const PhaseRecord& phase, const std::string& expected)
{
	if (expected == "unsteady")
	{
		return !phase.steady;
	}
	if (expected == "any")
	{
		return true;
	}
	return phase.steady && (expected == "one" ? isSingle(phase.owner) : phase.owner == expected);
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

/// Reported with what was seen, and what was wanted.
using Tell = std::function<void(const std::string& what, const std::string& seen, const std::string& wanted)>;

/// No more than the bound allows; the lab's own work is excused where there is an outage at all.
void outageDifferences(const PhaseRecord& phase, const Outcome& expected, const std::map<std::string, Path>& paths,
                       const CampaignTimes& times, const Tell& differs)
{
	const std::optional<Millis> bound = outageBound(expected, paths, times.pair, times.noOutage, times.slack);
	if (!bound)
	{
		return;
	}
	const Millis allowed = *bound + (!expected.hasOutage() ? Millis(0) : phase.took);
	const auto atMost = [&](const char* what, Millis seen, Millis most)
	{
		if (seen > most)
		{
			differs(what, secondsText(seen), "at most " + secondsText(most));
		}
	};
	atMost("outage", phase.outage, allowed);
	if (!phase.steady || !isSingle(expected.owner) || !expected.twice)
	{
		return;
	}
	if (!expected.hasOutage())
	{
		// The blinks of a loaded machine add up; an address that is never dropped does not blink.
		// The keeper raises one again that somebody has removed.
		atMost("without an owner", phase.noOwner, Millis(times.pair.profile == Profile::keeper ? 100 : 0));
		return;
	}
	atMost("without an answer in all", phase.noAnswer, allowed);
	atMost("without an owner", phase.noOwner, allowed);
}

/// In a phase that never rests the longest interval counts.
void splitBrainDifferences(const PhaseRecord& phase, const Outcome& expected, const CampaignTimes& times,
                           const Tell& differs)
{
	if (!expected.twice)
	{
		return;
	}
	const Millis twice = sumOf(*expected.twice, times.pair);
	// The keeper ends it by itself, whatever the agents wait for.
	const bool exact = twice == Millis(0) || times.pair.profile == Profile::keeper;
	const Millis allowed = exact ? twice : twice + times.slack;
	const Millis seen = expected.owner == "unsteady" ? phase.splitBrainLongest : phase.splitBrain;
	if (seen > allowed)
	{
		differs("split-brain for", secondsText(seen), "at most " + secondsText(allowed));
	}
}

void changeDifferences(const PhaseRecord& phase, const Outcome& expected, const CampaignTimes& times,
                       const Tell& differs)
{
	const Millis since = expected.since ? sumOf(*expected.since, times.pair) : Millis(0);
	if (phase.firstChange && *phase.firstChange < since)
	{
		differs("the owner changed after", secondsText(*phase.firstChange), "not before " + secondsText(since));
	}
}

void logDifferences(const PhaseRecord& phase, const Outcome& expected, const Tell& differs)
{
	if (expected.owner == "any")
	{
		return;
	}
	if (expected.logDiffers)
	{
		if (phase.disagreements.empty())
		{
			differs("log and observation", "agree", "that they differ");
		}
		return;
	}
	for (const std::string& disagreement : phase.disagreements)
	{
		differs("log and observation:", disagreement, "that they agree");
	}
}

} // namespace

std::vector<std::string> differencesOf(const PhaseRecord& phase, const Outcome& expected,
                                       const std::map<std::string, Path>& paths, const CampaignTimes& times)
{
	std::vector<std::string> found;
	const auto differs = [&](const std::string& what, const std::string& seen, const std::string& wanted)
	{ found.push_back(what + " " + seen + ", expected " + wanted); };
	if (!ownerFits(phase, expected.owner))
	{
		differs("owner", phase.owner + (phase.steady ? "" : " (not steady)"), expected.owner);
	}
	if (!placeFits(phase.answer, expected.answer, phase.owner))
	{
		differs("answer", phase.answer, expected.answer);
	}
	if (!placeFits(phase.programs, expected.programs, phase.owner))
	{
		differs("programs on", phase.programs, expected.programs);
	}
	if (expected.moves && phase.moves > *expected.moves)
	{
		differs("moves", std::to_string(phase.moves), "at most " + std::to_string(*expected.moves));
	}
	outageDifferences(phase, expected, paths, times, differs);
	splitBrainDifferences(phase, expected, times, differs);
	changeDifferences(phase, expected, times, differs);
	if (phase.ended != expected.ended)
	{
		differs("agents that ended by themselves:", orNothing(phase.ended), orNothing(expected.ended));
	}
	logDifferences(phase, expected, differs);
	return found;
}

void judge(RunRecord& record, const Cell& cell, const std::map<std::string, Path>& paths, const CampaignTimes& times)
{
	for (std::size_t index = 0; index < record.phases.size(); ++index)
	{
		PhaseRecord& phase = record.phases[index];
		phase.differences = differencesOf(phase, index == 0 ? cell.stands : cell.repaired, paths, times);
	}
	for (const std::string& left : record.left)
	{
		record.differences.push_back("left behind: " + left);
	}
}

} // namespace velarix::lab::matrix
