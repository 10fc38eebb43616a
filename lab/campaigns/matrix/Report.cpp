#include "lab/campaigns/matrix/Report.h"

#include <algorithm>
#include <sstream>
#include <thread>

#include <sys/utsname.h>

#include "lab/campaigns/Waits.h"

namespace velarix::lab::matrix
{

namespace
{

/// How the phase of a run ended: "b, outage 7.507 s"; "DIFFERS" where it was not expected so.
std::string phaseText(const PhaseRecord& phase)
{
	return (phase.steady ? phase.owner : "unsteady") + ", outage " +
	       (phase.outageOpen ? "for good" : secondsText(phase.outage)) + (phase.differences.empty() ? "" : " DIFFERS");
}

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
		good += record.asExpected() ? 1 : 0;
		phases.clear();
		for (const PhaseRecord& phase : record.phases)
		{
			phases += (phases.empty() ? "; owner " : "; repaired: ") + phaseText(phase);
		}
	}
	return cell.name + ": " + std::to_string(good) + " of " + std::to_string(runs) + " as expected" + phases;
}

std::optional<Millis> boundOf(const Results& results, const Outcome& expected)
{
	return !expected.hasOutage() ? Millis(0)
	                             : outageBound(expected, results.expectations.paths, results.times.pair,
	                                           results.times.noOutage, Millis(0));
}

nlohmann::json jsonOf(const Results& results, const Outcome& expected, const std::vector<Fault>& faults)
{
	std::vector<std::string> names;
	std::transform(faults.begin(), faults.end(), std::back_inserter(names),
	               [](const Fault& fault) { return toName(fault); });
	const auto twice =
	    expected.twice ? std::optional<Millis>(sumOf(*expected.twice, results.times.pair)) : std::nullopt;
	return {{"faults", names},
	        {"owner", expected.owner},
	        {"path", expected.path},
	        {"outageBound", boundOf(results, expected)},
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

bool Results::allAsExpected() const
{
	return records.size() == cells.size() * static_cast<std::size_t>(runs) &&
	       std::all_of(records.begin(), records.end(), [](const RunRecord& record) { return record.asExpected(); });
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
