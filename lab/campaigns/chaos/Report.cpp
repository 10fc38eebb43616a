#include "lab/campaigns/chaos/Report.h"

#include <algorithm>
#include <sstream>

namespace velarix::lab::chaos
{

namespace
{

std::string replayCommand(const Results& results, int worker, int step)
{
	const PairSettings& times = results.times;
	std::ostringstream text;
	text << "velarix-lab chaos --settings " << nameOf(times.profile) << " --seed " << results.seed << " --worker "
	     << worker << " --steps " << step << " --interval " << times.interval << " --receiving-time "
	     << times.receivingTime << " --waiting-time " << times.waitingTime;
	return text.str();
}

} // namespace

bool Results::good() const
{
	return !records.empty() && problems.empty() &&
	       std::all_of(records.begin(), records.end(),
	                   [](const StepRecord& record) { return record.violations.empty(); });
}

std::string toText(const Results& results)
{
	std::ostringstream text;
	std::size_t faults = 0;
	std::size_t without = 0;
	for (const StepRecord& record : results.records)
	{
		faults += record.injected.size();
		without += record.injected.empty() ? 1U : 0U;
	}
	text << results.records.size() << " steps of faults and repairs, " << faults << " faults, seed " << results.seed
	     << "\nin " << without << " of the steps no fault found a place (a standby runs no program to kill)\n\n";
	for (const StepRecord& record : results.records)
	{
		for (const std::string& violation : record.violations)
		{
			text << "worker " << record.worker << ", step " << record.step << " (" << record.faults
			     << "): " << violation << '\n';
		}
		if (!record.violations.empty())
		{
			text << "  again: " << replayCommand(results, record.worker, record.step) << '\n';
		}
	}
	for (const Problem& problem : results.problems)
	{
		text << "worker " << problem.worker << " did not get to its end, step " << problem.step << ": "
		     << problem.problem << "\n  again: " << replayCommand(results, problem.worker, problem.step) << '\n';
	}
	text << (results.good() ? "the invariants held after every step\n" : "the invariants did NOT hold\n");
	return text.str();
}

nlohmann::json jsonOf(const Results& results)
{
	return {{"campaign", "chaos"},    {"seed", results.seed},         {"times", results.times},
	        {"good", results.good()}, {"problems", results.problems}, {"steps", results.records}};
}

} // namespace velarix::lab::chaos
