#include "lab/campaigns/matrix/Matrix.h"

#include <algorithm>
#include <sstream>
#include <thread>

#include <sys/utsname.h>

#include "lab/campaigns/Measure.h"

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

/// No more than the bound allows; the lab's own work is excused where there is an outage at all.
void outageDifferences(const PhaseRecord& phase, const Outcome& expected, const std::map<std::string, Path>& paths,
                       const CampaignTimes& times, Differences& found)
{
	const std::optional<Millis> bound = outageBound(expected, paths, times.pair, times.noOutage, times.slack);
	if (!bound)
	{
		return;
	}
	const Millis allowed = *bound + (!expected.hasOutage() ? Millis(0) : phase.took);
	found.atMost("outage", phase.outage, allowed);
	if (!phase.steady || !isSingle(expected.owner) || !expected.twice)
	{
		return;
	}
	if (!expected.hasOutage())
	{
		// The blinks of a loaded machine add up; an address that is never dropped does not blink.
		// The keeper raises one again that somebody has removed.
		found.atMost("without an owner", phase.noOwner, Millis(times.pair.profile == Profile::keeper ? 100 : 0));
		return;
	}
	found.atMost("without an answer in all", phase.noAnswer, allowed);
	found.atMost("without an owner", phase.noOwner, allowed);
}

/// In a phase that never rests the longest interval counts.
void splitBrainDifferences(const PhaseRecord& phase, const Outcome& expected, const CampaignTimes& times,
                           Differences& found)
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
	found.atMost("split-brain for", seen, allowed);
}

void changeDifferences(const PhaseRecord& phase, const Outcome& expected, const CampaignTimes& times,
                       Differences& found)
{
	const Millis since = expected.since ? sumOf(*expected.since, times.pair) : Millis(0);
	if (phase.firstChange && *phase.firstChange < since)
	{
		found.add("the owner changed after", secondsText(*phase.firstChange), "not before " + secondsText(since));
	}
}

void logDifferences(const PhaseRecord& phase, const Outcome& expected, Differences& found)
{
	if (expected.owner == "any")
	{
		return;
	}
	if (expected.logDiffers)
	{
		if (phase.disagreements.empty())
		{
			found.add("log and observation", "agree", "that they differ");
		}
		return;
	}
	for (const std::string& disagreement : phase.disagreements)
	{
		found.add("log and observation:", disagreement, "that they agree");
	}
}

} // namespace

std::vector<std::string> differencesOf(const PhaseRecord& phase, const Outcome& expected,
                                       const std::map<std::string, Path>& paths, const CampaignTimes& times)
{
	Differences found;
	if (!ownerFits(phase, expected.owner))
	{
		found.add("owner", phase.owner + (phase.steady ? "" : " (not steady)"), expected.owner);
	}
	if (!placeFits(phase.answer, expected.answer, phase.owner))
	{
		found.add("answer", phase.answer, expected.answer);
	}
	if (!placeFits(phase.programs, expected.programs, phase.owner))
	{
		found.add("programs on", phase.programs, expected.programs);
	}
	if (expected.moves)
	{
		found.atMost("moves", phase.moves, *expected.moves);
	}
	outageDifferences(phase, expected, paths, times, found);
	splitBrainDifferences(phase, expected, times, found);
	changeDifferences(phase, expected, times, found);
	if (phase.ended != expected.ended)
	{
		const auto orNone = [](const std::string& text) { return text.empty() ? "none" : text; };
		found.add("agents that ended by themselves:", orNone(phase.ended), orNone(expected.ended));
	}
	logDifferences(phase, expected, found);
	return found;
}

std::vector<std::string> differencesOf(const RunRecord& record)
{
	std::vector<std::string> lines;
	for (std::size_t index = 0; index < record.phases.size(); ++index)
	{
		for (const std::string& difference : record.phases[index].differences)
		{
			lines.push_back((index == 0 ? "fault: " : "repaired: ") + difference);
		}
	}
	lines.insert(lines.end(), record.differences.begin(), record.differences.end());
	return lines;
}

