#include <algorithm>
#include <sstream>

#include "lab/campaigns/soak/Run.h"

namespace velarix::lab::soak
{

namespace
{

std::string lineOf(const Series& series)
{
	const std::vector<Sample>& samples = series.samples;
	std::string text = nodeText(series.node) + ", agent " + std::to_string(series.pid) + ": " +
	                   std::to_string(samples.size()) + " samples";
	if (!samples.empty())
	{
		text += " in " + secondsText(samples.back().at - samples.front().at) + ", " +
		        std::to_string(samples.front().ownKib) + " > " + std::to_string(samples.back().ownKib) +
		        " KiB of its own, " + std::to_string(samples.front().rssKib) + " > " +
		        std::to_string(samples.back().rssKib) + " KiB resident";
	}
	return text + (series.ended.empty() ? "" : "; " + series.ended + ", a new series begins") + "\n";
}

nlohmann::json jsonOf(const FaultRecord& fault)
{
	return {{"at", fault.at}, {"repair", fault.repair}, {"fault", toName(fault.fault)}};
}

} // namespace

std::string toText(const Results& results)
{
	std::ostringstream text;
	const auto faults = std::count_if(results.faults.begin(), results.faults.end(),
	                                  [](const FaultRecord& fault) { return !fault.repair; });
	text << "a soak of " << secondsText(results.duration) << ", seed " << results.seed << ", " << faults << " faults\n"
	     << toText(results.bounds) << "\n";
	for (const Series& series : results.series)
	{
		text << lineOf(series);
	}
	const std::vector<std::string> crossings = crossingsOf(results);
	for (const std::string& crossing : crossings)
	{
		text << crossing << '\n';
	}
	text << (crossings.empty() ? "nothing grew beyond the bounds\n" : "the bounds were NOT kept\n");
	return text.str();
}

nlohmann::json jsonOf(const Results& results)
{
	nlohmann::json faults = nlohmann::json::array();
	for (const FaultRecord& fault : results.faults)
	{
		faults.push_back(jsonOf(fault));
	}
	return {{"campaign", "soak"},
	        {"seed", results.seed},
	        {"duration", results.duration},
	        {"period", results.period},
	        {"times", results.times},
	        {"bounds", results.bounds},
	        {"crossings", crossingsOf(results)},
	        {"faults", faults},
	        {"series", results.series}};
}

} // namespace velarix::lab::soak
