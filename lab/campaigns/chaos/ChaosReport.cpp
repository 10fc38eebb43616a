#include "lab/campaigns/chaos/ChaosReport.h"

#include <algorithm>
#include <map>
#include <sstream>

#include <nlohmann/json.hpp>

#include "lab/campaigns/matrix/Statistics.h"

namespace velarix::lab
{

namespace
{

using Json = nlohmann::ordered_json;

Json jsonOf(const std::vector<ChaosStepRecord>& records)
{
	Json steps = Json::array();
	for (const ChaosStepRecord& record : records)
	{
		steps.push_back({{"lane", record.lane},
		                 {"step", record.step},
		                 {"faults", record.faults},
		                 {"struck", record.struck},
		                 {"recoveryMs", record.recovery.count()},
		                 {"noAnswerMs", record.noAnswer.count()},
		                 {"twoOwnersMs", record.twoOwners.count()},
		                 {"violations", record.violations},
		                 {"timeline", record.timeline}});
	}
	return steps;
}

std::string replayCommand(const ChaosResults& results, int lane, int step)
{
	const PairTimes& times = results.times;
	std::ostringstream text;
	text << "velarix-lab chaos --seed " << results.seed << " --lane " << lane << " --steps " << step << " --interval "
	     << times.interval << " --receiving-time " << times.receivingTime << " --waiting-time " << times.waitingTime;
	return text.str();
}

std::map<std::string, int> strikesByFault(const ChaosResults& results)
{
	std::map<std::string, int> counts;
	for (const ChaosStepRecord& record : results.records)
	{
		for (const std::string& struck : record.struck)
		{
			++counts[struck.substr(0, struck.find(':'))];
		}
	}
	return counts;
}

std::vector<Millis> timesOf(const ChaosResults& results, Millis ChaosStepRecord::*part)
{
	std::vector<Millis> values;
	for (const ChaosStepRecord& record : results.records)
	{
		values.push_back(record.*part);
	}
	return values;
}

} // namespace

bool ChaosResults::good() const
{
	return !records.empty() && problems.empty() &&
	       std::all_of(records.begin(), records.end(),
	                   [](const ChaosStepRecord& record) { return record.violations.empty(); });
}

std::string toText(const ChaosResults& results)
{
	std::ostringstream text;
	const auto strikes = strikesByFault(results);
	int all = 0;
	for (const auto& [name, count] : strikes)
	{
		all += count;
	}
	const auto idle = std::count_if(results.records.begin(), results.records.end(),
	                                [](const ChaosStepRecord& record) { return record.struck.empty(); });
	text << results.records.size() << " steps of faults and healings, " << all << " faults, seed " << results.seed
	     << "\nin " << idle << " of the steps no fault found a place (a standby runs no program to kill)"
	     << "\nfrom the last healing to rest (median / p95 / max, s): "
	     << toText(summaryOf(timesOf(results, &ChaosStepRecord::recovery)))
	     << "\nwithout an answer, each step (median / p95 / max, s):    "
	     << toText(summaryOf(timesOf(results, &ChaosStepRecord::noAnswer)))
	     << "\ntwo owners, each step (median / p95 / max, s):          "
	     << toText(summaryOf(timesOf(results, &ChaosStepRecord::twoOwners))) << "\n\n";
	for (const auto& [name, count] : strikes)
	{
		text << "  " << name << std::string(name.size() < 26 ? 26 - name.size() : 1, ' ') << count << '\n';
	}
	text << '\n';
	for (const ChaosStepRecord& record : results.records)
	{
		for (const std::string& violation : record.violations)
		{
			text << "lane " << record.lane << ", step " << record.step << " (" << record.faults << "): " << violation
			     << '\n';
		}
		if (!record.violations.empty())
		{
			text << "  again: " << replayCommand(results, record.lane, record.step) << '\n';
		}
	}
	for (const ChaosProblem& problem : results.problems)
	{
		text << "lane " << problem.lane << " did not get to its end, step " << problem.step << ": " << problem.text
		     << "\n  again: " << replayCommand(results, problem.lane, problem.step) << '\n';
	}
	text << (results.good() ? "the invariants held after every step\n" : "the invariants did NOT hold\n");
	return text.str();
}

std::string toJson(const std::vector<ChaosStepRecord>& records)
{
	return jsonOf(records).dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string toJson(const ChaosResults& results)
{
	Json problems = Json::array();
	for (const ChaosProblem& problem : results.problems)
	{
		problems.push_back({{"lane", problem.lane}, {"step", problem.step}, {"problem", problem.text}});
	}
	const Json whole{{"seed", results.seed},
	                 {"intervalS", results.times.interval},
	                 {"receivingTimeS", results.times.receivingTime},
	                 {"waitingTimeS", results.times.waitingTime},
	                 {"good", results.good()},
	                 {"problems", std::move(problems)},
	                 {"steps", jsonOf(results.records)}};
	return whole.dump(1, '\t', false, Json::error_handler_t::replace) + "\n";
}

std::vector<ChaosStepRecord> chaosRecordsFrom(const std::string& json)
{
	try
	{
		std::vector<ChaosStepRecord> records;
		for (const Json& step : Json::parse(json))
		{
			ChaosStepRecord record;
			record.lane = step.at("lane").get<int>();
			record.step = step.at("step").get<int>();
			record.faults = step.at("faults").get<std::string>();
			record.struck = step.at("struck").get<std::vector<std::string>>();
			record.recovery = Millis(step.at("recoveryMs").get<Millis::rep>());
			record.noAnswer = Millis(step.at("noAnswerMs").get<Millis::rep>());
			record.twoOwners = Millis(step.at("twoOwnersMs").get<Millis::rep>());
			record.violations = step.at("violations").get<std::vector<std::string>>();
			record.timeline = step.at("timeline").get<std::string>();
			records.push_back(std::move(record));
		}
		return records;
	}
	catch (const nlohmann::json::exception& error)
	{
		throw LabError(std::string("these are no records of random schedules: ") + error.what());
	}
}

ChaosResults chaosFrom(const std::string& json)
try
{
	const Json whole = Json::parse(json);
	ChaosResults results;
	results.seed = whole.at("seed").get<std::uint64_t>();
	results.times.interval = whole.at("intervalS").get<int>();
	results.times.receivingTime = whole.at("receivingTimeS").get<int>();
	results.times.waitingTime = whole.at("waitingTimeS").get<int>();
	for (const Json& problem : whole.at("problems"))
	{
		results.problems.push_back(
		    {problem.at("lane").get<int>(), problem.at("step").get<int>(), problem.at("problem").get<std::string>()});
	}
	results.records = chaosRecordsFrom(whole.at("steps").dump());
	return results;
}
catch (const nlohmann::json::exception& error)
{
	throw LabError(std::string("this is no report of random schedules: ") + error.what());
}

} // namespace velarix::lab