std::string titleOf(const RunRecord& record)
{
	return record.cell + ", run " + std::to_string(record.run);
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

namespace
{

PhaseRecord runPhase(Lab& lab, const CellPlan& plan, const Outcome& expected, void (Lab::*step)(const Fault&),
                     const std::vector<Fault>& faults)
{
	const Millis from = lab.clock().now();
	for (const Fault& fault : faults)
	{
		(lab.*step)(fault);
	}
	const Millis took = lab.clock().now() - from;
	// What has no bound is expected to stay so: it is watched for longer.
	const bool forGood = !expected.isBounded() && expected.owner != "unsteady";
	const Millis quiet = forGood ? plan.times.patience() : plan.times.quiet();
	const Millis limit = expected.lasts ? sumOf(*expected.lasts, plan.times.pair) : plan.times.patience() + quiet;
	PhaseRecord phase = observe(lab, from, quiet, took + limit, took);
	if (plan.paths.contains(expected.path))
	{
		measureOverhead(lab.timeline(), lab.seenInLogs(), plan.paths.at(expected.path), plan.times.pair, phase);
	}
	return phase;
}

} // namespace

RunRecord recordOf(const CellPlan& plan)
{
	RunRecord record;
	record.cell = plan.cell.name;
	record.run = plan.run;
	record.seed = plan.seed;
	return record;
}

LabOptions optionsFor(const CellPlan& plan)
{
	LabOptions options(plan.installRoot, plan.times.pair);
	options.seed = seedOfRun(plan.seed, plan.run, plan.cell.name);
	for (const Fault& fault : plan.cell.inject)
	{
		options.prepareFor(fault.name);
	}
	return options;
}

void runIn(Lab& lab, const CellPlan& plan, RunRecord& record)
{
	std::mt19937_64 random(seedOfRun(plan.seed, plan.run, plan.cell.name));
	const Millis pass = sumOf("silence", plan.times.pair);
	letServe(lab, plan.cell.master, plan.times.serveLimit());
	waitForJitter(random, pass);
	record.phases.push_back(runPhase(lab, plan, plan.cell.stands, &Lab::inject, plan.cell.inject));
	if (!plan.cell.repair.empty())
	{
		if (!plan.cell.stands.lasts)
		{
			waitForJitter(random, pass);
		}
		record.phases.push_back(runPhase(lab, plan, plan.cell.repaired, &Lab::repair, plan.cell.repair));
	}
	record.left = leftOn(lab);
	judge(record, plan.cell, plan.paths, plan.times);
}

std::string machineText()
{
	utsname system{};
	::uname(&system);
	const std::string release = system.release;
	// The version; what a distribution or a host appends says nothing to others.
	const std::string kernel = "Linux " + release.substr(0, release.find_first_not_of("0123456789."));
	const unsigned processors = std::thread::hardware_concurrency();
	return kernel + ", " + std::to_string(processors) + (processors == 1 ? " processor" : " processors");
}

namespace
{

std::string verdictOf(const Results& results, const Cell& cell)
{
	int runs = 0;
	int good = 0;
	std::string phases;
	for (const RunRecord& record : results.records)
	{
		if (record.cell != cell.name)
		{
			continue;
		}
		++runs;
		good += differencesOf(record).empty() ? 1 : 0;
		phases.clear();
		for (const PhaseRecord& phase : record.phases)
		{
			phases += (phases.empty() ? "; owner " : "; repaired: ") + (phase.steady ? phase.owner : "unsteady") +
			          ", outage " + (phase.outageOpen ? "for good" : secondsText(phase.outage)) +
			          (phase.differences.empty() ? "" : " DIFFERS");
		}
	}
	return cell.name + ": " + std::to_string(good) + " of " + std::to_string(runs) + " as expected" + phases;
}

nlohmann::json jsonOf(const Results& results, const Outcome& expected, const std::vector<Fault>& faults)
{
	const PairSettings& pair = results.times.pair;
	std::vector<std::string> names;
	std::ranges::transform(faults, std::back_inserter(names), toName);
	const auto outage =
	    expected.hasOutage() ? outageBound(expected, results.expectations.paths, pair, {}, {}) : Millis(0);
	const auto twice = expected.twice ? std::optional<Millis>(sumOf(*expected.twice, pair)) : std::nullopt;
	return {{"faults", names},
	        {"owner", expected.owner},
	        {"path", expected.path},
	        {"outageBound", outage},
	        {"splitBrainBound", twice}};
}

nlohmann::json jsonOf(const Results& results, const Cell& cell)
{
	nlohmann::json phases{jsonOf(results, cell.stands, cell.inject)};
	if (!cell.repair.empty())
	{
		phases.push_back(jsonOf(results, cell.repaired, cell.repair));
	}
	return {{"name", cell.name}, {"note", cell.note}, {"phases", phases}};
}

nlohmann::json jsonOf(const Path& path, const PairSettings& times)
{
	return {{"name", path.name},
	        {"before", explained(path.before, times)},
	        {"after", explained(path.after, times)},
	        {"bound", path.bound(times)}};
}

} // namespace

bool Results::allAsExpected() const
{
	return records.size() == cells.size() * static_cast<std::size_t>(runs) &&
	       std::all_of(records.begin(), records.end(),
	                   [](const RunRecord& record) { return differencesOf(record).empty(); });
}

std::string toText(const Results& results)
{
	std::ostringstream text;
	text << toText(results.times.pair) << "; " << results.runs << (results.runs == 1 ? " run" : " runs")
	     << " of each cell, seed " << results.seed << ", " << results.jobs << " side by side; " << results.machine
	     << "\n\n";
	for (const Cell& cell : results.cells)
	{
		text << verdictOf(results, cell) << '\n';
	}
	text << (results.allAsExpected() ? "\nevery run was as expected\n" : "\nnot as expected:\n");
	for (const RunRecord& record : results.records)
	{
		for (const std::string& difference : differencesOf(record))
		{
			text << "  " << record.cell << ", run " << record.run << ": " << difference << '\n';
		}
	}
	return text.str();
}

nlohmann::json jsonOf(const Results& results)
{
	nlohmann::json cells = nlohmann::json::array();
	for (const Cell& cell : results.cells)
	{
		cells.push_back(jsonOf(results, cell));
	}
	nlohmann::json paths = nlohmann::json::array();
	for (const auto& [name, path] : results.expectations.paths)
	{
		paths.push_back(jsonOf(path, results.times.pair));
	}
	return {{"campaign", "matrix"},
	        {"seed", results.seed},
	        {"runs", results.runs},
	        {"jobs", results.jobs},
	        {"times", results.times.pair},
	        {"slack", results.times.slack},
	        {"machine", results.machine},
	        {"asExpected", results.allAsExpected()},
	        {"cells", cells},
	        {"paths", paths},
	        {"records", results.records}};
}

} // namespace velarix::lab::matrix
