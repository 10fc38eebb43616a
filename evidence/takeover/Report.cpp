#include <sstream>

#include "evidence/takeover/Figures.h"
#include "lab/campaigns/Waits.h"

namespace velarix::evidence::takeover
{

namespace
{

std::vector<Sample> samplesOf(const Results& results, const Path& path)
{
	const auto found = results.samples.find(path.name);
	return found == results.samples.end() ? std::vector<Sample>() : found->second;
}

nlohmann::json jsonOf(const Results& results, const Path& path)
{
	return {{"path", path.name},
	        {"before", explained(path.before, results.times)},
	        {"after", explained(path.after, results.times)},
	        {"longestBefore", sumOf(path.before, results.times)},
	        {"longestAfter", sumOf(path.after, results.times)},
	        {"samples", samplesOf(results, path)}};
}

} // namespace

std::string toText(const Results& results)
{
	std::ostringstream text;
	text << toText(results.times) << "; seed " << results.seed << ", " << results.jobs << " side by side; "
	     << results.machine << "\n\n";
	for (const Path& path : results.paths)
	{
		text << path.name << ": " << samplesOf(results, path).size() << " of " << results.runs << " samples\n";
	}
	for (const std::string& line : results.missed)
	{
		text << "without a sample: " << line << '\n';
	}
	return text.str();
}

nlohmann::json jsonOf(const Results& results)
{
	nlohmann::json paths = nlohmann::json::array();
	for (const Path& path : results.paths)
	{
		paths.push_back(jsonOf(results, path));
	}
	return {{"campaign", "takeover"},       {"seed", results.seed},           {"runs", results.runs},
	        {"jobs", results.jobs},         {"times", results.times},         {"goal", goal},
	        {"machine", results.machine},   {"complete", results.complete()}, {"paths", paths},
	        {"pingFloors", results.floors}, {"missed", results.missed}};
}

} // namespace velarix::evidence::takeover
