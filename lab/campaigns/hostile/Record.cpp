#include "lab/campaigns/hostile/Record.h"

#include <nlohmann/json.hpp>

#include "lab/core/Basics.h"
#include "lab/core/TextTable.h"

namespace velarix::lab::hostile
{

using Json = nlohmann::json;

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(AgentFigures, pid, threads, descriptors, residentKib)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(PairSnapshot, roles, agents)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Observation, owner, roles, durationMs, outageMs, outageOpen, noAnswerMs, duplicateMs,
                                   moves, ended)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Record, name, mitigation, tries, connections, messages, bytes, atOnce, open,
                                   received, read, partner, dropped, payload, before, during, after, owner, differences,
                                   timeline)

namespace
{

Row rowOf(const Record& record)
{
	const Observation& during = record.during;
	return {record.name,
	        std::to_string(record.tries),
	        std::to_string(record.read) + "/" + std::to_string(record.partner),
	        std::to_string(record.dropped),
	        during.roles[0] + ", " + during.roles[1],
	        secondsText(Millis(during.noAnswerMs)) + " of " + secondsText(Millis(during.durationMs)),
	        secondsText(Millis(during.duplicateMs)),
	        record.differences.empty() ? "as expected" : "DIFFERS"};
}

} // namespace

std::string toJson(const Record& record)
{
	return Json(record).dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string toJson(const std::vector<Record>& records)
{
	return Json(records).dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

Record recordFrom(const std::string& text)
{
	try
	{
		return Json::parse(text).get<Record>();
	}
	catch (const Json::exception& error)
	{
		throw LabError(std::string("no record of an attack: ") + error.what());
	}
}

std::string toText(const std::vector<Record>& records)
{
	std::vector<Row> rows;
	std::string differences;
	for (const Record& record : records)
	{
		rows.push_back(rowOf(record));
		for (const std::string& difference : record.differences)
		{
			differences += record.name + ": " + difference + "\n";
		}
	}
	return aligned({"case", "tries", "read/partner's", "dropped", "roles", "outage", "duplicate", "verdict"}, rows) +
	       differences;
}

} // namespace velarix::lab::hostile
