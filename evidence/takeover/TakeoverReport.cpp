#include <nlohmann/json.hpp>

#include "evidence/takeover/TakeoverFigures.h"
#include "lab/campaigns/matrix/Statistics.h"
#include "lab/campaigns/matrix/Waits.h"
#include "lab/tables/Table.h"

namespace velarix::lab
{

namespace
{

using Json = nlohmann::ordered_json;
using Samples = std::vector<TakeoverSample>;

template <typename Value> std::vector<Millis> valuesOf(const Samples& samples, Value value)
{
	std::vector<Millis> values;
	values.reserve(samples.size());
	for (const TakeoverSample& sample : samples)
	{
		values.push_back(std::invoke(value, sample));
	}
	return values;
}

const Samples& samplesOf(const TakeoverResults& results, const Path& path)
{
	static const Samples none;
	const auto found = results.samples.find(path.name);
	return found == results.samples.end() ? none : found->second;
}

/// What all probes of a run lasted beyond a second each.
std::vector<Millis> floorOf(const TakeoverResults& results, const std::string& path)
{
	std::vector<Millis> sums;
	for (const PingFloor& floor : results.floors)
	{
		Millis sum{0};
		for (const Millis probe : floor.probes)
		{
			sum += probe - Millis(1000);
		}
		if (floor.path == path && !floor.probes.empty())
		{
			sums.push_back(sum);
		}
	}
	return sums;
}

std::string verdictOf(const std::optional<Summary>& summary)
{
	return !summary ? "-" : (summary->median <= takeoverGoal ? "yes" : "no");
}

const Row& takeoverHead()
{
	static const Row titles{"path",
	                        "waits until the decision, at most",
	                        "waits after it",
	                        "runs",
	                        "outage",
	                        "until the decision",
	                        "beyond the waits",
	                        "of it: pings",
	                        "pings alone",
	                        "own part",
	                        "beyond: median <= 100 ms"};
	return titles;
}

Row rowOf(const TakeoverResults& results, const Path& path)
{
	const Samples& samples = samplesOf(results, path);
	const auto overhead = summaryOf(valuesOf(samples, &TakeoverSample::overhead));
	return {path.name,
	        explained(path.before, results.times),
	        explained(path.after, results.times),
	        std::to_string(samples.size()),
	        toText(summaryOf(valuesOf(samples, &TakeoverSample::outage))),
	        toText(summaryOf(valuesOf(samples, &TakeoverSample::noticed))),
	        toText(overhead),
	        toText(summaryOf(valuesOf(samples, &TakeoverSample::pings))),
	        toText(summaryOf(floorOf(results, path.name))),
	        toText(summaryOf(valuesOf(samples, &TakeoverSample::own))),
	        verdictOf(overhead)};
}

Json jsonOf(const std::optional<Summary>& summary)
{
	return summary ? Json{{"count", summary->count},
	                      {"medianMs", summary->median.count()},
	                      {"p95Ms", summary->p95.count()},
	                      {"maxMs", summary->max.count()}}
	               : Json();
}

Json jsonOf(const TakeoverResults& results, const Path& path)
{
	const Samples& samples = samplesOf(results, path);
	Json list = Json::array();
	for (const TakeoverSample& sample : samples)
	{
		list.push_back({{"cell", sample.cell},
		                {"run", sample.run},
		                {"outageMs", sample.outage.count()},
		                {"noticedMs", sample.noticed.count()},
		                {"overheadMs", sample.overhead.count()},
		                {"pingsMs", sample.pings.count()},
		                {"ownMs", sample.own().count()}});
	}
	return {{"path", path.name},
	        {"before", explained(path.before, results.times)},
	        {"after", explained(path.after, results.times)},
	        {"beforeMs", sumOf(path.before, results.times).count()},
	        {"afterMs", sumOf(path.after, results.times).count()},
	        {"waitsMs", path.bound(results.times).count()},
	        {"outage", jsonOf(summaryOf(valuesOf(samples, &TakeoverSample::outage)))},
	        {"noticed", jsonOf(summaryOf(valuesOf(samples, &TakeoverSample::noticed)))},
	        {"overhead", jsonOf(summaryOf(valuesOf(samples, &TakeoverSample::overhead)))},
	        {"pings", jsonOf(summaryOf(valuesOf(samples, &TakeoverSample::pings)))},
	        {"pingsAlone", jsonOf(summaryOf(floorOf(results, path.name)))},
	        {"own", jsonOf(summaryOf(valuesOf(samples, &TakeoverSample::own)))},
	        {"samples", std::move(list)}};
}

} // namespace

std::string toText(const TakeoverResults& results)
{
	std::vector<Row> rows;
	for (const Path& path : results.paths)
	{
		rows.push_back(rowOf(results, path));
	}
	std::string text = "interval " + std::to_string(results.times.interval) + " s, receiving time " +
	                   std::to_string(results.times.receivingTime) + " s, waiting time " +
	                   std::to_string(results.times.waitingTime) + " s; seed " + std::to_string(results.seed) + ", " +
	                   std::to_string(results.jobs) + " side by side; " + results.machine +
	                   "\nSeconds: median / p95 / max. Own part: beyond the waits, less what silent pings lasted "
	                   "beyond a second a probe.\n\n" +
	                   aligned(takeoverHead(), rows);
	for (const std::string& line : results.missed)
	{
		text += "\nwithout a sample: " + line;
	}
	return text + (results.missed.empty() ? "" : "\n");
}

std::string toJson(const TakeoverResults& results)
{
	Json paths = Json::array();
	for (const Path& path : results.paths)
	{
		paths.push_back(jsonOf(results, path));
	}
	Json floors = Json::array();
	for (const PingFloor& floor : results.floors)
	{
		floors.push_back(Json::parse(toJson(floor)));
	}
	return Json{{"seed", results.seed},
	            {"runs", results.runs},
	            {"jobs", results.jobs},
	            {"intervalS", results.times.interval},
	            {"receivingTimeS", results.times.receivingTime},
	            {"waitingTimeS", results.times.waitingTime},
	            {"goalMs", takeoverGoal.count()},
	            {"machine", results.machine},
	            {"complete", results.complete()},
	            {"paths", std::move(paths)},
	            {"pingFloors", std::move(floors)},
	            {"missed", results.missed}}
	           .dump(1, '\t') +
	       "\n";
}

} // namespace velarix::lab
