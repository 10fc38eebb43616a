#include <algorithm>
#include <cstdio>
#include <map>
#include <sstream>

#include <nlohmann/json.hpp>

#include "lab/campaigns/soak/SoakRun.h"
#include "lab/tables/Table.h"

namespace velarix::lab
{

namespace
{

using Json = nlohmann::ordered_json;

constexpr const char* none = "-";

std::string range(const std::vector<int>& values)
{
	if (values.empty())
	{
		return none;
	}
	const auto [least, most] = std::minmax_element(values.begin(), values.end());
	return *least == *most ? std::to_string(*least) : std::to_string(*least) + "-" + std::to_string(*most);
}

/// "first > last, rise an hour by the line"
std::string growth(const std::vector<SoakSample>& samples, long SoakSample::*value)
{
	const std::optional<SoakLine> line = lineThrough(samples, value);
	if (!line)
	{
		return none;
	}
	char text[96];
	std::snprintf(text, sizeof text, "%ld > %ld, %+.1f", samples.front().*value, samples.back().*value, line->perHour);
	return text;
}

std::string logRate(const std::vector<SoakSample>& samples)
{
	if (samples.size() < 2 || samples.back().at == samples.front().at)
	{
		return none;
	}
	const double minutes = static_cast<double>((samples.back().at - samples.front().at).count()) / 60000;
	const double grown = static_cast<double>(samples.back().logged) - static_cast<double>(samples.front().logged);
	char text[32];
	std::snprintf(text, sizeof text, "%.0f", grown / 1024 / minutes);
	return text;
}

Row rowOf(const SoakSeries& series, const SoakBounds& bounds)
{
	const std::vector<SoakSample>& all = series.samples;
	const std::vector<SoakSample> late = settled(series, bounds);
	std::vector<int> kept;
	std::vector<int> threads;
	std::vector<int> open;
	Millis zombie{0};
	for (const SoakSample& sample : all)
	{
		sample.kept ? kept.push_back(*sample.kept) : void();
		sample.atRest ? threads.push_back(sample.threads) : void();
		open.push_back(sample.descriptors);
		zombie = std::max(zombie, sample.oldestZombie);
	}
	return {nameOf(series.node),
	        std::to_string(series.pid),
	        all.empty() ? none : secondsText(all.back().at - all.front().at),
	        std::to_string(all.size()),
	        growth(late, &SoakSample::ownKib),
	        growth(late, &SoakSample::rssKib),
	        growth(late, &SoakSample::pssKib),
	        range(kept),
	        range(open),
	        range(threads),
	        secondsText(zombie),
	        logRate(all)};
}

Json jsonOf(const SoakSample& sample)
{
	return {{"ms", sample.at.count()},
	        {"atRest", sample.atRest},
	        {"ownKib", sample.ownKib},
	        {"rssKib", sample.rssKib},
	        {"pssKib", sample.pssKib},
	        {"descriptors", sample.descriptors},
	        {"kept", sample.kept ? Json(*sample.kept) : Json()},
	        {"threads", sample.threads},
	        {"zombies", sample.zombies},
	        {"oldestZombieMs", sample.oldestZombie.count()},
	        {"loggedBytes", sample.logged}};
}

Json jsonOf(const SoakSeries& series)
{
	Json samples = Json::array();
	for (const SoakSample& sample : series.samples)
	{
		samples.push_back(jsonOf(sample));
	}
	return {{"node", nameOf(series.node)}, {"pid", series.pid}, {"ended", series.ended}, {"samples", samples}};
}

Json jsonOf(const SoakBounds& bounds)
{
	return {{"warmUpMs", bounds.warmUp.count()},
	        {"settled", bounds.settled},
	        {"ownKibPerHour", bounds.ownKibPerHour},
	        {"rssKibPerHour", bounds.rssKibPerHour},
	        {"kept", bounds.kept},
	        {"descriptors", bounds.descriptors},
	        {"threads", bounds.threads},
	        {"zombieMs", bounds.zombie.count()},
	        {"logKibPerMinute", bounds.logKibPerMinute}};
}

/// How often each fault struck, in the order of their names.
std::map<std::string, int> strikes(const SoakResults& results)
{
	std::map<std::string, int> counts;
	for (const SoakFault& fault : results.faults)
	{
		counts[infoOf(fault.fault.kind).name] += fault.heal ? 0 : 1;
	}
	return counts;
}

} // namespace

std::string toText(const SoakResults& results)
{
	std::ostringstream text;
	text << "a soak of " << secondsText(results.duration) << ", seed " << results.seed << "\n"
	     << toText(results.bounds) << "\n";
	std::vector<Row> rows;
	for (const SoakSeries& series : results.series)
	{
		rows.push_back(rowOf(series, results.bounds));
	}
	text << aligned({"node", "agent", "time", "samples", "own KiB, an hour", "RSS KiB, an hour", "PSS KiB, an hour",
	                 "kept", "open", "threads", "zombie", "log KiB/min"},
	                rows);
	for (const SoakSeries& series : results.series)
	{
		text << (series.ended.empty() ? ""
		                              : nodeText(series.node) + ", agent " + std::to_string(series.pid) + ": " +
		                                    series.ended + ", a new series begins\n");
	}
	text << "\nfaults:";
	for (const auto& [name, count] : strikes(results))
	{
		text << ' ' << name << ' ' << count;
	}
	text << "\n\n";
	const std::vector<std::string> crossings = crossingsOf(results);
	for (const std::string& crossing : crossings)
	{
		text << crossing << '\n';
	}
	text << (crossings.empty() ? "nothing grew beyond the bounds\n" : "the bounds were NOT kept\n");
	return text.str();
}

std::string toJson(const SoakResults& results)
{
	Json faults = Json::array();
	for (const SoakFault& fault : results.faults)
	{
		faults.push_back(
		    {{"ms", fault.at.count()}, {"what", fault.heal ? "heal" : "inject"}, {"fault", toName(fault.fault)}});
	}
	Json series = Json::array();
	for (const SoakSeries& one : results.series)
	{
		series.push_back(jsonOf(one));
	}
	const Json whole{{"seed", results.seed},
	                 {"durationMs", results.duration.count()},
	                 {"periodMs", results.period.count()},
	                 {"intervalS", results.times.interval},
	                 {"receivingTimeS", results.times.receivingTime},
	                 {"waitingTimeS", results.times.waitingTime},
	                 {"bounds", jsonOf(results.bounds)},
	                 {"crossings", crossingsOf(results)},
	                 {"faults", std::move(faults)},
	                 {"series", std::move(series)}};
	return whole.dump(1, '\t', false, Json::error_handler_t::replace) + "\n";
}

} // namespace velarix::lab
