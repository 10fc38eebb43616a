#include "lab/campaigns/matrix/Record.h"

#include <nlohmann/json.hpp>

namespace velarix::lab
{

namespace
{

using Json = nlohmann::ordered_json;

Json jsonOf(const std::optional<Millis>& time)
{
	return time ? Json(time->count()) : Json();
}

Json jsonOf(const LegRecord& leg)
{
	return {{"fromMs", leg.from.count()},
	        {"toMs", leg.to.count()},
	        {"tookMs", leg.took.count()},
	        {"steady", leg.steady},
	        {"steadyAfterMs", leg.steadyAfter.count()},
	        {"owner", leg.owner},
	        {"answer", leg.answer},
	        {"programs", leg.programs},
	        {"outageMs", leg.outage.count()},
	        {"outageBeginMs", leg.outageBegin.count()},
	        {"outageEndMs", leg.outageEnd.count()},
	        {"outageOpen", leg.outageOpen},
	        {"noAnswerMs", leg.noAnswer.count()},
	        {"twoOwnersMs", leg.twoOwners.count()},
	        {"twoOwnersLongestMs", leg.twoOwnersLongest.count()},
	        {"noOwnerMs", leg.noOwner.count()},
	        {"firstChangeMs", jsonOf(leg.firstChange)},
	        {"moves", leg.moves},
	        {"ended", leg.ended},
	        {"disagreements", leg.disagreements},
	        {"noticedMs", jsonOf(leg.noticed)},
	        {"overheadMs", jsonOf(leg.overhead)},
	        {"pingsMs", jsonOf(leg.pings)},
	        {"differences", leg.differences}};
}

Millis millisIn(const Json& json, const char* key)
{
	return Millis(json.at(key).get<Millis::rep>());
}

std::optional<Millis> perhapsMillisIn(const Json& json, const char* key)
{
	return json.at(key).is_null() ? std::nullopt : std::optional<Millis>(millisIn(json, key));
}

LegRecord legFrom(const Json& json)
{
	LegRecord leg;
	leg.from = millisIn(json, "fromMs");
	leg.to = millisIn(json, "toMs");
	leg.took = millisIn(json, "tookMs");
	leg.steady = json.at("steady").get<bool>();
	leg.steadyAfter = millisIn(json, "steadyAfterMs");
	leg.owner = json.at("owner").get<std::string>();
	leg.answer = json.at("answer").get<std::string>();
	leg.programs = json.at("programs").get<std::string>();
	leg.outage = millisIn(json, "outageMs");
	leg.outageBegin = millisIn(json, "outageBeginMs");
	leg.outageEnd = millisIn(json, "outageEndMs");
	leg.outageOpen = json.at("outageOpen").get<bool>();
	leg.noAnswer = millisIn(json, "noAnswerMs");
	leg.twoOwners = millisIn(json, "twoOwnersMs");
	leg.twoOwnersLongest = millisIn(json, "twoOwnersLongestMs");
	leg.noOwner = millisIn(json, "noOwnerMs");
	leg.firstChange = perhapsMillisIn(json, "firstChangeMs");
	leg.moves = json.at("moves").get<int>();
	leg.ended = json.at("ended").get<std::string>();
	leg.disagreements = json.at("disagreements").get<std::vector<std::string>>();
	leg.noticed = perhapsMillisIn(json, "noticedMs");
	leg.overhead = perhapsMillisIn(json, "overheadMs");
	// Older records have none.
	leg.pings = json.contains("pingsMs") ? perhapsMillisIn(json, "pingsMs") : std::nullopt;
	leg.differences = json.at("differences").get<std::vector<std::string>>();
	return leg;
}

} // namespace

bool RunRecord::asExpected() const
{
	return differencesOf(*this).empty();
}

std::vector<std::string> differencesOf(const RunRecord& record)
{
	std::vector<std::string> lines;
	for (std::size_t index = 0; index < record.legs.size(); ++index)
	{
		for (const std::string& difference : record.legs[index].differences)
		{
			lines.push_back((index == 0 ? "fault: " : "healed: ") + difference);
		}
	}
	lines.insert(lines.end(), record.differences.begin(), record.differences.end());
	return lines;
}

std::string toJson(const RunRecord& record)
{
	Json legs = Json::array();
	for (const LegRecord& leg : record.legs)
	{
		legs.push_back(jsonOf(leg));
	}
	const Json whole{{"cell", record.cell},        {"run", record.run},
	                 {"seed", record.seed},        {"legs", legs},
	                 {"left", record.left},        {"differences", record.differences},
	                 {"timeline", record.timeline}};
	return whole.dump(-1, ' ', false, Json::error_handler_t::replace);
}

RunRecord recordFrom(const std::string& json)
{
	try
	{
		const Json whole = Json::parse(json);
		RunRecord record;
		record.cell = whole.at("cell").get<std::string>();
		record.run = whole.at("run").get<int>();
		record.seed = whole.at("seed").get<std::uint64_t>();
		for (const Json& leg : whole.at("legs"))
		{
			record.legs.push_back(legFrom(leg));
		}
		record.left = whole.at("left").get<std::vector<std::string>>();
		record.differences = whole.at("differences").get<std::vector<std::string>>();
		record.timeline = whole.at("timeline").get<std::string>();
		return record;
	}
	catch (const nlohmann::json::exception& error)
	{
		throw LabError(std::string("this is no record of a run: ") + error.what());
	}
}

} // namespace velarix::lab
